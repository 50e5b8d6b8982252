#include "creation/blockcodec.h"

#include <algorithm>
#include <climits>

BlockCodec blockCodecFor(int version, int zlibLevel, int lz4Mode)
{
    if (version == 3) {
        if (lz4Mode == 1) return BlockCodec::Lz4;
        if (lz4Mode == 2) return BlockCodec::Lz4Large;
        return BlockCodec::Store;
    }
    if ((version == 1 || version == 2) && zlibLevel >= 1 && zlibLevel <= 9) return BlockCodec::Zlib;
    return BlockCodec::Store;
}

uint64_t blockInputLimit(BlockCodec codec)
{
    return codec == BlockCodec::Store ? 0xFFFFFFFFull : 0x7E000000ull;
}

uint64_t blockPackRoom(BlockCodec codec, uint32_t length)
{
    switch (codec) {
    case BlockCodec::Store: return 0;
    case BlockCodec::Zlib: return ZlibCompressor::bound(length);
    case BlockCodec::Lz4:
    case BlockCodec::Lz4Large: break;
    }
    return lz4Bound(length);
}

int64_t encodeBlock(BlockCodec codec, ZlibCompressor& zlib, const char* source, uint32_t length,
                    char* destination, uint64_t capacity)
{
    switch (codec) {
    case BlockCodec::Store: return 0;
    case BlockCodec::Zlib: return zlib.compress(source, length, destination, capacity);
    case BlockCodec::Lz4:
    case BlockCodec::Lz4Large: break;
    }
    if (length > blockInputLimit(codec)) return -1;
    const int room = int(std::min<uint64_t>(capacity, INT_MAX));
    const int n = codec == BlockCodec::Lz4
        ? compressLz4(source, int(length), destination, room)
        : compressLz4Large(source, int(length), destination, room);
    return n > 0 ? n : -1;
}

bool plausibleExpansion(bool lz4, uint32_t packedSize, uint32_t unpackedSize)
{
    const uint64_t packed = packedSize;
    return unpackedSize <= (lz4 ? packed * 255 + 16 : packed * 1032 + 1024);
}

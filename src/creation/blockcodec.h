#pragma once
// One data block of an archive turned into the bytes to store, and back: the choice of codec
// that the writer and the converter share.

#include "creation/codecs.h"

#include <cstdint>

// How an archive stores its blocks: unchanged, as zlib streams (versions 1 and 2), or as LZ4
// blocks (version 3) from the default or the large-table compressor.
enum class BlockCodec { Store, Zlib, Lz4, Lz4Large };

// The codec of an archive of this version at these settings; out-of-range settings store.
BlockCodec blockCodecFor(int version, int zlibLevel, int lz4Mode);

// Largest input a codec takes: unpackedSize is a 32-bit field, and the compressors take int
// lengths (LZ4 refuses more than 0x7E000000 bytes).
uint64_t blockInputLimit(BlockCodec codec);

// Room encodeBlock may need for length bytes; 0 for Store.
uint64_t blockPackRoom(BlockCodec codec, uint32_t length);

// Compresses length bytes into destination (capacity >= blockPackRoom). Returns the packedSize:
// 0 when the block is to be stored as it is (Store, or an empty zlib block), -1 on failure.
// zlib belongs to the calling thread and carries the level.
int64_t encodeBlock(BlockCodec codec, ZlibCompressor& zlib, const char* source, uint32_t length,
                    char* destination, uint64_t capacity);

// Whether packedSize stored bytes may honestly decode to unpackedSize: deflate expands by
// 1032:1 at most and an LZ4 block by 255:1, so a record claiming more lies and is refused
// before memory is reserved for it.
bool plausibleExpansion(bool lz4, uint32_t packedSize, uint32_t unpackedSize);

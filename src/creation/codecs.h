#pragma once
// Block codecs of archive data: zlib for versions 1 and 2, LZ4 blocks for version 3.
// Each function is stateless and thread-safe.

#include <QByteArray>
#include <QString>

#include <cstdint>

struct libdeflate_compressor;

// zlib-compresses length bytes at level 1..9. Returns Qt's framing: a 4-byte big-endian length
// prefix followed by the RFC 1950 stream, so the bytes to store start at offset 4 and
// packedSize = size() - 4. Empty on failure (a 0-byte block gives 4 zero bytes: stored).
QByteArray compressZlib(const char* source, uint32_t length, int level);

// The library that makes the zlib streams of versions 1 and 2. Both write RFC 1950 streams that
// every reader decodes; only the bytes differ. Zlib gives exactly qCompress's streams; Auto takes
// libdeflate at levels 2-9, where it was faster and packed as small or smaller on the benchmark's
// texture-like, mesh-like and incompressible corpora (bench/README.md; other data, such as a
// plain word list, can come out a few percent larger).
enum class ZlibEngine { Auto, Zlib, Libdeflate };

// The engine that runs at a level: Auto resolved.
ZlibEngine effectiveZlibEngine(ZlibEngine engine, int level);

// zlib compression of one block at a time into a caller's buffer. Keeps the engine's state
// between blocks: one object per thread.
class ZlibCompressor
{
public:
    ZlibCompressor(int level, ZlibEngine engine);
    ~ZlibCompressor();
    ZlibCompressor(const ZlibCompressor&) = delete;
    ZlibCompressor& operator=(const ZlibCompressor&) = delete;

    // Room compress() may need for length input bytes, with either engine.
    static uint64_t bound(uint64_t length) { return length + length / 128 + 1024; }
    // Writes the RFC 1950 stream of length bytes into destination (capacity >= bound(length)) and
    // returns its length, the packedSize: 0 for an empty block, which is then stored (as
    // qCompress's bare 4-byte prefix says). -1 on failure: level outside 1..9, no memory, input
    // over INT_MAX bytes.
    int64_t compress(const char* source, uint32_t length, char* destination, uint64_t capacity);

private:
    int level;
    ZlibEngine engine;
    libdeflate_compressor* deflater = nullptr;
};

// Inflates the packedSize-byte zlib stream into destination (room for unpackedSize bytes).
// True only when the stream decodes to exactly unpackedSize bytes.
bool decompressZlib(const char* stored, uint32_t packedSize, char* destination,
                    uint32_t unpackedSize);

// LZ4 block with the library's default compressor. Returns the block length, 0 on failure
// (input too large, destination too small).
int compressLz4(const char* source, int length, char* destination, int capacity);

// LZ4 block as the fast compressor at acceleration 1 makes it with a 2^28-entry hash table.
// Costs time and memory in proportion to the input. Returns the block length, 0 on failure.
int compressLz4Large(const char* source, int length, char* destination, int capacity);
// The same compressor with a table of 2^(memoryUsage - 2) entries, memoryUsage 10..30 (0 outside);
// 30 is compressLz4Large, and 14, the library's default, gives LZ4_compress_default's blocks.
int compressLz4WithMemoryUsage(const char* source, int length, char* destination, int capacity,
                               int memoryUsage);

// Decodes an LZ4 block into destination (capacity bytes). True only when exactly
// unpackedSize bytes come out.
bool decompressLz4(const char* stored, uint32_t packedSize, char* destination, uint32_t capacity,
                   uint32_t unpackedSize);

// Worst-case size of an LZ4 block for n input bytes: n + n/255 + 16.
inline uint64_t lz4Bound(uint64_t n)
{
    return n + n / 255 + 16;
}

// The codec libraries of this build and their versions: "zlib 1.2.13, libdeflate 1.14, lz4 1.9.4".
QString codecLibraryVersions();

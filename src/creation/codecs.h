#pragma once
// Block codecs of archive data: zlib for versions 1 and 2, LZ4 blocks for version 3.
// Each function is stateless and thread-safe.

#include <QByteArray>

#include <cstdint>

// zlib-compresses length bytes at level 1..9. Returns Qt's framing: a 4-byte big-endian length
// prefix followed by the RFC 1950 stream, so the bytes to store start at offset 4 and
// packedSize = size() - 4. Empty on failure (a 0-byte block gives 4 zero bytes: stored).
QByteArray compressZlib(const char* source, uint32_t length, int level);

// Inflates the packedSize-byte zlib stream into destination (room for unpackedSize bytes).
// True only when the stream decodes to exactly unpackedSize bytes.
bool decompressZlib(const char* stored, uint32_t packedSize, char* destination, uint32_t unpackedSize);

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
inline uint64_t lz4Bound(uint64_t n) { return n + n / 255 + 16; }

#pragma once
// Test helpers: an independent byte-by-byte BA2 builder (compressing with zlib and lz4
// directly, not through the program's codecs) and small file utilities.

#include <QByteArray>
#include <QString>
#include <QVector>

#include <cstdint>

namespace testutil {

enum class Pack { Stored, Zlib, Lz4 };

struct TestChunk
{
    QByteArray stored;       // bytes placed in the data area
    uint32_t packedSize = 0; // 0 = stored
    uint32_t unpackedSize = 0;
    uint16_t firstMip = 0, lastMip = 0;
};

struct TestEntry
{
    QByteArray name; // written to the name table as is
    // general
    QByteArray stored;
    uint32_t packedSize = 0;
    uint32_t unpackedSize = 0;
    // texture
    uint16_t height = 0, width = 0;
    uint8_t mipCount = 1, format = 98;
    uint16_t textureFlags = 0x0800;
    uint16_t chunkRecordSize = 24;
    QVector<TestChunk> chunks;
};

QByteArray zlibStream(const QByteArray& data, int level = 6); // RFC 1950 stream, no prefix
QByteArray lz4Block(const QByteArray& data);                  // LZ4 block, no prefix

class Ba2Builder
{
public:
    uint32_t version = 1;
    bool texture = false;
    uint32_t compressionCode = 3; // written for version 3
    uint64_t headerExtra = 1;     // written for versions 2 and 3
    QByteArray trailingNameBytes; // appended after the name table
    QVector<TestEntry> entries;

    // A general file; Pack picks how its data is stored.
    TestEntry& addGeneral(const QByteArray& name, const QByteArray& data, Pack pack = Pack::Stored);
    // A texture whose pixel data is given as one byte array per chunk.
    TestEntry& addTexture(const QByteArray& name, uint16_t width, uint16_t height, uint8_t mipCount,
                          uint8_t format, const QVector<QByteArray>& chunkData,
                          Pack pack = Pack::Stored);
    // The archive bytes: header, records, data in record order, name table.
    QByteArray build() const;
};

QByteArray patternBytes(int size, uint32_t seed, bool compressible = true);
bool writeFile(const QString& path, const QByteArray& bytes);
QByteArray readFile(const QString& path);
QString samplesDir(); // ../shared/real-samples of the source tree

} // namespace testutil

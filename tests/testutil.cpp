#include "testutil.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <lz4.h>
#include <zlib.h>

namespace testutil {

static void put16(QByteArray& b, uint16_t v)
{
    b.append(char(v & 0xFF));
    b.append(char(v >> 8));
}
static void put32(QByteArray& b, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        b.append(char((v >> (8 * i)) & 0xFF));
}
static void put64(QByteArray& b, uint64_t v)
{
    for (int i = 0; i < 8; ++i)
        b.append(char((v >> (8 * i)) & 0xFF));
}

QByteArray zlibStream(const QByteArray& data, int level)
{
    uLongf len = compressBound(uLong(data.size()));
    QByteArray out(int(len), '\0');
    compress2(reinterpret_cast<Bytef*>(out.data()), &len,
              reinterpret_cast<const Bytef*>(data.constData()), uLong(data.size()), level);
    out.resize(int(len));
    return out;
}

QByteArray lz4Block(const QByteArray& data)
{
    QByteArray out(LZ4_compressBound(data.size()), '\0');
    int n = LZ4_compress_default(data.constData(), out.data(), data.size(), out.size());
    out.resize(n);
    return out;
}

static void packInto(const QByteArray& data, Pack pack, QByteArray& stored, uint32_t& packed,
                     uint32_t& unpacked)
{
    unpacked = uint32_t(data.size());
    switch (pack) {
    case Pack::Stored:
        stored = data;
        packed = 0;
        break;
    case Pack::Zlib:
        stored = zlibStream(data);
        packed = uint32_t(stored.size());
        break;
    case Pack::Lz4:
        stored = lz4Block(data);
        packed = uint32_t(stored.size());
        break;
    }
}

TestEntry& Ba2Builder::addGeneral(const QByteArray& name, const QByteArray& data, Pack pack)
{
    TestEntry e;
    e.name = name;
    packInto(data, pack, e.stored, e.packedSize, e.unpackedSize);
    entries.append(e);
    return entries.last();
}

TestEntry& Ba2Builder::addTexture(const QByteArray& name, uint16_t width, uint16_t height,
                                  uint8_t mipCount, uint8_t format,
                                  const QVector<QByteArray>& chunkData, Pack pack)
{
    TestEntry e;
    e.name = name;
    e.width = width;
    e.height = height;
    e.mipCount = mipCount;
    e.format = format;
    uint16_t mip = 0;
    for (int i = 0; i < chunkData.size(); ++i) {
        TestChunk c;
        packInto(chunkData[i], pack, c.stored, c.packedSize, c.unpackedSize);
        c.firstMip = mip;
        c.lastMip = (i + 1 == chunkData.size()) ? uint16_t(mipCount ? mipCount - 1 : 0) : mip;
        ++mip;
        e.chunks.append(c);
    }
    entries.append(e);
    return entries.last();
}

QByteArray Ba2Builder::build() const
{
    const uint32_t headerSize = version == 3 ? 36 : version == 2 ? 32 : 24;
    uint64_t recordBytes = 0;
    for (const TestEntry& e : entries)
        recordBytes += texture ? 24 + uint64_t(e.chunks.size()) * e.chunkRecordSize : 36;
    uint64_t dataCursor = headerSize + recordBytes;
    QByteArray records, data;
    for (const TestEntry& e : entries) {
        if (!texture) {
            put32(records, 0x11111111);
            put32(records, 0x00736464);
            put32(records, 0x22222222);
            put32(records, 0x00100100);
            put64(records, dataCursor);
            put32(records, e.packedSize);
            put32(records, e.unpackedSize);
            put32(records, 0xBAADF00D);
            data += e.stored;
            dataCursor += uint64_t(e.stored.size());
        } else {
            put32(records, 0x11111111);
            put32(records, 0x00736464);
            put32(records, 0x22222222);
            records.append('\0');
            records.append(char(uint8_t(e.chunks.size())));
            put16(records, e.chunkRecordSize);
            put16(records, e.height);
            put16(records, e.width);
            records.append(char(e.mipCount));
            records.append(char(e.format));
            put16(records, e.textureFlags);
            for (const TestChunk& c : e.chunks) {
                QByteArray rec;
                put64(rec, dataCursor);
                put32(rec, c.packedSize);
                put32(rec, c.unpackedSize);
                put16(rec, c.firstMip);
                put16(rec, c.lastMip);
                put32(rec, 0xBAADF00D);
                rec.resize(e.chunkRecordSize);
                records += rec;
                data += c.stored;
                dataCursor += uint64_t(c.stored.size());
            }
        }
    }
    QByteArray out;
    put32(out, 0x58445442);
    put32(out, version);
    put32(out, texture ? 0x30315844 : 0x4C524E47);
    put32(out, uint32_t(entries.size()));
    put64(out, dataCursor);
    if (headerSize >= 32) put64(out, headerExtra);
    if (headerSize >= 36) put32(out, compressionCode);
    out += records;
    out += data;
    for (const TestEntry& e : entries) {
        put16(out, uint16_t(e.name.size()));
        out += e.name;
    }
    out += trailingNameBytes;
    return out;
}

QByteArray patternBytes(int size, uint32_t seed, bool compressible)
{
    QByteArray out(size, '\0');
    uint32_t x = seed * 2654435761u + 1;
    for (int i = 0; i < size; ++i) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        out[i] = compressible ? char("abcdefgh"[(x >> 7) & 7] + ((i / 64) & 3)) : char(x >> 11);
    }
    return out;
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    // A fresh file each time: truncating and rewriting one makes ext4 flush it to disk.
    QFile::remove(path);
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QString samplesDir()
{
    return QStringLiteral(ZARNEL_SAMPLES_DIR);
}

} // namespace testutil

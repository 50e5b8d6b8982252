#pragma once
// Deterministic benchmark data: texture-like, mesh-like and incompressible files.

#include "testutil.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace corpus {

struct File
{
    QString name;
    QByteArray data;
};

class Rng
{
public:
    explicit Rng(uint64_t seed)
        : s(seed * 0x9E3779B97F4A7C15ull + 1)
    { }
    uint64_t next()
    {
        s ^= s << 13;
        s ^= s >> 7;
        s ^= s << 17;
        return s;
    }

private:
    uint64_t s;
};

// BC1-like blocks: two 16-bit end colours drifting smoothly across the image, index bits that
// repeat in runs, as block-compressed textures look to a general-purpose compressor.
inline QByteArray textureLike(int size, uint64_t seed)
{
    QByteArray out(size, '\0');
    Rng rng(seed);
    uint16_t c0 = uint16_t(rng.next()), c1 = uint16_t(rng.next());
    uint32_t indices = uint32_t(rng.next());
    for (int i = 0; i + 8 <= size; i += 8) {
        if ((rng.next() & 7) == 0) {
            c0 = uint16_t(c0 + (rng.next() & 0x0841));
            c1 = uint16_t(c1 + (rng.next() & 0x0821));
        }
        if ((rng.next() & 3) == 0) indices = uint32_t(rng.next()) & 0x55FF55FF;
        memcpy(out.data() + i, &c0, 2);
        memcpy(out.data() + i + 2, &c1, 2);
        memcpy(out.data() + i + 4, &indices, 4);
    }
    return out;
}

// Mesh-like: vertex positions, normals and UVs as floats changing slowly, then 16-bit indices.
inline QByteArray meshLike(int size, uint64_t seed)
{
    QByteArray out(size, '\0');
    Rng rng(seed);
    float v[8] = {0, 0, 0, 0, 1, 0, 0.5f, 0.5f};
    int i = 0;
    for (; i + 32 <= size * 3 / 4; i += 32) {
        for (float& f : v)
            f += float(int(rng.next() % 200) - 100) / 4096.0f;
        memcpy(out.data() + i, v, 32);
    }
    uint16_t index = 0;
    for (; i + 2 <= size; i += 2) {
        index = uint16_t(index + (rng.next() % 5) - 1);
        memcpy(out.data() + i, &index, 2);
    }
    return out;
}

inline QByteArray incompressible(int size, uint64_t seed)
{
    QByteArray out(size, '\0');
    Rng rng(seed);
    for (int i = 0; i + 8 <= size; i += 8) {
        const uint64_t x = rng.next();
        memcpy(out.data() + i, &x, 8);
    }
    return out;
}

// About totalBytes of files, 45% texture-like, 45% mesh-like, 10% incompressible, sizes from
// 4 KiB to 4 MiB as in real mods.
inline std::vector<File> mixed(int64_t totalBytes, uint64_t seed = 1)
{
    std::vector<File> files;
    Rng rng(seed);
    int64_t made = 0;
    for (int n = 0; made < totalBytes; ++n) {
        const int size = 4096 << (rng.next() % 11); // 4 KiB .. 4 MiB
        const int kind = int(rng.next() % 20);
        File f;
        if (kind < 9) {
            f.name = QStringLiteral("textures/set%1/t%2.bin").arg(n % 13).arg(n);
            f.data = textureLike(size, seed + uint64_t(n));
        } else if (kind < 18) {
            f.name = QStringLiteral("meshes/set%1/m%2.nif").arg(n % 11).arg(n);
            f.data = meshLike(size, seed + uint64_t(n));
        } else {
            f.name = QStringLiteral("sound/s%1.xwm").arg(n);
            f.data = incompressible(size, seed + uint64_t(n));
        }
        made += size;
        files.push_back(std::move(f));
    }
    return files;
}

enum class Kind { Texture, Mesh, Incompressible };

inline QByteArray ofKind(Kind kind, int size, uint64_t seed)
{
    switch (kind) {
    case Kind::Texture: return textureLike(size, seed);
    case Kind::Mesh: return meshLike(size, seed);
    case Kind::Incompressible: break;
    }
    return incompressible(size, seed);
}

// About totalBytes of one kind, in files of 4 KiB to 4 MiB.
inline std::vector<QByteArray> ofKind(Kind kind, int64_t totalBytes, uint64_t seed = 7)
{
    std::vector<QByteArray> blocks;
    Rng rng(seed);
    for (int64_t made = 0; made < totalBytes;) {
        const int size = 4096 << (rng.next() % 11);
        blocks.push_back(ofKind(kind, size, seed + blocks.size()));
        made += size;
    }
    return blocks;
}

// A DDS file with a full mip chain of texture-like blocks: BC1 behind the plain header, or BC7
// behind the DX10 one.
inline QByteArray ddsFile(uint32_t width, uint32_t height, bool bc7, uint64_t seed)
{
    uint32_t mips = 0;
    uint64_t bytes = 0;
    for (uint32_t w = width, h = height;; w = w > 1 ? w / 2 : 1, h = h > 1 ? h / 2 : 1) {
        bytes += uint64_t((w + 3) / 4) * ((h + 3) / 4) * (bc7 ? 16 : 8);
        ++mips;
        if (w == 1 && h == 1) break;
    }
    testutil::DdsFields fields;
    fields.flags = 0x000A1007;
    fields.caps = 0x401008;
    const QByteArray f = testutil::makeDds(
        bc7 ? testutil::ddsDx10(98) : testutil::ddsFourCC("DXT1"), width, height, mips, 0, fields);
    return f + textureLike(int(bytes), seed);
}

// About totalBytes of DDS textures from 64 x 64 to 2048 x 2048, BC1 and BC7, as in texture mods.
inline std::vector<File> textures(int64_t totalBytes, uint64_t seed = 3)
{
    std::vector<File> files;
    Rng rng(seed);
    int64_t made = 0;
    for (int n = 0; made < totalBytes; ++n) {
        const uint32_t width = 64u << (rng.next() % 6);
        const uint32_t height = (rng.next() & 3) == 0 ? width / 2 : width;
        File f;
        f.name = QStringLiteral("textures/set%1/t%2.dds").arg(n % 7).arg(n);
        f.data = ddsFile(width, height, (rng.next() & 1) != 0, seed + uint64_t(n));
        made += f.data.size();
        files.push_back(std::move(f));
    }
    return files;
}

// Writes files under folder (their names are relative paths); false on the first failure.
inline bool writeTo(const QString& folder, const std::vector<File>& files)
{
    for (const File& f : files) {
        const QString path = folder + QLatin1Char('/') + f.name;
        if (!QDir().mkpath(QFileInfo(path).path())) return false;
        QFile out(path);
        if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate)
            || out.write(f.data) != f.data.size())
            return false;
    }
    return true;
}

} // namespace corpus

#pragma once
// Deterministic benchmark data: texture-like, mesh-like and incompressible files.

#include <QByteArray>
#include <QString>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace corpus {

struct File {
    QString name;
    QByteArray data;
};

class Rng {
public:
    explicit Rng(uint64_t seed) : s(seed * 0x9E3779B97F4A7C15ull + 1) {}
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
        for (float& f : v) f += float(int(rng.next() % 200) - 100) / 4096.0f;
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
        const int size = 4096 << (rng.next() % 11);  // 4 KiB .. 4 MiB
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

}  // namespace corpus

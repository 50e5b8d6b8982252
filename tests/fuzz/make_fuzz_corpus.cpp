// Writes the seed corpora of the fuzz targets: small archives of every kind, the real sample
// archives, DDS files of every accepted format, and codec inputs.
#include "testutil.h"

#include <QDir>
#include <QFile>

using namespace testutil;

namespace {

void put(const QString& dir, const QString& name, const QByteArray& bytes)
{
    QDir().mkpath(dir);
    writeFile(dir + "/" + name, bytes);
}

QByteArray dds(uint32_t width, uint32_t height, uint32_t mips, uint32_t pfFlags, const char* fourCC,
               uint32_t bits, uint32_t r, uint32_t g, uint32_t b, uint32_t a, int dxgi,
               int dataBytes)
{
    QByteArray h(dxgi ? 148 : 128, '\0');
    auto set = [&](int off, uint32_t v) {
        for (int i = 0; i < 4; ++i)
            h[off + i] = char((v >> (8 * i)) & 0xFF);
    };
    h.replace(0, 4, "DDS ");
    set(4, 124);
    set(12, height);
    set(16, width);
    set(28, mips);
    set(76, 32);
    set(80, pfFlags);
    if (fourCC) h.replace(84, 4, fourCC);
    set(88, bits);
    set(92, r);
    set(96, g);
    set(100, b);
    set(104, a);
    if (dxgi) set(128, uint32_t(dxgi));
    return h + patternBytes(dataBytes, width * 7 + height);
}

} // namespace

int main(int argc, char** argv)
{
    const QString root = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("fuzz-corpus");
    const QString archives = root + "/archive";
    int n = 0;
    // 30: version 3 with zlib (compression code 0).
    for (uint32_t kind : {1u, 2u, 3u, 30u}) {
        const uint32_t version = kind == 30 ? 3 : kind;
        for (bool texture : {false, true}) {
            Ba2Builder b;
            b.version = version;
            b.compressionCode = kind == 30 ? 0 : 3;
            b.texture = texture;
            const Pack pack = kind == 3 ? Pack::Lz4 : Pack::Zlib;
            if (texture) {
                b.addTexture("textures/a.dds", 8, 8, 2, 71,
                             {patternBytes(32, 1), patternBytes(8, 2)}, pack);
                b.addTexture("textures\\b.dds", 4, 4, 1, 98, {patternBytes(16, 3)}, Pack::Stored);
                // Formats named only by their code, one of them a cube map.
                b.addTexture("c.dds", 4, 2, 1, 2, {patternBytes(128, 4)}, pack).textureFlags
                    = 0x801;
                b.addTexture("d.dds", 5, 5, 1, 81, {patternBytes(32, 5)}, pack);
            } else {
                b.addGeneral("meshes/a.nif", patternBytes(200, 4), pack);
                b.addGeneral("b.txt", "hello");
            }
            put(archives, QStringLiteral("built%1.ba2").arg(n++), b.build());
            // Blocks large enough that extraction hands them to worker threads.
            Ba2Builder big;
            big.version = version;
            big.texture = texture;
            for (int i = 0; i < 3; ++i) {
                const QByteArray name = "big/f" + QByteArray::number(i);
                if (texture)
                    big.addTexture(name + ".dds", 128, 128, 1, 71,
                                   {patternBytes(18000, uint32_t(i), false)}, pack);
                else
                    big.addGeneral(name + ".bin", patternBytes(18000, uint32_t(i), false),
                                   i == 2 ? Pack::Stored : pack);
                big.compressionCode = b.compressionCode;
            }
            put(archives, QStringLiteral("built%1.ba2").arg(n++), big.build());
        }
    }
    for (const QString& f : QDir(samplesDir()).entryList({"*.ba2"}, QDir::Files))
        put(archives, f, readFile(samplesDir() + "/" + f));

    const QString textures = root + "/texture";
    put(textures, "dxt1.dds", dds(16, 16, 3, 4, "DXT1", 0, 0, 0, 0, 0, 0, 128 + 32 + 8));
    put(textures, "dxt5.dds", dds(1024, 512, 1, 4, "DXT5", 0, 0, 0, 0, 0, 0, 4096));
    put(textures, "bc7.dds", dds(8, 8, 2, 4, "DX10", 0, 0, 0, 0, 0, 98, 80));
    put(textures, "rgba.dds",
        dds(4, 4, 3, 0x41, nullptr, 32, 0xFF, 0xFF00, 0xFF0000, 0xFF000000, 0, 84));
    put(textures, "bgra.dds",
        dds(4, 4, 1, 0x41, nullptr, 32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000, 0, 64));
    put(textures, "lum.dds", dds(8, 2, 1, 0x20000, nullptr, 8, 0xFF, 0, 0, 0, 0, 16));
    put(textures, "half.dds", dds(2, 2, 2, 4, nullptr, 0, 0, 0, 0, 0, 0, 40));
    // Cube maps (face bits, the DX10 cube flag), an array, and a format outside the FourCCs.
    const auto shaped = [](QByteArray f, int at, const QByteArray& bytes) {
        return f.replace(at, bytes.size(), bytes);
    };
    const QByteArray faces("\x00\xFE\x00\x00", 4), one("\x01\x00\x00\x00", 4);
    put(textures, "cube.dds", shaped(dds(8, 8, 2, 4, "DXT1", 0, 0, 0, 0, 0, 0, 240), 112, faces));
    put(textures, "cube10.dds",
        shaped(dds(4, 4, 1, 4, "DX10", 0, 0, 0, 0, 0, 49, 192), 136,
               QByteArray("\x04\x00\x00\x00", 4) + one));
    put(textures, "array.dds",
        shaped(dds(4, 4, 1, 4, "DX10", 0, 0, 0, 0, 0, 98, 32), 140, QByteArray("\x02\0\0\0", 4)));
    put(textures, "r16.dds", shaped(dds(8, 8, 4, 4, "DX10", 0, 0, 0, 0, 0, 56, 170), 140, one));

    const QString codec = root + "/lz4large";
    put(codec, "text", patternBytes(5000, 1));
    put(codec, "random", patternBytes(3000, 2, false));
    put(codec, "runs", QByteArray(70000, 'a') + patternBytes(100, 3));
    return 0;
}

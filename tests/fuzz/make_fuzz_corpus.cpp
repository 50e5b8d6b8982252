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
    // BSA archives of every version, compressed and stored, with embedded names, root files and
    // one block large enough for the workers.
    for (uint32_t version : {103u, 104u, 105u})
        for (uint32_t flags : {0x3u, 0x107u}) {
            BsaBuilder b;
            b.version = version;
            b.flags = flags;
            b.folders = {{"meshes\\a", {{"x.nif", patternBytes(300, 1)}, {"y.txt", "t", true}}},
                         {".", {{"z.dds", patternBytes(100, 2)}}},
                         {"big", {{"b.bin", patternBytes(40000, 3, false)}}}};
            put(archives, QStringLiteral("bsa%1-%2.bsa").arg(version).arg(flags), b.build());
        }
    for (const QString& f : QDir(samplesDir()).entryList({"*.ba2"}, QDir::Files))
        put(archives, f, readFile(samplesDir() + "/" + f));

    const QString textures = root + "/texture";
    put(textures, "dxt1.dds", makeDds(ddsFourCC("DXT1"), 16, 16, 3, 128 + 32 + 8));
    put(textures, "dxt5.dds", makeDds(ddsFourCC("DXT5"), 1024, 512, 1, 4096));
    put(textures, "bc7.dds", makeDds(ddsDx10(98), 8, 8, 2, 80));
    put(textures, "rgba.dds",
        makeDds(ddsMasks(0x41, 32, 0xFF, 0xFF00, 0xFF0000, 0xFF000000), 4, 4, 3, 84));
    put(textures, "bgra.dds",
        makeDds(ddsMasks(0x41, 32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000), 4, 4, 1, 64));
    put(textures, "lum.dds", makeDds(ddsMasks(0x20000, 8, 0xFF, 0, 0, 0), 8, 2, 1, 16));
    put(textures, "half.dds", makeDds(ddsFourCC(0u), 2, 2, 2, 40));
    // Cube maps (face bits, the DX10 cube flag), an array, and a format outside the FourCCs.
    DdsFields faces, cube10, array;
    faces.caps2 = 0xFE00;
    cube10.miscFlag = 4;
    array.arraySize = 2;
    put(textures, "cube.dds", makeDds(ddsFourCC("DXT1"), 8, 8, 2, 240, faces));
    put(textures, "cube10.dds", makeDds(ddsDx10(49), 4, 4, 1, 192, cube10));
    put(textures, "array.dds", makeDds(ddsDx10(98), 4, 4, 1, 32, array));
    put(textures, "r16.dds", makeDds(ddsDx10(56), 8, 8, 4, 170));

    const QString codec = root + "/lz4large";
    put(codec, "text", patternBytes(5000, 1));
    put(codec, "random", patternBytes(3000, 2, false));
    put(codec, "runs", QByteArray(70000, 'a') + patternBytes(100, 3));
    return 0;
}

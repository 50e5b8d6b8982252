#include "archive/archivereader.h"
#include "archive/ddsheader.h"
#include "creation/texturelayout.h"

#include "testutil.h"

#include <QtTest>

#include <cstring>
#include <memory>

namespace {

uint32_t text4(const char* s)
{
    return uint32_t(uint8_t(s[0])) | (uint32_t(uint8_t(s[1])) << 8) | (uint32_t(uint8_t(s[2])) << 16)
        | (uint32_t(uint8_t(s[3])) << 24);
}

void put32(QByteArray& b, int offset, uint32_t v)
{
    for (int i = 0; i < 4; ++i) b[offset + i] = char(v >> (8 * i));
}

// The pixel-format description of a DDS header, as a DDS writer fills it in.
struct PixelFormat {
    uint32_t flags = 0;
    uint32_t fourCC = 0;
    uint32_t bits = 0;
    uint32_t masks[4] = {0, 0, 0, 0};
    int dxgi = -1;  // >= 0: the FourCC is "DX10" and this code follows
};

PixelFormat fourCC(const char* code) { return {0x4, text4(code), 0, {0, 0, 0, 0}, -1}; }
PixelFormat fourCCNumber(uint32_t n) { return {0x4, n, 0, {0, 0, 0, 0}, -1}; }
PixelFormat dx10(int code) { return {0x4, text4("DX10"), 0, {0, 0, 0, 0}, code}; }
PixelFormat masks(uint32_t flags, uint32_t bits, uint32_t r, uint32_t g, uint32_t b, uint32_t a)
{
    return {flags, 0, bits, {r, g, b, a}, -1};
}
const PixelFormat kRgba = masks(0x41, 32, 0xFF, 0xFF00, 0xFF0000, 0xFF000000);
const PixelFormat kBgra = masks(0x41, 32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000);
const PixelFormat kLuminance = masks(0x20000, 8, 0xFF, 0, 0, 0);

// A DDS file: header (with the extension when dxgi >= 0) and dataBytes of patterned data.
QByteArray makeDds(const PixelFormat& pf, uint32_t width, uint32_t height, uint32_t mips, uint64_t dataBytes)
{
    const int headerSize = pf.dxgi >= 0 ? 148 : 128;
    QByteArray f(headerSize, '\0');
    put32(f, 0, text4("DDS "));
    put32(f, 4, 124);
    put32(f, 8, 0x1007);
    put32(f, 12, height);
    put32(f, 16, width);
    put32(f, 24, 1);
    put32(f, 28, mips);
    put32(f, 76, 32);
    put32(f, 80, pf.flags);
    put32(f, 84, pf.fourCC);
    put32(f, 88, pf.bits);
    for (int i = 0; i < 4; ++i) put32(f, 92 + 4 * i, pf.masks[i]);
    put32(f, 108, 0x1000);
    if (pf.dxgi >= 0) {
        put32(f, 128, uint32_t(pf.dxgi));
        put32(f, 132, 3);
        put32(f, 140, 1);
    }
    f += testutil::patternBytes(int(dataBytes), 5);
    return f;
}

struct Chunk {
    int firstMip, lastMip;
    uint32_t size;
};

}  // namespace

Q_DECLARE_METATYPE(PixelFormat)
Q_DECLARE_METATYPE(QVector<Chunk>)

class TestTextureLayout : public QObject {
    Q_OBJECT
private slots:
    void acceptedFormats_data();
    void acceptedFormats();
    void chunkWalk_data();
    void chunkWalk();
    void creationKitTextures_data();
    void creationKitTextures();
    void refusedFiles_data();
    void refusedFiles();
    void onlyTheChainIsStored();
    void zeroMipCountIsOneLevel();
    void headerRoundTrip();
    void damagedHeadersNeverReadOutside();
};

void TestTextureLayout::acceptedFormats_data()
{
    // Every description of the acceptance table, each on a 64 x 64 single-level texture: 4,096
    // pixels or 256 blocks.
    QTest::addColumn<PixelFormat>("pf");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("format");
    QTest::addColumn<uint>("dataSize");
    QTest::newRow("DXT1") << fourCC("DXT1") << 1 << 71 << 256u * 8;
    QTest::newRow("DXT3") << fourCC("DXT3") << 1 << 74 << 256u * 16;
    QTest::newRow("DXT5") << fourCC("DXT5") << 1 << 77 << 256u * 16;
    QTest::newRow("BC4U") << fourCC("BC4U") << 1 << 80 << 256u * 8;
    QTest::newRow("BC5U") << fourCC("BC5U") << 1 << 83 << 256u * 16;
    QTest::newRow("BC5S") << fourCC("BC5S") << 1 << 84 << 256u * 16;
    QTest::newRow("FourCC 36") << fourCCNumber(36) << 1 << 11 << 4096u * 8;
    QTest::newRow("FourCC 113") << fourCCNumber(113) << 1 << 10 << 4096u * 8;
    QTest::newRow("luminance") << kLuminance << 1 << 61 << 4096u;
    QTest::newRow("RGBA masks") << kRgba << 1 << 28 << 4096u * 4;
    QTest::newRow("BGRA masks") << kBgra << 1 << 87 << 4096u * 4;
    QTest::newRow("RGBA masks, RGB flag only") << masks(0x40, 32, 0xFF, 0xFF00, 0xFF0000, 0xFF000000) << 1 << 28
                                               << 4096u * 4;
    for (int code : {29, 31})
        QTest::addRow("DX10 %d", code) << dx10(code) << 1 << code << 4096u * 4;
    for (int code : {72, 80})
        QTest::addRow("DX10 %d", code) << dx10(code) << 1 << code << 256u * 8;
    for (int code : {78, 84, 95, 98, 99})
        QTest::addRow("DX10 %d", code) << dx10(code) << 1 << code << 256u * 16;

    for (int code : {28, 71, 74, 77, 83, 10, 11, 61, 87, 0, 2, 255})
        QTest::addRow("DX10 %d refused", code) << dx10(code) << -10 << 0 << 0u;
    QTest::newRow("DXT2") << fourCC("DXT2") << -10 << 0 << 0u;
    QTest::newRow("ATI2") << fourCC("ATI2") << -10 << 0 << 0u;
    QTest::newRow("FourCC 111") << fourCCNumber(111) << -10 << 0 << 0u;
    QTest::newRow("lower-case dxt1") << fourCC("dxt1") << -10 << 0 << 0u;
    QTest::newRow("luminance with alpha mask") << masks(0x20000, 8, 0xFF, 0, 0, 0xFF00) << -10 << 0 << 0u;
    QTest::newRow("luminance 16 bits") << masks(0x20000, 16, 0xFF, 0, 0, 0) << -10 << 0 << 0u;
    QTest::newRow("R8 as RGB (R8_SNORM header)") << masks(0x40, 8, 0xFF, 0, 0, 0) << -10 << 0 << 0u;
    QTest::newRow("RGBA masks without RGB flag") << masks(0x1, 32, 0xFF, 0xFF00, 0xFF0000, 0xFF000000) << -10 << 0
                                                 << 0u;
    QTest::newRow("RGBA masks, 24 bits") << masks(0x41, 24, 0xFF, 0xFF00, 0xFF0000, 0xFF000000) << -10 << 0 << 0u;
    QTest::newRow("RGBX (no alpha mask)") << masks(0x40, 32, 0xFF, 0xFF00, 0xFF0000, 0) << -10 << 0 << 0u;
    QTest::newRow("BGRX (no alpha mask)") << masks(0x40, 32, 0xFF0000, 0xFF00, 0xFF, 0) << -10 << 0 << 0u;
    QTest::newRow("R5G6B5") << masks(0x40, 16, 0xF800, 0x7E0, 0x1F, 0) << -10 << 0 << 0u;
    QTest::newRow("nothing described") << masks(0, 0, 0, 0, 0, 0) << -10 << 0 << 0u;
}

void TestTextureLayout::acceptedFormats()
{
    QFETCH(PixelFormat, pf);
    QFETCH(int, status);
    QFETCH(uint, dataSize);
    const QByteArray file = makeDds(pf, 64, 64, 1, 64 * 64 * 8);
    TextureLayout layout;
    QCOMPARE(layoutTexture(file.constData(), uint64_t(file.size()), layout), status);
    if (status != 1) return;
    QTEST(int(layout.format), "format");
    QCOMPARE(layout.width, 64u);
    QCOMPARE(layout.height, 64u);
    QCOMPARE(layout.mipCount, 1u);
    QCOMPARE(layout.dataStart, pf.dxgi >= 0 ? 148u : 128u);
    QCOMPARE(layout.dataSize, uint32_t(dataSize));
    QCOMPARE(int(layout.chunkCount), 1);
    QCOMPARE(layout.chunks[0].sourceOffset, layout.dataStart);
    QCOMPARE(layout.chunks[0].unpackedSize, uint32_t(dataSize));
    QCOMPARE(int(layout.chunks[0].firstMip), 0);
    QCOMPARE(int(layout.chunks[0].lastMip), 0);
    QCOMPARE(layout.chunks[0].packedSize, 0u);
}

void TestTextureLayout::chunkWalk_data()
{
    QTest::addColumn<PixelFormat>("pf");
    QTest::addColumn<uint>("width");
    QTest::addColumn<uint>("height");
    QTest::addColumn<uint>("mips");
    QTest::addColumn<uint>("dataSize");
    QTest::addColumn<QVector<Chunk>>("chunks");
    QTest::newRow("BC7 1024x1024 11 mips") << dx10(98) << 1024u << 1024u << 11u << 1398128u
                                           << QVector<Chunk>{{0, 0, 1048576}, {1, 1, 262144}, {2, 10, 87408}};
    QTest::newRow("DXT1 4096x4096 13 mips")
        << fourCC("DXT1") << 4096u << 4096u << 13u << 11184824u
        << QVector<Chunk>{{0, 0, 8388608}, {1, 1, 2097152}, {2, 2, 524288}, {3, 12, 174776}};
    QTest::newRow("RGBA 1024x1024 11 mips") << kRgba << 1024u << 1024u << 11u << 5592404u
                                            << QVector<Chunk>{{0, 0, 4194304}, {1, 1, 1048576}, {2, 10, 349524}};
    QTest::newRow("DXT5 256x256 9 mips") << fourCC("DXT5") << 256u << 256u << 9u << 87408u
                                         << QVector<Chunk>{{0, 8, 87408}};
    QTest::newRow("RGBA 256x256 9 mips") << kRgba << 256u << 256u << 9u << 349524u
                                         << QVector<Chunk>{{0, 8, 349524}};
    QTest::newRow("RGBA 2048x2048 1 mip") << kRgba << 2048u << 2048u << 1u << 16777216u
                                          << QVector<Chunk>{{0, 0, 16777216}};
    QTest::newRow("DXT1 512x512 10 mips") << fourCC("DXT1") << 512u << 512u << 10u << 174776u
                                          << QVector<Chunk>{{0, 0, 131072}, {1, 9, 43704}};
    QTest::newRow("RGBA 511x512 10 mips") << kRgba << 511u << 512u << 10u << 1394012u
                                          << QVector<Chunk>{{0, 9, 1394012}};
    QTest::newRow("RGBA 1024x256 11 mips") << kRgba << 1024u << 256u << 11u << 1398108u
                                           << QVector<Chunk>{{0, 0, 1048576}, {1, 10, 349532}};
    // Two levels, both large: the second chunk ends the walk as soon as nothing remains.
    QTest::newRow("DXT1 2048x2048 2 mips") << fourCC("DXT1") << 2048u << 2048u << 2u << 2621440u
                                           << QVector<Chunk>{{0, 0, 2097152}, {1, 1, 524288}};
    // Sides that are not multiples of 4 count whole blocks: 6x6 is 2x2 blocks, 3x3 and 1x1 one.
    QTest::newRow("DXT1 6x6 3 mips") << fourCC("DXT1") << 6u << 6u << 3u << 48u << QVector<Chunk>{{0, 2, 48}};
    QTest::newRow("BC7 10x5 4 mips") << dx10(98) << 10u << 5u << 4u << (6u + 2u + 1u + 1u) * 16
                                     << QVector<Chunk>{{0, 3, 160}};
    // More levels than halvings: the smallest level repeats.
    QTest::newRow("RGBA 4x4 5 mips") << kRgba << 4u << 4u << 5u << (16u + 4 + 1 + 1 + 1) * 4
                                     << QVector<Chunk>{{0, 4, 92}};
    QTest::newRow("DXT5 8x4 6 mips") << fourCC("DXT5") << 8u << 4u << 6u << (2u + 1 + 1 + 1 + 1 + 1) * 16
                                     << QVector<Chunk>{{0, 5, 112}};
    QTest::newRow("R8 1x1 255 mips") << kLuminance << 1u << 1u << 255u << 255u << QVector<Chunk>{{0, 254, 255}};
    // A tall thin texture: area counts, not either side.
    QTest::newRow("FourCC 113 8192x32 3 mips") << fourCCNumber(113) << 8192u << 32u << 3u
                                               << (262144u + 65536 + 16384) * 8
                                               << QVector<Chunk>{{0, 0, 2097152}, {1, 2, 655360}};
}

void TestTextureLayout::chunkWalk()
{
    QFETCH(PixelFormat, pf);
    QFETCH(uint, width);
    QFETCH(uint, height);
    QFETCH(uint, mips);
    QFETCH(uint, dataSize);
    QFETCH(QVector<Chunk>, chunks);
    const QByteArray file = makeDds(pf, width, height, mips, dataSize);
    TextureLayout layout;
    QCOMPARE(layoutTexture(file.constData(), uint64_t(file.size()), layout), 1);
    QCOMPARE(layout.width, width);
    QCOMPARE(layout.height, height);
    QCOMPARE(layout.mipCount, mips);
    QCOMPARE(layout.dataSize, dataSize);
    QCOMPARE(int(layout.chunkCount), chunks.size());
    uint32_t offset = layout.dataStart;
    for (int k = 0; k < chunks.size(); ++k) {
        const ChunkPlan& c = layout.chunks[k];
        QCOMPARE(c.sourceOffset, offset);
        QCOMPARE(int(c.firstMip), chunks[k].firstMip);
        QCOMPARE(int(c.lastMip), chunks[k].lastMip);
        QCOMPARE(c.unpackedSize, chunks[k].size);
        offset += c.unpackedSize;
    }
    QCOMPARE(offset, uint32_t(file.size()));
    // One byte less data and the file no longer holds its chain.
    QCOMPARE(layoutTexture(file.constData(), uint64_t(file.size()) - 1, layout), -9);
}

void TestTextureLayout::creationKitTextures_data()
{
    QTest::addColumn<QString>("archive");
    QTest::newRow("Creation Kit, 800x600 DXT1") << "Blank - Textures.ba2";
    QTest::newRow("released mod, 1024x1024 DXT1") << "Unofficial Fallout 4 Patch - Textures.ba2";
}

void TestTextureLayout::creationKitTextures()
{
    // The chunk records of texture archives made by other tools give the mip chain sizes and the
    // cuts of the DDS files they were made from; a DDS of the same description must match them.
    QFETCH(QString, archive);
    const QByteArray a = testutil::readFile(testutil::samplesDir() + "/" + archive);
    QVERIFY(a.size() > 48);
    const unsigned char* rec = reinterpret_cast<const unsigned char*>(a.constData()) + 24;
    const int chunkCount = rec[13];
    const uint32_t height = uint32_t(rec[16] | (rec[17] << 8));
    const uint32_t width = uint32_t(rec[18] | (rec[19] << 8));
    const uint32_t mips = rec[20];
    QCOMPARE(int(rec[21]), 71);
    QVector<Chunk> expected;
    uint32_t total = 0;
    for (int k = 0; k < chunkCount; ++k) {
        const unsigned char* c = rec + 24 * (k + 1);
        const uint32_t size = uint32_t(c[12] | (c[13] << 8) | (c[14] << 16) | (uint32_t(c[15]) << 24));
        expected.append(Chunk{c[16] | (c[17] << 8), c[18] | (c[19] << 8), size});
        total += size;
    }
    const QByteArray file = makeDds(fourCC("DXT1"), width, height, mips, total);
    TextureLayout layout;
    QCOMPARE(layoutTexture(file.constData(), uint64_t(file.size()), layout), 1);
    QCOMPARE(layout.dataSize, total);
    QCOMPARE(int(layout.chunkCount), chunkCount);
    for (int k = 0; k < chunkCount; ++k) {
        QCOMPARE(int(layout.chunks[k].firstMip), expected[k].firstMip);
        QCOMPARE(int(layout.chunks[k].lastMip), expected[k].lastMip);
        QCOMPARE(layout.chunks[k].unpackedSize, expected[k].size);
    }
    if (archive.startsWith("Blank")) {
        // And the Creation Kit's own source file: its data is exactly the chain.
        const QByteArray dds = testutil::readFile(testutil::samplesDir() + "/Blank.dds");
        QCOMPARE(layoutTexture(dds.constData(), uint64_t(dds.size()), layout), 1);
        QCOMPARE(uint64_t(layout.dataStart) + layout.dataSize, uint64_t(dds.size()));
        QCOMPARE(int(layout.chunkCount), chunkCount);
        QCOMPARE(layout.chunks[1].unpackedSize, expected[1].size);
    }
}

void TestTextureLayout::refusedFiles_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<quint64>("size");  // as passed; 0 = the array's size
    QTest::addColumn<int>("status");
    const QByteArray good = makeDds(fourCC("DXT1"), 64, 64, 7, 2048 + 512 + 128 + 32 + 8 + 8 + 8);
    QByteArray badMagic = good;
    badMagic[3] = 'X';
    QByteArray wide = makeDds(kRgba, 65536, 1, 1, 0);
    QByteArray tall = makeDds(kRgba, 4, 70000, 1, 0);
    QByteArray noWidth = makeDds(kRgba, 0, 16, 1, 1024);
    QByteArray noHeight = makeDds(kRgba, 16, 0, 1, 1024);
    QByteArray manyMips = makeDds(kLuminance, 1, 1, 256, 300);
    QByteArray hugeMips = makeDds(kLuminance, 1, 1, 0xFFFFFFFFu, 300);

    QTest::newRow("reference file is fine") << good << quint64(0) << 1;
    QTest::newRow("not DDS") << badMagic << quint64(0) << -9;
    QTest::newRow("empty") << QByteArray() << quint64(0) << -9;
    QTest::newRow("three bytes") << QByteArray("DDS") << quint64(0) << -9;
    QTest::newRow("magic only") << QByteArray("DDS ") << quint64(0) << -9;
    QTest::newRow("header cut") << good.left(127) << quint64(0) << -9;
    QTest::newRow("header only") << good.left(128) << quint64(0) << -9;
    QTest::newRow("extended header cut") << makeDds(dx10(98), 64, 64, 1, 4096).left(147) << quint64(0) << -9;
    QTest::newRow("extended header, no data") << makeDds(dx10(98), 64, 64, 1, 0) << quint64(0) << -9;
    QTest::newRow("chain one byte short") << good.left(good.size() - 1) << quint64(0) << -9;
    QTest::newRow("width 65536") << wide << quint64(0) << -9;
    QTest::newRow("height 70000") << tall << quint64(0) << -9;
    QTest::newRow("width 0") << noWidth << quint64(0) << -9;
    QTest::newRow("height 0") << noHeight << quint64(0) << -9;
    QTest::newRow("256 mips") << manyMips << quint64(0) << -9;
    QTest::newRow("4 billion mips") << hugeMips << quint64(0) << -9;
    // A chain beyond 32 bits (65535 x 65535 x 8 bytes) is refused on its size alone; only the
    // header is present, and only the header may be read.
    QTest::newRow("chain over 4 GiB") << makeDds(fourCCNumber(113), 65535, 65535, 1, 0) << (quint64(1) << 40) << -9;
    QTest::newRow("unsupported before short") << makeDds(fourCC("DXT2"), 64, 64, 1, 0) << quint64(0) << -10;
}

void TestTextureLayout::refusedFiles()
{
    QFETCH(QByteArray, file);
    QFETCH(quint64, size);
    QFETCH(int, status);
    TextureLayout layout;
    layout.chunkCount = 77;
    const int r = layoutTexture(file.constData(), size ? size : uint64_t(file.size()), layout);
    QCOMPARE(r, status);
    if (status != 1) QCOMPARE(int(layout.chunkCount), 77);  // untouched on failure
}

void TestTextureLayout::onlyTheChainIsStored()
{
    // Whatever follows the first surface's chain (cube faces, array slices, filler) is left out.
    const QByteArray file = makeDds(fourCC("DXT5"), 256, 256, 9, 87408 * 6 + 13);
    TextureLayout layout;
    QCOMPARE(layoutTexture(file.constData(), uint64_t(file.size()), layout), 1);
    QCOMPARE(layout.dataSize, 87408u);
    QCOMPARE(int(layout.chunkCount), 1);
    QCOMPARE(layout.chunks[0].unpackedSize, 87408u);
}

void TestTextureLayout::zeroMipCountIsOneLevel()
{
    const QByteArray file = makeDds(kRgba, 1024, 1024, 0, 4194304);
    TextureLayout layout;
    QCOMPARE(layoutTexture(file.constData(), uint64_t(file.size()), layout), 1);
    QCOMPARE(layout.mipCount, 1u);
    QCOMPARE(layout.dataSize, 4194304u);
    QCOMPARE(int(layout.chunkCount), 1);
    QCOMPARE(int(layout.chunks[0].lastMip), 0);
}

void TestTextureLayout::headerRoundTrip()
{
    // A texture analysed for an archive, recorded, and given its header back on extraction must
    // analyse the same way again: every format the header builder knows, except R8_SNORM.
    struct Case {
        int format;
        PixelFormat pf;
    };
    const QVector<Case> cases = {
        {10, fourCCNumber(113)}, {11, fourCCNumber(36)}, {28, kRgba},         {29, dx10(29)},
        {31, dx10(31)},          {61, kLuminance},       {71, fourCC("DXT1")}, {72, dx10(72)},
        {74, fourCC("DXT3")},    {77, fourCC("DXT5")},   {78, dx10(78)},       {80, fourCC("BC4U")},
        {83, fourCC("BC5U")},    {84, fourCC("BC5S")},   {87, kBgra},          {95, dx10(95)},
        {98, dx10(98)},          {99, dx10(99)},
    };
    int covered = 0;
    for (const Case& c : cases) {
        for (const uint32_t side : {512u, 36u}) {
            // Chain sizes are taken from a first analysis of a roomy file.
            const QByteArray roomy = makeDds(c.pf, side, side / 2, 7, 4u << 20);
            TextureLayout first;
            QCOMPARE(layoutTexture(roomy.constData(), uint64_t(roomy.size()), first), 1);
            QCOMPARE(int(first.format), c.format);
            const QByteArray pixels = roomy.mid(int(first.dataStart), int(first.dataSize));

            FileRecord record;
            record.width = uint16_t(first.width);
            record.height = uint16_t(first.height);
            record.mipCount = uint8_t(first.mipCount);
            record.format = first.format;
            record.textureFlags = 0x0800;
            unsigned char header[kDdsHeaderCapacity];
            initDdsHeader(header);
            const int headerSize = buildDdsHeader(header, record);
            QCOMPARE(uint32_t(headerSize), first.dataStart);
            const QByteArray rebuilt = QByteArray(reinterpret_cast<const char*>(header), headerSize) + pixels;

            TextureLayout second;
            QCOMPARE(layoutTexture(rebuilt.constData(), uint64_t(rebuilt.size()), second), 1);
            QCOMPARE(int(second.format), c.format);
            QCOMPARE(second.width, first.width);
            QCOMPARE(second.height, first.height);
            QCOMPARE(second.mipCount, first.mipCount);
            QCOMPARE(second.dataStart, first.dataStart);
            QCOMPARE(second.dataSize, first.dataSize);
            QCOMPARE(int(second.chunkCount), int(first.chunkCount));
            for (int k = 0; k < first.chunkCount; ++k) {
                QCOMPARE(second.chunks[k].unpackedSize, first.chunks[k].unpackedSize);
                QCOMPARE(second.chunks[k].lastMip, first.chunks[k].lastMip);
            }
        }
        ++covered;
    }
    QCOMPARE(covered, 18);

    // R8_SNORM gets a header (8-bit RGB) that no accepted description matches.
    FileRecord snorm;
    snorm.width = 16;
    snorm.height = 16;
    snorm.mipCount = 1;
    snorm.format = 63;
    unsigned char header[kDdsHeaderCapacity];
    initDdsHeader(header);
    QCOMPARE(buildDdsHeader(header, snorm), 128);
    const QByteArray file = QByteArray(reinterpret_cast<const char*>(header), 128) + QByteArray(256, 'x');
    TextureLayout layout;
    QCOMPARE(layoutTexture(file.constData(), uint64_t(file.size()), layout), -10);
}

void TestTextureLayout::damagedHeadersNeverReadOutside()
{
    // Random damage to header fields and random truncation: every success must describe data
    // that lies inside the file (and a sanitizer build catches any read outside it).
    const QByteArray base = makeDds(dx10(98), 256, 128, 9, 43704);
    uint32_t x = 2463534242u;
    auto next = [&x] {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        return x;
    };
    int accepted = 0;
    for (int i = 0; i < 4000; ++i) {
        QByteArray f = base;
        for (int e = 0; e < 3; ++e) {
            static const int fields[] = {12, 13, 14, 16, 17, 18, 28, 29, 80, 84, 88, 92, 128};
            const int at = fields[next() % 13];
            f[at] = char(next());
        }
        f.truncate(int(next() % uint32_t(f.size() + 1)));
        // A copy of exactly the bytes that remain, so reading past them is caught.
        std::unique_ptr<char[]> exact(new char[size_t(f.size()) + 1]);
        std::memcpy(exact.get(), f.constData(), size_t(f.size()));
        TextureLayout layout;
        const int r = layoutTexture(exact.get(), uint64_t(f.size()), layout);
        QVERIFY(r == 1 || r == -9 || r == -10);
        if (r != 1) continue;
        ++accepted;
        QVERIFY(uint64_t(layout.dataStart) + layout.dataSize <= uint64_t(f.size()));
        QVERIFY(layout.chunkCount >= 1 && layout.chunkCount <= 4);
        uint64_t sum = 0;
        for (int k = 0; k < layout.chunkCount; ++k) sum += layout.chunks[k].unpackedSize;
        QCOMPARE(sum, uint64_t(layout.dataSize));
        QCOMPARE(uint32_t(layout.chunks[layout.chunkCount - 1].lastMip), layout.mipCount - 1);
    }
    QVERIFY(accepted > 0);
}

QTEST_GUILESS_MAIN(TestTextureLayout)
#include "tst_texturelayout.moc"

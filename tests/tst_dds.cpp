// DDS files both ways: the header rebuilt from a texture record on extraction, and the analysis
// of a DDS file into a record and mip-chain chunks when a texture archive is made.
#include "archive/archivereader.h"
#include "archive/ddsheader.h"
#include "creation/texturelayout.h"

#include "testutil.h"

#include <QtEndian>
#include <QtTest>

#include <cstring>
#include <vector>

namespace {

uint32_t le32(const void* p) { return qFromLittleEndian<quint32>(p); }
uint32_t cc(const char* code) { return le32(code); }

// The pixel-format description of a DDS header, as a DDS writer fills it in.
struct PixelFormat {
    uint32_t flags = 0, fourCC = 0, bits = 0;
    uint32_t masks[4] = {0, 0, 0, 0};
    int dxgi = -1;  // >= 0: the FourCC is "DX10" and this code follows
};
PixelFormat fourCC(uint32_t code) { return {0x4, code, 0, {0, 0, 0, 0}, -1}; }
PixelFormat fourCC(const char* code) { return fourCC(cc(code)); }
PixelFormat dx10(int code) { return {0x4, cc("DX10"), 0, {0, 0, 0, 0}, code}; }
PixelFormat masks(uint32_t flags, uint32_t bits, uint32_t r, uint32_t g, uint32_t b, uint32_t a)
{
    return {flags, 0, bits, {r, g, b, a}, -1};
}
const PixelFormat kRgba = masks(0x41, 32, 0xFF, 0xFF00, 0xFF0000, 0xFF000000);
const PixelFormat kBgra = masks(0x41, 32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000);
const PixelFormat kLuminance = masks(0x20000, 8, 0xFF, 0, 0, 0);

// A DDS file: header (with the extension when dxgi >= 0) and dataBytes of patterned data.
QByteArray makeDds(const PixelFormat& pf, uint32_t width, uint32_t height, uint32_t mips, int dataBytes)
{
    QByteArray f(pf.dxgi >= 0 ? 148 : 128, '\0');
    const auto put = [&f](int at, uint32_t v) { qToLittleEndian<quint32>(v, f.data() + at); };
    const uint32_t fields[] = {cc("DDS "), 124, 0x1007, height, width, 0, 1, mips};
    for (int i = 0; i < 8; ++i) put(4 * i, fields[i]);
    const uint32_t pixelFormat[] = {32, pf.flags, pf.fourCC, pf.bits, pf.masks[0], pf.masks[1], pf.masks[2], pf.masks[3], 0x1000};
    for (int i = 0; i < 9; ++i) put(76 + 4 * i, pixelFormat[i]);
    if (pf.dxgi >= 0) {
        put(128, uint32_t(pf.dxgi));
        put(132, 3);
        put(140, 1);
    }
    return f + testutil::patternBytes(dataBytes, 5);
}

// Analyses a copy of exactly the file's bytes, so a sanitizer build catches any read past them.
int analyse(const QByteArray& file, TextureLayout& layout, quint64 claimedSize = 0)
{
    const std::vector<char> exact(file.begin(), file.end());
    return layoutTexture(exact.data(), claimedSize ? claimedSize : exact.size(), layout);
}

FileRecord record(int format, int width, int height, int mips, int textureFlags = 0x0800)
{
    FileRecord r;
    r.format = uint8_t(format);
    r.width = uint16_t(width);
    r.height = uint16_t(height);
    r.mipCount = uint8_t(mips);
    r.textureFlags = uint16_t(textureFlags);
    return r;
}

// The header for a record, built on an array full of junk as at the start of an extraction.
QByteArray ddsHeader(const FileRecord& r)
{
    unsigned char b[kDdsHeaderCapacity];
    std::memset(b, 0xCC, sizeof b);
    initDdsHeader(b);
    return QByteArray(reinterpret_cast<const char*>(b), buildDdsHeader(b, r));
}

struct HeaderCase {
    int format, width, height, mips, textureFlags, size;
    uint32_t flags, pitchOrLinear, caps, caps2;
};
struct FormatCase {
    PixelFormat pf;  // as a DDS writer describes the format
    int format;
    uint32_t unitBytes;  // per pixel, or per 4x4 block
    bool blocks;
};
struct Chunk {
    int firstMip, lastMip;
    uint32_t size;
};
struct WalkCase {
    PixelFormat pf;
    uint32_t width, height, mips, dataSize;
    QVector<Chunk> chunks;
    int trailing = 0;  // bytes after the chain
};

}  // namespace

Q_DECLARE_METATYPE(HeaderCase)
Q_DECLARE_METATYPE(FormatCase)
Q_DECLARE_METATYPE(WalkCase)

class TestDds : public QObject {
    Q_OBJECT
private slots:
    void header_data();
    void header();
    void formats_data();
    void formats();
    void oneArrayForAllTextures();
    void chunkWalk_data();
    void chunkWalk();
    void refused_data();
    void refused();
    void realSamples_data();
    void realSamples();
};

void TestDds::header_data()
{
    QTest::addColumn<HeaderCase>("c");  // format, width, height, mips, flags -> size, dwFlags, pitch, caps, caps2
    QTest::newRow("BC7 1024x1024 11 mips") << HeaderCase{98, 1024, 1024, 11, 0x800, 148, 0xA1007, 1048576, 0x401008, 0};
    QTest::newRow("BC1 256x128 1 mip") << HeaderCase{71, 256, 128, 1, 0x800, 128, 0xA1007, 16384, 0x1000, 0};
    QTest::newRow("RGBA 64x32 no mips") << HeaderCase{28, 64, 32, 0, 0x800, 128, 0x100F, 256, 0x1000, 0};
    QTest::newRow("partial blocks not counted") << HeaderCase{71, 6, 6, 1, 0x800, 128, 0xA1007, 16, 0x1000, 0};
    QTest::newRow("2x2 block texture") << HeaderCase{77, 2, 2, 1, 0x800, 128, 0xA1007, 0, 0x1000, 0};
    QTest::newRow("largest sides wrap") << HeaderCase{98, 65535, 65535, 1, 0x800, 148, 0xA1007, 4294836224u, 0x1000, 0};
    QTest::newRow("cube map") << HeaderCase{71, 256, 256, 9, 0x0801, 128, 0xA1007, 32768, 0x401008, 0xFE00};
    QTest::newRow("cube bit alone") << HeaderCase{72, 256, 256, 9, 0x0001, 148, 0xA1007, 32768, 0x401008, 0xFE00};
    QTest::newRow("all other flag bits") << HeaderCase{71, 256, 256, 9, 0xFFFE, 128, 0xA1007, 32768, 0x401008, 0};
}

void TestDds::header()
{
    QFETCH(HeaderCase, c);
    const QByteArray h = ddsHeader(record(c.format, c.width, c.height, c.mips, c.textureFlags));
    QCOMPARE(h.size(), c.size);
    const uint32_t start[] = {cc("DDS "), 124, c.flags, uint32_t(c.height), uint32_t(c.width), c.pitchOrLinear, 1, uint32_t(c.mips)};
    for (int i = 0; i < 8; ++i) QCOMPARE(le32(h.constData() + 4 * i), start[i]);
    QCOMPARE(h.mid(32, 44), QByteArray(44, '\0'));  // reserved
    QCOMPARE(le32(h.constData() + 76), 32u);
    QCOMPARE(le32(h.constData() + 108), c.caps);
    QCOMPARE(le32(h.constData() + 112), c.caps2);
    QCOMPARE(h.mid(116, 12), QByteArray(12, '\0'));
    const uint32_t extension[] = {uint32_t(c.format), 3, 0, 1, 0};
    for (int i = 0; i < (h.size() - 128) / 4; ++i) QCOMPARE(le32(h.constData() + 128 + 4 * i), extension[i]);
}

void TestDds::formats_data()
{
    // Every DXGI code the header knows.
    QTest::addColumn<FormatCase>("c");
    QTest::newRow("DXT1") << FormatCase{fourCC("DXT1"), 71, 8, true};
    QTest::newRow("DXT3") << FormatCase{fourCC("DXT3"), 74, 16, true};
    QTest::newRow("DXT5") << FormatCase{fourCC("DXT5"), 77, 16, true};
    QTest::newRow("BC4U") << FormatCase{fourCC("BC4U"), 80, 8, true};
    QTest::newRow("BC5U") << FormatCase{fourCC("BC5U"), 83, 16, true};
    QTest::newRow("BC5S") << FormatCase{fourCC("BC5S"), 84, 16, true};
    QTest::newRow("FourCC 36") << FormatCase{fourCC(36u), 11, 8, false};
    QTest::newRow("FourCC 113") << FormatCase{fourCC(113u), 10, 8, false};
    QTest::newRow("luminance") << FormatCase{kLuminance, 61, 1, false};
    QTest::newRow("R8 as RGB (R8_SNORM): no way back") << FormatCase{masks(0x40, 8, 0xFF, 0, 0, 0), 63, 1, false};
    QTest::newRow("RGBA masks") << FormatCase{kRgba, 28, 4, false};
    QTest::newRow("BGRA masks") << FormatCase{kBgra, 87, 4, false};
    for (int code : {29, 31}) QTest::addRow("DX10 %d", code) << FormatCase{dx10(code), code, 4, false};
    for (int code : {72, 80}) QTest::addRow("DX10 %d", code) << FormatCase{dx10(code), code, 8, true};
    for (int code : {78, 84, 95, 98, 99}) QTest::addRow("DX10 %d", code) << FormatCase{dx10(code), code, 16, true};
}

void TestDds::formats()
{
    QFETCH(FormatCase, c);
    // 64 x 32, one level: 2,048 pixels or 128 blocks; bytes after the chain are not part of it.
    const uint32_t bytes = (c.blocks ? 128 : 2048) * c.unitBytes;
    const QByteArray file = makeDds(c.pf, 64, 32, 1, int(bytes) + 100);
    const uint32_t dataStart = c.pf.dxgi >= 0 ? 148 : 128;

    // The header rebuilt on extraction describes the pixels as the DDS writer did (BC4_UNORM and
    // BC5_SNORM from an extended header come back with their FourCC).
    const QByteArray h = ddsHeader(record(c.format, 64, 32, 1));
    if (c.pf.dxgi != 80 && c.pf.dxgi != 84) {
        QCOMPARE(h.size(), int(dataStart));
        QCOMPARE(h.mid(80, 28), file.mid(80, 28));
    }
    QCOMPARE(le32(h.constData() + 8), c.blocks ? 0xA1007u : 0x2100Fu);
    QCOMPARE(le32(h.constData() + 20), (c.blocks ? 128 : 64) * c.unitBytes);

    TextureLayout first;
    QCOMPARE(analyse(file, first), c.format == 63 ? -10 : 1);
    if (c.format == 63) return;
    QCOMPARE(int(first.format), c.format);
    QCOMPARE(first.dataStart, dataStart);
    QCOMPARE(first.dataSize, bytes);
    QVERIFY(first.chunkCount == 1 && first.chunks[0].unpackedSize == bytes && first.chunks[0].packedSize == 0);

    // What was extracted goes into an archive again the same way.
    TextureLayout second;
    QCOMPARE(analyse(h + file.mid(int(dataStart), int(bytes)), second), 1);
    QVERIFY(second.format == first.format && second.dataSize == bytes);
}

void TestDds::oneArrayForAllTextures()
{
    // One array serves a whole extraction: an unknown format writes nothing, and a texture without
    // the extension after one with it gives the same bytes as a fresh array.
    unsigned char shared[kDdsHeaderCapacity];
    initDdsHeader(shared);
    QVector<int> known;
    for (int code = 0; code < 256; ++code)
        if (buildDdsHeader(shared, record(code, 16, 16, 1)) != 0) known << code;
    QCOMPARE(known, (QVector<int>{10, 11, 28, 29, 31, 61, 63, 71, 72, 74, 77, 78, 80, 83, 84, 87, 95, 98, 99}));
    for (int code = 0; code < 256; ++code) QCOMPARE(ddsFormatSupported(uint8_t(code)), known.contains(code));
    QCOMPARE(buildDdsHeader(shared, record(98, 512, 512, 10, 0x0801)), 148);
    QCOMPARE(buildDdsHeader(shared, record(71, 128, 64, 1)), 128);
    QCOMPARE(QByteArray(reinterpret_cast<char*>(shared), 128), ddsHeader(record(71, 128, 64, 1)));
}

void TestDds::chunkWalk_data()
{
    QTest::addColumn<WalkCase>("c");
    QTest::newRow("BC7 1024x1024 11 mips") << WalkCase{dx10(98), 1024, 1024, 11, 1398128, {{0, 0, 1048576}, {1, 1, 262144}, {2, 10, 87408}}};
    QTest::newRow("DXT1 4096x4096 13 mips") << WalkCase{fourCC("DXT1"), 4096, 4096, 13, 11184824, {{0, 0, 8388608}, {1, 1, 2097152}, {2, 2, 524288}, {3, 12, 174776}}};
    QTest::newRow("RGBA 1024x1024 11 mips") << WalkCase{kRgba, 1024, 1024, 11, 5592404, {{0, 0, 4194304}, {1, 1, 1048576}, {2, 10, 349524}}};
    QTest::newRow("RGBA 256x256 9 mips") << WalkCase{kRgba, 256, 256, 9, 349524, {{0, 8, 349524}}};
    QTest::newRow("RGBA 2048x2048 1 mip") << WalkCase{kRgba, 2048, 2048, 1, 16777216, {{0, 0, 16777216}}};
    QTest::newRow("RGBA 1024x1024 0 mips: one level") << WalkCase{kRgba, 1024, 1024, 0, 4194304, {{0, 0, 4194304}}};
    QTest::newRow("DXT1 512x512 10 mips") << WalkCase{fourCC("DXT1"), 512, 512, 10, 174776, {{0, 0, 131072}, {1, 9, 43704}}};
    QTest::newRow("RGBA 511x512 10 mips") << WalkCase{kRgba, 511, 512, 10, 1394012, {{0, 9, 1394012}}};
    QTest::newRow("RGBA 1024x256 11 mips") << WalkCase{kRgba, 1024, 256, 11, 1398108, {{0, 0, 1048576}, {1, 10, 349532}}};
    // Two large levels: the second chunk ends the walk as soon as nothing remains.
    QTest::newRow("DXT1 2048x2048 2 mips") << WalkCase{fourCC("DXT1"), 2048, 2048, 2, 2621440, {{0, 0, 2097152}, {1, 1, 524288}}};
    // Sides that are not multiples of 4 count whole blocks: 6x6 is 2x2 blocks, 3x3 and 1x1 one.
    QTest::newRow("DXT1 6x6 3 mips") << WalkCase{fourCC("DXT1"), 6, 6, 3, 48, {{0, 2, 48}}};
    // More levels than halvings: the smallest level repeats.
    QTest::newRow("RGBA 4x4 5 mips") << WalkCase{kRgba, 4, 4, 5, 92, {{0, 4, 92}}};
    QTest::newRow("DXT5 8x4 6 mips") << WalkCase{fourCC("DXT5"), 8, 4, 6, 112, {{0, 5, 112}}};
    QTest::newRow("R8 1x1 255 mips") << WalkCase{kLuminance, 1, 1, 255, 255, {{0, 254, 255}}};
    // A long thin texture: the area counts, not either side.
    QTest::newRow("FourCC 113 8192x32 3 mips") << WalkCase{fourCC(113u), 8192, 32, 3, 2752512, {{0, 0, 2097152}, {1, 2, 655360}}};
    // Further cube faces or array slices after the first surface's chain stay out.
    QTest::newRow("DXT5 256x256 9 mips, more faces") << WalkCase{fourCC("DXT5"), 256, 256, 9, 87408, {{0, 8, 87408}}, 87408 * 5 + 13};
}

void TestDds::chunkWalk()
{
    QFETCH(WalkCase, c);
    const QByteArray file = makeDds(c.pf, c.width, c.height, c.mips, int(c.dataSize) + c.trailing);
    TextureLayout layout;
    QCOMPARE(analyse(file, layout), 1);
    QVERIFY(layout.width == c.width && layout.height == c.height);
    QCOMPARE(layout.mipCount, qMax(c.mips, 1u));
    QCOMPARE(layout.dataSize, c.dataSize);
    QCOMPARE(int(layout.chunkCount), c.chunks.size());
    uint32_t offset = layout.dataStart;
    for (int k = 0; k < c.chunks.size(); ++k) {
        const ChunkPlan& got = layout.chunks[k];
        QCOMPARE(got.sourceOffset, offset);
        QCOMPARE(int(got.firstMip), c.chunks[k].firstMip);
        QCOMPARE(int(got.lastMip), c.chunks[k].lastMip);
        QCOMPARE(got.unpackedSize, c.chunks[k].size);
        offset += got.unpackedSize;
    }
    QCOMPARE(offset, layout.dataStart + c.dataSize);
    // One byte less and the file no longer holds its chain.
    QCOMPARE(analyse(file.left(int(offset) - 1), layout), -9);
}

void TestDds::refused_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<quint64>("claimedSize");  // 0: the file's size
    QTest::addColumn<int>("status");
    const auto row = [](const char* tag, const QByteArray& file, int status, quint64 claimedSize = 0) { QTest::newRow(tag) << file << claimedSize << status; };
    const auto unsupported = [&row](const char* tag, const PixelFormat& pf) { row(tag, makeDds(pf, 4, 4, 1, 64), -10); };
    const QByteArray good = makeDds(fourCC("DXT1"), 64, 64, 7, 2048 + 512 + 128 + 32 + 8 + 8 + 8);
    row("reference file is fine", good, 1);
    row("not DDS", QByteArray(good).replace(0, 4, "DDSX"), -9);
    row("empty", QByteArray(), -9);
    row("three bytes", "DDS", -9);
    row("magic only", "DDS ", -9);
    row("header cut", good.left(127), -9);
    row("header only", good.left(128), -9);
    row("extended header cut", makeDds(dx10(98), 64, 64, 1, 4096).left(128), -9);
    row("extended header, no data", makeDds(dx10(98), 64, 64, 1, 0), -9);
    row("width 65536", makeDds(kRgba, 65536, 1, 1, 65536 * 4), -9);
    row("height 70000", makeDds(kRgba, 4, 70000, 1, 70000 * 16), -9);
    row("width 0", makeDds(kRgba, 0, 16, 1, 1024), -9);
    row("height 0", makeDds(kRgba, 16, 0, 1, 1024), -9);
    row("256 mips", makeDds(kLuminance, 1, 1, 256, 300), -9);
    // A chain beyond 32 bits (65535 x 65535 x 8 bytes) is refused on its size alone; only the
    // header is present, and only the header may be read.
    row("chain over 4 GiB", makeDds(fourCC(113u), 65535, 65535, 1, 0), -9, quint64(1) << 40);
    row("unsupported before short", makeDds(fourCC("DXT2"), 64, 64, 1, 0), -10);
    // Descriptions outside the accepted set; an extended header may not name a legacy format.
    for (int code : {28, 71, 74, 77, 83, 10, 11, 61, 87, 0, 2, 255}) unsupported(qPrintable(QStringLiteral("DX10 %1").arg(code)), dx10(code));
    unsupported("FourCC 111", fourCC(111u));
    unsupported("luminance with alpha mask", masks(0x20000, 8, 0xFF, 0, 0, 0xFF00));
    unsupported("luminance 16 bits", masks(0x20000, 16, 0xFF, 0, 0, 0));
    unsupported("RGBA masks without RGB flag", masks(0x1, 32, 0xFF, 0xFF00, 0xFF0000, 0xFF000000));
    unsupported("RGBA masks, 24 bits", masks(0x41, 24, 0xFF, 0xFF00, 0xFF0000, 0xFF000000));
    unsupported("RGBX (no alpha mask)", masks(0x40, 32, 0xFF, 0xFF00, 0xFF0000, 0));
    unsupported("red and blue both 0xFF", masks(0x41, 32, 0xFF, 0xFF00, 0xFF, 0xFF000000));
    unsupported("unknown FourCC beside RGBA masks", {0x45, cc("DXT2"), 32, {0xFF, 0xFF00, 0xFF0000, 0xFF000000}, -1});
    row("RGBA masks, RGB flag only", makeDds(masks(0x40, 32, 0xFF, 0xFF00, 0xFF0000, 0xFF000000), 4, 4, 1, 64), 1);
}

void TestDds::refused()
{
    QFETCH(QByteArray, file);
    QFETCH(quint64, claimedSize);
    QFETCH(int, status);
    TextureLayout layout;
    layout.chunkCount = 77;
    QCOMPARE(analyse(file, layout, claimedSize), status);
    if (status != 1) QCOMPARE(int(layout.chunkCount), 77);  // untouched on failure
}

void TestDds::realSamples_data()
{
    QTest::addColumn<QString>("archive");
    QTest::newRow("Creation Kit, 800x600 DXT1") << "Blank - Textures.ba2";
    QTest::newRow("released mod, 1024x1024 DXT1") << "Unofficial Fallout 4 Patch - Textures.ba2";
}

void TestDds::realSamples()
{
    // The first texture record of archives made by other tools: a DDS of its description must be
    // cut as they cut it, and the Creation Kit's own source file must get its header back.
    QFETCH(QString, archive);
    const QByteArray a = testutil::readFile(testutil::samplesDir() + "/" + archive);
    QVERIFY(a.size() > 48);
    const char* rec = a.constData() + 24;
    const FileRecord r = record(uchar(rec[21]), qFromLittleEndian<quint16>(rec + 18), qFromLittleEndian<quint16>(rec + 16), uchar(rec[20]), qFromLittleEndian<quint16>(rec + 22));
    QCOMPARE(int(r.format), 71);
    const int chunkCount = uchar(rec[13]);
    int total = 0;
    for (int k = 1; k <= chunkCount; ++k) total += int(le32(rec + 24 * k + 12));
    TextureLayout layout;
    QCOMPARE(analyse(makeDds(fourCC("DXT1"), r.width, r.height, r.mipCount, total), layout), 1);
    QCOMPARE(int(layout.chunkCount), chunkCount);
    for (int k = 0; k < chunkCount; ++k) {
        const char* c = rec + 24 * (k + 1);
        QCOMPARE(layout.chunks[k].unpackedSize, le32(c + 12));
        QCOMPARE(layout.chunks[k].firstMip, qFromLittleEndian<quint16>(c + 16));
        QCOMPARE(layout.chunks[k].lastMip, qFromLittleEndian<quint16>(c + 18));
    }
    if (!archive.startsWith("Blank")) return;
    const QByteArray dds = testutil::readFile(testutil::samplesDir() + "/Blank.dds");
    QCOMPARE(ddsHeader(r), dds.left(128));
    QCOMPARE(analyse(dds, layout), 1);
    QCOMPARE(qint64(layout.dataStart + layout.dataSize), qint64(dds.size()));
}

QTEST_GUILESS_MAIN(TestDds)
#include "tst_dds.moc"

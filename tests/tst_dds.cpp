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

Q_DECLARE_METATYPE(FileRecord)

namespace {

uint32_t le32(const void* p)
{
    return qFromLittleEndian<quint32>(p);
}
uint32_t cc(const char* code)
{
    return le32(code);
}

using PixelFormat = testutil::DdsPixelFormat;
using HeaderFields = testutil::DdsFields;
using testutil::makeDds;
const auto fourCC = [](auto code) {
    return testutil::ddsFourCC(code);
};
const auto dx10 = testutil::ddsDx10;
const auto masks = testutil::ddsMasks;
const PixelFormat kRgba = masks(0x41, 32, 0xFF, 0xFF00, 0xFF0000, 0xFF000000);
const PixelFormat kLuminance = masks(0x20000, 8, 0xFF, 0, 0, 0);

// Analyses a copy of exactly the file's bytes, so a sanitizer build catches any read past them.
int analyse(const QByteArray& file, TextureLayout& layout, quint64 claimedSize = 0)
{
    const std::vector<char> exact(file.begin(), file.end());
    return int(layoutTexture(exact.data(), claimedSize ? claimedSize : exact.size(), layout));
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

QByteArray sample(const QString& name)
{
    return testutil::readFile(testutil::samplesDir() + "/" + name);
}

// The first texture record of an archive made by another tool; its chunks as first mip, last mip,
// size.
FileRecord firstTexture(const QString& archive, QVector<uint>& chunks)
{
    const QByteArray a = sample(archive);
    if (a.size() < 48 || a.size() < 48 + 24 * uchar(a[24 + 13])) return FileRecord();
    const char* rec = a.constData() + 24;
    const auto le16 = [rec](int at) {
        return qFromLittleEndian<quint16>(rec + at);
    };
    for (int k = 1; k <= uchar(rec[13]); ++k)
        chunks << le16(24 * k + 16) << le16(24 * k + 18) << le32(rec + 24 * k + 12);
    return record(uchar(rec[21]), le16(18), le16(16), uchar(rec[20]), le16(22));
}

// A line of data/dds_formats.txt: the header of a 64 x 32 texture with one level, as DDS
// writers describe a format; whether extraction writes that very header; the level's size.
struct GoldenFormat
{
    int code;
    bool written;
    uint bytes;
    QByteArray header;
};
QVector<GoldenFormat> goldenFormats()
{
    QVector<GoldenFormat> rows;
    QFile file(QFINDTESTDATA("data/dds_formats.txt"));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return rows;
    for (const QByteArray& line : file.readAll().split('\n')) {
        const QList<QByteArray> f = line.split(' ');
        if (line.startsWith('#') || f.size() < 4) continue;
        GoldenFormat g {f[0].toInt(), f[1] == "h", f[2].toUInt(), QByteArray(f[3].toInt(), '\0')};
        for (const QByteArray& word : f.mid(4))
            qToLittleEndian<quint32>(word.mid(word.indexOf('=') + 1).toUInt(nullptr, 16),
                                     g.header.data() + word.left(word.indexOf('=')).toInt());
        rows << g;
    }
    return rows;
}

} // namespace

class TestDds : public QObject
{
    Q_OBJECT
private slots:
    void header_data();
    void header();
    void oneArrayForAllTextures();
    void layout_data();
    void layout();
};

void TestDds::header_data()
{
    QTest::addColumn<FileRecord>("record");
    QTest::addColumn<QByteArray>("expected");
    // 64 x 32, one level, of each format (BC4_UNORM and BC5_SNORM come back with their FourCC).
    const QVector<GoldenFormat> formats = goldenFormats();
    QCOMPARE(formats.size(), 21);
    for (const GoldenFormat& g : formats)
        if (g.written) QTest::addRow("format %d", g.code) << record(g.code, 64, 32, 1) << g.header;
    const PixelFormat dxt1 = fourCC("DXT1");
    QTest::newRow("BC7 1024x1024 11 mips")
        << record(98, 1024, 1024, 11)
        << makeDds(dx10(98), 1024, 1024, 11, 0, {0xA1007, 1048576, 0x401008});
    QTest::newRow("RGBA no mips") << record(28, 64, 32, 0)
                                  << makeDds(kRgba, 64, 32, 0, 0, {0x100F, 256});
    QTest::newRow("partial blocks not counted")
        << record(71, 6, 6, 1) << makeDds(dxt1, 6, 6, 1, 0, {0xA1007, 16});
    QTest::newRow("2x2 blocks") << record(77, 2, 2, 1)
                                << makeDds(fourCC("DXT5"), 2, 2, 1, 0, {0xA1007, 0});
    QTest::newRow("largest sides wrap")
        << record(98, 65535, 65535, 1)
        << makeDds(dx10(98), 65535, 65535, 1, 0, {0xA1007, 4294836224u});
    QTest::newRow("cube map") << record(71, 256, 256, 9, 0x0801)
                              << makeDds(dxt1, 256, 256, 9, 0, {0xA1007, 32768, 0x401008, 0xFE00});
    QTest::newRow("cube bit alone")
        << record(72, 256, 256, 9, 0x0001)
        << makeDds(dx10(72), 256, 256, 9, 0, {0xA1007, 32768, 0x401008, 0xFE00, 3, 4});
    QTest::newRow("cube map, one level")
        << record(71, 256, 256, 1, 0x0801)
        << makeDds(dxt1, 256, 256, 1, 0, {0xA1007, 32768, 0x1008, 0xFE00});
    // Formats outside the legacy set: named by code, sizes rounded up to whole bytes and blocks.
    QTest::newRow("float4") << record(2, 64, 32, 1)
                            << makeDds(dx10(2), 64, 32, 1, 0, {0x2100F, 1024});
    QTest::newRow("10-10-10-2 odd width")
        << record(24, 3, 3, 0) << makeDds(dx10(24), 3, 3, 0, 0, {0x100F, 12});
    QTest::newRow("1 bit") << record(66, 9, 1, 1) << makeDds(dx10(66), 9, 1, 1, 0, {0x2100F, 2});
    QTest::newRow("BC4 signed 6x6")
        << record(81, 6, 6, 3) << makeDds(dx10(81), 6, 6, 3, 0, {0xA1007, 32, 0x401008});
    QTest::newRow("BC6H signed 2x2, cube")
        << record(96, 2, 2, 1, 0x0801)
        << makeDds(dx10(96), 2, 2, 1, 0, {0xA1007, 16, 0x1008, 0xFE00, 3, 4});
    QTest::newRow("all other flag bits")
        << record(71, 256, 256, 9, 0xFFFE)
        << makeDds(dxt1, 256, 256, 9, 0, {0xA1007, 32768, 0x401008});
    // The Creation Kit's own source file gets its header back from the record it made.
    QVector<uint> chunks;
    if (QFileInfo(testutil::samplesDir()).isDir() || testutil::samplesRequired())
        QTest::newRow("Blank.dds")
            << firstTexture("Blank - Textures.ba2", chunks) << sample("Blank.dds").left(128);
}

void TestDds::header()
{
    QFETCH(FileRecord, record);
    QFETCH(QByteArray, expected);
    QCOMPARE(ddsHeader(record), expected);
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
    // Every code with a fixed size: 1-67, 70-99, 115 and 191.
    QVector<int> sized;
    for (int code = 0; code < 256; ++code)
        if ((code >= 1 && code <= 67) || (code >= 70 && code <= 99) || code == 115 || code == 191)
            sized << code;
    QCOMPARE(known, sized);
    for (int code = 0; code < 256; ++code)
        QCOMPARE(ddsFormatSupported(uint8_t(code)), known.contains(code));
    QCOMPARE(buildDdsHeader(shared, record(98, 512, 512, 10, 0x0801)), 148);
    QCOMPARE(buildDdsHeader(shared, record(71, 128, 64, 1)), 128);
    QCOMPARE(QByteArray(reinterpret_cast<char*>(shared), 128), ddsHeader(record(71, 128, 64, 1)));
}

void TestDds::layout_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<quint64>("claimedSize"); // 0: the file's size
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("format");
    QTest::addColumn<QVector<uint>>("chunks"); // first mip, last mip, size of each chunk
    QTest::addColumn<int>("textureFlags");
    const auto refused
        = [](const QString& tag, const QByteArray& file, int status, quint64 claimedSize = 0) {
              QTest::newRow(qPrintable(tag))
                  << file << claimedSize << status << 0 << QVector<uint>() << 0;
          };
    const auto unsupported = [&](const QString& tag, const PixelFormat& pf) {
        refused(tag, makeDds(pf, 4, 4, 1, 64), -10);
    };
    const auto walk = [](const char* tag, const PixelFormat& pf, uint32_t width, uint32_t height,
                         uint32_t mips, int format, const QVector<uint>& chunks, int trailing = 0) {
        int dataSize = 0;
        for (int k = 2; k < chunks.size(); k += 3)
            dataSize += int(chunks[k]);
        const QByteArray file = makeDds(pf, width, height, mips, dataSize + trailing);
        QTest::newRow(tag) << file << quint64(0) << 1 << format << chunks << 0x0800;
    };
    // A cube map is one chunk of six faces, each with its whole chain of faceBytes.
    const auto cube = [](const char* tag, const PixelFormat& pf, uint32_t side, uint32_t mips,
                         const HeaderFields& h, int format, uint faceBytes) {
        const QByteArray file = makeDds(pf, side, side, mips, int(6 * faceBytes), h);
        QTest::newRow(tag) << file << quint64(0) << 1 << format
                           << QVector<uint> {0, qMax(mips, 1u) - 1, 6 * faceBytes} << 0x0801;
    };
    // 64 x 32, one level, of each format: 2,048 pixels or 128 blocks, then bytes that are not part
    // of it.
    for (const GoldenFormat& g : goldenFormats())
        QTest::addRow("format %d%s", g.code, g.header.size() > 128 ? " DX10" : "")
            << g.header + testutil::patternBytes(int(g.bytes) + 100, 5) << quint64(0) << 1 << g.code
            << QVector<uint> {0, 0, g.bytes} << 0x0800;
    // Formats outside the legacy descriptions, by bits per pixel or bytes per block: 64 x 32 is
    // 2,048 pixels or 128 blocks; R1 rows are 8 bytes.
    const QVector<QPair<int, uint>> wider
        = {{71, 1024}, {2, 32768}, {24, 8192}, {49, 4096}, {96, 2048}, {66, 256}};
    for (const auto& f : wider)
        walk(qPrintable(QString("DX10 format %1").arg(f.first)), dx10(f.first), 64, 32, 1, f.first,
             {0, 0, f.second});
    walk("R16 1024 11 mips", dx10(56), 1024, 1024, 11, 56,
         {0, 0, 2097152, 1, 1, 524288, 2, 10, 174762});
    walk("BC7 1024 11 mips", dx10(98), 1024, 1024, 11, 98,
         {0, 0, 1048576, 1, 1, 262144, 2, 10, 87408});
    walk("DXT1 4096 13 mips: four chunks at most", fourCC("DXT1"), 4096, 4096, 13, 71,
         {0, 0, 8388608, 1, 1, 2097152, 2, 2, 524288, 3, 12, 174776});
    walk("RGBA 256 9 mips", kRgba, 256, 256, 9, 28, {0, 8, 349524});
    walk("RGBA 1024 0 mips: one level", kRgba, 1024, 1024, 0, 28, {0, 0, 4194304});
    walk("DXT1 512 10 mips", fourCC("DXT1"), 512, 512, 10, 71, {0, 0, 131072, 1, 9, 43704});
    walk("RGBA 511x512 10 mips", kRgba, 511, 512, 10, 28, {0, 9, 1394012});
    walk("RGBA 1024x256 11 mips", kRgba, 1024, 256, 11, 28, {0, 0, 1048576, 1, 10, 349532});
    // Two large levels: the second chunk ends the walk as soon as nothing remains.
    walk("DXT1 2048 2 mips", fourCC("DXT1"), 2048, 2048, 2, 71, {0, 0, 2097152, 1, 1, 524288});
    // Sides that are not multiples of 4 count whole blocks: 6x6 is 2x2 blocks, 3x3 and 1x1 one.
    walk("DXT1 6x6 3 mips", fourCC("DXT1"), 6, 6, 3, 71, {0, 2, 48});
    // More levels than halvings: the smallest level repeats.
    walk("RGBA 4x4 5 mips", kRgba, 4, 4, 5, 28, {0, 4, 92});
    walk("DXT5 8x4 6 mips", fourCC("DXT5"), 8, 4, 6, 77, {0, 5, 112});
    walk("R8 1x1 255 mips", kLuminance, 1, 1, 255, 61, {0, 254, 255});
    // A long thin texture: the area counts, not either side.
    walk("FourCC 113 8192x32 3 mips", fourCC(113u), 8192, 32, 3, 10, {0, 0, 2097152, 1, 2, 655360});
    // Further cube faces or array slices after the first surface's chain stay out.
    walk("DXT5 256 9 mips, more faces", fourCC("DXT5"), 256, 256, 9, 77, {0, 8, 87408},
         87408 * 5 + 13);
    // As other tools cut their first textures, and the Creation Kit its own source file.
    for (const char* archive :
         {"Blank - Textures.ba2", "Unofficial Fallout 4 Patch - Textures.ba2"}) {
        if (!QFileInfo(testutil::samplesDir()).isDir() && !testutil::samplesRequired()) break;
        QVector<uint> chunks;
        const FileRecord r = firstTexture(archive, chunks);
        walk(archive, fourCC("DXT1"), r.width, r.height, r.mipCount, 71, chunks);
        if (archive[0] == 'B')
            QTest::newRow("Blank.dds")
                << sample("Blank.dds") << quint64(0) << 1 << 71 << chunks << 0x0800;
    }
    const auto shape = [](uint32_t caps2, uint32_t miscFlag = 0, uint32_t arraySize = 1,
                          uint32_t dimension = 3) {
        HeaderFields h;
        h.caps2 = caps2;
        h.miscFlag = miscFlag;
        h.arraySize = arraySize;
        h.dimension = dimension;
        return h;
    };
    cube("cube DXT1 256 9 mips", fourCC("DXT1"), 256, 9, shape(0xFE00), 71, 43704);
    cube("cube DXT1 512 10 mips: never split", fourCC("DXT1"), 512, 10, shape(0xFE00), 71, 174776);
    cube("cube RGBA 32 one level", kRgba, 32, 1, shape(0xFE00), 28, 4096);
    cube("cube DX10 BC7 64", dx10(98), 64, 1, shape(0, 4), 98, 4096);
    cube("cube DX10 R8G8 8", dx10(49), 8, 1, shape(0, 4), 49, 128);
    cube("cube DX10 BC7 64 7 mips, face bits too", dx10(98), 64, 7, shape(0xFE00, 4), 98, 5488);
    refused("cube of five faces", makeDds(fourCC("DXT1"), 16, 16, 1, 6 * 128, shape(0xFA00)), -9);
    refused("cube without the data of its faces",
            makeDds(fourCC("DXT1"), 16, 16, 1, 5 * 128 + 127, shape(0xFE00)), -9);
    refused("volume", makeDds(fourCC("DXT1"), 16, 16, 1, 4 * 128, shape(0x200000)), -9);
    for (const auto& t : {std::make_pair("DX10 array of 2", shape(0, 0, 2)),
                          std::make_pair("DX10 cube array", shape(0xFE00, 4, 2)),
                          std::make_pair("DX10 array size 0", shape(0, 0, 0)),
                          std::make_pair("DX10 array size huge", shape(0, 0, 0xFFFFFFFF)),
                          std::make_pair("DX10 volume", shape(0, 0, 1, 4))})
        refused(t.first, makeDds(dx10(98), 16, 16, 1, 12 * 256, t.second), -9);
    walk("RGBA masks, RGB flag only", masks(0x40, 32, 0xFF, 0xFF00, 0xFF0000, 0xFF000000), 4, 4, 1,
         28, {0, 0, 64});

    const QByteArray good = makeDds(fourCC("DXT1"), 64, 64, 7, 2048 + 512 + 128 + 32 + 8 + 8 + 8);
    refused("not DDS", QByteArray(good).replace(0, 4, "DDSX"), -9);
    refused("empty", QByteArray(), -9);
    refused("magic only", "DDS ", -9);
    refused("header cut", good.left(127), -9);
    refused("header only", good.left(128), -9);
    refused("extended header cut", makeDds(dx10(98), 64, 64, 1, 4096).left(128), -9);
    refused("extended header, no data", makeDds(dx10(98), 64, 64, 1, 0), -9);
    refused("width 65536", makeDds(kRgba, 65536, 1, 1, 65536 * 4), -9);
    refused("height 70000", makeDds(kRgba, 4, 70000, 1, 70000 * 16), -9);
    refused("width 0", makeDds(kRgba, 0, 16, 1, 1024), -9);
    refused("height 0", makeDds(kRgba, 16, 0, 1, 1024), -9);
    refused("256 mips", makeDds(kLuminance, 1, 1, 256, 300), -9);
    // A chain beyond 32 bits (65535 x 65535 x 8 bytes) is refused on its size alone; only the
    // header is present, and only the header may be read.
    refused("chain over 4 GiB", makeDds(fourCC(113u), 65535, 65535, 1, 0), -9, quint64(1) << 40);
    refused("unsupported before short", makeDds(fourCC("DXT2"), 64, 64, 1, 0), -10);
    // Descriptions outside the accepted set: an extended header naming a format without a size
    // (unknown, paired pixels, video, unassigned, beyond 8 bits).
    for (int code : {0, 68, 103, 130, 255, 0x162})
        unsupported(QString("DX10 %1").arg(code), dx10(code));
    unsupported("FourCC 111", fourCC(111u));
    unsupported("R8 without flags", masks(0, 8, 0xFF, 0, 0, 0));
    unsupported("luminance with alpha mask", masks(0x20000, 8, 0xFF, 0, 0, 0xFF00));
    unsupported("luminance 16 bits", masks(0x20000, 16, 0xFF, 0, 0, 0));
    unsupported("RGBA masks without RGB flag", masks(0x1, 32, 0xFF, 0xFF00, 0xFF0000, 0xFF000000));
    unsupported("RGBA masks, 24 bits", masks(0x41, 24, 0xFF, 0xFF00, 0xFF0000, 0xFF000000));
    unsupported("RGBX (no alpha mask)", masks(0x40, 32, 0xFF, 0xFF00, 0xFF0000, 0));
    unsupported("red and blue both 0xFF", masks(0x41, 32, 0xFF, 0xFF00, 0xFF, 0xFF000000));
    unsupported("unknown FourCC beside RGBA masks",
                {0x45, cc("DXT2"), 32, {0xFF, 0xFF00, 0xFF0000, 0xFF000000}, -1});
}

void TestDds::layout()
{
    QFETCH(QByteArray, file);
    QFETCH(quint64, claimedSize);
    QFETCH(int, status);
    QFETCH(int, format);
    QFETCH(QVector<uint>, chunks);
    TextureLayout layout;
    layout.chunkCount = 77;
    QCOMPARE(analyse(file, layout, claimedSize), status);
    if (status != 1) {
        QCOMPARE(int(layout.chunkCount), 77); // untouched on failure
        return;
    }
    QCOMPARE(int(layout.format), format);
    QVERIFY(layout.width == le32(file.constData() + 16)
            && layout.height == le32(file.constData() + 12));
    QCOMPARE(layout.mipCount, qMax(le32(file.constData() + 28), 1u));
    QCOMPARE(layout.dataStart, file.mid(84, 4) == "DX10" ? 148u : 128u);
    QCOMPARE(int(layout.chunkCount) * 3, chunks.size());
    uint32_t offset = layout.dataStart;
    for (int k = 0; k < layout.chunkCount; ++k) {
        const ChunkPlan& got = layout.chunks[k];
        QVERIFY(got.sourceOffset == offset && got.packedSize == 0);
        QCOMPARE((QVector<uint> {got.firstMip, got.lastMip, got.unpackedSize}),
                 chunks.mid(3 * k, 3));
        offset += got.unpackedSize;
    }
    QCOMPARE(layout.dataSize, offset - layout.dataStart);
    QFETCH(int, textureFlags);
    QCOMPARE(int(layout.textureFlags), textureFlags);
    // One byte less and the file no longer holds its chain.
    QCOMPARE(analyse(file.left(int(offset) - 1), layout), -9);
}

QTEST_GUILESS_MAIN(TestDds)
#include "tst_dds.moc"

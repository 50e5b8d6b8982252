#include "archive/archivereader.h"
#include "archive/ddsheader.h"

#include "testutil.h"

#include <QtTest>

#include <cstring>

namespace {

uint32_t field(const unsigned char* h, int offset)
{
    return uint32_t(h[offset]) | (uint32_t(h[offset + 1]) << 8) | (uint32_t(h[offset + 2]) << 16)
        | (uint32_t(h[offset + 3]) << 24);
}

uint32_t text4(const char* s)
{
    return uint32_t(uint8_t(s[0])) | (uint32_t(uint8_t(s[1])) << 8) | (uint32_t(uint8_t(s[2])) << 16)
        | (uint32_t(uint8_t(s[3])) << 24);
}

FileRecord texture(uint8_t format, uint16_t width, uint16_t height, uint8_t mips, uint16_t flags = 0x0800)
{
    FileRecord r;
    r.format = format;
    r.width = width;
    r.height = height;
    r.mipCount = mips;
    r.textureFlags = flags;
    return r;
}

struct Header {
    unsigned char bytes[kDdsHeaderCapacity];
    int size = 0;
    explicit Header(const FileRecord& r)
    {
        initDdsHeader(bytes);
        size = buildDdsHeader(bytes, r);
    }
    uint32_t at(int offset) const { return field(bytes, offset); }
};

}  // namespace

class TestDdsHeader : public QObject {
    Q_OBJECT
private slots:
    void initClearsAndSetsConstants();
    void examples_data();
    void examples();
    void formatTable_data();
    void formatTable();
    void channelOrderOnlyChangesMasks();
    void cubeMapFlag();
    void unknownFormats();
    void staleExtensionNotWritten();
    void matchesCreationKitHeader();
};

void TestDdsHeader::initClearsAndSetsConstants()
{
    unsigned char h[kDdsHeaderCapacity];
    std::memset(h, 0xCC, sizeof h);
    initDdsHeader(h);
    QCOMPARE(field(h, 0), 0x20534444u);  // "DDS "
    QCOMPARE(field(h, 4), 124u);
    QCOMPARE(field(h, 76), 32u);
    for (int i = 8; i < kDdsHeaderCapacity; ++i) {
        if (i >= 76 && i < 80) continue;
        QCOMPARE(int(h[i]), 0);
    }
}

void TestDdsHeader::examples_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("mips");
    QTest::addColumn<int>("size");
    QTest::addColumn<uint>("flags");
    QTest::addColumn<uint>("pitchOrLinear");
    QTest::addColumn<uint>("caps");
    QTest::addColumn<uint>("fourCC");
    QTest::addColumn<uint>("pixelFlags");
    QTest::addColumn<uint>("bitCount");
    QTest::addColumn<uint>("redMask");
    QTest::addColumn<uint>("blueMask");
    QTest::addColumn<uint>("alphaMask");
    const uint dx10 = text4("DX10");
    QTest::newRow("BC7 1024x1024 11 mips") << 98 << 1024 << 1024 << 11 << 148 << 0xA1007u << 1048576u << 0x401008u
                                           << dx10 << 4u << 0u << 0u << 0u << 0u;
    QTest::newRow("BC1 256x128 1 mip") << 71 << 256 << 128 << 1 << 128 << 0xA1007u << 16384u << 0x1000u
                                       << text4("DXT1") << 4u << 0u << 0u << 0u << 0u;
    QTest::newRow("RGBA 64x32 no mips") << 28 << 64 << 32 << 0 << 128 << 0x100Fu << 256u << 0x1000u << 0u << 0x41u
                                        << 32u << 0xFFu << 0xFF0000u << 0xFF000000u;
    QTest::newRow("BGRA 64x32 2 mips") << 87 << 64 << 32 << 2 << 128 << 0x2100Fu << 256u << 0x401008u << 0u << 0x41u
                                       << 32u << 0xFF0000u << 0xFFu << 0xFF000000u;
    QTest::newRow("RGBA sRGB pitch with extension") << 29 << 100 << 50 << 7 << 148 << 0x2100Fu << 400u << 0x401008u
                                                    << dx10 << 4u << 0u << 0u << 0u << 0u;
    QTest::newRow("BC6H linear 16-byte blocks") << 95 << 512 << 256 << 10 << 148 << 0xA1007u << 131072u
                                                << 0x401008u << dx10 << 4u << 0u << 0u << 0u << 0u;
    QTest::newRow("partial blocks not counted") << 71 << 6 << 6 << 1 << 128 << 0xA1007u << 16u << 0x1000u
                                                << text4("DXT1") << 4u << 0u << 0u << 0u << 0u;
    QTest::newRow("2x2 block texture") << 77 << 2 << 2 << 1 << 128 << 0xA1007u << 0u << 0x1000u << text4("DXT5")
                                       << 4u << 0u << 0u << 0u << 0u;
    QTest::newRow("largest sides") << 98 << 65535 << 65535 << 1 << 148 << 0xA1007u << 4294836224u << 0x1000u
                                   << dx10 << 4u << 0u << 0u << 0u << 0u;
}

void TestDdsHeader::examples()
{
    QFETCH(int, format);
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, mips);
    const Header h(texture(uint8_t(format), uint16_t(width), uint16_t(height), uint8_t(mips)));
    QTEST(h.size, "size");
    QCOMPARE(h.at(0), 0x20534444u);
    QCOMPARE(h.at(4), 124u);
    QTEST(uint(h.at(8)), "flags");
    QCOMPARE(h.at(12), uint32_t(height));
    QCOMPARE(h.at(16), uint32_t(width));
    QTEST(uint(h.at(20)), "pitchOrLinear");
    QCOMPARE(h.at(24), 1u);
    QCOMPARE(h.at(28), uint32_t(mips));
    for (int o = 32; o < 76; o += 4) QCOMPARE(h.at(o), 0u);
    QCOMPARE(h.at(76), 32u);
    QTEST(uint(h.at(80)), "pixelFlags");
    QTEST(uint(h.at(84)), "fourCC");
    QTEST(uint(h.at(88)), "bitCount");
    QTEST(uint(h.at(92)), "redMask");
    QCOMPARE(h.at(96), h.at(88) ? 0xFF00u : 0u);
    QTEST(uint(h.at(100)), "blueMask");
    QTEST(uint(h.at(104)), "alphaMask");
    QTEST(uint(h.at(108)), "caps");
    for (int o = 112; o < 128; o += 4) QCOMPARE(h.at(o), 0u);
    if (h.size == 148) {
        QCOMPARE(h.at(128), uint32_t(format));
        QCOMPARE(h.at(132), 3u);
        QCOMPARE(h.at(136), 0u);
        QCOMPARE(h.at(140), 1u);
        QCOMPARE(h.at(144), 0u);
    }
}

void TestDdsHeader::formatTable_data()
{
    // One row per supported DXGI code: pixel-format fields, bytes per pixel or per 4x4 block,
    // and whether the extension follows.
    QTest::addColumn<int>("format");
    QTest::addColumn<uint>("pixelFlags");
    QTest::addColumn<uint>("fourCC");
    QTest::addColumn<uint>("bits");
    QTest::addColumn<uint>("r");
    QTest::addColumn<uint>("g");
    QTest::addColumn<uint>("b");
    QTest::addColumn<uint>("a");
    QTest::addColumn<bool>("linear");
    QTest::addColumn<uint>("unitBytes");
    QTest::addColumn<bool>("extension");
    const uint dx10 = text4("DX10");
#define row QTest::newRow
    row("10 R16G16B16A16_FLOAT") << 10 << 4u << 113u << 0u << 0u << 0u << 0u << 0u << false << 8u << false;
    row("11 R16G16B16A16_UNORM") << 11 << 4u << 36u << 0u << 0u << 0u << 0u << 0u << false << 8u << false;
    row("28 R8G8B8A8_UNORM") << 28 << 0x41u << 0u << 32u << 0xFFu << 0xFF00u << 0xFF0000u << 0xFF000000u << false
                             << 4u << false;
    row("29 R8G8B8A8_UNORM_SRGB") << 29 << 4u << dx10 << 0u << 0u << 0u << 0u << 0u << false << 4u << true;
    row("31 R8G8B8A8_SNORM") << 31 << 4u << dx10 << 0u << 0u << 0u << 0u << 0u << false << 4u << true;
    row("61 R8_UNORM") << 61 << 0x20000u << 0u << 8u << 0xFFu << 0u << 0u << 0u << false << 1u << false;
    row("63 R8_SNORM") << 63 << 0x40u << 0u << 8u << 0xFFu << 0u << 0u << 0u << false << 1u << false;
    row("71 BC1_UNORM") << 71 << 4u << text4("DXT1") << 0u << 0u << 0u << 0u << 0u << true << 8u << false;
    row("72 BC1_UNORM_SRGB") << 72 << 4u << dx10 << 0u << 0u << 0u << 0u << 0u << true << 8u << true;
    row("74 BC2_UNORM") << 74 << 4u << text4("DXT3") << 0u << 0u << 0u << 0u << 0u << true << 16u << false;
    row("77 BC3_UNORM") << 77 << 4u << text4("DXT5") << 0u << 0u << 0u << 0u << 0u << true << 16u << false;
    row("78 BC3_UNORM_SRGB") << 78 << 4u << dx10 << 0u << 0u << 0u << 0u << 0u << true << 16u << true;
    row("80 BC4_UNORM") << 80 << 4u << text4("BC4U") << 0u << 0u << 0u << 0u << 0u << true << 8u << false;
    row("83 BC5_UNORM") << 83 << 4u << text4("BC5U") << 0u << 0u << 0u << 0u << 0u << true << 16u << false;
    row("84 BC5_SNORM") << 84 << 4u << text4("BC5S") << 0u << 0u << 0u << 0u << 0u << true << 16u << false;
    row("87 B8G8R8A8_UNORM") << 87 << 0x41u << 0u << 32u << 0xFF0000u << 0xFF00u << 0xFFu << 0xFF000000u << false
                             << 4u << false;
    row("95 BC6H_UF16") << 95 << 4u << dx10 << 0u << 0u << 0u << 0u << 0u << true << 16u << true;
    row("98 BC7_UNORM") << 98 << 4u << dx10 << 0u << 0u << 0u << 0u << 0u << true << 16u << true;
    row("99 BC7_UNORM_SRGB") << 99 << 4u << dx10 << 0u << 0u << 0u << 0u << 0u << true << 16u << true;
#undef row
}

void TestDdsHeader::formatTable()
{
    QFETCH(int, format);
    QFETCH(bool, linear);
    QFETCH(uint, unitBytes);
    QFETCH(bool, extension);
    QVERIFY(ddsFormatSupported(uint8_t(format)));
    // 200 x 100 with 5 levels: pitch 200 x n, or (20,000 / 16) x n = 1,250 x n.
    const Header h(texture(uint8_t(format), 200, 100, 5));
    QCOMPARE(h.size, extension ? 148 : 128);
    QCOMPARE(h.at(8), (linear ? 0x81007u : 0x100Fu) | 0x20000u);
    QCOMPARE(h.at(12), 100u);
    QCOMPARE(h.at(16), 200u);
    QCOMPARE(h.at(20), linear ? 1250u * unitBytes : 200u * unitBytes);
    QCOMPARE(h.at(28), 5u);
    QTEST(uint(h.at(80)), "pixelFlags");
    QTEST(uint(h.at(84)), "fourCC");
    QTEST(uint(h.at(88)), "bits");
    QTEST(uint(h.at(92)), "r");
    QTEST(uint(h.at(96)), "g");
    QTEST(uint(h.at(100)), "b");
    QTEST(uint(h.at(104)), "a");
    QCOMPARE(h.at(108), 0x401008u);
    QCOMPARE(h.at(112), 0u);
    if (extension) QCOMPARE(h.at(128), uint32_t(format));
}

void TestDdsHeader::channelOrderOnlyChangesMasks()
{
    const Header rgba(texture(28, 64, 32, 0));
    const Header bgra(texture(87, 64, 32, 0));
    QCOMPARE(rgba.size, 128);
    QCOMPARE(bgra.size, 128);
    QList<int> differing;
    for (int i = 0; i < 128; ++i)
        if (rgba.bytes[i] != bgra.bytes[i]) differing << i;
    QCOMPARE(differing, (QList<int>{92, 94, 100, 102}));  // red and blue masks swap 0xFF and 0xFF0000
}

void TestDdsHeader::cubeMapFlag()
{
    QCOMPARE(Header(texture(71, 256, 256, 9, 0x0801)).at(112), 0xFE00u);
    QCOMPARE(Header(texture(71, 256, 256, 9, 0x0001)).at(112), 0xFE00u);
    QCOMPARE(Header(texture(71, 256, 256, 9, 0x0800)).at(112), 0u);
    QCOMPARE(Header(texture(71, 256, 256, 9, 0xFFFE)).at(112), 0u);
}

void TestDdsHeader::unknownFormats()
{
    int supported = 0;
    for (int code = 0; code < 256; ++code) {
        unsigned char h[kDdsHeaderCapacity];
        initDdsHeader(h);
        const int n = buildDdsHeader(h, texture(uint8_t(code), 16, 16, 1));
        QCOMPARE(n != 0, ddsFormatSupported(uint8_t(code)));
        supported += n != 0;
    }
    QCOMPARE(supported, 19);
    QVERIFY(!ddsFormatSupported(2));   // R32G32B32A32_FLOAT
    QVERIFY(!ddsFormatSupported(0));
    QVERIFY(!ddsFormatSupported(100));
}

void TestDdsHeader::staleExtensionNotWritten()
{
    // One array serves a whole extraction: a texture without the extension after one with it
    // gives the same first 128 bytes as on a fresh array.
    unsigned char shared[kDdsHeaderCapacity];
    initDdsHeader(shared);
    QCOMPARE(buildDdsHeader(shared, texture(98, 512, 512, 10, 0x0801)), 148);
    QCOMPARE(buildDdsHeader(shared, texture(71, 128, 64, 1)), 128);
    const Header fresh(texture(71, 128, 64, 1));
    QCOMPARE(QByteArray(reinterpret_cast<char*>(shared), 128), QByteArray(reinterpret_cast<const char*>(fresh.bytes), 128));
}

void TestDdsHeader::matchesCreationKitHeader()
{
    // The record of the Creation Kit's texture archive rebuilds the header of the DDS file it
    // was made from, byte for byte.
    const QByteArray archive = testutil::readFile(testutil::samplesDir() + "/Blank - Textures.ba2");
    const QByteArray dds = testutil::readFile(testutil::samplesDir() + "/Blank.dds");
    QVERIFY(archive.size() > 48);
    QVERIFY(dds.size() > 128);
    const unsigned char* rec = reinterpret_cast<const unsigned char*>(archive.constData()) + 24;
    FileRecord r;
    r.height = uint16_t(rec[16] | (rec[17] << 8));
    r.width = uint16_t(rec[18] | (rec[19] << 8));
    r.mipCount = rec[20];
    r.format = rec[21];
    r.textureFlags = uint16_t(rec[22] | (rec[23] << 8));
    QCOMPARE(int(r.format), 71);
    const Header h(r);
    QCOMPARE(h.size, 128);
    QCOMPARE(QByteArray(reinterpret_cast<const char*>(h.bytes), 128), dds.left(128));
}

QTEST_GUILESS_MAIN(TestDdsHeader)
#include "tst_ddsheader.moc"

#include "archive/bsa.h"
#include "archive/dxgi.h"
#include "archive/format.h"

#include <QtTest>

#include "testutil.h"

using testutil::referenceNameHash;

class TestFormat : public QObject
{
    Q_OBJECT
private slots:
    // The common CRC-32 of "123456789" is 0xCBF43926; without the inversions it is 0x2DFD2D88.
    void initTestCase() { QCOMPARE(referenceNameHash("123456789"), 0x2DFD2D88u); }
    void nameHash_data();
    void nameHash();
    void dxgiFormats_data();
    void dxgiFormats();
    void bsaNameHash_data();
    void bsaNameHash();
};

void TestFormat::nameHash_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<bool>("directoryMode");
    QTest::addColumn<int>("components"); // -1: left alone
    QTest::addColumn<bool>("ready");
    QTest::newRow("empty") << QByteArray() << false << -1 << true;
    QTest::newRow("digits") << QByteArray("123456789") << false << -1 << true;
    QTest::newRow("backslash path") << QByteArray("textures\\armor") << false << -1 << true;
    QTest::newRow("slash, not directory") << QByteArray("textures/armor") << false << -1 << true;
    QTest::newRow("directory") << QByteArray("textures/armor/iron") << true << 3 << true;
    QTest::newRow("one folder") << QByteArray("meshes") << true << 1 << true;
    QTest::newRow("empty directory") << QByteArray() << true << 1 << true;
    QTest::newRow("table not ready") << QByteArray("abc/def") << true << -1 << false;
}

void TestFormat::nameHash()
{
    QFETCH(QByteArray, input);
    QFETCH(bool, directoryMode);
    QFETCH(int, components);
    QFETCH(bool, ready);
    NameHashTable table;
    table.nameHashReady = ready;
    uint8_t count = 99;
    const uint32_t expected = ready
        ? referenceNameHash(directoryMode ? QByteArray(input).replace('/', '\\') : input)
        : 0;
    QCOMPARE(NameHash(table, input.constData(), size_t(input.size()), directoryMode, &count),
             expected);
    QCOMPARE(int(count), components == -1 ? 99 : components);
}

// Sizes from the published definitions: a BC7 level of 1024 x 1024 is 1 MiB, a 2 x 2 BC1 level
// still fills one 8-byte block, nine 1-bit pixels need two bytes.
void TestFormat::dxgiFormats_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QByteArray>("name"); // empty: unassigned
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<qulonglong>("level");
    QTest::newRow("unknown") << 0 << QByteArray("UNKNOWN") << 0 << 4 << 4 << 0ull;
    QTest::newRow("float4") << 2 << QByteArray("R32G32B32A32_FLOAT") << 128 << 3 << 5 << 240ull;
    QTest::newRow("rgba srgb") << 29 << QByteArray("R8G8B8A8_UNORM_SRGB") << 32 << 64 << 32
                               << 8192ull;
    QTest::newRow("1 bit") << 66 << QByteArray("R1_UNORM") << 1 << 9 << 3 << 6ull;
    QTest::newRow("bc1 small") << 71 << QByteArray("BC1_UNORM") << 8 << 2 << 2 << 8ull;
    QTest::newRow("bc6h signed") << 96 << QByteArray("BC6H_SF16") << 16 << 5 << 4 << 32ull;
    QTest::newRow("bc7") << 98 << QByteArray("BC7_UNORM") << 16 << 1024 << 1024 << 1048576ull;
    QTest::newRow("video") << 103 << QByteArray("NV12") << 0 << 16 << 16 << 0ull;
    QTest::newRow("unassigned") << 116 << QByteArray() << 0 << 16 << 16 << 0ull;
    QTest::newRow("a4b4g4r4") << 191 << QByteArray("A4B4G4R4_UNORM") << 16 << 3 << 3 << 18ull;
}

void TestFormat::dxgiFormats()
{
    QFETCH(int, code);
    QFETCH(QByteArray, name);
    QFETCH(int, size);
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(qulonglong, level);
    const DxgiFormat& f = dxgiFormat(uint32_t(code));
    QCOMPARE(QByteArray(f.name), name);
    QCOMPARE(int(f.size), size);
    QCOMPARE(f.layout == DxgiLayout::Unsized, size == 0);
    QCOMPARE(qulonglong(dxgiLevelSize(uint32_t(code), uint32_t(width), uint32_t(height))), level);
}

// Values worked out by hand from the published definition (in another language).
void TestFormat::bsaNameHash_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("folder");
    QTest::addColumn<qulonglong>("hash");
    QTest::newRow("nif") << QByteArray("plate.nif") << false << 0x933960f27005f465ull;
    QTest::newRow("upper case") << QByteArray("Helmet.NIF") << false << 0xc4f57ee36806e574ull;
    QTest::newRow("one-letter stem") << QByteArray("a.dds") << false << 0x8ddba9c5610180e1ull;
    QTest::newRow("wav") << QByteArray("boom.wav") << false << 0x9733d00de2046f6dull;
    QTest::newRow("kf") << QByteArray("empty.kf") << false << 0x177eff2c650574f9ull;
    QTest::newRow("last dot") << QByteArray("file.tar.gz") << false << 0xc5cb14a966086172ull;
    QTest::newRow("no extension") << QByteArray("readme") << false << 0x321d362872066d65ull;
    QTest::newRow("two bytes") << QByteArray("ab") << false << 0x61020062ull;
    QTest::newRow("folder") << QByteArray("meshes\\armor") << true << 0xb6e5bfe86d0c6f72ull;
    QTest::newRow("folder with slash") << QByteArray("sound/fx") << true << 0xeda95b2073086678ull;
    QTest::newRow("dot folder") << QByteArray(".") << true << 0x2e01002eull;
}

void TestFormat::bsaNameHash()
{
    QFETCH(QByteArray, name);
    QFETCH(bool, folder);
    QTEST(qulonglong(bsa::nameHash(name.constData(), size_t(name.size()), folder)), "hash");
}

QTEST_GUILESS_MAIN(TestFormat)
#include "tst_format.moc"

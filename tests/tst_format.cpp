#include "archive/format.h"

#include <QtTest>

class TestFormat : public QObject {
    Q_OBJECT
private slots:
    void nameHash_data();
    void nameHash();
    void tableEntries();
    void headerSizes_data();
    void headerSizes();
    void recordLayout();
};

void TestFormat::nameHash_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<bool>("directoryMode");
    QTest::addColumn<uint>("expected");
    QTest::addColumn<int>("components");
    QTest::newRow("empty") << QByteArray() << false << 0u << -1;
    QTest::newRow("digits") << QByteArray("123456789") << false << 0x2DFD2D88u << -1;
    QTest::newRow("a") << QByteArray("a") << false << 0x3AB551CEu << -1;
    QTest::newRow("backslash path") << QByteArray("textures\\armor") << false << 0x055583E3u << -1;
    QTest::newRow("directory mode") << QByteArray("textures/armor") << true << 0x055583E3u << 2;
    QTest::newRow("one component") << QByteArray("meshes") << true << 0u << 1;
    QTest::newRow("empty directory") << QByteArray() << true << 0u << 1;
}

void TestFormat::nameHash()
{
    QFETCH(QByteArray, input);
    QFETCH(bool, directoryMode);
    QFETCH(uint, expected);
    QFETCH(int, components);
    uint8_t count = 99;
    const uint32_t h = NameHash(defaultNameHashTable(), input.constData(), size_t(input.size()), directoryMode, &count);
    if (QByteArray(QTest::currentDataTag()) != "one component") QCOMPARE(h, uint32_t(expected));
    // meshes: its value must equal the plain hash (no '/' inside)
    else QCOMPARE(h, NameHash(defaultNameHashTable(), "meshes", 6));
    QCOMPARE(int(count), components == -1 ? 99 : components);
}

void TestFormat::tableEntries()
{
    const NameHashTable& t = defaultNameHashTable();
    QVERIFY(t.nameHashReady);
    QCOMPARE(t.nameHashTable[0], 0u);
    QCOMPARE(t.nameHashTable[1], 0x77073096u);
    QCOMPARE(t.nameHashTable[255], 0x2D02EF8Du);
    NameHashTable notReady;
    notReady.nameHashReady = false;
    uint8_t count = 7;
    QCOMPARE(NameHash(notReady, "abc/def", 7, true, &count), 0u);
    QCOMPARE(int(count), 7);
}

void TestFormat::headerSizes_data()
{
    QTest::addColumn<uint>("version");
    QTest::addColumn<uint>("size");
    QTest::newRow("v1") << 1u << 24u;
    QTest::newRow("v2") << 2u << 32u;
    QTest::newRow("v3") << 3u << 36u;
    QTest::newRow("v0") << 0u << 24u;
    QTest::newRow("v7") << 7u << 24u;
}

void TestFormat::headerSizes()
{
    QFETCH(uint, version);
    QFETCH(uint, size);
    ba2::ArchiveHeader h;
    h.version = version;
    h.fileCount = 5;
    h.nameTableOffset = 0x0102030405060708ull;
    h.headerExtra = 1;
    h.compressionCode = 3;
    unsigned char buf[40];
    memset(buf, 0xEE, sizeof buf);
    QCOMPARE(ba2::encodeHeader(h, buf), uint32_t(size));
    QCOMPARE(QByteArray(reinterpret_cast<char*>(buf), 4), QByteArray("BTDX"));
    QCOMPARE(QByteArray(reinterpret_cast<char*>(buf) + 8, 4), QByteArray("GNRL"));
    QCOMPARE(buf[16], uchar(0x08));
    QCOMPARE(buf[23], uchar(0x01));
    QCOMPARE(buf[size], uchar(0xEE));  // nothing written past the header
}

void TestFormat::recordLayout()
{
    ba2::TextureFileRecord t;
    t.chunkCount = 3;
    t.height = 0x0400;
    t.width = 0x0200;
    t.mipCount = 11;
    t.format = 98;
    unsigned char buf[24];
    ba2::encodeTextureRecord(t, buf);
    QCOMPARE(buf[13], uchar(3));
    QCOMPARE(buf[14], uchar(24));
    QCOMPARE(buf[17], uchar(0x04));
    QCOMPARE(buf[19], uchar(0x02));
    QCOMPARE(buf[20], uchar(11));
    QCOMPARE(buf[21], uchar(98));
    QCOMPARE(ba2::readLE16(buf + 22), uint16_t(0x0800));
    const ba2::TextureFileRecord back = ba2::decodeTextureRecord(buf);
    QCOMPARE(back.width, t.width);
    QCOMPARE(back.format, t.format);

    ba2::ChunkRecord c;
    c.dataOffset = 168;
    c.packedSize = 5;
    c.unpackedSize = 9;
    c.firstMip = 2;
    c.lastMip = 10;
    unsigned char cb[24];
    ba2::encodeChunkRecord(c, cb);
    QCOMPARE(ba2::readLE32(cb + 20), 0xBAADF00Du);
    QCOMPARE(ba2::decodeChunkRecord(cb).lastMip, uint16_t(10));
}

QTEST_GUILESS_MAIN(TestFormat)
#include "tst_format.moc"

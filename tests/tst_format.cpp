#include "archive/format.h"

#include <QtTest>

#include <zlib.h>

// The name hash is a CRC-32 without the usual inversions; zlib's crc32 is the reference.
static uint32_t refHash(const QByteArray& b)
{
    return ~uint32_t(
        crc32(0xFFFFFFFFul, reinterpret_cast<const Bytef*>(b.constData()), uInt(b.size())));
}

class TestFormat : public QObject
{
    Q_OBJECT
private slots:
    // The common CRC-32 of "123456789" is 0xCBF43926; without the inversions it is 0x2DFD2D88.
    void initTestCase() { QCOMPARE(refHash("123456789"), 0x2DFD2D88u); }
    void nameHash_data();
    void nameHash();
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
    const uint32_t expected
        = ready ? refHash(directoryMode ? QByteArray(input).replace('/', '\\') : input) : 0;
    QCOMPARE(NameHash(table, input.constData(), size_t(input.size()), directoryMode, &count),
             expected);
    QCOMPARE(int(count), components == -1 ? 99 : components);
}

QTEST_GUILESS_MAIN(TestFormat)
#include "tst_format.moc"

#include "archive/format.h"

#include <QtTest>

class TestFormat : public QObject {
    Q_OBJECT
private slots:
    void nameHash_data();
    void nameHash();
    void tableAndReadiness();
};

void TestFormat::nameHash_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<bool>("directoryMode");
    QTest::addColumn<uint>("expected");
    QTest::addColumn<int>("components");  // -1: not written
    // The common CRC-32 of "123456789" is 0xCBF43926; without the inversions it is 0x2DFD2D88.
    QTest::newRow("empty") << QByteArray() << false << 0u << -1;
    QTest::newRow("digits") << QByteArray("123456789") << false << 0x2DFD2D88u << -1;
    QTest::newRow("a") << QByteArray("a") << false << 0x3AB551CEu << -1;
    QTest::newRow("backslash path") << QByteArray("textures\\armor") << false << 0x055583E3u << -1;
    QTest::newRow("directory mode") << QByteArray("textures/armor") << true << 0x055583E3u << 2;
    QTest::newRow("empty directory") << QByteArray() << true << 0u << 1;
}

void TestFormat::nameHash()
{
    QFETCH(QByteArray, input);
    QFETCH(bool, directoryMode);
    QFETCH(uint, expected);
    QFETCH(int, components);
    uint8_t count = 99;
    QCOMPARE(NameHash(defaultNameHashTable(), input.constData(), size_t(input.size()), directoryMode, &count),
             uint32_t(expected));
    QCOMPARE(int(count), components == -1 ? 99 : components);
}

void TestFormat::tableAndReadiness()
{
    const NameHashTable& t = defaultNameHashTable();
    QVERIFY(t.nameHashReady);
    QCOMPARE(t.nameHashTable[1], 0x77073096u);
    QCOMPARE(t.nameHashTable[255], 0x2D02EF8Du);
    // One folder name: one component, and the same value as a plain hash.
    uint8_t count = 0;
    QCOMPARE(NameHash(t, "meshes", 6, true, &count), NameHash(t, "meshes", 6));
    QCOMPARE(int(count), 1);
    NameHashTable notReady;
    notReady.nameHashReady = false;
    count = 7;
    QCOMPARE(NameHash(notReady, "abc/def", 7, true, &count), 0u);
    QCOMPARE(int(count), 7);
}

QTEST_GUILESS_MAIN(TestFormat)
#include "tst_format.moc"

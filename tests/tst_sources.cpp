#include "creation/sourceentry.h"

#include <QtTest>

#include <algorithm>
#include <random>
#include <zlib.h>

// The name hash is a CRC-32 without the usual inversions; zlib's crc32 gives an independent
// reference: crc32(0xFFFFFFFF, x) is the inverted raw CRC started at 0.
static uint32_t refHash(const QByteArray& bytes)
{
    return ~uint32_t(crc32(0xFFFFFFFFul, reinterpret_cast<const Bytef*>(bytes.constData()), uInt(bytes.size())));
}

static uint32_t ext4(const char* e)
{
    uint32_t v = 0;
    for (int i = 0; i < 4 && e[i]; ++i) v |= uint32_t(uint8_t(e[i])) << (8 * i);
    return v;
}

class TestSources : public QObject {
    Q_OBJECT
private slots:
    void makeEntry_data();
    void makeEntry();
    void refused_data();
    void refused();
    void relativeLengthLimit();
    void hashTableNotReady();
    void sortOrder_data();
    void sortOrder();
    void orderingIsStrict();
    void duplicates();
};

void TestSources::makeEntry_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<uint>("rootPrefix");
    QTest::addColumn<QByteArray>("relative");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("stem");
    QTest::addColumn<QByteArray>("ext");
    QTest::addColumn<QByteArray>("dirHashed");  // directory part with '\' separators, as hashed
    QTest::addColumn<uint>("depth");

    QTest::newRow("single file") << QByteArray("/home/u/stuff/plate_d.dds") << 0u << QByteArray("plate_d.dds")
                                 << QByteArray("plate_d.dds") << QByteArray("plate_d") << QByteArray("dds")
                                 << QByteArray() << 0u;
    QTest::newRow("drive root") << QByteArray("c:/readme.txt") << 3u << QByteArray("readme.txt")
                                << QByteArray("readme.txt") << QByteArray("readme") << QByteArray("txt")
                                << QByteArray() << 0u;
    QTest::newRow("file system root") << QByteArray("/x.dds") << 1u << QByteArray("x.dds") << QByteArray("x.dds")
                                      << QByteArray("x") << QByteArray("dds") << QByteArray() << 0u;
    QTest::newRow("below file system root") << QByteArray("/sub/x.dds") << 1u << QByteArray("sub/x.dds")
                                            << QByteArray("x.dds") << QByteArray("x") << QByteArray("dds")
                                            << QByteArray("sub") << 1u;
    QTest::newRow("root folder file") << QByteArray("/mods/data/file.ext") << 6u << QByteArray("data/file.ext")
                                      << QByteArray("file.ext") << QByteArray("file") << QByteArray("ext")
                                      << QByteArray("data") << 1u;
    QTest::newRow("no extension") << QByteArray("/mods/data.v2/readme") << 6u << QByteArray("data.v2/readme")
                                  << QByteArray("readme") << QByteArray("readme") << QByteArray()
                                  << QByteArray("data.v2") << 1u;
    QTest::newRow("leading dot") << QByteArray("/mods/data/.hidden") << 6u << QByteArray("data/.hidden")
                                 << QByteArray(".hidden") << QByteArray() << QByteArray("hidden")
                                 << QByteArray("data") << 1u;
    QTest::newRow("long extension") << QByteArray("/m/d/img.jpeg2000") << 3u << QByteArray("d/img.jpeg2000")
                                    << QByteArray("img.jpeg2000") << QByteArray("img") << QByteArray("jpeg2000")
                                    << QByteArray("d") << 1u;
    QTest::newRow("one-letter extension") << QByteArray("/m/d/a.h") << 3u << QByteArray("d/a.h") << QByteArray("a.h")
                                          << QByteArray("a") << QByteArray("h") << QByteArray("d") << 1u;
    QTest::newRow("two dots") << QByteArray("/m/d/file.tar.gz") << 3u << QByteArray("d/file.tar.gz")
                              << QByteArray("file.tar.gz") << QByteArray("file.tar") << QByteArray("gz")
                              << QByteArray("d") << 1u;
    QTest::newRow("trailing dot") << QByteArray("/m/d/name.") << 3u << QByteArray("d/name.") << QByteArray("name.")
                                  << QByteArray("name") << QByteArray() << QByteArray("d") << 1u;
    QTest::newRow("plate example") << QByteArray("c:/mods/pack/textures/armor/plate_d.dds") << 13u
                                   << QByteArray("textures/armor/plate_d.dds") << QByteArray("plate_d.dds")
                                   << QByteArray("plate_d") << QByteArray("dds") << QByteArray("textures\\armor")
                                   << 2u;
    QTest::newRow("deep") << QByteArray("/a/b_c/d/e/f.x") << 3u << QByteArray("b_c/d/e/f.x") << QByteArray("f.x")
                          << QByteArray("f") << QByteArray("x") << QByteArray("b_c\\d\\e") << 3u;
    QTest::newRow("eight-bit bytes") << QByteArray("/m/d\xc3\xa9/\xc3\xa9t\xc3\xa9.dds") << 3u
                                     << QByteArray("d\xc3\xa9/\xc3\xa9t\xc3\xa9.dds")
                                     << QByteArray("\xc3\xa9t\xc3\xa9.dds") << QByteArray("\xc3\xa9t\xc3\xa9")
                                     << QByteArray("dds") << QByteArray("d\xc3\xa9") << 1u;
}

void TestSources::makeEntry()
{
    QFETCH(QByteArray, path);
    QFETCH(uint, rootPrefix);
    QFETCH(QByteArray, relative);
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, stem);
    QFETCH(QByteArray, ext);
    QFETCH(QByteArray, dirHashed);
    QFETCH(uint, depth);

    const std::optional<SourceEntry> e = makeSourceEntry(path, rootPrefix, defaultNameHashTable());
    QVERIFY(e.has_value());
    QCOMPARE(e->path, path);
    QCOMPARE(int(e->pathLength), path.size());
    QCOMPARE(e->relativePathBytes(), relative);
    QCOMPARE(int(e->relativeLength()), relative.size());
    QCOMPARE(int(e->relStart), path.size() - relative.size());
    QCOMPARE(path.mid(int(e->nameStart)), name);
    QCOMPARE(int(e->nameLength), name.size());
    QCOMPARE(int(e->extLength), ext.size());
    if (ext.isEmpty() && !name.endsWith('.')) QCOMPARE(e->extStart, e->nameStart);
    else QCOMPARE(path.mid(int(e->extStart)), ext);
    QCOMPARE(e->extension, ext4(ext.constData()));
    QCOMPARE(e->nameHash, refHash(stem));
    QCOMPARE(e->depth, depth);
    QCOMPARE(int(e->dirLength), dirHashed.size());
    QCOMPARE(e->directoryHash, dirHashed.isEmpty() ? 0u : refHash(dirHashed));
    if (dirHashed.isEmpty()) QCOMPARE(e->dirStart, e->nameStart);
    else QCOMPARE(int(e->dirStart), int(e->relStart));
    QByteArray key = relative;
    key.replace('_', '|');
    QCOMPARE(e->sortKey, key);
    QCOMPARE(uint(e->sortKey.count('/')), e->depth);
}

void TestSources::refused_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<uint>("rootPrefix");
    QTest::newRow("no slash") << QByteArray("plate.dds") << 0u;
    QTest::newRow("empty") << QByteArray() << 0u;
    QTest::newRow("ends with slash") << QByteArray("/mods/data/") << 6u;
    QTest::newRow("only slash") << QByteArray("/") << 0u;
    QTest::newRow("prefix past the name") << QByteArray("/mods/a.dds") << 8u;
}

void TestSources::refused()
{
    QFETCH(QByteArray, path);
    QFETCH(uint, rootPrefix);
    QVERIFY(!makeSourceEntry(path, rootPrefix, defaultNameHashTable()).has_value());
}

void TestSources::relativeLengthLimit()
{
    // The name table keeps a 16-bit length: 65,535 bytes fit, one more does not.
    const QByteArray prefix("/base/");
    const QByteArray dir = "d/" + QByteArray(65535 - 2 - 4, 'n');
    const QByteArray fits = prefix + dir + ".dds";
    QCOMPARE(fits.size() - prefix.size(), 65535);
    const std::optional<SourceEntry> e = makeSourceEntry(fits, uint32_t(prefix.size()), defaultNameHashTable());
    QVERIFY(e.has_value());
    QCOMPARE(e->relativeLength(), 65535u);
    QCOMPARE(e->dirLength, 1u);
    QVERIFY(!makeSourceEntry(prefix + "x" + dir + ".dds", uint32_t(prefix.size()), defaultNameHashTable()));
    // A long folder prefix outside the relative part is no reason to refuse.
    const QByteArray longPrefix = "/" + QByteArray(70000, 'p') + "/";
    QVERIFY(makeSourceEntry(longPrefix + "data/a.dds", uint32_t(longPrefix.size()), defaultNameHashTable()));
}

void TestSources::hashTableNotReady()
{
    NameHashTable table;
    table.nameHashReady = false;
    const std::optional<SourceEntry> e = makeSourceEntry("/mods/data/sub/a.dds", 6, table);
    QVERIFY(e.has_value());
    QCOMPARE(e->nameHash, 0u);
    QCOMPARE(e->directoryHash, 0u);
    QCOMPARE(e->depth, 2u);  // counted from the path, not from the hash
    QCOMPARE(e->extension, ext4("dds"));
}

void TestSources::sortOrder_data()
{
    QTest::addColumn<QList<QByteArray>>("expected");
    QTest::newRow("names in one folder")
        << QList<QByteArray>{"data/a.dds", "data/ab.dds", "data/a_b.dds", "data/b.dds", "data/a/x.dds"};
    QTest::newRow("folder prefix") << QList<QByteArray>{"data/tex/x.dds", "data/texture/y.dds"};
    QTest::newRow("slash before any byte")
        << QList<QByteArray>{"data/a/x.dds", "data/a-b/x.dds", "data/a.b/x.dds", "data/a0/x.dds"};
    QTest::newRow("depth first")
        << QList<QByteArray>{"data/z.dds", "data/a/y.dds", "data/a/b/x.dds", "data/a/c/w.dds", "data/b/v.dds"};
    QTest::newRow("underscore after letters")
        << QList<QByteArray>{"data/a0.dds", "data/az.dds", "data/a_.dds", "data/a~.dds"};
    QTest::newRow("eight-bit first") << QList<QByteArray>{"data/\xc3\xa9.dds", "data/0.dds", "data/a.dds"};
    QTest::newRow("shorter name first") << QList<QByteArray>{"data/a", "data/a.dds", "data/ab"};
    QTest::newRow("root files then folders")
        << QList<QByteArray>{"data/readme.txt", "data/meshes/m.nif", "data/textures/a.dds"};
}

static SourceList listFrom(const QList<QByteArray>& relatives, std::mt19937& rng)
{
    QList<QByteArray> shuffled = relatives;
    std::shuffle(shuffled.begin(), shuffled.end(), rng);
    SourceList list;
    for (const QByteArray& r : shuffled) {
        std::optional<SourceEntry> e = makeSourceEntry("c:/x/" + r, 5, defaultNameHashTable());
        if (e) list.append(std::move(*e));
    }
    return list;
}

void TestSources::sortOrder()
{
    QFETCH(QList<QByteArray>, expected);
    std::mt19937 rng(12345);
    for (int round = 0; round < 20; ++round) {
        SourceList list = listFrom(expected, rng);
        QCOMPARE(int(list.size()), expected.size());
        list.sortSources();
        QList<QByteArray> got;
        for (const SourceEntry& e : list) got << e.relativePathBytes();
        QCOMPARE(got, expected);
    }
}

void TestSources::orderingIsStrict()
{
    const QList<QByteArray> keys{"data/a.dds",  "data/ab.dds",   "data/a_b.dds", "data/b.dds",
                                 "data/a/x.dds", "data/a-b/x.dds", "data/a",      "x.dds"};
    std::vector<SourceEntry> entries;
    for (const QByteArray& k : keys) entries.push_back(*makeSourceEntry("c:/x/" + k, 5, defaultNameHashTable()));
    for (const SourceEntry& a : entries) {
        QVERIFY(!sourceEntryLess(a, a));
        for (const SourceEntry& b : entries) {
            if (&a == &b) continue;
            QVERIFY2(sourceEntryLess(a, b) != sourceEntryLess(b, a), (a.sortKey + " vs " + b.sortKey).constData());
            for (const SourceEntry& c : entries)
                if (sourceEntryLess(a, b) && sourceEntryLess(b, c)) QVERIFY(sourceEntryLess(a, c));
        }
    }
}

void TestSources::duplicates()
{
    SourceList list;
    QVERIFY(!list.containsSource(QStringLiteral("data/a.dds")));
    list.append(*makeSourceEntry("/one/data/a.dds", 5, defaultNameHashTable()));
    list.append(*makeSourceEntry("/one/data/sub/a.dds", 5, defaultNameHashTable()));
    list.append(*makeSourceEntry("/one/single.txt", 0, defaultNameHashTable()));
    QVERIFY(list.containsSource(QStringLiteral("data/a.dds")));
    QVERIFY(list.containsSource(QStringLiteral("data/sub/a.dds")));
    QVERIFY(list.containsSource(QStringLiteral("single.txt")));
    // Another folder with the same name gives the same relative path.
    const SourceEntry other = *makeSourceEntry("/two/data/a.dds", 5, defaultNameHashTable());
    QVERIFY(list.containsRelativePath(other.relativePathBytes()));
    // Bytes must match exactly: no case folding, no prefix or partial matches.
    QVERIFY(!list.containsSource(QStringLiteral("data/A.dds")));
    QVERIFY(!list.containsSource(QStringLiteral("data/a.dd")));
    QVERIFY(!list.containsSource(QStringLiteral("data/a.ddsx")));
    QVERIFY(!list.containsSource(QStringLiteral("/one/data/a.dds")));
    QVERIFY(!list.containsSource(QStringLiteral("a.dds")));
    // The key survives sorting, and goes with the entries.
    list.sortSources();
    QVERIFY(list.containsSource(QStringLiteral("data/sub/a.dds")));
    list.releaseSources();
    QVERIFY(list.isEmpty());
    QVERIFY(!list.containsSource(QStringLiteral("data/a.dds")));
}

QTEST_APPLESS_MAIN(TestSources)
#include "tst_sources.moc"

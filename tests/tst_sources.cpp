// Source entries (names, hashes, order, duplicates) and gathering them from folders and files.
#include "creation/gather.h"

#include "testutil.h"

#include <QtEndian>
#include <QtTest>

#include <algorithm>
#include <random>
#include <zlib.h>

using namespace testutil;

namespace {

std::optional<SourceEntry> entry(const QByteArray& path, uint32_t rootPrefix)
{
    return makeSourceEntry(path, rootPrefix, defaultNameHashTable());
}

// Makes each file (its own path as content), each folder ("name/") and each link ("name>target").
bool makeTree(const QString& dir, const QStringList& items)
{
    for (const QString& item : items) {
        const QString path = dir + "/" + item.section('>', 0, 0);
        const bool made = item.contains('>') ? QFile::link(dir + "/" + item.section('>', 1), path)
            : item.endsWith('/')             ? QDir().mkpath(path)
                                             : testutil::writeFile(path, item.toUtf8());
        if (!made) return false;
    }
    return true;
}

// One path made into an entry; a null relative path means the path is refused.
struct EntryCase
{
    QByteArray path;
    uint rootPrefix;
    QByteArray relative, stem, ext, dir;
    uint depth;
};

// Data holds a.txt, B.txt, sub/c.txt and z.txt (and hidden entries); the loader returns
// `failure` for `failing`.
struct ScanCase
{
    bool withProgress;
    int cancelAtPoll; // 0: never
    QString failing;
    int failure, status;
    QStringList seen;
};

} // namespace

Q_DECLARE_METATYPE(EntryCase)
Q_DECLARE_METATYPE(ScanCase)

class TestSources : public QObject
{
    Q_OBJECT
private slots:
    void makeEntry_data();
    void makeEntry();
    void sortOrder_data();
    void sortOrder();
    void init();
    void gather_data();
    void gather();
    void scanResults_data();
    void scanResults();

private:
    QTemporaryDir tmp;
};

void TestSources::makeEntry_data()
{
    QTest::addColumn<EntryCase>(
        "c"); // path, root prefix -> relative path, stem, extension, directory, depth
    const QByteArray no, stem(65529, 'n'), longPrefix = "/" + QByteArray(70000, 'p') + "/";
    QTest::newRow("single file") << EntryCase {
        "/home/u/plate_d.dds", 0, "plate_d.dds", "plate_d", "dds", "", 0};
    QTest::newRow("drive root") << EntryCase {
        "c:/readme.txt", 3, "readme.txt", "readme", "txt", "", 0};
    QTest::newRow("file system root") << EntryCase {"/x.dds", 1, "x.dds", "x", "dds", "", 0};
    QTest::newRow("root folder file")
        << EntryCase {"/mods/data/file.ext", 6, "data/file.ext", "file", "ext", "data", 1};
    QTest::newRow("no extension") << EntryCase {
        "/m/data.v2/readme", 3, "data.v2/readme", "readme", "", "data.v2", 1};
    QTest::newRow("leading dot") << EntryCase {
        "/m/data/.hidden", 3, "data/.hidden", "", "hidden", "data", 1};
    QTest::newRow("long extension")
        << EntryCase {"/m/d/img.jpeg2000", 3, "d/img.jpeg2000", "img", "jpeg2000", "d", 1};
    QTest::newRow("two dots") << EntryCase {
        "/m/d/file.tar.gz", 3, "d/file.tar.gz", "file.tar", "gz", "d", 1};
    QTest::newRow("trailing dot") << EntryCase {"/m/d/name.", 3, "d/name.", "name", "", "d", 1};
    QTest::newRow("two levels") << EntryCase {
        "/m/t/armor/p_d.dds", 3, "t/armor/p_d.dds", "p_d", "dds", "t/armor", 2};
    QTest::newRow("eight-bit") << EntryCase {
        "/m/\xc3\xa9/\xc3\xa9.dds", 3, "\xc3\xa9/\xc3\xa9.dds", "\xc3\xa9", "dds", "\xc3\xa9", 1};
    // A name-table entry keeps a 16-bit length: 65,535 relative bytes fit, one more does not; a
    // long folder prefix outside the relative part is no reason to refuse.
    QTest::newRow("longest") << EntryCase {
        "/m/d/" + stem + ".dds", 3, "d/" + stem + ".dds", stem, "dds", "d", 1};
    QTest::newRow("relative too long")
        << EntryCase {"/m/dx/" + stem + ".dds", 3, no, "", "", "", 0};
    QTest::newRow("long prefix") << EntryCase {
        longPrefix + "d/a", uint(longPrefix.size()), "d/a", "a", "", "d", 1};
    QTest::newRow("no slash") << EntryCase {"plate.dds", 0, no, "", "", "", 0};
    QTest::newRow("empty") << EntryCase {"", 0, no, "", "", "", 0};
    QTest::newRow("ends with slash") << EntryCase {"/mods/data/", 6, no, "", "", "", 0};
    QTest::newRow("only slash") << EntryCase {"/", 0, no, "", "", "", 0};
    QTest::newRow("prefix past the name") << EntryCase {"/mods/a.dds", 8, no, "", "", "", 0};
}

void TestSources::makeEntry()
{
    QFETCH(EntryCase, c);
    const std::optional<SourceEntry> e = entry(c.path, c.rootPrefix);
    QCOMPARE(e.has_value(), !c.relative.isNull());
    if (!e) return;
    const QByteArray& p = e->path;
    const QByteArray name = c.path.mid(c.path.lastIndexOf('/') + 1);
    // Every part the entry marks out, read back from its own path.
    QCOMPARE(
        (QByteArrayList {p.left(int(e->pathLength)), e->relativePathBytes(),
                         p.mid(int(e->nameStart)), p.mid(int(e->nameStart), int(e->nameLength)),
                         p.mid(int(e->extStart), int(e->extLength)),
                         p.mid(int(e->dirStart), int(e->dirLength)), e->sortKey}),
        (QByteArrayList {c.path, c.relative, name, name, c.ext, c.dir,
                         QByteArray(c.relative).replace('_', '|')}));
    QCOMPARE(e->extStart,
             c.ext.isEmpty() && !name.endsWith('.') ? e->nameStart
                                                    : uint32_t(p.size() - c.ext.size()));
    QCOMPARE(e->dirStart, c.dir.isEmpty() ? e->nameStart : e->relStart);
    const uint32_t dirHash
        = c.dir.isEmpty() ? 0 : referenceNameHash(QByteArray(c.dir).replace('/', '\\'));
    const uint32_t extension
        = qFromLittleEndian<quint32>((c.ext + QByteArray(4, '\0')).constData());
    QCOMPARE((QVector<uint32_t> {e->nameHash, e->extension, e->directoryHash, e->depth}),
             (QVector<uint32_t> {referenceNameHash(c.stem), extension, dirHash, c.depth}));
}

void TestSources::sortOrder_data()
{
    QTest::addColumn<QString>("expected"); // relative paths in archive order
    QTest::newRow("names in one folder")
        << "data/a.dds data/ab.dds data/a_b.dds data/b.dds data/a/x.dds";
    QTest::newRow("folder prefix") << "data/tex/x.dds data/texture/y.dds";
    QTest::newRow("slash before any byte")
        << "data/a/x.dds data/a-b/x.dds data/a.b/x.dds data/a0/x.dds";
    QTest::newRow("depth first")
        << "data/z.dds data/a/y.dds data/a/b/x.dds data/a/c/w.dds data/b/v.dds";
    QTest::newRow("underscore after letters") << "data/a0.dds data/az.dds data/a_.dds data/a~.dds";
    QTest::newRow("eight-bit first") << "data/\u00e9.dds data/0.dds data/a.dds";
    QTest::newRow("shorter name first") << "data/a data/a.dds data/ab";
    QTest::newRow("bare names, then folders")
        << "x.dds data/readme.txt data/meshes/m.nif data/textures/a.dds";
}

void TestSources::sortOrder()
{
    QFETCH(QString, expected);
    const QByteArrayList order = expected.toUtf8().split(' ');
    std::vector<SourceEntry> entries;
    for (const QByteArray& r : order)
        entries.push_back(*entry("c:/x/" + r, 5));
    // The comparator on every pair is a strict order that agrees with the list ...
    for (size_t i = 0; i < entries.size(); ++i)
        for (size_t j = 0; j < entries.size(); ++j)
            QVERIFY2(sourceEntryLess(entries[i], entries[j]) == (i < j),
                     order[int(i)] + " < " + order[int(j)]);
    // ... and sorting a shuffled list gives the list.
    std::shuffle(entries.begin(), entries.end(), std::mt19937(12345));
    SourceList list;
    for (SourceEntry& e : entries)
        list.append(std::move(e));
    list.sortSources();
    QByteArrayList got;
    for (const SourceEntry& e : list)
        got << e.relativePathBytes();
    QCOMPARE(got, order);
}

void TestSources::init()
{
    QVERIFY(tmp.isValid());
    QDir(tmp.path()).removeRecursively();
    QVERIFY(QDir().mkpath(tmp.path()));
}

void TestSources::gather_data()
{
    QTest::addColumn<QStringList>("tree");
    QTest::addColumn<QStringList>(
        "paths"); // relative to the working folder, as a drop would give them
    QTest::addColumn<QStringList>(
        "expected");                   // in archive order: "path given/|relative path as found"
    QTest::addColumn<QString>("root"); // the root folder name afterwards
    // Mixed case, underscores, hidden entries, nested folders; the first of two files with the
    // same relative path wins.
    const QStringList tree {"Data/b.txt",
                            "Data/A.dds",
                            "Data/_under.txt",
                            "Data/.hidden",
                            "Data/Sub/Z.dds",
                            "Data/Sub/c.dds",
                            "Data/Sub/deeper/q.txt",
                            "Data/meshes/m.nif",
                            "Data/Tex/n.dds",
                            "Data/Tex/Armor/Plate_D.dds",
                            "Other/Data/A.dds",
                            "Other/Data/new.txt",
                            "loose/Single.TXT"};
    QTest::newRow("tree and duplicates")
        << tree
        << QStringList {"Data", "Data/", "loose/Single.TXT", "./loose/Single.TXT", "Other/Data"}
        << QStringList {"loose/|Single.TXT",
                        "|Data/A.dds",
                        "|Data/b.txt",
                        "Other/|Data/new.txt",
                        "|Data/_under.txt",
                        "|Data/meshes/m.nif",
                        "|Data/Sub/c.dds",
                        "|Data/Sub/Z.dds",
                        "|Data/Sub/deeper/q.txt",
                        "|Data/Tex/n.dds",
                        "|Data/Tex/Armor/Plate_D.dds"}
        << "data";
    // A link back up the tree is not walked again; one elsewhere in the tree is.
    QTest::newRow("links") << QStringList {"Data/a.txt", "Data/sub/b.txt", "Data/sub/up>Data",
                                           "Data/side>Data/sub"}
                           << QStringList {"Data"}
                           << QStringList {"|Data/a.txt", "|Data/side/b.txt", "|Data/sub/b.txt"}
                           << "data";
    QTest::newRow("empty folder") << QStringList {"Empty/"} << QStringList {"Empty"}
                                  << QStringList() << "";
    QTest::newRow("only hidden") << QStringList {"Hidden/.only"} << QStringList {"Hidden"}
                                 << QStringList() << "";
    QTest::newRow("empty subfolders")
        << QStringList {"Nested/a/b/"} << QStringList {"Nested"} << QStringList() << "nested";
    // A non-ASCII folder above the gathered one: the prefix is counted in bytes.
    const QString name = QStringLiteral("J\u00fcrgen");
    if (QString::fromLocal8Bit(name.toLocal8Bit()) == name)
        QTest::newRow("eight-bit parent")
            << QStringList {name + "/Data/a.dds"} << QStringList {name + "/Data", name + "/Data"}
            << QStringList {name + "/|Data/a.dds"} << "data";
}

void TestSources::gather()
{
    QFETCH(QStringList, tree);
    QFETCH(QStringList, paths);
    QVERIFY(makeTree(tmp.path(), tree));
    const QString old = QDir::currentPath();
    QVERIFY(QDir::setCurrent(tmp.path()));
    SourceList sources;
    GatherState state {&sources, &defaultNameHashTable(), QString(), 0};
    const int status = int(gatherPaths(state, paths, nullptr));
    QDir::setCurrent(old);
    QCOMPARE(status, 1);
    QTEST(state.rootFolderName, "root");
    QStringList got, keys;
    for (const SourceEntry& e : sources) {
        const QString relative = QString::fromLocal8Bit(e.relativePathBytes());
        const QString source
            = e.sourceFile.mid(tmp.path().size() + 1); // the real case, kept for opening
        got << source.left(source.size() - relative.size()) + "|" + source.right(relative.size());
        keys << relative;
        QCOMPARE(relative, source.right(relative.size()).toLower());
        QCOMPARE(e.path, e.sourceFile.toLower().toLocal8Bit());
        // The duplicate test matches the exact bytes only.
        QVERIFY(sources.containsSource(relative) && !sources.containsSource(relative.toUpper()));
    }
    QTEST(got, "expected");
    sources.releaseSources();
    QVERIFY(sources.isEmpty());
    for (const QString& key : keys)
        QVERIFY(!sources.containsSource(key));
    // A cancel ends the whole gathering, not just the path it came in.
    RecordingProgress cancelled(1);
    QCOMPARE(int(gatherPaths(state, paths, &cancelled)), 0);
    QCOMPARE(cancelled.polls, 1);
    // A path that is no folder goes to the loader as one file.
    const PathLoader single = [](const QString&, LoadMode mode) {
        return mode == SingleFile ? LoadStatus::SourceError : LoadStatus::ArchiveError;
    };
    QCOMPARE(int(scanSourceFolder(state, tmp.path() + "/no-folder", false, nullptr, single)),
             int(LoadStatus::SourceError));
}

void TestSources::scanResults_data()
{
    // Polls of the dialog: 1 top of Data, 2 ".", 3 "..", 4 a.txt, 5 B.txt, 6 sub, 7 top of sub,
    // 8 ".", 9 "..", 10 c.txt, 11 z.txt.
    QTest::addColumn<ScanCase>("c");
    const QStringList none, one {"a.txt"}, two {"a.txt", "B.txt"},
        toSub = two + QStringList {"sub/c.txt"};
    const QStringList all = toSub + QStringList {"z.txt"};
    QTest::newRow("cancel at the start") << ScanCase {true, 1, "", 1, 0, none};
    QTest::newRow("cancel before the first entry") << ScanCase {true, 2, "", 1, 0, none};
    QTest::newRow("cancel before the second file") << ScanCase {true, 5, "", 1, 0, one};
    QTest::newRow("cancel entering the subfolder") << ScanCase {true, 7, "", 1, 0, two};
    QTest::newRow("cancel inside the subfolder") << ScanCase {true, 10, "", 1, 0, two};
    QTest::newRow("cancel before the last file") << ScanCase {true, 11, "", 1, 0, toSub};
    QTest::newRow("no cancel") << ScanCase {true, 0, "", 1, 1, all};
    QTest::newRow("failed file, then more") << ScanCase {false, 0, "a.txt", -2, 1, all};
    QTest::newRow("failed last file") << ScanCase {false, 0, "z.txt", -2, -2, all};
    QTest::newRow("failed sub-scan, no dialog") << ScanCase {false, 0, "sub/c.txt", -2, -2, toSub};
    QTest::newRow("failed sub-scan, dialog") << ScanCase {true, 0, "sub/c.txt", -2, -2, toSub};
    QTest::newRow("sub-scan gives 0, no dialog") << ScanCase {false, 0, "sub/c.txt", 0, 1, all};
    QTest::newRow("sub-scan gives 0, dialog") << ScanCase {true, 0, "sub/c.txt", 0, 0, toSub};
}

void TestSources::scanResults()
{
    QFETCH(ScanCase, c);
    const QString dir = tmp.path() + "/Data";
    // Name order regardless of case; hidden entries are not listed.
    QVERIFY(makeTree(dir, {"z.txt", "sub/c.txt", "B.txt", "a.txt", ".hidden", ".hid/x.txt"}));
    GatherState state;
    RecordingProgress progress(c.cancelAtPoll);
    QStringList seen;
    const int status = int(
        scanSourceFolder(state, dir, false, c.withProgress ? &progress : nullptr,
                         [&](const QString& p, LoadMode mode) {
                             seen << p.mid(dir.size() + 1) + (mode == FolderFile ? "" : " (mode)");
                             return LoadStatus(seen.last() == c.failing ? c.failure : 1);
                         }));
    QCOMPARE(status, c.status);
    QCOMPARE(seen, c.seen);
    // Every poll follows a value of 0 and a pass of the event loop.
    QCOMPARE(progress.values, QVector<int>(progress.polls, 0));
    QCOMPARE(progress.eventPasses, progress.polls);
}

QTEST_GUILESS_MAIN(TestSources)
#include "tst_sources.moc"

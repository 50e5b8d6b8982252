// Source entries (names, hashes, order, duplicates) and gathering them from folders and files.
#include "creation/gather.h"

#include "testutil.h"

#include <QtEndian>
#include <QtTest>

#include <algorithm>
#include <random>
#include <zlib.h>

namespace {

// The name hash is a CRC-32 without the usual inversions; zlib's crc32 gives an independent
// reference: crc32(0xFFFFFFFF, x) is the inverted raw CRC started at 0.
uint32_t refHash(const QByteArray& b)
{
    return ~uint32_t(crc32(0xFFFFFFFFul, reinterpret_cast<const Bytef*>(b.constData()), uInt(b.size())));
}

std::optional<SourceEntry> entry(const QByteArray& path, uint32_t rootPrefix)
{
    return makeSourceEntry(path, rootPrefix, defaultNameHashTable());
}

// Cancels at the n-th poll (0: never) and records what the scan asked of it.
class RecordingProgress : public Progress {
public:
    explicit RecordingProgress(int cancelAtPoll = 0) : cancelAt(cancelAtPoll) {}
    void setValue(int value) override { values << value; }
    void processEvents() override { ++eventPasses; }
    bool wasCanceled() override { return ++polls >= cancelAt && cancelAt > 0; }
    int cancelAt, polls = 0, eventPasses = 0;
    QVector<int> values;
};

QStringList debugLines;
void collectDebug(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (type == QtDebugMsg) debugLines << text;
}

struct Gathered {
    SourceList sources;
    GatherState state;
    Gathered()
    {
        state.sources = &sources;
        state.table = &defaultNameHashTable();
    }
    QStringList relatives() const
    {
        QStringList out;
        for (const SourceEntry& e : sources) out << QString::fromLocal8Bit(e.relativePathBytes());
        return out;
    }
};

bool writeFiles(const QString& dir, const QStringList& files)
{
    for (const QString& f : files)
        if (!testutil::writeFile(dir + "/" + f, f.toUtf8())) return false;
    return true;
}

// A folder tree with mixed case, underscores, hidden entries and nested folders.
const QStringList kTree{"b.txt", "A.dds", "_under.txt", ".hidden", ".hiddendir/x.txt", "Sub/Z.dds", "Sub/c.dds", "Textures/Armor/Plate_D.dds", "meshes/m.nif", "Textures/n.dds", "Sub/deeper/q.txt"};

// One path made into an entry; a null relative path means the path is refused.
struct EntryCase {
    QByteArray path;
    uint rootPrefix;
    QByteArray relative, stem, ext;
    QByteArray dirHashed;  // directory part with '\' separators, as hashed
    uint depth;
};

// Data holds a.txt, b.txt, sub/c.txt and z.txt; the loader returns `failure` for `failing`.
struct ScanCase {
    bool withProgress;
    int cancelAtPoll;  // 0: never
    QString failing;
    int failure, status;
    QStringList seen;
    bool debugLine;
};

}  // namespace

Q_DECLARE_METATYPE(EntryCase)
Q_DECLARE_METATYPE(ScanCase)

class TestSources : public QObject {
    Q_OBJECT
private slots:
    void makeEntry_data();
    void makeEntry();
    void sortOrder_data();
    void sortOrder();
    void duplicates();
    void init();
    void scanOrderAndNames();
    void gatherSortsAndSkipsDuplicates();
    void emptyFolders();
    void keysUseBytesNotCharacters();
    void scanResults_data();
    void scanResults();
    void linksAndRelativePaths();

private:
    QTemporaryDir tmp;
};

void TestSources::makeEntry_data()
{
    QTest::addColumn<EntryCase>("c");  // path, root prefix -> relative path, stem, extension, directory, depth
    QTest::newRow("single file") << EntryCase{"/home/u/stuff/plate_d.dds", 0, "plate_d.dds", "plate_d", "dds", "", 0};
    QTest::newRow("drive root") << EntryCase{"c:/readme.txt", 3, "readme.txt", "readme", "txt", "", 0};
    QTest::newRow("file system root") << EntryCase{"/x.dds", 1, "x.dds", "x", "dds", "", 0};
    QTest::newRow("root folder file") << EntryCase{"/mods/data/file.ext", 6, "data/file.ext", "file", "ext", "data", 1};
    QTest::newRow("no extension, dotted folder") << EntryCase{"/mods/data.v2/readme", 6, "data.v2/readme", "readme", "", "data.v2", 1};
    QTest::newRow("leading dot") << EntryCase{"/mods/data/.hidden", 6, "data/.hidden", "", "hidden", "data", 1};
    QTest::newRow("long extension") << EntryCase{"/m/d/img.jpeg2000", 3, "d/img.jpeg2000", "img", "jpeg2000", "d", 1};
    QTest::newRow("two dots") << EntryCase{"/m/d/file.tar.gz", 3, "d/file.tar.gz", "file.tar", "gz", "d", 1};
    QTest::newRow("trailing dot") << EntryCase{"/m/d/name.", 3, "d/name.", "name", "", "d", 1};
    QTest::newRow("plate example") << EntryCase{"c:/mods/pack/textures/armor/plate_d.dds", 13, "textures/armor/plate_d.dds", "plate_d", "dds", "textures\\armor", 2};
    QTest::newRow("eight-bit bytes") << EntryCase{"/m/d\xc3\xa9/\xc3\xa9t\xc3\xa9.dds", 3, "d\xc3\xa9/\xc3\xa9t\xc3\xa9.dds", "\xc3\xa9t\xc3\xa9", "dds", "d\xc3\xa9", 1};
    // A name-table entry keeps a 16-bit length: 65,535 relative bytes fit, one more does not; a
    // long folder prefix outside the relative part is no reason to refuse.
    const QByteArray refused, stem(65529, 'n'), longPrefix = "/" + QByteArray(70000, 'p') + "/";
    QTest::newRow("longest relative path") << EntryCase{"/base/d/" + stem + ".dds", 6, "d/" + stem + ".dds", stem, "dds", "d", 1};
    QTest::newRow("relative path too long") << EntryCase{"/base/dx/" + stem + ".dds", 6, refused, "", "", "", 0};
    QTest::newRow("long folder prefix") << EntryCase{longPrefix + "data/a.dds", uint(longPrefix.size()), "data/a.dds", "a", "dds", "data", 1};
    QTest::newRow("no slash") << EntryCase{"plate.dds", 0, refused, "", "", "", 0};
    QTest::newRow("empty") << EntryCase{"", 0, refused, "", "", "", 0};
    QTest::newRow("ends with slash") << EntryCase{"/mods/data/", 6, refused, "", "", "", 0};
    QTest::newRow("only slash") << EntryCase{"/", 0, refused, "", "", "", 0};
    QTest::newRow("prefix past the name") << EntryCase{"/mods/a.dds", 8, refused, "", "", "", 0};
}

void TestSources::makeEntry()
{
    QFETCH(EntryCase, c);
    const QByteArray& path = c.path;
    const std::optional<SourceEntry> e = entry(path, c.rootPrefix);
    QCOMPARE(e.has_value(), !c.relative.isNull());
    if (!e) return;
    const QByteArray name = path.mid(path.lastIndexOf('/') + 1);
    QCOMPARE(e->path, path);
    QCOMPARE(int(e->pathLength), path.size());
    QCOMPARE(e->relativePathBytes(), c.relative);
    QCOMPARE(int(e->nameStart), path.size() - name.size());
    QCOMPARE(int(e->nameLength), name.size());
    QCOMPARE(int(e->extLength), c.ext.size());
    QCOMPARE(e->extStart, c.ext.isEmpty() && !name.endsWith('.') ? e->nameStart : uint32_t(path.size() - c.ext.size()));
    QCOMPARE(e->extension, qFromLittleEndian<quint32>((c.ext + QByteArray(4, '\0')).constData()));
    QCOMPARE(e->nameHash, refHash(c.stem));
    QCOMPARE(e->depth, c.depth);
    QCOMPARE(int(e->dirLength), c.dirHashed.size());
    QCOMPARE(e->directoryHash, c.dirHashed.isEmpty() ? 0u : refHash(c.dirHashed));
    QCOMPARE(e->dirStart, c.dirHashed.isEmpty() ? e->nameStart : e->relStart);
    QCOMPARE(e->sortKey, QByteArray(c.relative).replace('_', '|'));
}

void TestSources::sortOrder_data()
{
    QTest::addColumn<QList<QByteArray>>("expected");
    QTest::newRow("names in one folder") << QList<QByteArray>{"data/a.dds", "data/ab.dds", "data/a_b.dds", "data/b.dds", "data/a/x.dds"};
    QTest::newRow("folder prefix") << QList<QByteArray>{"data/tex/x.dds", "data/texture/y.dds"};
    QTest::newRow("slash before any byte") << QList<QByteArray>{"data/a/x.dds", "data/a-b/x.dds", "data/a.b/x.dds", "data/a0/x.dds"};
    QTest::newRow("depth first") << QList<QByteArray>{"data/z.dds", "data/a/y.dds", "data/a/b/x.dds", "data/a/c/w.dds", "data/b/v.dds"};
    QTest::newRow("underscore after letters") << QList<QByteArray>{"data/a0.dds", "data/az.dds", "data/a_.dds", "data/a~.dds"};
    QTest::newRow("eight-bit first") << QList<QByteArray>{"data/\xc3\xa9.dds", "data/0.dds", "data/a.dds"};
    QTest::newRow("shorter name first") << QList<QByteArray>{"data/a", "data/a.dds", "data/ab"};
    QTest::newRow("bare names, then folders") << QList<QByteArray>{"x.dds", "data/readme.txt", "data/meshes/m.nif", "data/textures/a.dds"};
}

void TestSources::sortOrder()
{
    QFETCH(QList<QByteArray>, expected);
    std::vector<SourceEntry> entries;
    for (const QByteArray& r : expected) entries.push_back(*entry("c:/x/" + r, 5));
    // The comparator on every pair is a strict order that agrees with the list ...
    for (size_t i = 0; i < entries.size(); ++i)
        for (size_t j = 0; j < entries.size(); ++j)
            QVERIFY2(sourceEntryLess(entries[i], entries[j]) == (i < j), expected[int(i)] + " < " + expected[int(j)]);
    // ... and sorting a shuffled list gives the list.
    std::shuffle(entries.begin(), entries.end(), std::mt19937(12345));
    SourceList list;
    for (SourceEntry& e : entries) list.append(std::move(e));
    list.sortSources();
    QList<QByteArray> got;
    for (const SourceEntry& e : list) got << e.relativePathBytes();
    QCOMPARE(got, expected);
}

void TestSources::duplicates()
{
    SourceList list;
    QVERIFY(!list.containsSource(QStringLiteral("data/a.dds")));
    list.append(*entry("/one/data/a.dds", 5));
    list.append(*entry("/one/data/sub/a.dds", 5));
    list.append(*entry("/one/single.txt", 0));
    for (const char* key : {"data/a.dds", "data/sub/a.dds", "single.txt"}) QVERIFY(list.containsSource(key));
    // Another folder with the same name gives the same relative path.
    QVERIFY(list.containsRelativePath(entry("/two/data/a.dds", 5)->relativePathBytes()));
    // Bytes must match exactly: no case folding, no prefix or partial matches.
    for (const char* key : {"data/A.dds", "data/a.dd", "data/a.ddsx", "/one/data/a.dds", "a.dds"}) QVERIFY(!list.containsSource(key));
    list.sortSources();
    QVERIFY(list.containsSource(QStringLiteral("data/sub/a.dds")));
    list.releaseSources();
    QVERIFY(list.isEmpty());
    QVERIFY(!list.containsSource(QStringLiteral("data/a.dds")));
}

void TestSources::init()
{
    QVERIFY(tmp.isValid());
    QDir(tmp.path()).removeRecursively();
    QVERIFY(QDir().mkpath(tmp.path()));
    debugLines.clear();
}

void TestSources::scanOrderAndNames()
{
    const QString root = tmp.path() + "/Data", single = tmp.path() + "/Loose/Plate_D.DDS";
    QVERIFY(writeFiles(root, kTree) && testutil::writeFile(single, "x") && QDir().mkpath(root + "/empty"));
    Gathered g;
    QStringList seen;
    const PathLoader loader = [&](const QString& path, LoadMode mode) {
        seen << path.mid(tmp.path().size() + 1) + (mode == SingleFile ? " as single file" : "");
        return mode == Archive ? -1 : addSourceFile(g.state, path, mode);
    };
    QCOMPARE(scanSourceFolder(g.state, root, false, nullptr, loader), 1);
    QCOMPARE(g.state.rootFolderName, QStringLiteral("data"));
    QCOMPARE(int(g.state.rootPrefixLength), tmp.path().toLocal8Bit().size() + 1);
    // A path that is no folder is one file with its bare name; it does not touch the root.
    g.state.rootFolderName = QStringLiteral("stale");
    g.state.rootPrefixLength = 0;
    QCOMPARE(scanSourceFolder(g.state, single, false, nullptr, loader), 1);
    QCOMPARE(g.state.rootFolderName, QStringLiteral("stale"));
    // Name order without regard to case, files and folders mixed, hidden entries left out.
    QStringList expected{"Data/_under.txt", "Data/A.dds", "Data/b.txt", "Data/meshes/m.nif", "Data/Sub/c.dds", "Data/Sub/deeper/q.txt", "Data/Sub/Z.dds", "Data/Textures/Armor/Plate_D.dds", "Data/Textures/n.dds"};
    QCOMPARE(seen, expected + QStringList{"Loose/Plate_D.DDS as single file"});
    QCOMPARE(g.relatives(), QString(expected.join('|') + "|plate_d.dds").toLower().split('|'));
    expected << "Loose/Plate_D.DDS";
    for (int i = 0; i < expected.size(); ++i) {
        QCOMPARE(g.sources[size_t(i)].sourceFile, tmp.path() + "/" + expected[i]);  // real case kept for opening
        QCOMPARE(g.sources[size_t(i)].path, (tmp.path() + "/" + expected[i]).toLower().toLocal8Bit());
    }
}

void TestSources::gatherSortsAndSkipsDuplicates()
{
    const QString root = tmp.path() + "/Data", single = tmp.path() + "/loose/Single.TXT";
    QVERIFY(writeFiles(root, kTree));
    QVERIFY(writeFiles(tmp.path(), {"Other/Data/A.dds", "Other/Data/new.txt", "loose/Single.TXT"}));
    Gathered g;
    QCOMPARE(gatherPaths(g.state, {root, root, tmp.path() + "/Other/Data", single, single}, nullptr), 1);
    const QStringList expected{"single.txt", "data/a.dds", "data/b.txt", "data/new.txt", "data/_under.txt", "data/meshes/m.nif", "data/sub/c.dds", "data/sub/z.dds", "data/sub/deeper/q.txt", "data/textures/n.dds", "data/textures/armor/plate_d.dds"};
    QCOMPARE(g.relatives(), expected);
    // The first of two files with the same relative path wins.
    QCOMPARE(g.sources[1].sourceFile, root + "/A.dds");
    // A cancel ends the whole gathering, not just the path it came in.
    RecordingProgress cancelled(1);
    QCOMPARE(gatherPaths(g.state, {root, single}, &cancelled), 0);
    QCOMPARE(cancelled.polls, 1);
}

void TestSources::emptyFolders()
{
    // Nothing to gather; a folder without entries leaves the root as it was (empty, as the load
    // sequence resets it beforehand).
    QVERIFY(QDir().mkpath(tmp.path() + "/Empty") && QDir().mkpath(tmp.path() + "/Nested/a/b"));
    QVERIFY(testutil::writeFile(tmp.path() + "/Hidden/.only", "h"));
    for (const QString name : {"Empty", "Hidden", "Nested"}) {
        Gathered g;
        QCOMPARE(scanSourceFolder(g.state, tmp.path() + "/" + name, false, nullptr, [](const QString&, LoadMode) { return -2; }), 1);
        if (name != "Nested") QVERIFY(g.state.rootFolderName.isEmpty() && g.state.rootPrefixLength == 0);
    }
}

void TestSources::keysUseBytesNotCharacters()
{
    // A non-ASCII folder above the gathered one: the prefix is counted in bytes.
    const QString base = tmp.path() + QStringLiteral("/J\u00fcrgen");
    QVERIFY(testutil::writeFile(base + "/Data/a.dds", "a"));
    if (QString::fromLocal8Bit(base.toLocal8Bit()) != base) QSKIP("the local 8-bit encoding cannot hold this name");
    Gathered g;
    QCOMPARE(gatherPaths(g.state, {base + "/Data"}, nullptr), 1);
    QCOMPARE(gatherPaths(g.state, {base + "/Data"}, nullptr), 1);
    QCOMPARE(g.relatives(), QStringList{"data/a.dds"});
}

void TestSources::scanResults_data()
{
    // Polls of the dialog: 1 top of Data, 2 ".", 3 "..", 4 a.txt, 5 b.txt, 6 sub, 7 top of sub,
    // 8 ".", 9 "..", 10 c.txt, 11 z.txt.
    QTest::addColumn<ScanCase>("c");
    const QStringList none, one{"a.txt"}, two{"a.txt", "b.txt"}, toSub{"a.txt", "b.txt", "sub/c.txt"}, all = toSub + QStringList{"z.txt"};
    QTest::newRow("cancel at the start") << ScanCase{true, 1, "", 1, 0, none, true};
    QTest::newRow("cancel before the first entry") << ScanCase{true, 2, "", 1, 0, none, false};
    QTest::newRow("cancel before the second file") << ScanCase{true, 5, "", 1, 0, one, false};
    QTest::newRow("cancel entering the subfolder") << ScanCase{true, 7, "", 1, 0, two, true};
    QTest::newRow("cancel inside the subfolder") << ScanCase{true, 10, "", 1, 0, two, false};
    QTest::newRow("cancel before the last file") << ScanCase{true, 11, "", 1, 0, toSub, false};
    QTest::newRow("no cancel") << ScanCase{true, 0, "", 1, 1, all, false};
    QTest::newRow("failed file, then more") << ScanCase{false, 0, "a.txt", -2, 1, all, false};
    QTest::newRow("failed last file") << ScanCase{false, 0, "z.txt", -2, -2, all, false};
    QTest::newRow("failed sub-scan, no dialog") << ScanCase{false, 0, "sub/c.txt", -2, -2, toSub, false};
    QTest::newRow("failed sub-scan, dialog") << ScanCase{true, 0, "sub/c.txt", -2, -2, toSub, false};
    QTest::newRow("sub-scan gives 0, no dialog") << ScanCase{false, 0, "sub/c.txt", 0, 1, all, false};
    QTest::newRow("sub-scan gives 0, dialog") << ScanCase{true, 0, "sub/c.txt", 0, 0, toSub, false};
}

void TestSources::scanResults()
{
    QFETCH(ScanCase, c);
    const QString dir = tmp.path() + "/Data";
    QVERIFY(writeFiles(dir, {"a.txt", "b.txt", "sub/c.txt", "z.txt"}));
    Gathered g;
    RecordingProgress progress(c.cancelAtPoll);
    QStringList seen;
    const QtMessageHandler old = qInstallMessageHandler(collectDebug);
    const int status = scanSourceFolder(g.state, dir, false, c.withProgress ? &progress : nullptr, [&](const QString& p, LoadMode) {
        seen << p.mid(dir.size() + 1);
        return seen.last() == c.failing ? c.failure : 1;
    });
    qInstallMessageHandler(old);
    QCOMPARE(status, c.status);
    QCOMPARE(seen, c.seen);
    QCOMPARE(debugLines.count(QStringLiteral("pushed cancel")), c.debugLine ? 1 : 0);
    // Every poll follows a value of 0 and a pass of the event loop.
    QCOMPARE(progress.values, QVector<int>(progress.polls, 0));
    QCOMPARE(progress.eventPasses, progress.polls);
}

void TestSources::linksAndRelativePaths()
{
    // A link back up the tree is not walked again; one elsewhere in the tree is.
    const QString dir = tmp.path() + "/Work/Data";
    QVERIFY(writeFiles(dir, {"a.txt", "sub/b.txt"}));
    QVERIFY(QFile::link(dir, dir + "/sub/up"));
    QVERIFY(QFile::link(dir + "/sub", dir + "/side"));
    // Relative paths are taken from the working folder and cleaned, as a drop would give them.
    const QString old = QDir::currentPath();
    QVERIFY(QDir::setCurrent(tmp.path() + "/Work"));
    Gathered g;
    const int status = gatherPaths(g.state, {QStringLiteral("Data/"), QStringLiteral("./Data/sub/b.txt")}, nullptr);
    QDir::setCurrent(old);
    QCOMPARE(status, 1);
    QCOMPARE(g.relatives(), (QStringList{"b.txt", "data/a.txt", "data/side/b.txt", "data/sub/b.txt"}));
}

QTEST_GUILESS_MAIN(TestSources)
#include "tst_sources.moc"

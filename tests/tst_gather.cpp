#include "creation/gather.h"

#include "testutil.h"

#include <QtTest>

#include <unistd.h>

namespace {

// Cancels at the n-th poll (0: never) and records what the scan asked of it.
class RecordingProgress : public Progress {
public:
    explicit RecordingProgress(int cancelAtPoll = 0) : cancelAt(cancelAtPoll) {}
    void setValue(int value) override { values << value; }
    void processEvents() override { ++eventPasses; }
    bool wasCanceled() override
    {
        ++polls;
        return cancelAt > 0 && polls >= cancelAt;
    }
    int cancelAt;
    int polls = 0;
    int eventPasses = 0;
    QList<int> values;
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

}  // namespace

class TestGather : public QObject {
    Q_OBJECT
private slots:
    void init();
    void scanOrderAndNames();
    void gatherSortsAndSkipsDuplicates();
    void singleFile();
    void emptyFolders();
    void keysUseBytesNotCharacters();
    void cancel_data();
    void cancel();
    void resultPropagation_data();
    void resultPropagation();
    void linkLoopIsNotFollowed();
    void relativePathsAreMadeAbsolute();

private:
    QTemporaryDir tmp;
    QString root;  // tmp/Data
    void makeTree();
};

void TestGather::makeTree()
{
    root = tmp.path() + "/Data";
    const QString files[] = {"b.txt",          "A.dds",          "_under.txt",        ".hidden",
                             ".hiddendir/x.txt", "Sub/Z.dds",      "Sub/c.dds",         "Textures/Armor/Plate_D.dds",
                             "meshes/m.nif",   "Textures/n.dds", "Sub/deeper/q.txt"};
    for (const QString& f : files) QVERIFY(testutil::writeFile(root + "/" + f, f.toUtf8()));
    QVERIFY(QDir().mkpath(root + "/empty"));
    QVERIFY(QDir().mkpath(root + "/emptyparent/inner"));
}

void TestGather::init()
{
    QVERIFY(tmp.isValid());
    QDir(tmp.path()).removeRecursively();
    QVERIFY(QDir().mkpath(tmp.path()));
    debugLines.clear();
}

void TestGather::scanOrderAndNames()
{
    makeTree();
    Gathered g;
    QStringList seen;
    QList<int> modes;
    const PathLoader loader = [&](const QString& path, LoadMode mode) {
        seen << path.mid(tmp.path().size() + 1);
        modes << int(mode);
        return addSourceFile(g.state, path, mode);
    };
    QCOMPARE(scanSourceFolder(g.state, root, false, nullptr, loader), 1);
    // Name order without regard to case, files and folders mixed, hidden entries left out.
    const QStringList expected{"Data/_under.txt",    "Data/A.dds",         "Data/b.txt",
                               "Data/meshes/m.nif",  "Data/Sub/c.dds",     "Data/Sub/deeper/q.txt",
                               "Data/Sub/Z.dds",     "Data/Textures/Armor/Plate_D.dds",
                               "Data/Textures/n.dds"};
    QCOMPARE(seen, expected);
    QVERIFY(std::all_of(modes.begin(), modes.end(), [](int m) { return m == FolderFile; }));
    QCOMPARE(g.state.rootFolderName, QStringLiteral("data"));
    QCOMPARE(int(g.state.rootPrefixLength), tmp.path().toLocal8Bit().size() + 1);

    QCOMPARE(int(g.sources.size()), expected.size());
    for (size_t i = 0; i < g.sources.size(); ++i) {
        const SourceEntry& e = g.sources[i];
        QCOMPARE(e.sourceFile, tmp.path() + "/" + expected[int(i)]);  // real case kept for opening
        QCOMPARE(e.path, (tmp.path() + "/" + expected[int(i)]).toLower().toLocal8Bit());
        QCOMPARE(QString::fromLocal8Bit(e.relativePathBytes()), expected[int(i)].toLower());
    }
}

void TestGather::gatherSortsAndSkipsDuplicates()
{
    makeTree();
    QVERIFY(testutil::writeFile(tmp.path() + "/Other/Data/A.dds", "again"));
    QVERIFY(testutil::writeFile(tmp.path() + "/Other/Data/new.txt", "new"));
    QVERIFY(testutil::writeFile(tmp.path() + "/loose/Single.TXT", "one"));
    Gathered g;
    const QStringList paths{root, root, tmp.path() + "/Other/Data", tmp.path() + "/loose/Single.TXT"};
    QCOMPARE(gatherPaths(g.state, paths, nullptr), 1);
    const QStringList expected{"single.txt",
                               "data/a.dds",
                               "data/b.txt",
                               "data/new.txt",
                               "data/_under.txt",
                               "data/meshes/m.nif",
                               "data/sub/c.dds",
                               "data/sub/z.dds",
                               "data/sub/deeper/q.txt",
                               "data/textures/n.dds",
                               "data/textures/armor/plate_d.dds"};
    QCOMPARE(g.relatives(), expected);
    // The first of two files with the same relative path wins.
    for (const SourceEntry& e : g.sources)
        if (e.relativePathBytes() == "data/a.dds") QCOMPARE(e.sourceFile, root + "/A.dds");
}

void TestGather::singleFile()
{
    QVERIFY(testutil::writeFile(tmp.path() + "/Loose/Plate_D.DDS", "x"));
    Gathered g;
    g.state.rootFolderName = QStringLiteral("stale");
    const QString path = tmp.path() + "/Loose/Plate_D.DDS";
    QCOMPARE(scanSourceFolder(g.state, path, false, nullptr,
                              [&](const QString& p, LoadMode m) {
                                  if (m != SingleFile) return -1;
                                  return addSourceFile(g.state, p, m);
                              }),
             1);
    QCOMPARE(g.relatives(), QStringList{"plate_d.dds"});
    QCOMPARE(g.sources[0].depth, 0u);
    QCOMPARE(g.sources[0].directoryHash, 0u);
    QCOMPARE(g.sources[0].sourceFile, path);
    QCOMPARE(g.state.rootFolderName, QStringLiteral("stale"));  // a file does not touch the root
}

void TestGather::emptyFolders()
{
    QVERIFY(QDir().mkpath(tmp.path() + "/Empty"));
    QVERIFY(QDir().mkpath(tmp.path() + "/Nested/a/b"));
    QVERIFY(testutil::writeFile(tmp.path() + "/Hidden/.only", "h"));
    for (const char* name : {"/Empty", "/Nested", "/Hidden"}) {
        Gathered g;
        g.state.rootFolderName = QStringLiteral("kept");
        g.state.rootPrefixLength = 7;
        int calls = 0;
        const int status = scanSourceFolder(g.state, tmp.path() + name, false, nullptr,
                                            [&](const QString&, LoadMode) {
                                                ++calls;
                                                return 1;
                                            });
        QCOMPARE(status, 1);
        QCOMPARE(calls, 0);
        // An empty folder leaves the root as it was; the load sequence resets it beforehand.
        QCOMPARE(g.state.rootFolderName, QStringLiteral("kept"));
        QCOMPARE(int(g.state.rootPrefixLength), 7);
    }
    // Through the whole gathering: nothing, and still a success.
    Gathered g;
    QCOMPARE(gatherPaths(g.state, {tmp.path() + "/Empty", tmp.path() + "/Nested"}, nullptr), 1);
    QVERIFY(g.sources.isEmpty());
}

void TestGather::keysUseBytesNotCharacters()
{
    // A non-ASCII folder above the gathered one: the prefix is counted in bytes.
    const QString base = tmp.path() + QStringLiteral("/J\u00fcrgen");
    QVERIFY(testutil::writeFile(base + "/Data/a.dds", "a"));
    if (QString::fromLocal8Bit(base.toLocal8Bit()) != base) QSKIP("the local 8-bit encoding cannot hold this name");
    Gathered g;
    QCOMPARE(gatherPaths(g.state, {base + "/Data"}, nullptr), 1);
    QCOMPARE(g.relatives(), QStringList{"data/a.dds"});
    QCOMPARE(gatherPaths(g.state, {base + "/Data"}, nullptr), 1);
    QCOMPARE(int(g.sources.size()), 1);
}

void TestGather::cancel_data()
{
    QTest::addColumn<int>("cancelAtPoll");
    QTest::addColumn<int>("loaded");
    QTest::addColumn<bool>("debugLine");
    // Polls: 1 top of Data, 2 ".", 3 "..", 4 a.txt, 5 b.txt, 6 sub, 7 top of sub, 8 ".", 9 "..",
    // 10 c.txt, 11 z.txt
    QTest::newRow("at the start") << 1 << 0 << true;
    QTest::newRow("before the first entry") << 2 << 0 << false;
    QTest::newRow("before the second file") << 5 << 1 << false;
    QTest::newRow("before the subfolder") << 6 << 2 << false;
    QTest::newRow("entering the subfolder") << 7 << 2 << true;
    QTest::newRow("inside the subfolder") << 10 << 2 << false;
    QTest::newRow("before the last file") << 11 << 3 << false;
    QTest::newRow("never") << 0 << 4 << false;
}

void TestGather::cancel()
{
    QFETCH(int, cancelAtPoll);
    QFETCH(int, loaded);
    QFETCH(bool, debugLine);
    const QString dir = tmp.path() + "/Data";
    for (const char* f : {"/a.txt", "/b.txt", "/sub/c.txt", "/z.txt"}) QVERIFY(testutil::writeFile(dir + f, "x"));
    Gathered g;
    RecordingProgress progress(cancelAtPoll);
    const QtMessageHandler old = qInstallMessageHandler(collectDebug);
    const int status = scanSourceFolder(g.state, dir, false, &progress,
                                        [&](const QString& p, LoadMode m) { return addSourceFile(g.state, p, m); });
    qInstallMessageHandler(old);
    QCOMPARE(status, cancelAtPoll ? 0 : 1);
    QCOMPARE(int(g.sources.size()), loaded);
    QCOMPARE(debugLines.contains(QStringLiteral("pushed cancel")), debugLine);
    QCOMPARE(debugLines.count(QStringLiteral("pushed cancel")), debugLine ? 1 : 0);
    // Every poll follows a value of 0 and a pass of the event loop.
    QCOMPARE(progress.values.size(), progress.polls);
    QVERIFY(std::all_of(progress.values.begin(), progress.values.end(), [](int v) { return v == 0; }));
    QCOMPARE(progress.eventPasses, progress.polls);
}

void TestGather::resultPropagation_data()
{
    QTest::addColumn<QString>("failing");  // entry whose loader result is `failure`
    QTest::addColumn<int>("failure");
    QTest::addColumn<bool>("withProgress");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("seen");
    const QStringList all{"a.txt", "m/last.txt", "z.txt"};
    const QStringList stopped{"a.txt", "m/last.txt"};
    QTest::newRow("failed file, then more") << "a.txt" << -2 << false << 1 << all;
    QTest::newRow("failed last file") << "z.txt" << -2 << false << -2 << all;
    QTest::newRow("failed sub-scan, no dialog") << "m/last.txt" << -2 << false << -2 << stopped;
    QTest::newRow("failed sub-scan, dialog") << "m/last.txt" << -2 << true << -2 << stopped;
    QTest::newRow("sub-scan gives 0, no dialog") << "m/last.txt" << 0 << false << 1 << all;
    QTest::newRow("sub-scan gives 0, dialog") << "m/last.txt" << 0 << true << 0 << stopped;
}

void TestGather::resultPropagation()
{
    QFETCH(QString, failing);
    QFETCH(int, failure);
    QFETCH(bool, withProgress);
    QFETCH(int, status);
    QFETCH(QStringList, seen);
    const QString dir = tmp.path() + "/Data";
    for (const QString& f : QStringList{"a.txt", "m/last.txt", "z.txt"}) QVERIFY(testutil::writeFile(dir + "/" + f, "x"));
    Gathered g;
    RecordingProgress progress;
    QStringList visited;
    const int result = scanSourceFolder(g.state, dir, false, withProgress ? &progress : nullptr,
                                        [&](const QString& p, LoadMode) {
                                            const QString rel = p.mid(dir.size() + 1);
                                            visited << rel;
                                            return rel == failing ? failure : 1;
                                        });
    QCOMPARE(result, status);
    QCOMPARE(visited, seen);
}

void TestGather::linkLoopIsNotFollowed()
{
    const QString dir = tmp.path() + "/Data";
    QVERIFY(testutil::writeFile(dir + "/a.txt", "x"));
    QVERIFY(testutil::writeFile(dir + "/sub/b.txt", "x"));
    QVERIFY(QFile::link(dir, dir + "/sub/up"));        // back to the top
    QVERIFY(QFile::link(dir + "/sub", dir + "/side"));  // elsewhere in the tree: followed
    Gathered g;
    QCOMPARE(gatherPaths(g.state, {dir}, nullptr), 1);
    QCOMPARE(g.relatives(), (QStringList{"data/a.txt", "data/side/b.txt", "data/sub/b.txt"}));
}

void TestGather::relativePathsAreMadeAbsolute()
{
    const QString dir = tmp.path() + "/Work";
    QVERIFY(testutil::writeFile(dir + "/Data/x/y.txt", "x"));
    const QString old = QDir::currentPath();
    QVERIFY(QDir::setCurrent(dir));
    Gathered g;
    const int status = gatherPaths(g.state, {QStringLiteral("Data/"), QStringLiteral("./Data/x/y.txt")}, nullptr);
    QDir::setCurrent(old);
    QCOMPARE(status, 1);
    QCOMPARE(g.relatives(), (QStringList{"y.txt", "data/x/y.txt"}));
}

QTEST_GUILESS_MAIN(TestGather)
#include "tst_gather.moc"

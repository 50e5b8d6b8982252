// The window's user operations driven offscreen through the dialog seam: loading by every
// route, the file list, the assistance wiring, Create Archive and Extract All with their
// boxes, cancels and failures.

#include "windowtestutil.h"

#include <QtTest>

using namespace wintest;
using testutil::Pack;

namespace {

const QString kHint = QStringLiteral("*** Drag and drop the File or Folder ***");
const QString kRecommended = QStringLiteral("* assistance * This is the recommended settings.");
const QString kReadError = QStringLiteral("info|Read Files.|BA2 File Error");

// Its archive order follows the ordering rules: a folder's own files first, '_' after
// letters, then subfolders by name.
Tree generalTree()
{
    return {{"Data/b.txt", testutil::patternBytes(3000, 1)}, {"Data/a_b.txt", testutil::patternBytes(10, 2)},
            {"Data/ab.txt", testutil::patternBytes(70000, 3)}, {"Data/a.txt", QByteArray()},
            {"Data/a/x.txt", testutil::patternBytes(500, 4, false)},
            {"Data/Sub/File.TXT", testutil::patternBytes(1234, 5)}};
}
const QStringList kGeneralOrder = {"data/a.txt",  "data/ab.txt",  "data/a_b.txt",
                                   "data/b.txt",  "data/a/x.txt", "data/sub/file.txt"};

// The general tree as an archive made by the test's own builder, names lower-cased.
QByteArray generalArchive()
{
    testutil::Ba2Builder b;
    const Tree tree = generalTree();
    for (auto it = tree.begin(); it != tree.end(); ++it)
        b.addGeneral(it.key().toLower().toLatin1(), it.value(), Pack::Zlib);
    return b.build();
}

QStringList numbered(const QStringList& names)
{
    QStringList items;
    for (int i = 0; i < names.size(); ++i) items << QString::number(i + 1) + QStringLiteral(": ") + names[i];
    return items;
}

// Extract All, Create Archive and Clear List enabled, and the list shown and enabled, as letters.
QString controls(const MainWindow& w)
{
    const Ui::MainWindow& ui = *w.ui;
    QString s;
    s += ui.pushButton_ExtractAll->isEnabled() ? 'E' : '-';
    s += ui.pushButton_Archive->isEnabled() ? 'A' : '-';
    s += ui.pushButton_ClearList->isEnabled() ? 'C' : '-';
    s += ui.listWidget_Files->isEnabled() && ui.listWidget_Files->isVisible() ? 'L' : '-';
    return s;
}

// Format, Version, zlib level and LZ4 mode as stored in Zarnel.ini.
QList<int> storedChoices()
{
    return {setting("Format").toInt(), setting("Version").toInt(), setting("zlibCompressionLevel").toInt(),
            setting("LZ4CompressionLevel").toInt()};
}

QStringList infoLines(const MainWindow& w)
{
    return {w.ui->label_Ba2Info1->text(), w.ui->label_Ba2Info2->text(), w.ui->label_Ba2Info3->text()};
}

}  // namespace

class TestWinOps : public QObject {
    Q_OBJECT
    std::unique_ptr<TempWorkDir> scratch;
    std::unique_ptr<ScriptedDialogs> dialogs;

private slots:
    void init() { scratch = std::make_unique<TempWorkDir>(); dialogs = std::make_unique<ScriptedDialogs>(); }
    void cleanup() { dialogs.reset(); scratch.reset(); }
    void load_data(); void load();
    void create_data(); void create();
    void engines_data(); void engines();
    void cancelledDialogs();
    void listViews_data(); void listViews();
    void assistance_data(); void assistance();
    void gathering();
};

void TestWinOps::load_data()
{
    QTest::addColumn<QString>("route");       // open, drop, startup or select
    QTest::addColumn<QByteArray>("content");  // of Arc/Mixed.BA2; null: the folder Data of the general tree
    QTest::addColumn<QStringList>("info");
    QTest::addColumn<QStringList>("list");
    QTest::addColumn<QString>("state");       // controls()
    QTest::addColumn<QStringList>("boxes");
    QTest::addColumn<QString>("status");
    QTest::addColumn<int>("sources");

    const QByteArray big = testutil::patternBytes(50000, 11), small = testutil::patternBytes(900, 12);
    testutil::Ba2Builder v1, v2, v3, v3code0, chunks, general;
    v1.addGeneral("meshes/a.nif", big, Pack::Zlib);
    v1.addGeneral("meshes/b.nif", small, Pack::Zlib);
    v1.addGeneral("readme.txt", "plain", Pack::Stored);
    const float ratio1 =
        float(float(v1.entries[0].packedSize + v1.entries[1].packedSize) / float(big.size() + small.size()) * 100.0);
    const QStringList info1 = {"BA2 Ver.1 (3 files)", "Format: General",
                               QString::asprintf("Compression: zlib (%3.2f%%)", double(ratio1))};
    const QStringList names1 = {"meshes/a.nif", "meshes/b.nif", "readme.txt"};
    v2.version = 2;
    v2.addGeneral("sound/x.wav", small, Pack::Stored);
    const QStringList info2 = {"BA2 Ver.2 (1 file)", "Format: General", "Compression: Non"};
    v3.version = 3;
    v3.texture = true;
    const testutil::TestEntry& t =
        v3.addTexture("textures/t.dds", 8, 8, 2, 28, {big.left(256), big.mid(256, 64)}, Pack::Lz4);
    const float ratio3 = float(float(t.chunks[0].packedSize + t.chunks[1].packedSize) / float(256 + 64) * 100.0);
    const QStringList info3 = {"BA2 Ver.3 (1 file)", "Format: DDS(Texture)",
                               QString::asprintf("Compression: LZ4 (%3.2f%%)", double(ratio3))};
    v3code0.version = 3;
    v3code0.compressionCode = 0;
    v3code0.addGeneral("a.txt", "abc");
    chunks.texture = true;
    chunks.addTexture("t.dds", 4, 4, 17, 28, QVector<QByteArray>(17, "pixels"));
    general.addGeneral("a.txt", "abc");
    const QByteArray unknownType = general.build().replace(8, 4, "XXXX");
    const QStringList noInfo = {"", "", ""}, error = {"BA2 Error.", "", ""};
    const QString v3Box = "warn|This is Ver3-BA2 of a kind not yet supported.(code:0)|Please report to the author.";
    const QString chunkBox = "warn|The maximum number of chunks that Zarnel can process is 16.|";
    const QString one = "1 file " + kRecommended, six = "6 files " + kRecommended;
    const QString aborted = "info|Read Files.|Aborted.";

    auto row = [](const char* name, const char* route, const QByteArray& content, const QStringList& info,
                  const QStringList& list, const char* state, const QStringList& boxes, const QString& status,
                  int sources) {
        QTest::newRow(name) << QString(route) << content << info << list << QString(state) << boxes << status
                            << sources;
    };
    row("open v1 zlib", "open", v1.build(), info1, names1, "E-CL", {}, "earlier", 0);
    row("open one file v2 stored", "open", v2.build(), info2, {"sound/x.wav"}, "E-CL", {}, "earlier", 0);
    row("open texture v3 lz4", "open", v3.build(), info3, {"textures/t.dds"}, "E-CL", {}, "earlier", 0);
    row("drop archive", "drop", v1.build(), info1, names1, "E-CL", {}, "", 0);
    row("startup archive", "startup", v1.build(), info1, names1, "E-CL", {}, "", 0);
    // A .ba2 that is no archive: gathered, but through Open Archive neither listed nor assessed.
    row("open no archive", "open", "hello, no archive", noInfo, {}, "---L", {}, "earlier", 1);
    row("drop no archive", "drop", "hello, no archive", noInfo, {"mixed.ba2"}, "-ACL", {}, one, 1);
    row("drop three bytes", "drop", "BTD", noInfo, {"mixed.ba2"}, "-ACL", {}, one, 1);
    row("open refused v3 code 0", "open", v3code0.build(), error, {}, "---L", {v3Box}, "earlier", 0);
    row("drop refused 17 chunks", "drop", chunks.build(), error, {}, "---L", {chunkBox, kReadError}, "", 0);
    row("startup refused type", "startup", unknownType, error, {}, "---L", {kReadError}, "", 0);
    row("drop refused no files", "drop", testutil::Ba2Builder().build(), error, {}, "---L", {kReadError}, "", 0);
    row("drop folder", "drop", QByteArray(), noInfo, kGeneralOrder, "-ACL", {}, six, 6);
    row("select folder", "select", QByteArray(), noInfo, kGeneralOrder, "-ACL", {}, six, 6);
    row("startup folder", "startup", QByteArray(), noInfo, kGeneralOrder, "-ACL", {}, six, 6);
    row("drop cancelled", "drop", QByteArray(), noInfo, {}, "---L", {aborted}, "", 0);
    // No Clear List at start-up: the list stays hidden.
    row("startup cancelled", "startup", QByteArray(), noInfo, {}, "----", {aborted}, "", 0);
}

void TestWinOps::load()
{
    QFETCH(QString, route);
    QFETCH(QByteArray, content);
    QFETCH(QStringList, info);
    QFETCH(QStringList, list);
    QFETCH(QString, state);
    QFETCH(QStringList, boxes);
    QFETCH(QString, status);
    QFETCH(int, sources);

    // Mixed case on purpose: the file is opened by its real name, and the suffix test ignores case.
    const QString path = scratch->path(content.isNull() ? "Data" : "Arc/Mixed.BA2");
    QVERIFY(content.isNull() ? writeTree(scratch->path(), generalTree()) : testutil::writeFile(path, content));
    QVERIFY(testutil::writeFile(scratch->path("Other/extra.txt"), "x"));
    // The reading dialog is cancelled after three files where the load is to be aborted.
    const bool cancel = boxes.contains(QStringLiteral("info|Read Files.|Aborted."));
    std::unique_ptr<Canceller> canceller;
    auto arm = [&](MainWindow& w) {
        if (cancel)
            canceller = std::make_unique<Canceller>("Reading Files...", [&w] { return w.sources.size() >= 3; });
    };
    std::unique_ptr<MainWindow> w;
    if (route == "startup") {
        // Backslashes reach the loader as '/', and only the first argument counts.
        w = startWindow({path.toUtf8().replace('/', '\\'), scratch->path("Other").toUtf8()}, arm);
    } else {
        w = startWindow();
        arm(*w);
        w->statusBar()->showMessage("earlier");  // a drop clears it; the other routes leave it
        if (route == "drop") drop(*w, {path});
        dialogs->answers << path;
        if (route == "open") w->ui->pushButton_File->click();
        if (route == "select") w->ui->pushButton_SelFolder->click();
    }

    QVERIFY(!cancel || canceller->fired);
    QCOMPARE(dialogs->boxes, boxes);
    QCOMPARE(infoLines(*w), info);
    QCOMPARE(listTexts(*w), numbered(list));
    QCOMPARE(controls(*w), state);
    QCOMPARE(w->statusBar()->currentMessage(), status);
    QCOMPARE(int(w->sources.size()), sources);
    QCOMPARE(w->readerActive, state.startsWith('E'));
    QVERIFY(w->statusBar()->findChildren<QProgressBar*>().isEmpty());
    // After a failure box the drop and Select Folder clear the list, and with it the source line.
    const bool cleared = !boxes.filter("Read Files.").isEmpty() && route != "startup";
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), cleared ? kHint : path);
    if (route == "open") {
        QCOMPARE(dialogs->asked, QStringList{"open Open Archive||BA2 Archive (*.ba2)"});
        QCOMPARE(setting("OpenArchiveDir").toString(), scratch->path("Arc/"));
    } else if (route == "select") {
        QCOMPARE(dialogs->asked, QStringList{"dir Pick a folder to Archive||3"});
        QCOMPARE(setting("DropFileDir").toString(), scratch->path());
    }
}

void TestWinOps::create_data()
{
    QTest::addColumn<bool>("textures");
    QTest::addColumn<QList<int>>("picks");     // items of the version, zlib and LZ4 combos; -1: as assisted
    QTest::addColumn<QList<int>>("settings");  // version, zlib level and LZ4 mode that follow
    QTest::newRow("general, assisted v2 zlib 1") << false << QList<int>{-1, -1, -1} << QList<int>{2, 1, 1};
    QTest::newRow("general v1 stored") << false << QList<int>{0, 9, -1} << QList<int>{1, 0, 1};
    QTest::newRow("textures, assisted v3 lz4") << true << QList<int>{-1, -1, -1} << QList<int>{3, 1, 1};
    QTest::newRow("textures v3 lz4 stored") << true << QList<int>{-1, -1, 2} << QList<int>{3, 1, 0};
    QTest::newRow("textures v1 zlib 6") << true << QList<int>{0, 5, -1} << QList<int>{1, 6, 1};
}

void TestWinOps::create()
{
    QFETCH(bool, textures);
    QFETCH(QList<int>, picks);
    QFETCH(QList<int>, settings);
    const QByteArray dds = testutil::readFile(testutil::samplesDir() + "/Blank.dds");
    QVERIFY(!dds.isEmpty());
    QVERIFY(writeTree(scratch->path(), textures ? Tree{{"Tex/Stone.dds", dds}, {"Tex/armor/plate.dds", dds}}
                                                : generalTree()));
    const QString folder = scratch->path(textures ? "Tex" : "Data"), target = scratch->path("out/new.ba2");
    QVERIFY(QDir().mkpath(scratch->path("out")));
    auto w = startWindow();
    drop(*w, {folder});
    const QList<QComboBox*> combos = {w->ui->comboBox_Ver, w->ui->comboBox_zlibComp, w->ui->comboBox_LZ4Comp};
    for (int i = 0; i < 3; ++i)
        if (picks[i] >= 0) choose(combos[i], picks[i]);
    dialogs->answers << target;
    w->ui->pushButton_Archive->click();

    QCOMPARE(dialogs->asked, QStringList{"save Save Archive||BA2 Archive (*.ba2)"});
    QCOMPARE(dialogs->boxes, QStringList{"info|Save Archive|Complete."});
    QCOMPARE(controls(*w), QStringLiteral("-ACL"));
    QCOMPARE(setting("CreateArchiveDir").toString(), scratch->path("out/"));
    QCOMPARE(storedChoices(), QList<int>{textures} + settings);
    QCOMPARE(QDir(scratch->path("out")).entryList(QDir::Files), QStringList{"new.ba2"});
    const QByteArray bytes = testutil::readFile(target);
    QCOMPARE(bytes.mid(4, 8), QByteArray(1, char(settings[0])) + QByteArray(3, '\0') + (textures ? "DX10" : "GNRL"));
    // The command-line front end writes the same bytes for these settings.
    QProcess cli;
    cli.start(ZARNEL_CLI_PATH, {"create", "--format", textures ? "texture" : "general", "--version",
                                QString::number(settings[0]), "--zlib", QString::number(settings[1]), "--lz4",
                                QString::number(settings[2]), "-o", scratch->path("reference.ba2"), folder});
    QVERIFY(cli.waitForFinished(60000));
    QCOMPARE(cli.exitCode(), 0);
    QVERIFY(testutil::readFile(scratch->path("reference.ba2")) == bytes);
}

void TestWinOps::engines_data()
{
    QTest::addColumn<QString>("run");          // create or extract, and how
    QTest::addColumn<QByteArray>("archive");   // extracted from
    QTest::addColumn<QStringList>("boxes");
    QTest::addColumn<QString>("status");
    QTest::addColumn<Tree>("output");          // in out/ afterwards

    Tree extracted;
    const Tree tree = generalTree();
    for (auto it = tree.begin(); it != tree.end(); ++it) extracted[it.key().toLower()] = it.value();
    testutil::Ba2Builder b;
    b.addGeneral("good.txt", "fine", Pack::Stored);
    testutil::TestEntry& bad = b.addGeneral("bad.txt", testutil::patternBytes(4000, 3), Pack::Zlib);
    bad.stored[bad.stored.size() / 2] = char(bad.stored[bad.stored.size() / 2] ^ 0x55);
    bad.stored[2] = char(0xFF);
    const QString six = "6 files " + kRecommended;
    QTest::newRow("create cancelled") << "create cancel" << QByteArray() << QStringList{"info|Save Archive|Aborted."}
                                      << six << Tree();
    QTest::newRow("create texture of non-DDS files")
        << "create texture" << QByteArray() << QStringList{"warn|Save Archive|Save Archive Error.\n DDS File Error."}
        << six << Tree();
    // The writer refuses an empty list without a word.
    QTest::newRow("create from an empty folder")
        << "create empty" << QByteArray() << QStringList() << "0 file " + kRecommended << Tree();
    QTest::newRow("extract") << "extract" << generalArchive() << QStringList{"info|Extract All|Complete."}
                             << " Extract All Complete!" << extracted;
    // A chosen folder that already ends in '/' gets no second one.
    QTest::newRow("extract, folder with slash") << "extract slash" << generalArchive()
                                                << QStringList{"info|Extract All|Complete."} << " Extract All Complete!"
                                                << extracted;
    QTest::newRow("extract cancelled") << "extract cancel" << generalArchive()
                                       << QStringList{"info|Extract All|Aborted."} << " Extract All Error!" << Tree();
    QTest::newRow("extract corrupt zlib block")
        << "extract" << b.build() << QStringList{"warn|Extract All|Extract All Error.\n Decompress(zlib) Error."}
        << " Extract All Error!" << Tree{{"good.txt", "fine"}, {"bad.txt", ""}};  // as far as written
}

void TestWinOps::engines()
{
    QFETCH(QString, run);
    QFETCH(QByteArray, archive);
    QFETCH(QStringList, boxes);
    QFETCH(QString, status);
    QFETCH(Tree, output);
    const bool create = run.startsWith("create");
    const QString out = scratch->path("out"), source = scratch->path(create ? "Data" : "a.ba2");
    QVERIFY(QDir().mkpath(out));
    const bool empty = run.endsWith("empty");
    QVERIFY(create ? writeTree(empty ? source : scratch->path(), empty ? Tree() : generalTree())
                   : testutil::writeFile(source, archive));
    auto w = startWindow();
    if (create) {
        drop(*w, {source});
        if (run.endsWith("texture")) choose(w->ui->comboBox_Format, 1);
        dialogs->answers << out + "/new.ba2";
    } else {
        dialogs->answers << source << (run.endsWith("slash") ? out + '/' : out);
        w->ui->pushButton_File->click();
    }
    std::unique_ptr<Canceller> canceller;
    if (run.endsWith("cancel")) canceller = std::make_unique<Canceller>(create ? "Create Archive" : "Extract All");
    (create ? w->ui->pushButton_Archive : w->ui->pushButton_ExtractAll)->click();

    QVERIFY(!canceller || canceller->fired);
    QCOMPARE(dialogs->boxes, boxes);
    QCOMPARE(w->statusBar()->currentMessage(), status);
    QCOMPARE(readTree(out), output);
    QCOMPARE(controls(*w), create ? QStringLiteral("-ACL") : QStringLiteral("E-CL"));
    QCOMPARE(setting(create ? "CreateArchiveDir" : "ExtractAllDir").toString(), out + '/');
    // Extraction ends with the drag-and-drop hint in the source line; the archive stays open.
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), create ? source : kHint);
}

void TestWinOps::cancelledDialogs()
{
    QVERIFY(writeTree(scratch->path(), generalTree()));
    QVERIFY(testutil::writeFile(scratch->path("a.ba2"), generalArchive()));
    auto w = startWindow();
    drop(*w, {scratch->path("Data")});
    const QByteArray ini = readIni();
    const QStringList list = listTexts(*w);
    // No answers are queued, so every dialog answers as if cancelled, and nothing changes.
    w->ui->pushButton_Archive->click();
    w->ui->pushButton_File->click();
    w->ui->pushButton_SelFolder->click();
    w->ui->action_Open_Archive->trigger();
    w->ui->action_Create_Archive_from_Folder->trigger();
    const QString open = "open Open Archive||BA2 Archive (*.ba2)", select = "dir Pick a folder to Archive||3";
    QCOMPARE(dialogs->asked, (QStringList{"save Save Archive||BA2 Archive (*.ba2)", open, select, open, select}));
    QCOMPARE(readIni(), ini);
    QCOMPARE(listTexts(*w), list);
    QCOMPARE(controls(*w), QStringLiteral("-ACL"));

    dialogs->answers << scratch->path("a.ba2");
    w->ui->pushButton_File->click();
    w->ui->pushButton_ExtractAll->click();
    QCOMPARE(dialogs->asked.last(), QStringLiteral("dir Pick a folder to extract to||3"));
    QVERIFY(dialogs->boxes.isEmpty());
    QCOMPARE(controls(*w), QStringLiteral("E-CL"));
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), scratch->path("a.ba2"));
}

void TestWinOps::listViews_data()
{
    QTest::addColumn<bool>("archive");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("view");
    QTest::addColumn<int>("items");
    QTest::addColumn<QString>("last");
    const QString abbreviated = "<<< This is an abbreviated list view >>>";
    const QString archiveMarker = "<<< All data is loaded, although the list is not displayed to speed things up.>>>";
    const QString sourcesMarker =
        "<<< All data is loaded, although the list is not displayed to Improve performance.>>>";
    QTest::newRow("archive 1001, max 1000") << true << 1001 << "action_1000_Items" << 1001 << abbreviated;
    QTest::newRow("archive 1000, max 1000") << true << 1000 << "action_1000_Items" << 1000 << "1,000: f0999.txt";
    QTest::newRow("archive 1234, full") << true << 1234 << "action_Full" << 1234 << "1,234: f1233.txt";
    QTest::newRow("archive, not shown") << true << 5 << "action_NotShown" << 1 << archiveMarker;
    QTest::newRow("folder 1001, max 1000") << false << 1001 << "action_1000_Items" << 1001 << abbreviated;
    QTest::newRow("folder 1000, max 1000") << false << 1000 << "action_1000_Items" << 1000 << "1,000: big/f0999.txt";
    QTest::newRow("folder 1001, full") << false << 1001 << "action_Full" << 1001 << "1,001: big/f1000.txt";
    QTest::newRow("folder, not shown") << false << 3 << "action_NotShown" << 1 << sourcesMarker;
    QTest::newRow("empty folder, full") << false << 0 << "action_Full" << 0 << "";
    QTest::newRow("empty folder, not shown") << false << 0 << "action_NotShown" << 1 << sourcesMarker;
}

void TestWinOps::listViews()
{
    QFETCH(bool, archive);
    QFETCH(int, count);
    QFETCH(QString, view);
    QFETCH(int, items);
    QFETCH(QString, last);
    auto w = startWindow();
    w->findChild<QAction*>(view)->trigger();
    auto name = [&](int i) {
        return (archive ? "" : "big/") + QStringLiteral("f%1.txt").arg(i, 4, 10, QLatin1Char('0'));
    };
    testutil::Ba2Builder b;
    QVERIFY(QDir().mkpath(scratch->path("big")));
    for (int i = 0; i < count; ++i) {
        if (archive) b.addGeneral(name(i).toLatin1(), QByteArray::number(i));
        else QVERIFY(testutil::writeFile(scratch->path(name(i)), "x"));
    }
    QVERIFY(!archive || testutil::writeFile(scratch->path("many.ba2"), b.build()));
    drop(*w, {scratch->path(archive ? "many.ba2" : "big")});
    QVERIFY(dialogs->boxes.isEmpty());
    const QStringList texts = listTexts(*w);
    QCOMPARE(texts.size(), items);
    if (items > 0) QCOMPARE(texts.last(), last);
    if (view != "action_NotShown" && count > 0) QCOMPARE(texts.first(), "1: " + name(0));
    if (view != "action_NotShown" && count > 999) QCOMPARE(texts[999], "1,000: " + name(999));
}

void TestWinOps::assistance_data()
{
    // The rules themselves are tabled with the core; these rows prove the window applies them.
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<bool>("assist");
    QTest::addColumn<bool>("version3");        // texture format and version 3 chosen before loading
    QTest::addColumn<QString>("message");
    QTest::addColumn<QList<int>>("settings");  // Format, Version, zlib, LZ4 afterwards
    QTest::addColumn<bool>("ver3");            // version 3 selectable
    const QString notDds = "* Assistance * some files are not DDS, they cannot be archived in texture format.";
    QTest::newRow("all textures") << QStringList{"a.dds", "b.DDS"} << true << false
        << "2 files * assistance * 'DDS format' selected, because all DDS files. and, Ver.3 BA2 can be created."
        << QList<int>{1, 3, 1, 1} << true;
    QTest::newRow("sound kinds") << QStringList{"a.fuz", "b.wav", "c.xwm", "d.wem"} << true << false
        << "4 files * assistance * 'No compression' selected, because some files do not work when compressed.("
           ".wem.fuz.xwm.wav.swf)" << QList<int>{0, 2, 0, 1} << false;
    QTest::newRow("off: textures and other") << QStringList{"a.dds", "b.txt"} << false << false << "2 files " + notDds
                                             << QList<int>{0, 1, 1, 1} << false;
    QTest::newRow("off: all textures") << QStringList{"a.dds"} << false << false << "1 file " << QList<int>{0, 1, 1, 1}
                                       << true;
    // Version 3 holds textures only, with or without assistance.
    QTest::newRow("off: version 3, general") << QStringList{"a.nif"} << false << true << "1 file "
                                             << QList<int>{1, 2, 1, 1} << false;
    QTest::newRow("off: version 3, textures") << QStringList{"a.dds"} << false << true << "1 file "
                                              << QList<int>{1, 3, 1, 1} << true;
}

void TestWinOps::assistance()
{
    QFETCH(QStringList, files);
    QFETCH(bool, assist);
    QFETCH(bool, version3);
    QFETCH(QString, message);
    QFETCH(QList<int>, settings);
    QFETCH(bool, ver3);
    for (const QString& f : files) QVERIFY(testutil::writeFile(scratch->path("Mix/" + f), "data"));
    auto w = startWindow();
    if (!assist) w->ui->checkBox_assist->click();
    if (version3) {
        choose(w->ui->comboBox_Format, 1);
        choose(w->ui->comboBox_Ver, 2);
    }
    drop(*w, {scratch->path("Mix")});
    QCOMPARE(w->statusBar()->currentMessage(), message);
    QCOMPARE(storedChoices(), settings);
    QCOMPARE((QList<int>{w->ui->comboBox_Format->currentIndex(), w->ui->comboBox_Ver->currentIndex() + 1}),
             settings.mid(0, 2));
    QCOMPARE(controls(*w), QStringLiteral("-ACL"));
    QCOMPARE(qobject_cast<QStandardItemModel*>(w->ui->comboBox_Ver->model())->item(2)->isEnabled(), ver3);
}

void TestWinOps::gathering()
{
    testutil::Ba2Builder b;
    b.addGeneral("x.txt", "abc");
    b.addGeneral("y.txt", "defg", Pack::Zlib);
    for (const char* name : {"a.ba2", "one/First.ba2", "two/second.ba2"})
        QVERIFY(testutil::writeFile(scratch->path(name), b.build()));
    QVERIFY(writeTree(scratch->path(), generalTree()));
    QVERIFY(writeTree(scratch->path(),
                      {{"Other/Data/b.txt", "dup"}, {"Other/Data/new.txt", "new"}, {"Single.nif", "1"}}));
    auto w = startWindow();
    dialogs->answers << scratch->path("a.ba2") << scratch->path("a.ba2");
    w->ui->pushButton_File->click();
    const QStringList info = infoLines(*w);
    QCOMPARE(info[0], QStringLiteral("BA2 Ver.1 (2 files)"));

    // Files added while an archive is open replace its list and lines and turn Extract All off.
    drop(*w, {scratch->path("Data")});
    QCOMPARE(listTexts(*w), numbered(kGeneralOrder));
    QCOMPARE(controls(*w), QStringLiteral("-ACL"));
    QCOMPARE(infoLines(*w), (QStringList{"", "", ""}));
    QVERIFY(w->readerActive);

    // Clear List forgets the list and the sources but keeps the archive open and its lines shown.
    w->ui->pushButton_File->click();
    w->ui->pushButton_ClearList->click();
    QCOMPARE(listTexts(*w), QStringList());
    QCOMPARE(controls(*w), QStringLiteral("---L"));
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), kHint);
    QCOMPARE(infoLines(*w), info);
    QVERIFY(w->readerActive && w->sources.isEmpty());

    drop(*w, {scratch->path("Data")});
    drop(*w, {scratch->path("Data")});  // nothing new: every relative path is already there
    QCOMPARE(listTexts(*w), numbered(kGeneralOrder));

    // A same-named folder elsewhere adds only what is new; paths dropped together are all
    // sources by their bare names, archives too.
    drop(*w, {scratch->path("Other/Data"), scratch->path("Single.nif"), scratch->path("two/second.ba2"),
              scratch->path("one/First.ba2")});
    QCOMPARE(listTexts(*w), numbered(QStringList{"first.ba2", "second.ba2", "single.nif"} + kGeneralOrder.mid(0, 4)
                                     + QStringList{"data/new.txt"} + kGeneralOrder.mid(4)));
    QCOMPARE(w->statusBar()->currentMessage(), "10 files " + kRecommended);

    // The next Select Folder starts in the remembered parent; a path that cannot become a
    // source fails the load, and the list is cleared.
    dialogs->answers << scratch->path("Other/Data") << scratch->path("missing/");
    w->ui->pushButton_SelFolder->click();
    w->ui->pushButton_SelFolder->click();
    QCOMPARE(dialogs->asked.last(), "dir Pick a folder to Archive|" + scratch->path("Other") + "|3");
    QCOMPARE(dialogs->boxes, QStringList{"info|Read Files.|File Error"});
    QCOMPARE(listTexts(*w), QStringList());
    QVERIFY(w->sources.isEmpty());
    QCOMPARE(controls(*w), QStringLiteral("---L"));
}

QTEST_MAIN(TestWinOps)
#include "tst_win_ops.moc"

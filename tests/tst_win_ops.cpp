// The window's user operations, driven offscreen through the dialog seam: loading by drop,
// Open Archive, Select Folder and the command line; the file list; the creation assistance;
// Create Archive and Extract All with their outcome boxes, cancels and failures.

#include "opstestutil.h"

#include "archive/archivereader.h"
#include "archive/extractor.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QStandardItemModel>
#include <QtTest>

using namespace opstest;

namespace {

const QString kHint = QStringLiteral("*** Drag and drop the File or Folder ***");

// The tree used for the general round trips; its archive order is known from the ordering
// rules: a folder's own files first, '_' after letters, then subfolders by name.
Tree generalTree()
{
    return Tree{
        {QStringLiteral("Data/b.txt"), testutil::patternBytes(3000, 1)},
        {QStringLiteral("Data/a_b.txt"), testutil::patternBytes(10, 2)},
        {QStringLiteral("Data/ab.txt"), testutil::patternBytes(70000, 3)},
        {QStringLiteral("Data/a.txt"), QByteArray()},
        {QStringLiteral("Data/a/x.txt"), testutil::patternBytes(500, 4, false)},
        {QStringLiteral("Data/Sub/File.TXT"), testutil::patternBytes(1234, 5)},
    };
}
const QStringList kGeneralOrder = {
    QStringLiteral("data/a.txt"),   QStringLiteral("data/ab.txt"),   QStringLiteral("data/a_b.txt"),
    QStringLiteral("data/b.txt"),   QStringLiteral("data/a/x.txt"),  QStringLiteral("data/sub/file.txt"),
};

Tree textureTree()
{
    return Tree{
        {QStringLiteral("Tex/Stone.dds"), rgbaDds(16, 8, 7)},
        {QStringLiteral("Tex/armor/plate.dds"), rgbaDds(4, 4, 8)},
    };
}

QStringList numbered(const QStringList& names)
{
    QStringList items;
    for (int i = 0; i < names.size(); ++i) items << QString::number(i + 1) + QStringLiteral(": ") + names[i];
    return items;
}

QVariant setting(const char* key)
{
    QSettings ini(QStringLiteral("Zarnel.ini"), QSettings::IniFormat);
    return ini.value(QLatin1String(key));
}

struct ButtonState {
    bool extract, create, clear;
};
ButtonState buttons(const MainWindow& w)
{
    return {w.ui->pushButton_ExtractAll->isEnabled(), w.ui->pushButton_Archive->isEnabled(),
            w.ui->pushButton_ClearList->isEnabled()};
}

QStringList archiveNames(const QString& path)
{
    ArchiveReader reader;
    NullProgress progress;
    QStringList names;
    if (!reader.open(path, progress)) return {QStringLiteral("<unreadable>")};
    for (uint32_t i = 0; i < reader.fileCount; ++i) names << reader.nameOf(i);
    return names;
}

// What the command-line front end writes for these paths and settings.
QByteArray referenceArchive(const QStringList& paths, bool texture, int version, int zlib, int lz4,
                            const QString& target)
{
    const QStringList args{QStringLiteral("create"),
                           QStringLiteral("--format"), texture ? QStringLiteral("texture") : QStringLiteral("general"),
                           QStringLiteral("--version"), QString::number(version),
                           QStringLiteral("--zlib"), QString::number(zlib),
                           QStringLiteral("--lz4"), QString::number(lz4),
                           QStringLiteral("-o"), target};
    QProcess cli;
    cli.start(QStringLiteral(ZARNEL_CLI_PATH), args + paths);
    if (!cli.waitForFinished(60000)) return QByteArray("cli hung");
    if (cli.exitCode() != 0) return QByteArray("cli failed: ") + cli.readAllStandardError();
    return testutil::readFile(target);
}

}  // namespace

class TestWinOps : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void dropFolderListsSortedSources();
    void createArchive_data();
    void createArchive();
    void openArchiveShowsInformation_data();
    void openArchiveShowsInformation();
    void extractRecreatesTree();
    void cancelledScan_data();
    void cancelledScan();
    void cancelledFileDialogs();
    void cancelledEngines_data();
    void cancelledEngines();
    void createWithNothingGathered();
    void engineFailures_data();
    void engineFailures();
    void refusedArchives_data();
    void refusedArchives();
    void clearListKeepsArchive();
    void listViews_data();
    void listViews();
    void assistanceRules_data();
    void assistanceRules();
    void twoArchivesDroppedAreSources();
    void fakeArchive_data();
    void fakeArchive();
    void folderAfterArchive();
    void gatheringAccumulates();
    void selectFolder();
    void startupFolderArgument();

private:
    std::unique_ptr<wintest::TempWorkDir> scratch;
    std::unique_ptr<wintest::ScriptedDialogs> dialogs;

    QString buildArchive(const QString& relative, const testutil::Ba2Builder& builder)
    {
        const QString path = scratch->filePath(relative);
        return testutil::writeFile(path, builder.build()) ? path : QString();
    }
    // Drops the general tree and writes it through Create Archive into target.
    bool createFromGeneralTree(MainWindow& w, const QString& target)
    {
        if (!writeTree(scratch->path(), generalTree())) return false;
        drop(w, {scratch->filePath(QStringLiteral("Data"))});
        dialogs->saveAnswers << target;
        w.ui->pushButton_Archive->click();
        return QFileInfo::exists(target);
    }
};

void TestWinOps::init()
{
    scratch = std::make_unique<wintest::TempWorkDir>();
    dialogs = std::make_unique<wintest::ScriptedDialogs>();
}

void TestWinOps::cleanup()
{
    dialogs.reset();
    scratch.reset();
}

void TestWinOps::dropFolderListsSortedSources()
{
    QVERIFY(writeTree(scratch->path(), generalTree()));
    auto w = makeWindow();
    const QString folder = scratch->filePath(QStringLiteral("Data"));
    drop(*w, {folder});

    QCOMPARE(listTexts(*w), numbered(kGeneralOrder));
    QCOMPARE(statusText(*w), QStringLiteral("6 files * assistance * This is the recommended settings."));
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), folder);
    const ButtonState b = buttons(*w);
    QVERIFY(!b.extract && b.create && b.clear);
    QVERIFY(w->ui->listWidget_Files->isVisible() && w->ui->listWidget_Files->isEnabled());
    QCOMPARE(setting("Format").toInt(), 0);
    QCOMPARE(setting("Version").toInt(), 2);
    QCOMPARE(setting("zlibCompressionLevel").toInt(), 1);
    QCOMPARE(w->ui->comboBox_Ver->currentIndex(), 1);
    QVERIFY(dialogs->boxes.isEmpty());
    QCOMPARE(int(w->sourceKind), 2);
}

void TestWinOps::createArchive_data()
{
    QTest::addColumn<bool>("textures");
    QTest::addColumn<int>("verIndex");   // -1: as the assistance left it
    QTest::addColumn<int>("zlibIndex");
    QTest::addColumn<int>("lz4Index");
    QTest::addColumn<int>("version");    // expected in the header
    QTest::addColumn<int>("zlib");
    QTest::addColumn<int>("lz4");

    QTest::newRow("general, assisted v2 zlib 1") << false << -1 << -1 << -1 << 2 << 1 << 1;
    QTest::newRow("general v1 stored") << false << 0 << 9 << -1 << 1 << 0 << 1;
    QTest::newRow("general v1 zlib 9") << false << 0 << 8 << -1 << 1 << 9 << 1;
    QTest::newRow("textures, assisted v3 lz4") << true << -1 << -1 << -1 << 3 << 1 << 1;
    QTest::newRow("textures v3 lz4 stored") << true << -1 << -1 << 2 << 3 << 1 << 0;
    QTest::newRow("textures v1 zlib 6") << true << 0 << 5 << -1 << 1 << 6 << 1;
}

void TestWinOps::createArchive()
{
    QFETCH(bool, textures);
    QFETCH(int, verIndex);
    QFETCH(int, zlibIndex);
    QFETCH(int, lz4Index);
    QFETCH(int, version);
    QFETCH(int, zlib);
    QFETCH(int, lz4);

    const Tree tree = textures ? textureTree() : generalTree();
    QVERIFY(writeTree(scratch->path(), tree));
    const QString folder = scratch->filePath(textures ? QStringLiteral("Tex") : QStringLiteral("Data"));
    QVERIFY(QDir().mkpath(scratch->filePath(QStringLiteral("out"))));
    auto w = makeWindow();
    drop(*w, {folder});
    if (verIndex >= 0) choose(w->ui->comboBox_Ver, verIndex);
    if (zlibIndex >= 0) choose(w->ui->comboBox_zlibComp, zlibIndex);
    if (lz4Index >= 0) choose(w->ui->comboBox_LZ4Comp, lz4Index);

    const QString target = scratch->filePath(QStringLiteral("out/new.ba2"));
    dialogs->saveAnswers << target;
    w->ui->pushButton_Archive->click();

    QCOMPARE(dialogs->boxes.size(), 1);
    QCOMPARE(dialogs->boxes[0].icon, QMessageBox::Information);
    QCOMPARE(dialogs->boxes[0].text, QStringLiteral("Save Archive"));
    QCOMPARE(dialogs->boxes[0].informativeText, QStringLiteral("Complete."));
    QCOMPARE(setting("CreateArchiveDir").toString(), scratch->filePath(QStringLiteral("out/")));
    QCOMPARE(setting("Version").toInt(), version);
    QCOMPARE(setting("zlibCompressionLevel").toInt(), zlib);
    QCOMPARE(setting("LZ4CompressionLevel").toInt(), lz4);
    QCOMPARE(setting("Format").toInt(), textures ? 1 : 0);
    QVERIFY(w->ui->pushButton_Archive->isEnabled());
    QVERIFY(w->ui->listWidget_Files->isEnabled());

    const QByteArray bytes = testutil::readFile(target);
    QVERIFY(bytes.size() > 24);
    QCOMPARE(bytes.left(4), QByteArray("BTDX"));
    QCOMPARE(int(ba2::readLE32(reinterpret_cast<const unsigned char*>(bytes.constData()) + 4)), version);
    QCOMPARE(bytes.mid(8, 4), textures ? QByteArray("DX10") : QByteArray("GNRL"));
    QCOMPARE(int(ba2::readLE32(reinterpret_cast<const unsigned char*>(bytes.constData()) + 12)), int(tree.size()));
    QCOMPARE(QDir(scratch->filePath(QStringLiteral("out"))).entryList(QDir::Files), QStringList{QStringLiteral("new.ba2")});

    const QStringList expectedNames = textures
        ? QStringList{QStringLiteral("tex/stone.dds"), QStringLiteral("tex/armor/plate.dds")}
        : kGeneralOrder;
    QCOMPARE(archiveNames(target), expectedNames);
    {
        ArchiveReader reader;
        NullProgress progress;
        QVERIFY(reader.open(target, progress));
        QString fault;
        QVERIFY2(verifyArchive(reader, fault), qPrintable(fault));
    }
    const QByteArray reference =
        referenceArchive({folder}, textures, version, zlib, lz4, scratch->filePath(QStringLiteral("reference.ba2")));
    QCOMPARE(reference.size(), bytes.size());
    QVERIFY(reference == bytes);
}

void TestWinOps::openArchiveShowsInformation_data()
{
    QTest::addColumn<QByteArray>("archive");
    QTest::addColumn<QString>("line1");
    QTest::addColumn<QString>("line2");
    QTest::addColumn<QString>("line3");
    QTest::addColumn<QStringList>("names");

    using testutil::Pack;
    const QByteArray big = testutil::patternBytes(50000, 11);
    const QByteArray small = testutil::patternBytes(900, 12);
    {
        testutil::Ba2Builder b;
        b.addGeneral("meshes/a.nif", big, Pack::Zlib);
        b.addGeneral("meshes/b.nif", small, Pack::Zlib);
        b.addGeneral("readme.txt", "plain", Pack::Stored);
        const float ratio = float(float(b.entries[0].packedSize + b.entries[1].packedSize)
                                  / float(big.size() + small.size()) * 100.0);
        QTest::newRow("general v1 zlib") << b.build() << "BA2 Ver.1 (3 files)" << "Format: General"
                                         << QString::asprintf("Compression: zlib (%3.2f%%)", double(ratio))
                                         << QStringList{"meshes/a.nif", "meshes/b.nif", "readme.txt"};
    }
    {
        testutil::Ba2Builder b;
        b.version = 2;
        b.addGeneral("sound/x.wav", small, Pack::Stored);
        QTest::newRow("one file v2 stored") << b.build() << "BA2 Ver.2 (1 file)" << "Format: General"
                                            << "Compression: Non" << QStringList{"sound/x.wav"};
    }
    {
        testutil::Ba2Builder b;
        b.version = 3;
        b.texture = true;
        b.addTexture("textures/t.dds", 8, 8, 2, 28, {big.left(256), big.mid(256, 64)}, Pack::Lz4);
        const float ratio = float(float(b.entries[0].chunks[0].packedSize + b.entries[0].chunks[1].packedSize)
                                  / float(256 + 64) * 100.0);
        QTest::newRow("texture v3 lz4") << b.build() << "BA2 Ver.3 (1 file)" << "Format: DDS(Texture)"
                                        << QString::asprintf("Compression: LZ4 (%3.2f%%)", double(ratio))
                                        << QStringList{"textures/t.dds"};
    }
}

void TestWinOps::openArchiveShowsInformation()
{
    QFETCH(QByteArray, archive);
    QFETCH(QString, line1);
    QFETCH(QString, line2);
    QFETCH(QString, line3);
    QFETCH(QStringList, names);

    // Mixed case on purpose: the file must be opened by its real name, and the suffix test
    // ignores case.
    const QString path = scratch->filePath(QStringLiteral("Arc/Mixed.BA2"));
    QVERIFY(testutil::writeFile(path, archive));
    auto w = makeWindow();
    dialogs->openAnswers << path;
    w->ui->pushButton_File->click();

    QVERIFY(dialogs->boxes.isEmpty());
    QCOMPARE(w->ui->label_Ba2Info1->text(), line1);
    QCOMPARE(w->ui->label_Ba2Info2->text(), line2);
    QCOMPARE(w->ui->label_Ba2Info3->text(), line3);
    QCOMPARE(listTexts(*w), numbered(names));
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), path);
    const ButtonState b = buttons(*w);
    QVERIFY(b.extract && !b.create && b.clear);
    QCOMPARE(setting("OpenArchiveDir").toString(), scratch->filePath(QStringLiteral("Arc/")));
    QCOMPARE(askedDialogs(*dialogs), QStringList{QStringLiteral("Open Archive|")});
    QVERIFY(w->readerActive);
    QCOMPARE(int(w->sourceKind), 1);
    // The status-bar progress bar is gone once the archive is loaded.
    QVERIFY(w->statusBar()->findChildren<QProgressBar*>().isEmpty());
}

void TestWinOps::extractRecreatesTree()
{
    auto w = makeWindow();
    const QString archive = scratch->filePath(QStringLiteral("made.ba2"));
    QVERIFY(createFromGeneralTree(*w, archive));
    dialogs->boxes.clear();

    dialogs->openAnswers << archive;
    w->ui->pushButton_File->click();
    QVERIFY(w->ui->pushButton_ExtractAll->isEnabled());
    const QString out = scratch->filePath(QStringLiteral("out"));
    QVERIFY(QDir().mkpath(out));
    dialogs->directoryAnswers << out;
    w->ui->pushButton_ExtractAll->click();

    QCOMPARE(dialogs->boxes.size(), 1);
    QCOMPARE(dialogs->boxes[0].icon, QMessageBox::Information);
    QCOMPARE(dialogs->boxes[0].text, QStringLiteral("Extract All"));
    QCOMPARE(dialogs->boxes[0].informativeText, QStringLiteral("Complete."));
    QCOMPARE(statusText(*w), QStringLiteral(" Extract All Complete!"));
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), kHint);
    QVERIFY(w->ui->pushButton_ExtractAll->isEnabled());
    QVERIFY(w->ui->listWidget_Files->isEnabled());
    QCOMPARE(setting("ExtractAllDir").toString(), out + QLatin1Char('/'));

    Tree expected;
    for (const auto& [relative, bytes] : generalTree()) expected[relative.toLower()] = bytes;
    QVERIFY(readTree(out) == expected);

    // A folder that already ends in '/' gets no second one.
    dialogs->directoryAnswers << out + QLatin1Char('/');
    w->ui->pushButton_ExtractAll->click();
    QCOMPARE(setting("ExtractAllDir").toString(), out + QLatin1Char('/'));
    QCOMPARE(dialogs->boxes.last().informativeText, QStringLiteral("Complete."));
}

void TestWinOps::cancelledScan_data()
{
    QTest::addColumn<bool>("atStartup");
    QTest::newRow("drop") << false;
    QTest::newRow("command line") << true;
}

void TestWinOps::cancelledScan()
{
    QFETCH(bool, atStartup);
    Tree tree;
    for (int i = 0; i < 40; ++i) tree[QStringLiteral("Many/f%1.txt").arg(i, 2, 10, QLatin1Char('0'))] = "x";
    QVERIFY(writeTree(scratch->path(), tree));
    const QString folder = scratch->filePath(QStringLiteral("Many"));

    std::unique_ptr<MainWindow> w;
    std::unique_ptr<CancelWhen> cancel;
    if (atStartup) {
        // The cancel has to be armed before initialize() runs the command-line load.
        w = std::make_unique<MainWindow>();
        cancel = std::make_unique<CancelWhen>(*w, QStringLiteral("Reading Files..."),
                                              [&] { return w->sources.size() >= 10; });
        QByteArray arg = folder.toUtf8();
        char program[] = "zarnel";
        char* argv[] = {program, arg.data(), nullptr};
        w->setArg(2, argv);
        w->initialize();
    } else {
        w = makeWindow();
        cancel = std::make_unique<CancelWhen>(*w, QStringLiteral("Reading Files..."),
                                              [&] { return w->sources.size() >= 10; });
        drop(*w, {folder});
    }

    QVERIFY(cancel->fired);
    QCOMPARE(dialogs->boxes.size(), 1);
    QCOMPARE(dialogs->boxes[0].icon, QMessageBox::Information);
    QCOMPARE(dialogs->boxes[0].text, QStringLiteral("Read Files."));
    QCOMPARE(dialogs->boxes[0].informativeText, QStringLiteral("Aborted."));
    QVERIFY(w->sources.isEmpty());
    QCOMPARE(w->ui->listWidget_Files->count(), 0);
    const ButtonState b = buttons(*w);
    QVERIFY(!b.extract && !b.create && !b.clear);
    if (atStartup) {
        // No Clear List at start-up: the list stays hidden and the path stays shown.
        QVERIFY(!w->ui->listWidget_Files->isEnabled());
        QCOMPARE(w->ui->lineEdit_SrcFile->text(), folder);
    } else {
        QVERIFY(w->ui->listWidget_Files->isEnabled() && w->ui->listWidget_Files->isVisible());
        QCOMPARE(w->ui->lineEdit_SrcFile->text(), kHint);
    }
}

void TestWinOps::cancelledFileDialogs()
{
    auto w = makeWindow();
    const QString archive = scratch->filePath(QStringLiteral("made.ba2"));
    QVERIFY(createFromGeneralTree(*w, archive));
    dialogs->boxes.clear();
    dialogs->fileDialogs.clear();
    const QByteArray iniBefore = testutil::readFile(QStringLiteral("Zarnel.ini"));
    const QStringList listBefore = listTexts(*w);

    // Every queue is empty, so every dialog answers as if cancelled.
    w->ui->pushButton_Archive->click();
    w->ui->pushButton_File->click();
    w->ui->pushButton_SelFolder->click();
    w->ui->action_Open_Archive->trigger();
    w->ui->action_Create_Archive_from_Folder->trigger();

    QCOMPARE(askedDialogs(*dialogs).size(), 5);
    QVERIFY(dialogs->boxes.isEmpty());
    QCOMPARE(testutil::readFile(QStringLiteral("Zarnel.ini")), iniBefore);
    QCOMPARE(listTexts(*w), listBefore);
    QVERIFY(w->ui->pushButton_Archive->isEnabled());

    dialogs->openAnswers << archive;
    w->ui->pushButton_File->click();
    dialogs->fileDialogs.clear();
    w->ui->pushButton_ExtractAll->click();
    QCOMPARE(askedDialogs(*dialogs), QStringList{QStringLiteral("Pick a folder to extract to|")});
    QVERIFY(dialogs->boxes.isEmpty());
    QVERIFY(w->ui->pushButton_ExtractAll->isEnabled());
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), archive);
}

void TestWinOps::cancelledEngines_data()
{
    QTest::addColumn<bool>("extract");
    QTest::newRow("create") << false;
    QTest::newRow("extract") << true;
}

void TestWinOps::cancelledEngines()
{
    QFETCH(bool, extract);
    auto w = makeWindow();
    const QString archive = scratch->filePath(QStringLiteral("made.ba2"));
    const QString out = scratch->filePath(QStringLiteral("out"));
    QVERIFY(QDir().mkpath(out));
    if (extract) {
        QVERIFY(createFromGeneralTree(*w, archive));
        dialogs->boxes.clear();
        dialogs->openAnswers << archive;
        w->ui->pushButton_File->click();
        CancelEngineDialog cancel(QStringLiteral("Extract All"));
        dialogs->directoryAnswers << out;
        w->ui->pushButton_ExtractAll->click();
        QVERIFY(cancel.fired);
        QCOMPARE(statusText(*w), QStringLiteral(" Extract All Error!"));
        QVERIFY(readTree(out).empty());
        QVERIFY(w->ui->pushButton_ExtractAll->isEnabled());
    } else {
        QVERIFY(writeTree(scratch->path(), generalTree()));
        drop(*w, {scratch->filePath(QStringLiteral("Data"))});
        CancelEngineDialog cancel(QStringLiteral("Create Archive"));
        dialogs->saveAnswers << out + QStringLiteral("/new.ba2");
        w->ui->pushButton_Archive->click();
        QVERIFY(cancel.fired);
        QVERIFY(QDir(out).entryList(QDir::Files | QDir::Hidden).isEmpty());
        QVERIFY(w->ui->pushButton_Archive->isEnabled());
    }
    QCOMPARE(dialogs->boxes.size(), 1);
    QCOMPARE(dialogs->boxes[0].icon, QMessageBox::Information);
    QCOMPARE(dialogs->boxes[0].text, extract ? QStringLiteral("Extract All") : QStringLiteral("Save Archive"));
    QCOMPARE(dialogs->boxes[0].informativeText, QStringLiteral("Aborted."));
    QVERIFY(w->ui->listWidget_Files->isEnabled());
}

void TestWinOps::createWithNothingGathered()
{
    const QString empty = scratch->filePath(QStringLiteral("Empty"));
    QVERIFY(QDir().mkpath(empty));
    auto w = makeWindow();
    drop(*w, {empty});
    QVERIFY(w->ui->pushButton_Archive->isEnabled());
    const QString target = scratch->filePath(QStringLiteral("none.ba2"));
    dialogs->saveAnswers << target;
    w->ui->pushButton_Archive->click();
    // The writer refuses an empty list without a word, and the window is as before.
    QVERIFY(dialogs->boxes.isEmpty());
    QVERIFY(!QFileInfo::exists(target));
    QVERIFY(w->ui->pushButton_Archive->isEnabled());
    QVERIFY(w->ui->listWidget_Files->isEnabled());
}

void TestWinOps::engineFailures_data()
{
    QTest::addColumn<bool>("extract");
    QTest::addColumn<QString>("informative");
    QTest::newRow("texture archive of a non-DDS file") << false << "Save Archive Error.\n DDS File Error.";
    QTest::newRow("corrupt zlib block") << true << "Extract All Error.\n Decompress(zlib) Error.";
}

void TestWinOps::engineFailures()
{
    QFETCH(bool, extract);
    QFETCH(QString, informative);
    auto w = makeWindow();
    const QString out = scratch->filePath(QStringLiteral("out"));
    QVERIFY(QDir().mkpath(out));
    if (extract) {
        testutil::Ba2Builder b;
        b.addGeneral("good.txt", "fine", testutil::Pack::Stored);
        testutil::TestEntry& bad = b.addGeneral("bad.txt", testutil::patternBytes(4000, 3), testutil::Pack::Zlib);
        bad.stored[bad.stored.size() / 2] = char(bad.stored[bad.stored.size() / 2] ^ 0x55);
        bad.stored[2] = char(0xFF);
        dialogs->openAnswers << buildArchive(QStringLiteral("bad.ba2"), b);
        w->ui->pushButton_File->click();
        dialogs->directoryAnswers << out;
        w->ui->pushButton_ExtractAll->click();
        QCOMPARE(statusText(*w), QStringLiteral(" Extract All Error!"));
        QCOMPARE(testutil::readFile(out + QStringLiteral("/good.txt")), QByteArray("fine"));
    } else {
        QVERIFY(writeTree(scratch->path(), generalTree()));
        drop(*w, {scratch->filePath(QStringLiteral("Data"))});
        choose(w->ui->comboBox_Format, 1);
        dialogs->saveAnswers << out + QStringLiteral("/new.ba2");
        w->ui->pushButton_Archive->click();
        QVERIFY(QDir(out).entryList(QDir::Files | QDir::Hidden).isEmpty());
        QCOMPARE(setting("Format").toInt(), 1);
    }
    QCOMPARE(dialogs->boxes.size(), 1);
    QCOMPARE(dialogs->boxes[0].icon, QMessageBox::Warning);
    QCOMPARE(dialogs->boxes[0].text, extract ? QStringLiteral("Extract All") : QStringLiteral("Save Archive"));
    QCOMPARE(dialogs->boxes[0].informativeText, informative);
}

void TestWinOps::refusedArchives_data()
{
    QTest::addColumn<QByteArray>("archive");
    QTest::addColumn<QString>("route");        // how the path reaches the window
    QTest::addColumn<QString>("readerBox");    // the reader's own warning, if any
    QTest::addColumn<QString>("readerDetail");

    testutil::Ba2Builder v3;
    v3.version = 3;
    v3.compressionCode = 0;
    v3.addGeneral("a.txt", "abc");
    testutil::Ba2Builder chunks;
    chunks.texture = true;
    QVector<QByteArray> seventeen(17, QByteArray("pixels"));
    chunks.addTexture("t.dds", 4, 4, 17, 28, seventeen);
    testutil::Ba2Builder general;
    general.addGeneral("a.txt", "abc");
    QByteArray unknownType = general.build();
    unknownType.replace(8, 4, "XXXX");
    const QByteArray empty = testutil::Ba2Builder().build();

    const QString v3Text = QStringLiteral("This is Ver3-BA2 of a kind not yet supported.(code:0)");
    const QString chunkText = QStringLiteral("The maximum number of chunks that Zarnel can process is 16.");
    const QStringList routes{QStringLiteral("open"), QStringLiteral("drop"), QStringLiteral("startup")};
    for (const QString& route : routes) {
        const QByteArray r = route.toLatin1();
        QTest::newRow((r + " v3 code 0").constData()) << v3.build() << route << v3Text << "Please report to the author.";
        QTest::newRow((r + " 17 chunks").constData()) << chunks.build() << route << chunkText << "";
        QTest::newRow((r + " unknown type").constData()) << unknownType << route << "" << "";
        QTest::newRow((r + " no files").constData()) << empty << route << "" << "";
    }
}

void TestWinOps::refusedArchives()
{
    QFETCH(QByteArray, archive);
    QFETCH(QString, route);
    QFETCH(QString, readerBox);
    QFETCH(QString, readerDetail);

    const QString path = scratch->filePath(QStringLiteral("refused.ba2"));
    QVERIFY(testutil::writeFile(path, archive));
    std::unique_ptr<MainWindow> w;
    if (route == QLatin1String("startup")) {
        w = makeWindow(path.toUtf8());
    } else {
        w = makeWindow();
        if (route == QLatin1String("open")) {
            dialogs->openAnswers << path;
            w->ui->pushButton_File->click();
        } else {
            drop(*w, {path});
        }
    }

    QVector<wintest::RecordedBox> expected;
    if (!readerBox.isEmpty()) expected.append({wintest::RecordedBox::Message, QMessageBox::Warning, readerBox, readerDetail});
    if (route != QLatin1String("open"))
        expected.append({wintest::RecordedBox::Message, QMessageBox::Information, QStringLiteral("Read Files."),
                         QStringLiteral("BA2 File Error")});
    QCOMPARE(dialogs->boxes.size(), expected.size());
    for (int i = 0; i < expected.size(); ++i) {
        QCOMPARE(dialogs->boxes[i].icon, expected[i].icon);
        QCOMPARE(dialogs->boxes[i].text, expected[i].text);
        QCOMPARE(dialogs->boxes[i].informativeText, expected[i].informativeText);
    }
    QCOMPARE(w->ui->label_Ba2Info1->text(), QStringLiteral("BA2 Error."));
    QCOMPARE(w->ui->label_Ba2Info2->text(), QString());
    QCOMPARE(w->ui->label_Ba2Info3->text(), QString());
    QVERIFY(!w->readerActive);
    const ButtonState b = buttons(*w);
    QVERIFY(!b.extract && !b.create && !b.clear);
    // Only the drop clears the list (and with it the source line) after the box.
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), route == QLatin1String("drop") ? kHint : path);
}

void TestWinOps::clearListKeepsArchive()
{
    testutil::Ba2Builder b;
    b.addGeneral("a.txt", "abc");
    b.addGeneral("b.txt", "defg", testutil::Pack::Zlib);
    const QString path = buildArchive(QStringLiteral("two.ba2"), b);
    auto w = makeWindow();
    dialogs->openAnswers << path;
    w->ui->pushButton_File->click();
    const QString line1 = w->ui->label_Ba2Info1->text();
    QCOMPARE(line1, QStringLiteral("BA2 Ver.1 (2 files)"));

    w->ui->pushButton_ClearList->click();
    QCOMPARE(int(w->sourceKind), 0);
    QCOMPARE(w->ui->listWidget_Files->count(), 0);
    QVERIFY(w->ui->listWidget_Files->isVisible() && w->ui->listWidget_Files->isEnabled());
    const ButtonState s = buttons(*w);
    QVERIFY(!s.extract && !s.create && !s.clear);
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), kHint);
    QCOMPARE(w->ui->label_Ba2Info1->text(), line1);
    QCOMPARE(w->ui->label_Ba2Info2->text(), QStringLiteral("Format: General"));
    QVERIFY(w->readerActive);
    QVERIFY(dialogs->boxes.isEmpty());
}

void TestWinOps::listViews_data()
{
    QTest::addColumn<bool>("archive");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("view");
    QTest::addColumn<int>("items");
    QTest::addColumn<QString>("last");

    const QString abbreviated = QStringLiteral("<<< This is an abbreviated list view >>>");
    const QString archiveMarker =
        QStringLiteral("<<< All data is loaded, although the list is not displayed to speed things up.>>>");
    const QString sourcesMarker =
        QStringLiteral("<<< All data is loaded, although the list is not displayed to Improve performance.>>>");
    QTest::newRow("archive 1001 abbreviated") << true << 1001 << 2 << 1001 << abbreviated;
    QTest::newRow("archive 1000 abbreviated") << true << 1000 << 2 << 1000 << "1,000: f0999.txt";
    QTest::newRow("archive 1234 full") << true << 1234 << 1 << 1234 << "1,234: f1233.txt";
    QTest::newRow("archive not shown") << true << 5 << 0 << 1 << archiveMarker;
    QTest::newRow("folder 1001 abbreviated") << false << 1001 << 2 << 1001 << abbreviated;
    QTest::newRow("folder 1000 abbreviated") << false << 1000 << 2 << 1000 << "1,000: big/f0999.txt";
    QTest::newRow("folder 1001 full") << false << 1001 << 1 << 1001 << "1,001: big/f1000.txt";
    QTest::newRow("folder not shown") << false << 3 << 0 << 1 << sourcesMarker;
    QTest::newRow("empty folder full") << false << 0 << 1 << 0 << "";
    QTest::newRow("empty folder not shown") << false << 0 << 0 << 1 << sourcesMarker;
}

void TestWinOps::listViews()
{
    QFETCH(bool, archive);
    QFETCH(int, count);
    QFETCH(int, view);
    QFETCH(int, items);
    QFETCH(QString, last);

    auto w = makeWindow();
    QAction* action = view == 0 ? w->ui->action_NotShown
                      : view == 1 ? w->ui->action_Full : w->ui->action_1000_Items;
    action->trigger();
    QCOMPARE(w->listView, view);

    auto name = [](int i) { return QStringLiteral("f%1.txt").arg(i, 4, 10, QLatin1Char('0')); };
    if (archive) {
        testutil::Ba2Builder b;
        for (int i = 0; i < count; ++i) b.addGeneral(name(i).toLatin1(), QByteArray::number(i));
        dialogs->openAnswers << buildArchive(QStringLiteral("many.ba2"), b);
        w->ui->pushButton_File->click();
    } else {
        QVERIFY(QDir().mkpath(scratch->filePath(QStringLiteral("Big"))));
        for (int i = 0; i < count; ++i)
            QVERIFY(testutil::writeFile(scratch->filePath(QStringLiteral("Big/") + name(i)), "x"));
        drop(*w, {scratch->filePath(QStringLiteral("Big"))});
    }
    QVERIFY(dialogs->boxes.isEmpty());

    const QStringList texts = listTexts(*w);
    QCOMPARE(texts.size(), items);
    if (items > 0) QCOMPARE(texts.last(), last);
    if (view != 0 && count > 0) {
        const QString first = archive ? name(0) : QStringLiteral("big/") + name(0);
        QCOMPARE(texts.first(), QStringLiteral("1: ") + first);
    }
    if (items > 999 && view != 0)
        QCOMPARE(texts[999], QStringLiteral("1,000: ") + (archive ? QString() : QStringLiteral("big/")) + name(999));
}

void TestWinOps::assistanceRules_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<bool>("assist");
    QTest::addColumn<bool>("version3Shown");  // texture format and version 3 chosen before loading
    QTest::addColumn<QString>("message");
    QTest::addColumn<QList<int>>("settings");  // Format, Version, zlib, LZ4 afterwards
    QTest::addColumn<bool>("ver3");

    const QList<int> untouched{0, 1, 1, 1};  // the defaults of a fresh settings file
    const QString recommended = QStringLiteral("* assistance * This is the recommended settings.");
    const QString notDds = QStringLiteral("* Assistance * some files are not DDS, they cannot be archived in texture format.");
    const QString noCompression =
        QStringLiteral("* assistance * 'No compression' selected, because some files do not work when compressed.(");

    QTest::newRow("all textures") << QStringList{"a.dds", "b.DDS"} << true << false
        << "2 files * assistance * 'DDS format' selected, because all DDS files. and, Ver.3 BA2 can be created."
        << QList<int>{1, 3, 1, 1} << true;
    QTest::newRow("textures and wem") << QStringList{"a.dds", "b.wem"} << true << false
        << "2 files " + notDds << QList<int>{0, 2, 0, 1} << false;
    QTest::newRow("textures and other") << QStringList{"a.dds", "b.nif", "c.txt"} << true << false
        << "3 files " + notDds << QList<int>{0, 2, 1, 1} << false;
    QTest::newRow("ddsx is no texture") << QStringList{"a.ddsx", "b.dds"} << true << false
        << "2 files " + notDds << QList<int>{0, 2, 1, 1} << false;
    QTest::newRow("one general file") << QStringList{"a.nif"} << true << false
        << "1 file " + recommended << QList<int>{0, 2, 1, 1} << false;
    QTest::newRow("no extension") << QStringList{"dds"} << true << false
        << "1 file " + recommended << QList<int>{0, 2, 1, 1} << false;
    QTest::newRow("sound kinds") << QStringList{"a.fuz", "b.wav", "c.xwm", "d.wem"} << true << false
        << "4 files " + noCompression + ".wem.fuz.xwm.wav.swf)" << QList<int>{0, 2, 0, 1} << false;
    QTest::newRow("fuz and wav") << QStringList{"a.fuz", "b.wav"} << true << false
        << "2 files " + noCompression + ".fuz.wav.swf)" << QList<int>{0, 2, 0, 1} << false;
    QTest::newRow("swf and pex only") << QStringList{"a.swf", "b.pex"} << true << false
        << "2 files " + noCompression + ")" << QList<int>{0, 2, 0, 1} << false;
    QTest::newRow("empty folder") << QStringList{} << true << false
        << "0 file " + recommended << QList<int>{0, 2, 1, 1} << false;
    QTest::newRow("off: general") << QStringList{"a.nif", "b.txt"} << false << false
        << "2 files " << untouched << false;
    QTest::newRow("off: textures and other") << QStringList{"a.dds", "b.txt"} << false << false
        << "2 files " + notDds << untouched << false;
    QTest::newRow("off: all textures") << QStringList{"a.dds"} << false << false
        << "1 file " << untouched << true;
    QTest::newRow("off: version 3 shown, general") << QStringList{"a.nif"} << false << true
        << "1 file " << QList<int>{1, 2, 1, 1} << false;
    QTest::newRow("off: version 3 shown, textures") << QStringList{"a.dds"} << false << true
        << "1 file " << QList<int>{1, 3, 1, 1} << true;
    QTest::newRow("on: version 3 shown, general") << QStringList{"a.nif"} << true << true
        << "1 file " + recommended << QList<int>{0, 2, 1, 1} << false;
}

void TestWinOps::assistanceRules()
{
    QFETCH(QStringList, files);
    QFETCH(bool, assist);
    QFETCH(bool, version3Shown);
    QFETCH(QString, message);
    QFETCH(QList<int>, settings);
    QFETCH(bool, ver3);

    const QString folder = scratch->filePath(QStringLiteral("Mix"));
    QVERIFY(QDir().mkpath(folder));
    for (const QString& f : files) QVERIFY(testutil::writeFile(folder + QLatin1Char('/') + f, "data"));
    auto w = makeWindow();
    if (!assist) w->ui->checkBox_assist->click();
    QCOMPARE(w->ui->checkBox_assist->isChecked(), assist);
    if (version3Shown) {
        // As the user would: texture format first, then version 3 is accepted.
        choose(w->ui->comboBox_Format, 1);
        choose(w->ui->comboBox_Ver, 2);
        QCOMPARE(w->archiveVersion, 3);
    }

    drop(*w, {folder});
    QCOMPARE(statusText(*w), message);
    const QList<int> stored{setting("Format").toInt(), setting("Version").toInt(),
                            setting("zlibCompressionLevel").toInt(), setting("LZ4CompressionLevel").toInt()};
    QCOMPARE(stored, settings);
    QCOMPARE(QList<int>({w->archiveFormat, w->archiveVersion, w->zlibLevel, w->lz4Mode}), settings);
    QVERIFY(w->ui->pushButton_Archive->isEnabled());
    QCOMPARE(w->ver3Enabled, ver3);
    auto* model = qobject_cast<QStandardItemModel*>(w->ui->comboBox_Ver->model());
    QVERIFY(model);
    QCOMPARE(model->item(2)->isEnabled(), ver3);
}

void TestWinOps::twoArchivesDroppedAreSources()
{
    testutil::Ba2Builder b;
    b.addGeneral("inside.txt", "abc");
    const QString first = buildArchive(QStringLiteral("one/First.ba2"), b);
    const QString second = buildArchive(QStringLiteral("two/second.ba2"), b);
    auto w = makeWindow();
    drop(*w, {second, first});

    QCOMPARE(listTexts(*w), numbered({QStringLiteral("first.ba2"), QStringLiteral("second.ba2")}));
    QVERIFY(!w->readerActive);
    QCOMPARE(int(w->sourceKind), 2);
    QCOMPARE(w->ui->label_Ba2Info1->text(), QString());
    QCOMPARE(statusText(*w), QStringLiteral("2 files * assistance * This is the recommended settings."));
    QVERIFY(w->ui->pushButton_Archive->isEnabled());
    QVERIFY(dialogs->boxes.isEmpty());
}

void TestWinOps::fakeArchive_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("throughOpen");
    QTest::newRow("text, dropped") << QByteArray("hello, no archive") << false;
    QTest::newRow("three bytes, dropped") << QByteArray("BTD") << false;
    QTest::newRow("empty, dropped") << QByteArray() << false;
    QTest::newRow("text, Open Archive") << QByteArray("hello, no archive") << true;
}

void TestWinOps::fakeArchive()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, throughOpen);
    const QString path = scratch->filePath(QStringLiteral("Fake.BA2"));
    QVERIFY(testutil::writeFile(path, content));
    auto w = makeWindow();
    if (throughOpen) {
        dialogs->openAnswers << path;
        w->ui->pushButton_File->click();
        // Gathered, but neither listed nor assessed until the next load sequence.
        QCOMPARE(w->sources.size(), size_t(1));
        QCOMPARE(w->ui->listWidget_Files->count(), 0);
        QVERIFY(!w->ui->pushButton_Archive->isEnabled());
    } else {
        drop(*w, {path});
        QCOMPARE(listTexts(*w), numbered({QStringLiteral("fake.ba2")}));
        QVERIFY(w->ui->pushButton_Archive->isEnabled());
    }
    QCOMPARE(QString::fromLatin1(w->sources[0].relativePathBytes()), QStringLiteral("fake.ba2"));
    QVERIFY(!w->readerActive);
    QVERIFY(dialogs->boxes.isEmpty());
}

void TestWinOps::folderAfterArchive()
{
    testutil::Ba2Builder b;
    b.addGeneral("x.txt", "abc");
    const QString path = buildArchive(QStringLiteral("a.ba2"), b);
    QVERIFY(writeTree(scratch->path(), generalTree()));
    auto w = makeWindow();
    dialogs->openAnswers << path;
    w->ui->pushButton_File->click();
    QCOMPARE(listTexts(*w), numbered({QStringLiteral("x.txt")}));

    drop(*w, {scratch->filePath(QStringLiteral("Data"))});
    QCOMPARE(listTexts(*w), numbered(kGeneralOrder));
    QVERIFY(w->readerActive);
    const ButtonState s = buttons(*w);
    QVERIFY(!s.extract && s.create && s.clear);
    QCOMPARE(w->ui->label_Ba2Info1->text(), QString());
}

void TestWinOps::gatheringAccumulates()
{
    QVERIFY(writeTree(scratch->path(), generalTree()));
    QVERIFY(writeTree(scratch->path(), Tree{{QStringLiteral("Other/Data/b.txt"), "dup"},
                                            {QStringLiteral("Other/Data/new.txt"), "new"},
                                            {QStringLiteral("Single.nif"), "single"}}));
    auto w = makeWindow();
    const QString data = scratch->filePath(QStringLiteral("Data"));
    drop(*w, {data});
    drop(*w, {data});  // nothing new: every relative path is already there
    QCOMPARE(listTexts(*w), numbered(kGeneralOrder));

    // A folder of the same name elsewhere adds only what is new; a single file its bare name.
    drop(*w, {scratch->filePath(QStringLiteral("Other/Data")), scratch->filePath(QStringLiteral("Single.nif"))});
    QStringList expected = kGeneralOrder;
    expected.insert(0, QStringLiteral("single.nif"));
    expected.insert(5, QStringLiteral("data/new.txt"));
    QCOMPARE(listTexts(*w), numbered(expected));
    QCOMPARE(statusText(*w), QStringLiteral("8 files * assistance * This is the recommended settings."));
}

void TestWinOps::selectFolder()
{
    QVERIFY(writeTree(scratch->filePath(QStringLiteral("Pick")), generalTree()));
    auto w = makeWindow();
    dialogs->directoryAnswers << scratch->filePath(QStringLiteral("Pick/Data"));
    w->ui->pushButton_SelFolder->click();
    QCOMPARE(listTexts(*w), numbered(kGeneralOrder));
    QCOMPARE(setting("DropFileDir").toString(), scratch->filePath(QStringLiteral("Pick")));
    QCOMPARE(askedDialogs(*dialogs), QStringList{QStringLiteral("Pick a folder to Archive|")});

    // The next dialog starts in the remembered folder; a failing load clears the list.
    // A path with an empty file name cannot become a source.
    dialogs->directoryAnswers << scratch->filePath(QStringLiteral("Pick/missing/"));
    w->ui->action_Create_Archive_from_Folder->trigger();
    QCOMPARE(askedDialogs(*dialogs).last(), QStringLiteral("Pick a folder to Archive|") + scratch->filePath(QStringLiteral("Pick")));
    QCOMPARE(dialogs->boxes.size(), 1);
    QCOMPARE(dialogs->boxes[0].informativeText, QStringLiteral("File Error"));
    QCOMPARE(w->ui->listWidget_Files->count(), 0);
    QVERIFY(w->sources.isEmpty());
}

void TestWinOps::startupFolderArgument()
{
    QVERIFY(writeTree(scratch->path(), generalTree()));
    // Backslashes in the argument reach the loader as '/'.
    QByteArray argument = scratch->filePath(QStringLiteral("Data")).toUtf8();
    argument.replace('/', '\\');
    auto w = makeWindow(argument);
    QCOMPARE(listTexts(*w), numbered(kGeneralOrder));
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), scratch->filePath(QStringLiteral("Data")));
    QCOMPARE(statusText(*w), QStringLiteral("6 files * assistance * This is the recommended settings."));
    QVERIFY(dialogs->boxes.isEmpty());
}

QTEST_MAIN(TestWinOps)
#include "tst_win_ops.moc"

// The window driven offscreen through the dialog seam: loading by every route, the file list,
// the assistance wiring, Create Archive and Extract All, Zarnel.ini, the themes, Help and Exit.

#include "app/dialogs.h"
#include "app/mainwindow.h"
#include "app/ui_mainwindow.h"

#include "testutil.h"

#include <QtTest>
#include <QtWidgets>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

using testutil::Pack;

namespace {

// A file or folder dialog takes the next queued answer ("" = cancelled) and is recorded as
// "kind caption|start folder|filter or options"; a box as "kind|text|informative text".
class ScriptedDialogs : public Dialogs
{
public:
    ScriptedDialogs() { install(this); }
    ~ScriptedDialogs() override { install(nullptr); }
    QStringList answers, asked, boxes;
    QList<QUrl> urls;

    QString answer(const QString& what, const QString& dir, const QString& extra)
    {
        asked << what + '|' + dir + '|' + extra;
        return answers.isEmpty() ? QString() : answers.takeFirst();
    }
    QString getExistingDirectory(QWidget*, const QString& c, const QString& d,
                                 QFileDialog::Options o) override
    {
        return answer("dir " + c, d, QString::number(int(o)));
    }
    QString getOpenFileName(QWidget*, const QString& c, const QString& d, const QString& f) override
    {
        return answer("open " + c, d, f);
    }
    QString getSaveFileName(QWidget*, const QString& c, const QString& d, const QString& f) override
    {
        return answer("save " + c, d, f);
    }
    void showMessage(QMessageBox::Icon icon, const QString& text, const QString& info) override
    {
        boxes << QStringList {"other", "info", "warn"}.value(icon, "other") + '|' + text + '|'
                + info;
    }
    void about(QWidget*, const QString& t, const QString& text) override
    {
        boxes << "about|" + t + '|' + text;
    }
    void aboutQt(QWidget*, const QString& title) override { boxes << "aboutQt|" + title; }
    bool openUrl(const QUrl& url) override { return urls << url, true; }
};

// A window as the entry point leaves it before the event loop; args follow the program name,
// and before() runs between setArg and initialize (to arm a canceller for the command line).
std::unique_ptr<MainWindow> startWindow(const QByteArrayList& args = {},
                                        const std::function<void(MainWindow&)>& before = {})
{
    static QByteArrayList store;
    static std::vector<char*> argv;
    store = QByteArrayList {"zarnel"} + args;
    argv.clear();
    for (QByteArray& arg : store)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    auto window = std::make_unique<MainWindow>();
    window->setArg(int(store.size()), argv.data());
    if (before) before(*window);
    window->initialize();
    return window;
}

const QString kHint = QStringLiteral("*** Drag and drop the File or Folder ***");
const QString kRecommended = QStringLiteral("* assistance * This is the recommended settings.");
const QString kVer3Warning
    = QStringLiteral("* Warning * Only texture files can be archived to Ver.3 BA2.");

// Zarnel.ini in the working folder.
struct Ini
{
    static QByteArray read() { return testutil::readFile(QStringLiteral("Zarnel.ini")); }
    static bool write(const QByteArray& bytes) { return testutil::writeFile("Zarnel.ini", bytes); }
    static QString value(const char* key)
    {
        return QSettings("Zarnel.ini", QSettings::IniFormat).value(key).toString();
    }
};

// The cases of a table in tests/data, one a line: columns separated by tabs, \n a line break,
// lines starting with '#' comments. A missing or malformed table ends the run.
QList<QStringList> table(const char* name, int columns)
{
    QFile file(QFINDTESTDATA(QStringLiteral("data/") + name));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) qFatal("no table %s", name);
    QList<QStringList> rows;
    for (const QString& line : QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts)) {
        if (line.startsWith('#')) continue;
        rows << QString(line).replace("\\n", "\n").split('\t');
        if (rows.last().size() != columns) qFatal("%s: %s", name, qPrintable(line));
    }
    return rows;
}

// Adds a table's cases as rows of one column, "f".
void addRows(const char* name, int columns)
{
    QTest::addColumn<QStringList>("f");
    for (const QStringList& f : table(name, columns))
        QTest::newRow(qPrintable(f[0])) << f;
}

void drop(MainWindow& window, const QStringList& paths)
{
    QMimeData mime;
    QList<QUrl> urls;
    for (const QString& p : paths)
        urls << QUrl::fromLocalFile(p);
    mime.setUrls(urls);
    // Qt delivers a drop only to the widget that accepted the drag's entry.
    QDragEnterEvent enter(QPoint(20, 20), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&window, &enter);
    QDropEvent event(QPointF(20, 20), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    if (enter.isAccepted()) QCoreApplication::sendEvent(&window, &event);
}

// Picks a combo item as the user does: the selection, then the activation the slots listen to.
void choose(QComboBox* combo, int index)
{
    combo->setCurrentIndex(index);
    emit combo->activated(index);
}

QStringList listTexts(const MainWindow& w)
{
    QStringList texts;
    for (int i = 0; i < w.ui->listWidget_Files->count(); ++i)
        texts << w.ui->listWidget_Files->item(i)->text();
    return texts;
}

using Tree = QMap<QString, QByteArray>; // relative path -> content

bool writeTree(const QString& root, const Tree& tree)
{
    bool ok = QDir().mkpath(root);
    for (auto it = tree.begin(); it != tree.end(); ++it)
        ok = testutil::writeFile(root + QLatin1Char('/') + it.key(), it.value()) && ok;
    return ok;
}

// Cancels the progress dialog with the given label once ready() holds. Looked at on every tick
// of a zero timer (the scans process events per entry) and when a dialog gets its style sheet,
// the last step of building one (the engines check Cancel before they process any event).
struct Canceller : QObject
{
    explicit Canceller(
        const QString& label, std::function<bool()> ready = [] { return true; })
        : label(label)
        , ready(std::move(ready))
    {
        qApp->installEventFilter(this);
        startTimer(0);
    }
    ~Canceller() override { qApp->removeEventFilter(this); }
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        const bool look = event->type() == QEvent::StyleChange
            || (watched == this && event->type() == QEvent::Timer);
        for (QWidget* w : QApplication::topLevelWidgets()) {
            auto* dialog = qobject_cast<QProgressDialog*>(w);
            if (!fired && look && dialog && dialog->labelText() == label && ready()) {
                dialog->cancel();
                fired = true;
            }
        }
        return false;
    }
    QString label;
    std::function<bool()> ready;
    bool fired = false;
};
// Its archive order follows the ordering rules: a folder's own files first, '_' after
// letters, then subfolders by name.
Tree generalTree()
{
    return {{"Data/b.txt", testutil::patternBytes(3000, 1)},
            {"Data/a_b.txt", testutil::patternBytes(10, 2)},
            {"Data/ab.txt", testutil::patternBytes(70000, 3)},
            {"Data/a.txt", QByteArray()},
            {"Data/a/x.txt", testutil::patternBytes(500, 4, false)},
            {"Data/Sub/File.TXT", testutil::patternBytes(1234, 5)}};
}
const QStringList kGeneralOrder = {"data/a.txt", "data/ab.txt",  "data/a_b.txt",
                                   "data/b.txt", "data/a/x.txt", "data/sub/file.txt"};

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
    for (int i = 0; i < names.size(); ++i)
        items << QString::number(i + 1) + QStringLiteral(": ") + names[i];
    return items;
}

// Extract All, Create Archive and Clear List enabled, and the list shown and enabled, as letters.
QString controls(const MainWindow& w)
{
    const Ui::MainWindow& ui = *w.ui;
    return QString(ui.pushButton_ExtractAll->isEnabled() ? "E" : "-")
        + (ui.pushButton_Archive->isEnabled() ? 'A' : '-')
        + (ui.pushButton_ClearList->isEnabled() ? 'C' : '-')
        + (ui.listWidget_Files->isEnabled() && ui.listWidget_Files->isVisible() ? 'L' : '-');
}

QStringList infoLines(const MainWindow& w)
{
    return {w.ui->label_Ba2Info1->text(), w.ui->label_Ba2Info2->text(),
            w.ui->label_Ba2Info3->text()};
}

// The keys of Zarnel.ini, in the order of members().
const QStringList kKeys = QString("Format Version zlibCompressionLevel LZ4CompressionLevel "
                                  "CreateAssistance SaveStringTable MaxChunkCount "
                                  "SingleMipChunkAreaWidth SingleMipChunkAreaHeight ListView Theme "
                                  "ExtractAllDir OpenArchiveDir CreateArchiveDir DropFileDir")
                              .split(' ');

// The first keys of Zarnel.ini ("missing" where missing), and the members they are read into.
QStringList stored(int count = 15)
{
    QSettings ini(QStringLiteral("Zarnel.ini"), QSettings::IniFormat);
    QStringList values;
    for (const QString& key : kKeys.mid(0, count))
        values << ini.value(key, "missing").toString();
    return values;
}
QStringList members(const MainWindow& w)
{
    QStringList m;
    for (int v : {w.archiveFormat, w.archiveVersion, w.zlibLevel, w.lz4Mode, w.createAssistance,
                  w.saveStringTable, w.maxChunkCount, w.singleMipChunkAreaWidth,
                  w.singleMipChunkAreaHeight, w.listView, w.theme})
        m << QString::number(v);
    return m << w.extractAllDir << w.openArchiveDir << w.createArchiveDir << w.dropFileDir;
}

// Qt drops comments when it rewrites an INI file, so a leading comment tells whether a write
// happened.
const QByteArray kProbe = "; untouched\n";

// What the user sees of the remembered choices: the four combos, the check box, the checked
// actions.
QStringList shown(const MainWindow& w)
{
    const Ui::MainWindow& ui = *w.ui;
    QStringList s;
    for (QComboBox* c :
         {ui.comboBox_Format, ui.comboBox_Ver, ui.comboBox_zlibComp, ui.comboBox_LZ4Comp})
        s << c->currentText();
    s << QString::number(ui.checkBox_assist->isChecked());
    for (QAction* a :
         {ui.action_Full, ui.action_1000_Items, ui.action_NotShown, ui.action_Theme_Windows_default,
          ui.action_Theme_Starfield, ui.action_Theme_Fallout})
        if (a->isChecked()) s << a->text();
    return s;
}

// Brightest grey level among a widget's pixels: white text reaches the top, gray text does not.
int brightest(QWidget* w)
{
    const QImage image = w->grab().toImage().convertToFormat(QImage::Format_Grayscale8);
    int best = 0;
    for (int y = 0; y < image.height(); ++y)
        best = qMax(best,
                    int(*std::max_element(image.scanLine(y), image.scanLine(y) + image.width())));
    return best;
}

} // namespace

class TestWinOps : public QObject
{
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> work; // the working folder, a fresh one per test
    std::unique_ptr<ScriptedDialogs> dialogs;
    std::unique_ptr<MainWindow> settingsWindow; // shared by the rows of settings()

private slots:
    QString path(const QString& relative) const { return work->filePath(relative); }
    void init()
    {
        work = std::make_unique<QTemporaryDir>();
        QDir::setCurrent(work->path());
        dialogs = std::make_unique<ScriptedDialogs>();
    }
    void cleanup() { dialogs.reset(); }
    void cleanupTestCase() { settingsWindow.reset(); }
    void load_data();
    void load();
    void create_data();
    void create();
    void extract_data();
    void extract();
    void listViews_data();
    void listViews();
    void gathering();
    void settings_data();
    void settings();
    void themes_data();
    void themes();
    void helpBoxes();
    void exitEndsProcessWithZero();
};

void TestWinOps::load_data()
{
    QTest::addColumn<QStringList>("f");
    QTest::addColumn<QByteArray>("content"); // of the archive loaded as Arc/Mixed.SUFFIX
    const QByteArray big = testutil::patternBytes(50000, 11),
                     small = testutil::patternBytes(900, 12);
    testutil::Ba2Builder v1, v2, v3, v3zlib, v3code2, chunks, general;
    v1.addGeneral("meshes/a.nif", big, Pack::Zlib);
    v1.addGeneral("meshes/b.nif", small, Pack::Zlib);
    v1.addGeneral("readme.txt", "plain", Pack::Stored);
    v3.version = v3zlib.version = v3code2.version = 3;
    v2.version = 2;
    v2.addGeneral("sound/x.wav", small, Pack::Stored);
    v3.texture = chunks.texture = true;
    const testutil::TestEntry& t = v3.addTexture("textures/t.dds", 8, 8, 2, 28,
                                                 {big.left(256), big.mid(256, 64)}, Pack::Lz4);
    v3zlib.compressionCode = 0;
    v3zlib.addGeneral("meshes/b.nif", small, Pack::Zlib);
    v3code2.compressionCode = 2;
    v3code2.addGeneral("a.txt", "abc");
    chunks.addTexture("t.dds", 4, 4, 17, 28, QVector<QByteArray>(17, "pixels"));
    general.addGeneral("a.txt", "abc");
    testutil::BsaBuilder bsa;
    bsa.folders = {{"meshes", {{"b.txt", "bee"}, {"a.nif", small}}}}; // a.nif hashes lower
    const QStringList keys
        = QString("v1 v2 v3 v3zlib v3code2 chunks bsa unknown text BTD empty").split(' ');
    const QByteArray unknown = general.build().replace(8, 4, "XXXX");
    const QByteArray text = "hello, no archive", btd = "BTD",
                     empty = testutil::Ba2Builder().build();
    const QByteArrayList archives
        = {v1.build(),     v2.build(),  v3.build(), v3zlib.build(), v3code2.build(),
           chunks.build(), bsa.build(), unknown,    text,           btd,
           empty};
    auto ratio = [](uint32_t packed, int size) {
        return QString::asprintf("%3.2f", float(float(packed) / float(size) * 100.0));
    };
    const QString r1
        = ratio(v1.entries[0].packedSize + v1.entries[1].packedSize, big.size() + small.size()),
        r3 = ratio(t.chunks[0].packedSize + t.chunks[1].packedSize, 256 + 64),
        r30 = ratio(v3zlib.entries[0].packedSize, small.size());
    for (QStringList f : table("window_loads.txt", 12)) {
        QVERIFY(keys.contains(f[2]) || f[2] == "-" || f[2].startsWith("Mix:"));
        f[4].replace("{r1}", r1).replace("{r3}", r3).replace("{r30}", r30);
        QTest::newRow(qPrintable(f[0])) << f << archives.value(keys.indexOf(f[2]));
    }
}

void TestWinOps::load()
{
    QFETCH(QStringList, f);
    QFETCH(QByteArray, content);
    const QString route = f[1], suffix = f[3], info = f[4], list = f[5], state = f[6], boxes = f[7],
                  status = f[8], mode = f[10], settings = f[11];
    const QString mix = f[2].startsWith("Mix:") ? f[2].mid(4) : QString();
    // Mixed case on purpose: the file is opened by its real name, and the suffix test ignores case.
    const QString file = path(!mix.isEmpty()         ? "Mix"
                                  : content.isNull() ? "Data"
                                                     : "Arc/Mixed." + suffix);
    for (const QString& name : mix.split(' ', Qt::SkipEmptyParts))
        QVERIFY(testutil::writeFile(path("Mix/" + name), "data"));
    QVERIFY(!mix.isEmpty() || content.isNull() ? writeTree(work->path(), generalTree())
                                               : testutil::writeFile(file, content));
    QVERIFY(testutil::writeFile(path("Other/extra.txt"), "x"));
    // The reading dialog is cancelled after three files where the load is to be aborted.
    const bool cancel = boxes.contains(QStringLiteral("info|Read Files.|Aborted."));
    std::unique_ptr<Canceller> canceller;
    auto arm = [&](MainWindow& w) {
        if (cancel)
            canceller = std::make_unique<Canceller>("Reading Files...",
                                                    [&w] { return w.sources.size() >= 3; });
    };
    std::unique_ptr<MainWindow> w;
    if (route == "startup") {
        // Backslashes reach the loader as '/', and only the first argument counts.
        w = startWindow({file.toUtf8().replace('/', '\\'), path("Other").toUtf8()}, arm);
    } else {
        w = startWindow();
        arm(*w);
        if (mode.contains("off")) w->ui->checkBox_assist->click();
        if (mode.contains("v3")) {
            choose(w->ui->comboBox_Format, 1);
            choose(w->ui->comboBox_Ver, 2);
        }
        w->statusBar()->showMessage("earlier"); // a drop clears it; the other routes leave it
        if (route == "drop") drop(*w, {file});
        dialogs->answers << file;
        if (route == "open") w->ui->pushButton_File->click();
        if (route == "select") w->ui->pushButton_SelFolder->click();
    }

    QVERIFY(!cancel || canceller->fired);
    QCOMPARE(dialogs->boxes.join(';'), boxes);
    QCOMPARE(infoLines(*w).join('|'), info);
    QCOMPARE(listTexts(*w), numbered(list.split(' ', Qt::SkipEmptyParts)));
    QCOMPARE(controls(*w), state);
    QCOMPARE(w->statusBar()->currentMessage(), status);
    QCOMPARE(int(w->sources.size()), f[9].toInt());
    QCOMPARE(w->readerActive, state.startsWith('E'));
    QVERIFY(w->statusBar()->findChildren<QProgressBar*>().isEmpty());
    // After a failure box the drop and Select Folder clear the list, and with it the source line.
    const bool cleared = boxes.contains("Read Files.") && route != "startup";
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), cleared ? kHint : file);
    if (!settings.isEmpty()) {
        const auto* versions = qobject_cast<QStandardItemModel*>(w->ui->comboBox_Ver->model());
        QCOMPARE(stored(4).join(',') + (versions->item(2)->isEnabled() ? ",v3" : ""), settings);
        QCOMPARE(QString("%1,%2")
                     .arg(w->ui->comboBox_Format->currentIndex())
                     .arg(w->ui->comboBox_Ver->currentIndex() + 1),
                 settings.left(3));
    }
    if (route == "open") {
        QCOMPARE(dialogs->asked,
                 QStringList {"open Open Archive||BA2 Archive (*.ba2);;BSA Archive (*.bsa)"});
        QCOMPARE(Ini::value("OpenArchiveDir"), path("Arc/"));
    } else if (route == "select") {
        QCOMPARE(dialogs->asked, QStringList {"dir Pick a folder to Archive||3"});
        QCOMPARE(Ini::value("DropFileDir"), work->path());
    }
}

void TestWinOps::create_data()
{
    addRows("window_create.txt", 6);
}
void TestWinOps::create()
{
    SKIP_WITHOUT_SAMPLES();
    QFETCH(QStringList, f);
    const QString kind = f[1], settingsText = f[3] == "-" ? QString() : f[3];
    const QStringList picks = f[2].split(' ');
    const QByteArray dds = testutil::readFile(testutil::samplesDir() + "/Blank.dds");
    const bool textures = kind == "textures";
    const QString folder = path(textures ? "Tex" : "Data"), out = path("out");
    const Tree tree
        = textures ? Tree {{"Tex/Stone.dds", dds}, {"Tex/armor/plate.dds", dds}} : generalTree();
    QVERIFY(QDir().mkpath(out) && QDir().mkpath(folder)
            && (kind == "empty" || writeTree(work->path(), tree)));
    auto w = startWindow();
    drop(*w, {folder});
    const QList<QComboBox*> combos = {w->ui->comboBox_Format, w->ui->comboBox_Ver,
                                      w->ui->comboBox_zlibComp, w->ui->comboBox_LZ4Comp};
    for (int i = 0; i < 4; ++i)
        if (picks[i].toInt() >= 0) choose(combos[i], picks[i].toInt());
    if (picks[0] == "-2") w->archiveFormat = 5;
    if (picks[1] == "-2") w->archiveVersion = 7;
    w->updateUi();
    dialogs->answers << out + "/new.ba2";
    std::unique_ptr<Canceller> canceller;
    if (kind == "cancel") canceller = std::make_unique<Canceller>("Create Archive");
    w->ui->pushButton_Archive->click();

    QVERIFY(!canceller || canceller->fired);
    QCOMPARE(dialogs->asked, QStringList {"save Save Archive||BA2 Archive (*.ba2)"});
    QCOMPARE(dialogs->boxes, f[4].split(';', Qt::SkipEmptyParts));
    QCOMPARE(w->statusBar()->currentMessage(), f[5]);
    QCOMPARE(controls(*w), QStringLiteral("-ACL"));
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), folder);
    QCOMPARE(Ini::value("CreateArchiveDir"), out + '/');
    QCOMPARE(QDir(out).entryList(QDir::Files),
             settingsText.isEmpty() ? QStringList() : QStringList {"new.ba2"});
    if (settingsText.isEmpty()) return;
    const QStringList settings = settingsText.split(',');
    QCOMPARE(stored(4), settings);
    const QByteArray bytes = testutil::readFile(out + "/new.ba2");
    QCOMPARE(bytes.mid(4, 8),
             char(settings[1].toInt()) + QByteArray(3, '\0') + (textures ? "DX10" : "GNRL"));
    // The command-line front end writes the same bytes for these settings.
    QCOMPARE(testutil::runCli({"create", "--format", textures ? "texture" : "general", "--version",
                               settings[1], "--zlib", settings[2], "--lz4", settings[3], "-o",
                               path("ref.ba2"), folder})
                 .exitCode,
             0);
    QVERIFY(testutil::readFile(path("ref.ba2")) == bytes);
}

void TestWinOps::extract_data()
{
    addRows("window_extract.txt", 6);
}

void TestWinOps::extract()
{
    QFETCH(QStringList, f);
    const QString run = f[1], box = f[4], out = path("out");
    Tree extracted, output;
    const Tree tree = generalTree();
    for (auto it = tree.begin(); it != tree.end(); ++it)
        extracted[it.key().toLower()] = it.value();
    for (const QString& item : f[5].split(' ', Qt::SkipEmptyParts))
        output[item.section('=', 0, 0)]
            = item.contains('=') ? item.section('=', 1).toUtf8() : extracted.value(item);
    if (f[5] == "all") output = extracted;
    QList<int> rows;
    for (const QString& row : f[3].split(' ', Qt::SkipEmptyParts))
        rows << row.toInt();
    testutil::Ba2Builder b;
    b.addGeneral("good.txt", "fine", Pack::Stored);
    testutil::TestEntry& bad = b.addGeneral("bad.txt", testutil::patternBytes(4000, 3), Pack::Zlib);
    bad.stored[bad.stored.size() / 2] = char(bad.stored[bad.stored.size() / 2] ^ 0x55);
    bad.stored[2] = char(0xFF);
    const QByteArray archive = f[2] == "corrupt" ? b.build() : generalArchive();
    const QString label = rows.isEmpty() ? "Extract All" : "Extract Selected";
    QVERIFY(QDir().mkpath(out) && testutil::writeFile(path("a.ba2"), archive));
    auto w = startWindow();
    dialogs->answers << path("a.ba2") << (run == "slash" ? out + '/' : out);
    w->ui->pushButton_File->click();
    std::unique_ptr<Canceller> canceller;
    if (run == "cancel") canceller = std::make_unique<Canceller>(label);
    if (rows.isEmpty()) {
        w->ui->pushButton_ExtractAll->click();
    } else {
        for (int row : rows)
            w->ui->listWidget_Files->item(row)->setSelected(true);
        std::unique_ptr<QMenu> menu(w->makeFileListMenu());
        QCOMPARE(menu->actions().size(), 2);
        QVERIFY(menu->actions()[0]->isEnabled());
        menu->actions()[0]->trigger();
    }

    QVERIFY(!canceller || canceller->fired);
    QCOMPARE(dialogs->asked.last(), QStringLiteral("dir Pick a folder to extract to||3"));
    QCOMPARE(dialogs->boxes, QStringList {box});
    const bool complete = box.endsWith("Complete.");
    QCOMPARE(w->statusBar()->currentMessage(), ' ' + label + (complete ? " Complete!" : " Error!"));
    Tree written = testutil::treeContents(out); // files only
    for (const QString& name : written.keys())
        if (name.endsWith('/')) written.remove(name);
    QCOMPARE(written, output);
    QCOMPARE(controls(*w), QStringLiteral("E-CL"));
    QCOMPARE(Ini::value("ExtractAllDir"), out + '/');
    // Extraction ends with the drag-and-drop hint in the source line; the archive stays open.
    QCOMPARE(w->ui->lineEdit_SrcFile->text(), kHint);
}

void TestWinOps::listViews_data()
{
    addRows("window_lists.txt", 6);
}
void TestWinOps::listViews()
{
    QFETCH(QStringList, f);
    const bool archive = f[1] == "1";
    const int count = f[2].toInt(), items = f[4].toInt();
    const QString view = f[3], last = f[5] == "-" ? QString() : f[5];
    auto w = startWindow();
    w->findChild<QAction*>(view)->trigger();
    auto name = [&](int i) {
        return (archive ? "" : "big/") + QStringLiteral("f%1.txt").arg(i, 4, 10, QChar('0'));
    };
    testutil::Ba2Builder b;
    QVERIFY(QDir().mkpath(path("big")));
    for (int i = 0; i < count; ++i)
        QVERIFY(archive ? bool(&b.addGeneral(name(i).toLatin1(), QByteArray::number(i)))
                        : testutil::writeFile(path(name(i)), "x"));
    QVERIFY(!archive || testutil::writeFile(path("many.ba2"), b.build()));
    drop(*w, {path(archive ? "many.ba2" : "big")});
    QVERIFY(dialogs->boxes.isEmpty());
    const QStringList texts = listTexts(*w);
    QCOMPARE(texts.size(), items);
    QCOMPARE(texts.value(items - 1), last);
    if (view != "action_NotShown" && count > 0)
        QCOMPARE((QStringList {texts.first(), texts[999]}),
                 (QStringList {"1: " + name(0), "1,000: " + name(999)}));

    // Ctrl+A and the context menu: marker lines are never files; sources offer Copy Names only.
    w->ui->listWidget_Files->selectAll();
    std::unique_ptr<QMenu> menu(w->makeFileListMenu());
    QStringList actions;
    for (QAction* a : menu->actions())
        actions << a->text() + (a->isEnabled() ? "" : " (off)");
    const bool abbreviated = last.startsWith("<<< This is an abbreviated");
    const int files = view == "action_NotShown" ? 0 : items - int(abbreviated);
    const QString off = files ? "" : " (off)";
    QCOMPARE(actions.join('|'),
             (archive ? "Extract Selected..." + off + '|' : QString()) + "Copy Names" + off);
    QApplication::clipboard()->clear();
    menu->actions().last()->trigger();
    const QString copied = QApplication::clipboard()->text();
    QCOMPARE(copied.isEmpty() ? 0 : copied.split('\n').size(), files);
    if (files) QCOMPARE(copied.section('\n', -1), name(files - 1).toLower());
}

void TestWinOps::gathering()
{
    testutil::Ba2Builder b;
    b.addGeneral("x.txt", "abc");
    b.addGeneral("y.txt", "defg", Pack::Zlib);
    for (const char* name : {"a.ba2", "one/First.ba2", "two/second.ba2"})
        QVERIFY(testutil::writeFile(path(name), b.build()));
    QVERIFY(writeTree(work->path(), generalTree()));
    QVERIFY(writeTree(
        work->path(),
        {{"Other/Data/b.txt", "dup"}, {"Other/Data/new.txt", "new"}, {"Single.nif", "1"}}));
    auto w = startWindow();
    // The list as names, the controls as letters, the source line.
    auto state = [&] {
        return QStringList {listTexts(*w).join(';'), controls(*w), w->ui->lineEdit_SrcFile->text()};
    };
    const QString general = numbered(kGeneralOrder).join(';');
    // An empty answer counts as a cancelled dialog: nothing happens.
    dialogs->answers << path("a.ba2") << QString();
    w->ui->pushButton_File->click();
    w->ui->pushButton_ExtractAll->click();
    QCOMPARE(dialogs->asked.last(), QStringLiteral("dir Pick a folder to extract to||3"));
    QVERIFY(dialogs->boxes.isEmpty());
    QCOMPARE(state(), (QStringList {"1: x.txt;2: y.txt", "E-CL", path("a.ba2")}));
    const QStringList info = infoLines(*w);
    QCOMPARE(info[0], QStringLiteral("BA2 Ver.1 (2 files)"));

    // Files added while an archive is open replace its list and lines and turn Extract All off.
    drop(*w, {path("Data")});
    QCOMPARE(state(), (QStringList {general, "-ACL", path("Data")}));
    QCOMPARE(infoLines(*w), (QStringList {"", "", ""}));
    QVERIFY(w->readerActive);
    // With no answer queued these dialogs change nothing either.
    const QByteArray ini = Ini::read();
    w->ui->pushButton_Archive->click();
    w->ui->action_Open_Archive->trigger();
    w->ui->action_Create_Archive_from_Folder->trigger();
    QCOMPARE(dialogs->asked.mid(2),
             (QStringList {"save Save Archive||BA2 Archive (*.ba2)",
                           "open Open Archive|" + work->path()
                               + "/|BA2 Archive (*.ba2);;BSA Archive (*.bsa)",
                           "dir Pick a folder to Archive||3"}));
    QCOMPARE(Ini::read(), ini);
    QCOMPARE(state(), (QStringList {general, "-ACL", path("Data")}));

    // Clear List forgets the list and the sources but keeps the archive open and its lines shown.
    dialogs->answers << path("a.ba2");
    w->ui->pushButton_File->click();
    w->ui->pushButton_ClearList->click();
    QCOMPARE(state(), (QStringList {"", "---L", kHint}));
    QCOMPARE(infoLines(*w), info);
    QVERIFY(w->readerActive && w->sources.isEmpty());

    drop(*w, {path("Data")});
    drop(*w, {path("Data")}); // nothing new: every relative path is already there
    QCOMPARE(listTexts(*w).join(';'), general);

    // A same-named folder elsewhere adds only what is new; paths dropped together are all
    // sources by their bare names, archives too.
    drop(*w,
         {path("Other/Data"), path("Single.nif"), path("two/second.ba2"), path("one/First.ba2")});
    QCOMPARE(listTexts(*w),
             numbered(QStringList {"first.ba2", "second.ba2", "single.nif"}
                      + kGeneralOrder.mid(0, 4) + QStringList {"data/new.txt"}
                      + kGeneralOrder.mid(4)));
    QCOMPARE(w->statusBar()->currentMessage(), "10 files " + kRecommended);

    // The next Select Folder starts in the remembered parent; a path that cannot become a
    // source fails the load, and the list is cleared.
    dialogs->answers << path("Other/Data") << path("missing/");
    w->ui->pushButton_SelFolder->click();
    w->ui->pushButton_SelFolder->click();
    QCOMPARE(dialogs->asked.last(), "dir Pick a folder to Archive|" + path("Other") + "|3");
    QCOMPARE(dialogs->boxes, QStringList {"info|Read Files.|File Error"});
    QCOMPARE(state(), (QStringList {"", "---L", kHint}));
    QVERIFY(w->sources.isEmpty());
}

void TestWinOps::settings_data()
{
    QTest::addColumn<QStringList>("f");
    QTest::addColumn<QByteArray>("file"); // Zarnel.ini after "[General]"; null: no file
    QMap<QString, QByteArray> bases;
    for (const QStringList& f : table("window_settings.txt", 7)) {
        const QStringList edits = f[0].startsWith('=') ? QStringList {f[1]} : f[1].split(';');
        QByteArray file = f[1] == "-" ? QByteArray() : bases.value(edits[0], edits[0].toUtf8());
        for (const QString& edit : edits.mid(1))
            file.replace(edit.section('>', 0, 0).toUtf8(), edit.section('>', 1).toUtf8());
        if (f[0].startsWith('='))
            bases[f[0].mid(1)] = file;
        else
            QTest::newRow(qPrintable(f[0])) << f << file;
    }
}

void TestWinOps::settings()
{
    QFETCH(QStringList, f);
    QFETCH(QByteArray, file);
    const QString control = f[2]; // chosen after the start, if anything (a combo's item f[3])
    const QStringList expected = f[4].split('|');           // in the order of kKeys
    const bool written = f[5] == "1", warned = f[6] == "1"; // the version 3 warning
    if (!file.isNull()) QVERIFY(Ini::write(kProbe + "[General]\n" + file));
    // One window serves every row: each row's file is read as a start reads it.
    if (!settingsWindow) settingsWindow = startWindow();
    MainWindow* const window = settingsWindow.get();
    window->statusBar()->clearMessage();
    window->ui->listWidget_Files->clear();
    window->loadSettings();
    window->updateUi();
    const Ui::MainWindow& ui = *window->ui;
    QObject* target = control.isEmpty() ? nullptr : window->findChild<QObject*>(control);
    if (auto* combo = qobject_cast<QComboBox*>(target)) {
        choose(combo, f[3].toInt());
    } else if (auto* action = qobject_cast<QAction*>(target)) {
        // A disabled action ignores trigger(), so its handler is called the way a connection would.
        if (action->isEnabled())
            action->trigger();
        else
            QVERIFY(QMetaObject::invokeMethod(window, qPrintable("on_" + control + "_triggered")));
    } else if (target == ui.checkBox_assist) {
        ui.checkBox_assist->click();
    } else if (target) {
        ui.listWidget_Files->addItem(QStringLiteral("x"));
        emit ui.listWidget_Files->itemClicked(ui.listWidget_Files->item(0));
    }
    QCOMPARE(members(*window), expected);
    QCOMPARE(!Ini::read().contains(kProbe), written);
    QCOMPARE(window->statusBar()->currentMessage(), warned ? kVer3Warning : QString());
    QVERIFY(dialogs->boxes.isEmpty() && dialogs->asked.isEmpty());
    // Versions 1 to 4 show their item; others show none.
    const int version = expected[1].toInt();
    QCOMPARE(ui.comboBox_Ver->currentIndex(), version >= 1 && version <= 4 ? version - 1 : -1);
    QCOMPARE(ui.checkBox_assist->isChecked(), expected[4] != "0");
    QVERIFY(!ui.action_Theme_Fallout->isEnabled());
    if (written) {
        // A rewrite stores the fifteen keys under [General], each in one spelling, and escapes
        // everything outside ASCII.
        const QByteArray ini = Ini::read();
        QVERIFY(ini.startsWith("[General]"));
        QVERIFY(std::all_of(ini.begin(), ini.end(), [](char ch) { return uchar(ch) < 0x80; }));
        QCOMPARE(QSettings("Zarnel.ini", QSettings::IniFormat).allKeys().size(), 15);
        QCOMPARE(stored(), expected);
    }
    // One list view and one theme are checked, and the next start shows the same choices.
    const QStringList before = shown(*window);
    QCOMPARE(before.size(), 7);
    if (auto* action = qobject_cast<QAction*>(target))
        QVERIFY(before.contains(control == "action_Theme_Fallout" ? QStringLiteral("Starfield")
                                                                  : action->text()));
    window->loadSettings();
    window->updateUi();
    QCOMPARE(shown(*window), before);
}

void TestWinOps::themes_data()
{
    QTest::addColumn<bool>("starfield");
    QTest::newRow("starfield (first start)") << true;
    QTest::newRow("windows default") << false;
}

void TestWinOps::themes()
{
    QFETCH(bool, starfield);
    if (!starfield) QVERIFY(Ini::write("[General]\nTheme=0\n"));
    auto window = startWindow();
    const Ui::MainWindow& ui = *window->ui;
    // Theme 1 shows the window itself; theme 0 leaves that to the entry point.
    QCOMPARE(window->isVisible(), starfield);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    for (QFrame* line : {ui.line_1, ui.line_2, ui.line_3, ui.line_4})
        QCOMPARE(line->isVisible(), starfield);

    // Each stripe draws a 10-pixel line through its middle; line_1 lies on top of line_2. The
    // lowest band begins at 446, just above where a tall status bar may cut the central area;
    // 300,245 is the window's background.
    const QImage image = ui.centralwidget->grab().toImage();
    for (const char* pixel : {"centralwidget 100 420 #d5aa60", "centralwidget 100 430 #e16136",
                              "centralwidget 100 440 #c72238", "centralwidget 100 447 #2f4c79",
                              "centralwidget 300 245 #4a668c", "listWidget_Files 400 100 #253747",
                              "statusbar 300 5 #253747"}) {
        const QStringList f = QString(pixel).split(' ');
        const QImage shot = window->findChild<QWidget*>(f[0])->grab().toImage();
        QCOMPARE(shot.pixelColor(f[1].toInt(), f[2].toInt()).name() == f[3], starfield);
    }
    QCOMPARE(ui.menubar->styleSheet().isEmpty(), !starfield);
    if (!starfield) return;
    // The style draws a faint frame shade over the group box's own colour.
    const QColor box = ui.groupBox_Extract->grab().toImage().pixelColor(150, 110);
    QVERIFY2(qAbs(box.red() - 0x4a) <= 3 && qAbs(box.green() - 0x66) <= 3
                 && qAbs(box.blue() - 0x8c) <= 3,
             qPrintable(box.name()));

    // Choosing another theme stores it but keeps this run's colours.
    ui.action_Theme_Windows_default->trigger();
    QCOMPARE(window->theme, 0);
    QCOMPARE(ui.centralwidget->grab().toImage(), image);

    // Disabled, the command buttons and the version combo turn gray; enabled, white.
    QWidget* controls[] = {ui.pushButton_ExtractAll, ui.pushButton_Archive, ui.pushButton_ClearList,
                           ui.comboBox_Ver};
    ui.comboBox_Ver->setEnabled(false);
    for (QWidget* w : controls)
        QVERIFY2(brightest(w) < 200, qPrintable(w->objectName()));
    window->extractEnabled = window->archiveEnabled = true;
    window->updateUi();
    ui.comboBox_Ver->setEnabled(true);
    for (QWidget* w : controls)
        QVERIFY2(brightest(w) > 230, qPrintable(w->objectName()));
}

void TestWinOps::helpBoxes()
{
    auto window = startWindow();
    // The action is always disabled, so call the handler the way a connection would.
    QVERIFY(QMetaObject::invokeMethod(window.get(), "on_action_Settings_triggered"));
    window->ui->action_About_Zarnel->trigger();
    window->ui->action_About_Qt->trigger();
    window->ui->pushButton_KoFi->click();
    QCOMPARE(dialogs->boxes.size(), 2);
    QCOMPARE(dialogs->boxes[1], QStringLiteral("aboutQt|About Qt."));
    // Title, blank, "- description -", blank, site and link, creator and link, two blanks, the
    // LZ4 note and link (its leading space survives in the source only). Every link shows its
    // own https address; the support button goes where the creator's link goes.
    const QRegularExpression about(QStringLiteral(
        "^about\\|About this software\\.\\|<span style=\"font-weight:bold\">Zarnel version "
        "1\\.0\\.0</span><br><br>"
        "- [^<]+ -<br><br>This Mod Site: [^<]+<br><a href=\"(https://[^\"]+)\">\\1</a><br>Creator: "
        "[^<]+<br>"
        "<a href=\"(https://[^\"]+)\">\\2</a><br><br><br>This tool uses LZ4 Library\\.<br> LZ4: "
        "<a href=\"(https://[^\"]+)\">\\3</a>$"));
    const QRegularExpressionMatch m = about.match(dialogs->boxes[0]);
    QVERIFY2(m.hasMatch(), qPrintable(dialogs->boxes[0]));
    for (int i = 1; i <= 3; ++i)
        QVERIFY(QUrl(m.captured(i), QUrl::StrictMode).isValid());
    QCOMPARE(dialogs->urls, QList<QUrl> {QUrl(m.captured(2))});
}

void TestWinOps::exitEndsProcessWithZero()
{
    // Exit must end the process from inside the slot, so run it in a child copy of this test;
    // only the status matters there, and a leak report at exit would replace it.
    QProcess child;
    child.setWorkingDirectory(work->path());
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("ZARNEL_EXIT_CHILD", "1");
    env.insert("QT_QPA_PLATFORM", "offscreen");
    env.insert("ASAN_OPTIONS", "detect_leaks=0");
    child.setProcessEnvironment(env);
    child.start(QCoreApplication::applicationFilePath(), QStringList());
    QVERIFY(child.waitForFinished(60000));
    QCOMPARE(child.exitStatus(), QProcess::NormalExit);
    QCOMPARE(child.exitCode(), 0);
    QCOMPARE(child.readAllStandardOutput(), QByteArray("exit triggered\n"));
    QVERIFY(QFile::exists(path("Zarnel.ini")));
}

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    if (!qEnvironmentVariableIsSet("ZARNEL_EXIT_CHILD")) {
        TestWinOps test;
        return QTest::qExec(&test, argc, argv);
    }
    // The child of exitEndsProcessWithZero: ends with 3 if Exit ever gives control back.
    auto window = startWindow();
    QTimer::singleShot(0, window.get(), [&window] {
        fputs("exit triggered\n", stdout);
        fflush(stdout);
        window->ui->action_Exit->trigger();
        std::_Exit(3);
    });
    app.exec();
    return 3;
}

#include "tst_win_ops.moc"

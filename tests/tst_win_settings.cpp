// Zarnel.ini: what start-up reads, repairs and rewrites, and which choices rewrite it.

#include "windowtestutil.h"

#include <QtTest>

using namespace wintest;

namespace {

const QStringList kIntKeys = {"Format", "Version", "zlibCompressionLevel", "LZ4CompressionLevel",
                               "CreateAssistance", "SaveStringTable", "MaxChunkCount", "SingleMipChunkAreaWidth",
                               "SingleMipChunkAreaHeight", "ListView", "Theme"};
const char* const kFolderKeys[] = {"ExtractAllDir", "OpenArchiveDir", "CreateArchiveDir", "DropFileDir"};

// Qt drops comments when it rewrites an INI file, so a leading comment tells whether a write happened.
const QByteArray kProbe = "; untouched\n";

// The integer members, in the order of kIntKeys.
QVector<int> members(const MainWindow& w)
{
    return {w.archiveFormat, w.archiveVersion, w.zlibLevel, w.lz4Mode, w.createAssistance, w.saveStringTable,
            w.maxChunkCount, w.singleMipChunkAreaWidth, w.singleMipChunkAreaHeight, w.listView, w.theme};
}

// What the user sees of the remembered choices: the four combos, the check box, the checked actions.
QStringList shown(const MainWindow& w)
{
    const Ui::MainWindow& ui = *w.ui;
    QStringList s;
    for (QComboBox* c : {ui.comboBox_Format, ui.comboBox_Ver, ui.comboBox_zlibComp, ui.comboBox_LZ4Comp})
        s << c->currentText();
    s << QString::number(ui.checkBox_assist->isChecked());
    for (QAction* a : {ui.action_Full, ui.action_1000_Items, ui.action_NotShown, ui.action_Theme_Windows_default,
                       ui.action_Theme_Starfield, ui.action_Theme_Fallout})
        if (a->isChecked()) s << a->text();
    return s;
}

}  // namespace

class TestWinSettings : public QObject {
    Q_OBJECT
    std::unique_ptr<TempWorkDir> work;
    std::unique_ptr<ScriptedDialogs> dialogs;

private slots:
    void init() { work = std::make_unique<TempWorkDir>(); dialogs = std::make_unique<ScriptedDialogs>(); }
    void cleanup() { dialogs.reset(); work.reset(); }
    void startup_data(); void startup();
    void nonAsciiFolders();
    void choices_data(); void choices();
};

void TestWinSettings::startup_data()
{
    QTest::addColumn<QByteArray>("file");  // body after "[General]"; null: no file at all
    QTest::addColumn<QVector<int>>("expected");
    QTest::addColumn<bool>("rewritten");
    const QByteArray valid = "Format=1\nVersion=3\nzlibCompressionLevel=9\nLZ4CompressionLevel=2\n"
                             "CreateAssistance=1\nSaveStringTable=1\nMaxChunkCount=4\n"
                             "SingleMipChunkAreaWidth=512\nSingleMipChunkAreaHeight=512\nListView=2\nTheme=0\n";
    const QVector<int> validMembers = {1, 3, 9, 2, 1, 1, 4, 512, 512, 2, 0};
    // The valid file with one entry replaced, and the members with one value replaced.
    auto row = [&](const char* name, const QByteArray& from, const QByteArray& to, int index, int value,
                   bool rewritten) {
        QByteArray file = valid;
        QVector<int> expected = validMembers;
        expected[index] = value;
        QTest::newRow(name) << file.replace(from, to) << expected << rewritten;
    };
    QTest::newRow("no file") << QByteArray() << QVector<int>{0, 1, 1, 1, 1, 1, 4, 512, 512, 1, 1} << true;
    QTest::newRow("all valid") << valid << validMembers << false;
    QTest::newRow("only Theme=1") << QByteArray("Theme=1\n") << QVector<int>{0, 0, 0, 0, 0, 0, 4, 512, 512, 0, 1}
                                  << true;
    row("zlib key capitalised, 12", "zlibCompressionLevel=9", "ZlibCompressionLevel=12", 2, 1, true);
    row("zlib key upper case", "zlibCompressionLevel=9", "ZLIBCOMPRESSIONLEVEL=0", 2, 0, false);
    row("zlib -1", "zlibCompressionLevel=9", "zlibCompressionLevel=-1", 2, 1, true);
    row("lz4 3", "LZ4CompressionLevel=2", "LZ4CompressionLevel=3", 3, 1, true);
    row("assist 5", "CreateAssistance=1", "CreateAssistance=5", 4, 0, true);
    row("assist 0", "CreateAssistance=1", "CreateAssistance=0", 4, 0, false);
    row("string table 0", "SaveStringTable=1", "SaveStringTable=0", 5, 0, true);
    row("string table 7", "SaveStringTable=1", "SaveStringTable=7", 5, 0, true);
    row("chunk count 8", "MaxChunkCount=4", "MaxChunkCount=8", 6, 4, true);
    row("chunk width 256", "Width=512", "Width=256", 7, 512, true);
    row("chunk height missing", "SingleMipChunkAreaHeight=512\n", "", 8, 512, true);
    row("list view -1", "ListView=2", "ListView=-1", 9, 1, true);
    row("list view 0", "ListView=2", "ListView=0", 9, 0, false);
    row("theme -1", "Theme=0", "Theme=-1", 10, 1, true);
    row("theme 2", "Theme=0", "Theme=2", 10, 1, true);
    row("version 7 kept", "Version=3", "Version=7", 1, 7, false);
    row("format 5 kept", "Format=1", "Format=5", 0, 5, false);
    row("format not a number", "Format=1", "Format=abc", 0, 0, false);
}

void TestWinSettings::startup()
{
    QFETCH(QByteArray, file);
    QFETCH(QVector<int>, expected);
    QFETCH(bool, rewritten);
    if (!file.isNull()) QVERIFY(writeIni(kProbe + "[General]\n" + file));
    auto window = startWindow();
    QCOMPARE(members(*window), expected);
    QCOMPARE(!readIni().contains(kProbe), rewritten);
    // Versions 1 to 4 show their item; others show none.
    const int version = expected[1];
    QCOMPARE(window->ui->comboBox_Ver->currentIndex(), version >= 1 && version <= 4 ? version - 1 : -1);
    QCOMPARE(window->ui->checkBox_assist->isChecked(), expected[4] != 0);
    QVERIFY(dialogs->boxes.isEmpty() && dialogs->asked.isEmpty());
    if (!rewritten) return;
    // A rewrite stores exactly the fifteen keys under [General], the zlib key in one spelling.
    QVERIFY(readIni().startsWith("[General]"));
    QSettings ini(QStringLiteral("Zarnel.ini"), QSettings::IniFormat);
    QCOMPARE(ini.allKeys().size(), 15);
    QVector<int> stored;
    for (const QString& key : kIntKeys) stored << (ini.contains(key) ? ini.value(key).toInt() : -999);
    QCOMPARE(stored, expected);
    for (const char* key : kFolderKeys) QVERIFY(ini.contains(key) && ini.value(key).toString().isEmpty());
}

void TestWinSettings::nonAsciiFolders()
{
    const QStringList folders = {"/tmp/Müller Straße/", "/data/日本語/テクスチャ/",
                                 "/home/ü/with space and ; semicolon/", "/srv/Ελληνικά\u00a0€/"};
    auto fields = [](MainWindow& w) {
        return QVector<QString*>{&w.extractAllDir, &w.openArchiveDir, &w.createArchiveDir, &w.dropFileDir};
    };
    {
        auto window = startWindow();
        for (int i = 0; i < 4; ++i) *fields(*window)[i] = folders[i];
        window->saveSettings();
    }
    // Written without a codec: everything outside printable ASCII is escaped.
    for (char c : readIni()) QVERIFY(static_cast<unsigned char>(c) < 0x80);
    auto window = startWindow();
    for (int i = 0; i < 4; ++i) QCOMPARE(*fields(*window)[i], folders[i]);
}

void TestWinSettings::choices_data()
{
    QTest::addColumn<int>("format");   // stored before the start
    QTest::addColumn<int>("version");
    QTest::addColumn<QString>("control");
    QTest::addColumn<int>("index");    // combo item picked
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("value");    // the member and the stored key afterwards
    QTest::addColumn<bool>("written");
    QTest::addColumn<bool>("warned");
    auto row = [](const char* name, int format, int version, const char* control, int index, const char* key,
                  int value, bool written, bool warned = false) {
        QTest::newRow(name) << format << version << QString(control) << index << QString(key) << value << written
                            << warned;
    };
    row("format same", 0, 1, "comboBox_Format", 0, "Format", 0, false);
    row("format texture", 0, 1, "comboBox_Format", 1, "Format", 1, true);
    row("general chosen under v3", 1, 3, "comboBox_Format", 0, "Version", 2, true, true);
    row("general again under v3", 0, 3, "comboBox_Format", 0, "Version", 2, true, true);
    row("texture chosen under v3", 0, 3, "comboBox_Format", 1, "Version", 3, true);
    row("general chosen under v2", 1, 2, "comboBox_Format", 0, "Format", 0, true);
    row("version same", 0, 1, "comboBox_Ver", 0, "Version", 1, false);
    row("version 2", 0, 1, "comboBox_Ver", 1, "Version", 2, true);
    row("v3 for general, from v1", 0, 1, "comboBox_Ver", 2, "Version", 2, true, true);
    row("v3 for general, from v2", 0, 2, "comboBox_Ver", 2, "Version", 2, false, true);
    row("v3 for textures", 1, 1, "comboBox_Ver", 2, "Version", 3, true);
    row("zlib same", 0, 1, "comboBox_zlibComp", 0, "zlibCompressionLevel", 1, false);
    row("zlib 6", 0, 1, "comboBox_zlibComp", 5, "zlibCompressionLevel", 6, true);
    row("zlib none", 0, 1, "comboBox_zlibComp", 9, "zlibCompressionLevel", 0, true);
    row("lz4 same", 0, 1, "comboBox_LZ4Comp", 0, "LZ4CompressionLevel", 1, false);
    row("lz4 1GB", 0, 1, "comboBox_LZ4Comp", 1, "LZ4CompressionLevel", 2, true);
    row("lz4 none", 0, 1, "comboBox_LZ4Comp", 2, "LZ4CompressionLevel", 0, true);
    row("assist off", 0, 1, "checkBox_assist", 0, "CreateAssistance", 0, true);
    row("list full again", 0, 1, "action_Full", 0, "ListView", 1, true);
    row("list 1000", 0, 1, "action_1000_Items", 0, "ListView", 2, true);
    row("list not shown", 0, 1, "action_NotShown", 0, "ListView", 0, true);
    row("theme default", 0, 1, "action_Theme_Windows_default", 0, "Theme", 0, true);
    row("theme starfield again", 0, 1, "action_Theme_Starfield", 0, "Theme", 1, true);
    row("theme fallout", 0, 1, "action_Theme_Fallout", 0, "Theme", 2, true);
    row("list item click", 0, 1, "listWidget_Files", 0, "ListView", 1, false);
}

void TestWinSettings::choices()
{
    QFETCH(int, format);
    QFETCH(int, version);
    QFETCH(QString, control);
    QFETCH(int, index);
    QFETCH(QString, key);
    QFETCH(int, value);
    QFETCH(bool, written);
    QFETCH(bool, warned);
    QVERIFY(writeIni(kProbe + QStringLiteral("[General]\nFormat=%1\nVersion=%2\nzlibCompressionLevel=1\n"
                                             "LZ4CompressionLevel=1\nCreateAssistance=1\nSaveStringTable=1\n"
                                             "MaxChunkCount=4\nSingleMipChunkAreaWidth=512\n"
                                             "SingleMipChunkAreaHeight=512\nListView=1\nTheme=1\n")
                                  .arg(format).arg(version).toLatin1()));
    auto window = startWindow();
    const Ui::MainWindow& ui = *window->ui;
    QObject* target = window->findChild<QObject*>(control);
    if (auto* combo = qobject_cast<QComboBox*>(target)) {
        choose(combo, index);
    } else if (auto* action = qobject_cast<QAction*>(target)) {
        // A disabled action ignores trigger(), so its handler is called the way a connection would.
        if (action->isEnabled()) action->trigger();
        else QVERIFY(QMetaObject::invokeMethod(window.get(), qPrintable("on_" + control + "_triggered")));
    } else if (target == ui.checkBox_assist) {
        ui.checkBox_assist->click();
    } else {
        ui.listWidget_Files->addItem(QStringLiteral("x"));
        emit ui.listWidget_Files->itemClicked(ui.listWidget_Files->item(0));
    }
    QCOMPARE(members(*window)[kIntKeys.indexOf(key)], value);
    QCOMPARE(!readIni().contains(kProbe), written);
    QCOMPARE(setting(qPrintable(key)).toInt(), value);
    QCOMPARE(window->statusBar()->currentMessage(),
             warned ? QStringLiteral("* Warning * Only texture files can be archived to Ver.3 BA2.") : QString());
    QCOMPARE(ui.comboBox_Ver->currentIndex(), window->archiveVersion - 1);
    QVERIFY(!ui.action_Theme_Fallout->isEnabled());
    // One list view and one theme are checked, and the next start shows the same choices.
    const QStringList before = shown(*window);
    QCOMPARE(before.size(), 7);
    if (auto* action = qobject_cast<QAction*>(target))
        QVERIFY(before.contains(value == 2 && key == "Theme" ? QStringLiteral("Starfield") : action->text()));
    window.reset();
    QCOMPARE(shown(*startWindow()), before);
}

QTEST_MAIN(TestWinSettings)
#include "tst_win_settings.moc"

// Zarnel.ini: what start-up reads, repairs and rewrites, and which commands rewrite it.

#include "windowtestutil.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QListWidget>
#include <QSettings>
#include <QtTest>

using namespace wintest;

namespace {

const QStringList fifteenKeys = {"CreateArchiveDir", "CreateAssistance", "DropFileDir", "ExtractAllDir",
                                 "Format", "LZ4CompressionLevel", "ListView", "MaxChunkCount",
                                 "OpenArchiveDir", "SaveStringTable", "SingleMipChunkAreaHeight",
                                 "SingleMipChunkAreaWidth", "Theme", "Version", "zlibCompressionLevel"};

// Qt drops comments when it rewrites an INI file, so a comment line tells whether a write happened.
const QByteArray probe = "; untouched\n";

bool wasRewritten() { return !readIni().contains(probe); }

void markIni() { QVERIFY(writeIni(probe + readIni())); }

// The integer members in file order (folders are checked separately).
QVector<int> intMembers(const MainWindow& w)
{
    return {w.archiveFormat, w.archiveVersion, w.zlibLevel, w.lz4Mode, w.createAssistance, w.saveStringTable,
            w.maxChunkCount, w.singleMipChunkAreaWidth, w.singleMipChunkAreaHeight, w.listView, w.theme};
}

QVector<int> intKeysOnDisk()
{
    const QSettings s(iniPath(), QSettings::IniFormat);
    QVector<int> values;
    for (const char* key : {"Format", "Version", "zlibCompressionLevel", "LZ4CompressionLevel", "CreateAssistance",
                            "SaveStringTable", "MaxChunkCount", "SingleMipChunkAreaWidth",
                            "SingleMipChunkAreaHeight", "ListView", "Theme"})
        values << s.value(QString::fromLatin1(key), -999).toInt();
    return values;
}

}  // namespace

class TestWinSettings : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void startup_data();
    void startup();
    void firstStartWritesDefaults();
    void onlyThemeShowsEmptyChoices();
    void repairRepeatsEveryStart();
    void nonAsciiFolderRoundTrip();
    void events_data();
    void events();
    void storedValuesSurviveRestart();

private:
    std::unique_ptr<TempWorkDir> work;
    std::unique_ptr<ScriptedDialogs> dialogs;
};

void TestWinSettings::init()
{
    work = std::make_unique<TempWorkDir>();
    dialogs = std::make_unique<ScriptedDialogs>();
}

void TestWinSettings::cleanup()
{
    dialogs.reset();
    work.reset();
}

void TestWinSettings::startup_data()
{
    QTest::addColumn<QByteArray>("file");   // INI body after "[General]"
    QTest::addColumn<QVector<int>>("members");
    QTest::addColumn<bool>("rewritten");

    const QByteArray valid = "Format=1\nVersion=3\nzlibCompressionLevel=9\nLZ4CompressionLevel=2\n"
                             "CreateAssistance=1\nSaveStringTable=1\nMaxChunkCount=4\n"
                             "SingleMipChunkAreaWidth=512\nSingleMipChunkAreaHeight=512\nListView=2\nTheme=0\n";
    const QVector<int> validMembers = {1, 3, 9, 2, 1, 1, 4, 512, 512, 2, 0};
    auto with = [&](const QByteArray& from, const QByteArray& to) {
        QByteArray b = valid;
        b.replace(from, to);
        return b;
    };
    auto members = [&](int index, int value) {
        QVector<int> m = validMembers;
        m[index] = value;
        return m;
    };

    QTest::newRow("all valid") << valid << validMembers << false;
    QTest::newRow("only Theme=1") << QByteArray("Theme=1\n") << QVector<int>{0, 0, 0, 0, 0, 0, 4, 512, 512, 0, 1}
                                  << true;
    QTest::newRow("zlib key capitalised, 12")
        << with("zlibCompressionLevel=9", "ZlibCompressionLevel=12") << members(2, 1) << true;
    QTest::newRow("zlib key capitalised, valid")
        << with("zlibCompressionLevel=9", "ZlibCompressionLevel=5") << members(2, 5) << false;
    QTest::newRow("zlib key upper case") << with("zlibCompressionLevel=9", "ZLIBCOMPRESSIONLEVEL=0") << members(2, 0)
                                         << false;
    QTest::newRow("zlib -1") << with("zlibCompressionLevel=9", "zlibCompressionLevel=-1") << members(2, 1) << true;
    QTest::newRow("lz4 3") << with("LZ4CompressionLevel=2", "LZ4CompressionLevel=3") << members(3, 1) << true;
    QTest::newRow("assist 5") << with("CreateAssistance=1", "CreateAssistance=5") << members(4, 0) << true;
    QTest::newRow("assist 0") << with("CreateAssistance=1", "CreateAssistance=0") << members(4, 0) << false;
    QTest::newRow("string table 0") << with("SaveStringTable=1", "SaveStringTable=0") << members(5, 0) << true;
    QTest::newRow("string table 7") << with("SaveStringTable=1", "SaveStringTable=7") << members(5, 0) << true;
    QTest::newRow("chunk count 8") << with("MaxChunkCount=4", "MaxChunkCount=8") << members(6, 4) << true;
    QTest::newRow("chunk width 256") << with("Width=512", "Width=256") << members(7, 512) << true;
    QTest::newRow("chunk height missing") << with("SingleMipChunkAreaHeight=512\n", "") << members(8, 512) << true;
    QTest::newRow("list view -1") << with("ListView=2", "ListView=-1") << members(9, 1) << true;
    QTest::newRow("list view 0") << with("ListView=2", "ListView=0") << members(9, 0) << false;
    QTest::newRow("theme -1") << with("Theme=0", "Theme=-1") << members(10, 1) << true;
    QTest::newRow("theme 2") << with("Theme=0", "Theme=2") << members(10, 1) << true;
    QTest::newRow("version 7 kept") << with("Version=3", "Version=7") << members(1, 7) << false;
    QTest::newRow("format 5 kept") << with("Format=1", "Format=5") << members(0, 5) << false;
    QTest::newRow("format not a number") << with("Format=1", "Format=abc") << members(0, 0) << false;
}

void TestWinSettings::startup()
{
    QFETCH(QByteArray, file);
    QFETCH(QVector<int>, members);
    QFETCH(bool, rewritten);
    QVERIFY(writeIni(probe + "[General]\n" + file));
    auto window = startWindow();
    QCOMPARE(intMembers(*window), members);
    QCOMPARE(wasRewritten(), rewritten);
    if (!rewritten)
        return;
    // A rewrite stores exactly the fifteen keys, the zlib key under one spelling only.
    QCOMPARE(intKeysOnDisk(), members);
    QSettings s(iniPath(), QSettings::IniFormat);
    QStringList keys = s.allKeys();
    keys.sort();
    QCOMPARE(keys, fifteenKeys);
}

void TestWinSettings::firstStartWritesDefaults()
{
    QVERIFY(!QFile::exists(iniPath()));
    auto window = startWindow();
    QVERIFY(QFile::exists(iniPath()));
    QCOMPARE(intKeysOnDisk(), (QVector<int>{0, 1, 1, 1, 1, 1, 4, 512, 512, 1, 1}));
    QSettings s(iniPath(), QSettings::IniFormat);
    QStringList keys = s.allKeys();
    keys.sort();
    QCOMPARE(keys, fifteenKeys);
    for (const char* folder : {"ExtractAllDir", "OpenArchiveDir", "CreateArchiveDir", "DropFileDir"})
        QCOMPARE(s.value(QString::fromLatin1(folder), QStringLiteral("absent")).toString(), QString());
    QVERIFY(readIni().startsWith("[General]"));
    // The defaults show: version 1, level 1, LZ4 default, assistance on, full list, Starfield.
    QCOMPARE(window->ui->comboBox_Ver->currentIndex(), 0);
    QCOMPARE(window->ui->comboBox_zlibComp->currentIndex(), 0);
    QCOMPARE(window->ui->comboBox_LZ4Comp->currentIndex(), 0);
    QCOMPARE(window->ui->comboBox_Format->currentIndex(), 0);
    QVERIFY(window->ui->checkBox_assist->isChecked());
    QVERIFY(window->ui->action_Full->isChecked());
    QVERIFY(window->ui->action_Theme_Starfield->isChecked());
    QVERIFY(dialogs->boxes.isEmpty());
    QVERIFY(dialogs->fileDialogs.isEmpty());
}

void TestWinSettings::onlyThemeShowsEmptyChoices()
{
    QVERIFY(writeIni("[General]\nTheme=1\n"));
    auto window = startWindow();
    QCOMPARE(window->ui->comboBox_Ver->currentIndex(), -1);
    QCOMPARE(window->ui->comboBox_Ver->currentText(), QString());
    QCOMPARE(window->ui->comboBox_zlibComp->currentText(), QStringLiteral("0 (No compression)"));
    QCOMPARE(window->ui->comboBox_LZ4Comp->currentText(), QStringLiteral("No compression"));
    QVERIFY(!window->ui->checkBox_assist->isChecked());
    QVERIFY(window->ui->action_NotShown->isChecked());
    QVERIFY(!window->ui->action_Full->isChecked());
}

void TestWinSettings::repairRepeatsEveryStart()
{
    QVERIFY(writeIni("[General]\nFormat=0\nVersion=1\nzlibCompressionLevel=1\nLZ4CompressionLevel=1\n"
                     "CreateAssistance=1\nSaveStringTable=0\nMaxChunkCount=4\nSingleMipChunkAreaWidth=512\n"
                     "SingleMipChunkAreaHeight=512\nListView=1\nTheme=1\n"));
    for (int start = 0; start < 3; ++start) {
        markIni();
        auto window = startWindow();
        QCOMPARE(window->saveStringTable, 0);
        QVERIFY2(wasRewritten(), qPrintable(QStringLiteral("start %1").arg(start)));
    }
}

void TestWinSettings::nonAsciiFolderRoundTrip()
{
    const QString folders[4] = {QStringLiteral("/tmp/Müller Straße/"), QStringLiteral("/data/日本語/テクスチャ/"),
                                QStringLiteral("/home/ü/with space and ; semicolon/"),
                                QStringLiteral("/srv/Ελληνικά\u00a0€/")};
    {
        auto window = startWindow();
        window->extractAllDir = folders[0];
        window->openArchiveDir = folders[1];
        window->createArchiveDir = folders[2];
        window->dropFileDir = folders[3];
        window->saveSettings();
    }
    // Written without a codec: everything outside printable ASCII is escaped.
    const QByteArray bytes = readIni();
    for (char c : bytes)
        QVERIFY(static_cast<unsigned char>(c) < 0x80);
    auto window = startWindow();
    QCOMPARE(window->extractAllDir, folders[0]);
    QCOMPARE(window->openArchiveDir, folders[1]);
    QCOMPARE(window->createArchiveDir, folders[2]);
    QCOMPARE(window->dropFileDir, folders[3]);
}

void TestWinSettings::events_data()
{
    QTest::addColumn<QString>("event");
    QTest::addColumn<int>("index");  // combo index or check state
    QTest::addColumn<bool>("rewritten");
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("stored");

    // Start state: the first-start defaults (format 0, version 1, zlib 1, LZ4 1, assistance on,
    // list view 1, theme 1).
    QTest::newRow("format same") << "format" << 0 << false << "Format" << 0;
    QTest::newRow("format texture") << "format" << 1 << true << "Format" << 1;
    QTest::newRow("version same") << "version" << 0 << false << "Version" << 1;
    QTest::newRow("version 2") << "version" << 1 << true << "Version" << 2;
    QTest::newRow("version 3 general") << "version" << 2 << true << "Version" << 2;
    QTest::newRow("zlib same") << "zlib" << 0 << false << "zlibCompressionLevel" << 1;
    QTest::newRow("zlib 6") << "zlib" << 5 << true << "zlibCompressionLevel" << 6;
    QTest::newRow("zlib none") << "zlib" << 9 << true << "zlibCompressionLevel" << 0;
    QTest::newRow("lz4 same") << "lz4" << 0 << false << "LZ4CompressionLevel" << 1;
    QTest::newRow("lz4 1GB") << "lz4" << 1 << true << "LZ4CompressionLevel" << 2;
    QTest::newRow("lz4 none") << "lz4" << 2 << true << "LZ4CompressionLevel" << 0;
    QTest::newRow("assist off") << "assist" << 0 << true << "CreateAssistance" << 0;
    QTest::newRow("list full again") << "full" << 0 << true << "ListView" << 1;
    QTest::newRow("list 1000") << "1000" << 0 << true << "ListView" << 2;
    QTest::newRow("list none") << "notshown" << 0 << true << "ListView" << 0;
    QTest::newRow("theme default") << "theme0" << 0 << true << "Theme" << 0;
    QTest::newRow("theme starfield again") << "theme1" << 0 << true << "Theme" << 1;
    QTest::newRow("theme fallout") << "theme2" << 0 << true << "Theme" << 2;
    QTest::newRow("list item click") << "itemclick" << 0 << false << "ListView" << 1;
}

void TestWinSettings::events()
{
    QFETCH(QString, event);
    QFETCH(int, index);
    QFETCH(bool, rewritten);
    QFETCH(QString, key);
    QFETCH(int, stored);
    auto window = startWindow();
    const Ui::MainWindow& ui = *window->ui;
    markIni();
    // A combo choice as the user makes it: the index moves, then activated fires.
    auto choose = [](QComboBox* combo, int i) {
        combo->setCurrentIndex(i);
        emit combo->activated(i);
    };
    if (event == QLatin1String("format"))
        choose(ui.comboBox_Format, index);
    else if (event == QLatin1String("version"))
        choose(ui.comboBox_Ver, index);
    else if (event == QLatin1String("zlib"))
        choose(ui.comboBox_zlibComp, index);
    else if (event == QLatin1String("lz4"))
        choose(ui.comboBox_LZ4Comp, index);
    else if (event == QLatin1String("assist"))
        QTest::mouseClick(ui.checkBox_assist, Qt::LeftButton);
    else if (event == QLatin1String("full"))
        ui.action_Full->trigger();
    else if (event == QLatin1String("1000"))
        ui.action_1000_Items->trigger();
    else if (event == QLatin1String("notshown"))
        ui.action_NotShown->trigger();
    else if (event == QLatin1String("theme0"))
        ui.action_Theme_Windows_default->trigger();
    else if (event == QLatin1String("theme1"))
        ui.action_Theme_Starfield->trigger();
    else if (event == QLatin1String("theme2"))
        QVERIFY(QMetaObject::invokeMethod(window.get(), "on_action_Theme_Fallout_triggered"));
    else if (event == QLatin1String("itemclick")) {
        ui.listWidget_Files->addItem(QStringLiteral("x"));
        emit ui.listWidget_Files->itemClicked(ui.listWidget_Files->item(0));
    }
    QCOMPARE(wasRewritten(), rewritten);
    const QSettings s(iniPath(), QSettings::IniFormat);
    QCOMPARE(s.value(key).toInt(), stored);
}

void TestWinSettings::storedValuesSurviveRestart()
{
    {
        auto window = startWindow();
        const Ui::MainWindow& ui = *window->ui;
        ui.comboBox_Format->setCurrentIndex(1);
        emit ui.comboBox_Format->activated(1);
        ui.comboBox_zlibComp->setCurrentIndex(8);
        emit ui.comboBox_zlibComp->activated(8);
        ui.comboBox_LZ4Comp->setCurrentIndex(1);
        emit ui.comboBox_LZ4Comp->activated(1);
        ui.action_NotShown->trigger();
        ui.action_Theme_Windows_default->trigger();
    }
    auto window = startWindow();
    QCOMPARE(intMembers(*window), (QVector<int>{1, 1, 9, 2, 1, 1, 4, 512, 512, 0, 0}));
    QCOMPARE(window->ui->comboBox_Format->currentIndex(), 1);
    QCOMPARE(window->ui->comboBox_zlibComp->currentIndex(), 8);
    QCOMPARE(window->ui->comboBox_LZ4Comp->currentIndex(), 1);
    QVERIFY(window->ui->action_NotShown->isChecked());
    QVERIFY(window->ui->action_Theme_Windows_default->isChecked());
    QVERIFY(window->ui->line_1->isHidden());
}

QTEST_MAIN(TestWinSettings)
#include "tst_win_settings.moc"

// The enabled/checked/text state updateUi sets, the small slots, the themes and Exit.

#include "windowtestutil.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenuBar>
#include <QProcess>
#include <QRegularExpression>
#include <QTimer>
#include <QPushButton>
#include <QSettings>
#include <QStandardItemModel>
#include <QStatusBar>
#include <QTextDocument>
#include <QtTest>

#include <cstdio>
#include <cstdlib>

using namespace wintest;

namespace {

const QString ver3Warning = QStringLiteral("* Warning * Only texture files can be archived to Ver.3 BA2.");

void choose(QComboBox* combo, int index)
{
    combo->setCurrentIndex(index);
    emit combo->activated(index);
}

int32_t& member(MainWindow& w, const QString& name)
{
    if (name == QLatin1String("archiveFormat"))
        return w.archiveFormat;
    if (name == QLatin1String("archiveVersion"))
        return w.archiveVersion;
    if (name == QLatin1String("zlibLevel"))
        return w.zlibLevel;
    return w.lz4Mode;
}

bool itemEnabled(QComboBox* combo, int row)
{
    auto* model = qobject_cast<QStandardItemModel*>(combo->model());
    return model && model->item(row)->isEnabled();
}

// Brightest grey level among a widget's pixels: white text reaches the top, gray text does not.
int brightest(QWidget* w)
{
    const QImage image = w->grab().toImage();
    int best = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            best = qMax(best, qGray(image.pixel(x, y)));
    return best;
}

}  // namespace

class TestWinState : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void comboMapping_data();
    void comboMapping();
    void version3Correction_data();
    void version3Correction();
    void buttonStates_data();
    void buttonStates();
    void sourceAndInfoTexts();
    void listViewChecks_data();
    void listViewChecks();
    void themeChecks_data();
    void themeChecks();
    void version3ItemFollowsFlag();
    void themeColours_data();
    void themeColours();
    void themeChoiceKeepsColours();
    void disabledButtonsLookGray();
    void aboutBox();
    void aboutQtAndSupport();
    void debugLines();
    void commandLineBackslashes();
    void exitEndsProcessWithZero();

private:
    std::unique_ptr<TempWorkDir> work;
    std::unique_ptr<ScriptedDialogs> dialogs;
};

void TestWinState::init()
{
    work = std::make_unique<TempWorkDir>();
    dialogs = std::make_unique<ScriptedDialogs>();
}

void TestWinState::cleanup()
{
    dialogs.reset();
    work.reset();
}

void TestWinState::comboMapping_data()
{
    QTest::addColumn<QString>("combo");
    QTest::addColumn<QString>("memberName");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("value");
    for (int i = 0; i < 10; ++i)
        QTest::newRow(qPrintable(QStringLiteral("zlib item %1").arg(i)))
            << "comboBox_zlibComp" << "zlibLevel" << i << (i == 9 ? 0 : i + 1);
    const int lz4Values[] = {1, 2, 0};
    for (int i = 0; i < 3; ++i)
        QTest::newRow(qPrintable(QStringLiteral("lz4 item %1").arg(i)))
            << "comboBox_LZ4Comp" << "lz4Mode" << i << lz4Values[i];
    QTest::newRow("format general") << "comboBox_Format" << "archiveFormat" << 0 << 0;
    QTest::newRow("format texture") << "comboBox_Format" << "archiveFormat" << 1 << 1;
    QTest::newRow("version 1") << "comboBox_Ver" << "archiveVersion" << 0 << 1;
    QTest::newRow("version 2") << "comboBox_Ver" << "archiveVersion" << 1 << 2;
    QTest::newRow("version 3") << "comboBox_Ver" << "archiveVersion" << 2 << 3;
}

void TestWinState::comboMapping()
{
    QFETCH(QString, combo);
    QFETCH(QString, memberName);
    QFETCH(int, index);
    QFETCH(int, value);
    auto window = startWindow();
    auto* box = window->findChild<QComboBox*>(combo);
    QVERIFY(box);
    // Texture format first, so version 3 is not corrected away.
    choose(window->ui->comboBox_Format, 1);
    // Index to value, through the slot.
    choose(box, index);
    QCOMPARE(member(*window, memberName), value);
    QCOMPARE(QSettings(iniPath(), QSettings::IniFormat).allKeys().size(), 15);
    // Value to index, through updateUi, starting from some other item.
    box->setCurrentIndex(index == 0 ? 1 : 0);
    window->updateUi();
    QCOMPARE(box->currentIndex(), index);
}

void TestWinState::version3Correction_data()
{
    QTest::addColumn<int>("startFormat");
    QTest::addColumn<int>("startVersion");
    QTest::addColumn<QString>("action");
    QTest::addColumn<int>("actionIndex");
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("verIndex");
    QTest::addColumn<bool>("warned");
    QTest::addColumn<bool>("written");

    QTest::newRow("v3 asked, general, from v1") << 0 << 1 << "version" << 2 << 2 << 1 << true << true;
    QTest::newRow("v3 asked, general, from v2") << 0 << 2 << "version" << 2 << 2 << 1 << true << false;
    QTest::newRow("v3 asked, texture") << 1 << 1 << "version" << 2 << 3 << 2 << false << true;
    QTest::newRow("general chosen while v3") << 1 << 3 << "format" << 0 << 2 << 1 << true << true;
    QTest::newRow("general again while v3") << 0 << 3 << "format" << 0 << 2 << 1 << true << true;
    QTest::newRow("texture chosen while v3") << 0 << 3 << "format" << 1 << 3 << 2 << false << true;
    QTest::newRow("general chosen while v2") << 1 << 2 << "format" << 0 << 2 << 1 << false << true;
    QTest::newRow("general again while v1") << 0 << 1 << "format" << 0 << 1 << 0 << false << false;
}

void TestWinState::version3Correction()
{
    QFETCH(int, startFormat);
    QFETCH(int, startVersion);
    QFETCH(QString, action);
    QFETCH(int, actionIndex);
    QFETCH(int, version);
    QFETCH(int, verIndex);
    QFETCH(bool, warned);
    QFETCH(bool, written);
    QVERIFY(writeIni(QStringLiteral("; untouched\n[General]\nFormat=%1\nVersion=%2\nzlibCompressionLevel=1\n"
                                    "LZ4CompressionLevel=1\nCreateAssistance=1\nSaveStringTable=1\n"
                                    "MaxChunkCount=4\nSingleMipChunkAreaWidth=512\nSingleMipChunkAreaHeight=512\n"
                                    "ListView=1\nTheme=1\n")
                         .arg(startFormat)
                         .arg(startVersion)
                         .toLatin1()));
    auto window = startWindow();
    QCOMPARE(window->ui->comboBox_Ver->currentIndex(), startVersion - 1);
    choose(action == QLatin1String("version") ? window->ui->comboBox_Ver : window->ui->comboBox_Format, actionIndex);
    QCOMPARE(window->archiveVersion, version);
    QCOMPARE(window->ui->comboBox_Ver->currentIndex(), verIndex);
    QCOMPARE(window->ui->statusbar->currentMessage(), warned ? ver3Warning : QString());
    QCOMPARE(!readIni().contains("; untouched"), written);
    if (written)
        QCOMPARE(QSettings(iniPath(), QSettings::IniFormat).value("Version").toInt(), version);
}

void TestWinState::buttonStates_data()
{
    QTest::addColumn<bool>("extractEnabled");
    QTest::addColumn<bool>("archiveEnabled");
    QTest::addColumn<bool>("extractButton");
    QTest::addColumn<bool>("archiveButton");
    QTest::addColumn<bool>("clearButton");
    QTest::newRow("nothing loaded") << false << false << false << false << false;
    QTest::newRow("archive opened") << true << false << true << false << true;
    QTest::newRow("sources gathered") << false << true << false << true << true;
    QTest::newRow("both flags") << true << true << true << true << true;
}

void TestWinState::buttonStates()
{
    QFETCH(bool, extractEnabled);
    QFETCH(bool, archiveEnabled);
    QFETCH(bool, extractButton);
    QFETCH(bool, archiveButton);
    QFETCH(bool, clearButton);
    auto window = startWindow();
    const Ui::MainWindow& ui = *window->ui;
    // Start from the opposite of every expectation, so updateUi must set each one.
    ui.pushButton_ExtractAll->setEnabled(!extractButton);
    ui.pushButton_Archive->setEnabled(!archiveButton);
    ui.pushButton_ClearList->setEnabled(!clearButton);
    for (QAction* a : {ui.action_Settings, ui.action_Upgrade_Archive, ui.action_BA2_Upgrader_deb,
                       ui.action_SFS_Editor_0x0369, ui.action_File_Compare, ui.action_DXGI_Checker_0x0639,
                       ui.action_Tal_Injector_deb, ui.action_Theme_Fallout})
        a->setEnabled(true);
    window->extractEnabled = extractEnabled;
    window->archiveEnabled = archiveEnabled;
    window->updateUi();
    QCOMPARE(ui.pushButton_ExtractAll->isEnabled(), extractButton);
    QCOMPARE(ui.pushButton_Archive->isEnabled(), archiveButton);
    QCOMPARE(ui.pushButton_ClearList->isEnabled(), clearButton);
    for (QAction* a : {ui.action_Settings, ui.action_Upgrade_Archive, ui.action_BA2_Upgrader_deb,
                       ui.action_SFS_Editor_0x0369, ui.action_File_Compare, ui.action_DXGI_Checker_0x0639,
                       ui.action_Tal_Injector_deb, ui.action_Theme_Fallout})
        QVERIFY2(!a->isEnabled(), qPrintable(a->objectName()));
    QVERIFY(!itemEnabled(ui.comboBox_Ver, 3));
    for (QWidget* w : {static_cast<QWidget*>(ui.pushButton_File), static_cast<QWidget*>(ui.pushButton_SelFolder),
                       static_cast<QWidget*>(ui.comboBox_Ver), static_cast<QWidget*>(ui.comboBox_Format),
                       static_cast<QWidget*>(ui.comboBox_zlibComp), static_cast<QWidget*>(ui.comboBox_LZ4Comp),
                       static_cast<QWidget*>(ui.checkBox_assist)})
        QVERIFY2(w->isEnabled(), qPrintable(w->objectName()));
}

void TestWinState::sourceAndInfoTexts()
{
    auto window = startWindow();
    const Ui::MainWindow& ui = *window->ui;
    QCOMPARE(ui.lineEdit_SrcFile->text(), QStringLiteral("*** Drag and drop the File or Folder ***"));
    window->sourcePath = QStringLiteral("/home/user/Mods/Textures - Ünïcode");
    window->ba2Info1 = QStringLiteral("BA2 Ver.1 (12,345 files)");
    window->ba2Info2 = QStringLiteral("Format: General");
    window->ba2Info3 = QStringLiteral("Compression: zlib (48.37%)");
    window->updateUi();
    QCOMPARE(ui.lineEdit_SrcFile->text(), window->sourcePath);
    QCOMPARE(ui.label_Ba2Info1->text(), window->ba2Info1);
    QCOMPARE(ui.label_Ba2Info2->text(), window->ba2Info2);
    QCOMPARE(ui.label_Ba2Info3->text(), window->ba2Info3);
    window->sourcePath.clear();
    window->ba2Info1.clear();
    window->updateUi();
    QCOMPARE(ui.lineEdit_SrcFile->text(), QStringLiteral("*** Drag and drop the File or Folder ***"));
    QCOMPARE(ui.label_Ba2Info1->text(), QString());
}

void TestWinState::listViewChecks_data()
{
    QTest::addColumn<int>("listView");
    QTest::addColumn<QString>("checked");  // "" none
    QTest::newRow("0") << 0 << "action_NotShown";
    QTest::newRow("1") << 1 << "action_Full";
    QTest::newRow("2") << 2 << "action_1000_Items";
    QTest::newRow("3") << 3 << "";
    QTest::newRow("-1") << -1 << "";
}

void TestWinState::listViewChecks()
{
    QFETCH(int, listView);
    QFETCH(QString, checked);
    auto window = startWindow();
    window->listView = listView;
    window->updateUi();
    for (QAction* a : {window->ui->action_Full, window->ui->action_1000_Items, window->ui->action_NotShown})
        QCOMPARE(a->isChecked(), a->objectName() == checked);
}

void TestWinState::themeChecks_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<int>("theme");
    QTest::addColumn<QString>("checked");
    QTest::newRow("windows default") << "on_action_Theme_Windows_default_triggered" << 0
                                     << "action_Theme_Windows_default";
    QTest::newRow("starfield") << "on_action_Theme_Starfield_triggered" << 1 << "action_Theme_Starfield";
    QTest::newRow("fallout") << "on_action_Theme_Fallout_triggered" << 2 << "action_Theme_Starfield";
}

void TestWinState::themeChecks()
{
    QFETCH(QString, trigger);
    QFETCH(int, theme);
    QFETCH(QString, checked);
    auto window = startWindow();
    QVERIFY(QMetaObject::invokeMethod(window.get(), trigger.toLatin1().constData()));
    QCOMPARE(window->theme, theme);
    for (QAction* a : {window->ui->action_Theme_Windows_default, window->ui->action_Theme_Starfield,
                       window->ui->action_Theme_Fallout})
        QCOMPARE(a->isChecked(), a->objectName() == checked);
    QVERIFY(!window->ui->action_Theme_Fallout->isEnabled());
}

void TestWinState::version3ItemFollowsFlag()
{
    auto window = startWindow();
    QComboBox* ver = window->ui->comboBox_Ver;
    QVERIFY(!itemEnabled(ver, 2));
    window->ver3Enabled = true;
    window->updateUi();
    QVERIFY(itemEnabled(ver, 2));
    QVERIFY(!itemEnabled(ver, 3));
    window->ver3Enabled = false;
    window->updateUi();
    QVERIFY(!itemEnabled(ver, 2));
    QVERIFY(itemEnabled(ver, 0));
    QVERIFY(itemEnabled(ver, 1));
}

void TestWinState::themeColours_data()
{
    QTest::addColumn<int>("theme");
    QTest::addColumn<bool>("stripes");
    QTest::newRow("starfield") << 1 << true;
    QTest::newRow("windows default") << 0 << false;
}

void TestWinState::themeColours()
{
    QFETCH(int, theme);
    QFETCH(bool, stripes);
    QVERIFY(writeIni(QStringLiteral("[General]\nFormat=0\nVersion=1\nzlibCompressionLevel=1\nLZ4CompressionLevel=1\n"
                                    "CreateAssistance=1\nSaveStringTable=1\nMaxChunkCount=4\n"
                                    "SingleMipChunkAreaWidth=512\nSingleMipChunkAreaHeight=512\nListView=1\n"
                                    "Theme=%1\n")
                         .arg(theme)
                         .toLatin1()));
    auto window = startWindow();
    // Theme 1 shows the window itself; theme 0 leaves that to the entry point.
    QCOMPARE(window->isVisible(), stripes);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    const Ui::MainWindow& ui = *window->ui;
    for (QFrame* line : {ui.line_1, ui.line_2, ui.line_3, ui.line_4})
        QCOMPARE(line->isVisible(), stripes);

    const QImage image = ui.centralwidget->grab().toImage();
    // Each stripe draws a 10-pixel line through its middle; line_1 lies on top of line_2. The
    // lowest band begins at 446, just above where a tall status bar may cut the central area.
    const QList<QPair<int, QColor>> bands = {{420, QColor("#d5aa60")},
                                             {430, QColor("#e16136")},
                                             {440, QColor("#c72238")},
                                             {447, QColor("#2f4c79")}};
    for (const auto& band : bands) {
        const QColor actual = image.pixelColor(100, band.first);
        if (stripes)
            QCOMPARE(actual.name(), band.second.name());
        else
            QVERIFY2(actual.name() != band.second.name(), qPrintable(actual.name()));
    }
    // Window background and the dark controls.
    const QColor background = image.pixelColor(300, 245);
    const QColor listColour = ui.listWidget_Files->grab().toImage().pixelColor(400, 100);
    if (stripes) {
        QCOMPARE(background.name(), QStringLiteral("#4a668c"));
        QCOMPARE(listColour.name(), QStringLiteral("#253747"));
        // The style draws a faint frame shade over the group box's own colour.
        const QColor box = ui.groupBox_Extract->grab().toImage().pixelColor(150, 110);
        const QColor want(QStringLiteral("#4a668c"));
        QVERIFY2(qAbs(box.red() - want.red()) <= 3 && qAbs(box.green() - want.green()) <= 3
                     && qAbs(box.blue() - want.blue()) <= 3,
                 qPrintable(box.name()));
        QCOMPARE(ui.statusbar->grab().toImage().pixelColor(300, 5).name(), QStringLiteral("#253747"));
    } else {
        QVERIFY(background.name() != QStringLiteral("#4a668c"));
        QVERIFY(listColour.name() != QStringLiteral("#253747"));
        QVERIFY(ui.menubar->styleSheet().isEmpty());
    }
}

void TestWinState::themeChoiceKeepsColours()
{
    auto window = startWindow();
    const Ui::MainWindow& ui = *window->ui;
    const QString sheet = ui.listWidget_Files->styleSheet();
    QVERIFY(!sheet.isEmpty());
    ui.action_Theme_Windows_default->trigger();
    QCOMPARE(window->theme, 0);
    QCOMPARE(ui.listWidget_Files->styleSheet(), sheet);
    QVERIFY(ui.line_1->isVisible());
    QCOMPARE(window->palette().color(QPalette::Window).name(), QStringLiteral("#4a668c"));
}

void TestWinState::disabledButtonsLookGray()
{
    auto window = startWindow();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    const Ui::MainWindow& ui = *window->ui;
    QWidget* controls[] = {ui.pushButton_ExtractAll, ui.pushButton_Archive, ui.pushButton_ClearList};
    for (QWidget* w : controls)
        QVERIFY2(brightest(w) < 200, qPrintable(w->objectName()));
    window->extractEnabled = true;
    window->archiveEnabled = true;
    window->updateUi();
    for (QWidget* w : controls)
        QVERIFY2(brightest(w) > 230, qPrintable(w->objectName()));
    // Disabled, the version combo turns gray too.
    QVERIFY(brightest(ui.comboBox_Ver) > 230);
    ui.comboBox_Ver->setEnabled(false);
    QVERIFY(brightest(ui.comboBox_Ver) < 200);
}

void TestWinState::aboutBox()
{
    auto window = startWindow();
    window->ui->action_About_Zarnel->trigger();
    QCOMPARE(dialogs->boxes.size(), 1);
    const RecordedBox& box = dialogs->boxes.first();
    QCOMPARE(box.kind, RecordedBox::About);
    QCOMPARE(box.text, QStringLiteral("About this software."));
    QVERIFY(box.informativeText.startsWith(
        QStringLiteral("<span style=\"font-weight:bold\">Zarnel version 1.0.0</span><br>")));

    QTextDocument doc;
    doc.setHtml(box.informativeText);
    const QStringList lines = doc.toPlainText().split(QRegularExpression(QStringLiteral("[\\n\\x{2028}]")));
    QCOMPARE(lines.size(), 12);
    QCOMPARE(lines[0], QStringLiteral("Zarnel version 1.0.0"));
    QVERIFY(lines[1].isEmpty());
    QVERIFY(lines[2].startsWith(QStringLiteral("- ")) && lines[2].endsWith(QStringLiteral(" -")));
    QVERIFY(lines[3].isEmpty());
    QVERIFY(lines[4].startsWith(QStringLiteral("This Mod Site: ")) && lines[4].size() > 15);
    QVERIFY(lines[6].startsWith(QStringLiteral("Creator: ")) && lines[6].size() > 9);
    QVERIFY(lines[8].isEmpty() && lines[9].isEmpty());
    QCOMPARE(lines[10], QStringLiteral("This tool uses LZ4 Library."));
    // HTML drops the leading space of the last line when it renders; the source keeps it.
    QVERIFY(lines[11].startsWith(QStringLiteral("LZ4: ")));
    QVERIFY(box.informativeText.contains(QStringLiteral("<br> LZ4: <a href=")));

    // Every link shows its own address, and each address is a well-formed web address.
    QRegularExpression anchor(QStringLiteral("<a href=\"([^\"]+)\">([^<]+)</a>"));
    auto it = anchor.globalMatch(box.informativeText);
    QStringList hrefs;
    while (it.hasNext()) {
        const auto m = it.next();
        QCOMPARE(m.captured(2), m.captured(1));
        const QUrl url(m.captured(1), QUrl::StrictMode);
        QVERIFY(url.isValid());
        QCOMPARE(url.scheme(), QStringLiteral("https"));
        hrefs << m.captured(1);
    }
    QCOMPARE(hrefs.size(), 3);
    QCOMPARE(lines[5], hrefs[0]);
    QCOMPARE(lines[7], hrefs[1]);
    QCOMPARE(lines[11], QStringLiteral("LZ4: ") + hrefs[2]);
}

void TestWinState::aboutQtAndSupport()
{
    auto window = startWindow();
    window->ui->action_About_Qt->trigger();
    QCOMPARE(dialogs->boxes.size(), 1);
    QCOMPARE(dialogs->boxes[0].kind, RecordedBox::AboutQt);
    QCOMPARE(dialogs->boxes[0].text, QStringLiteral("About Qt."));

    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    QTest::mouseClick(window->ui->pushButton_KoFi, Qt::LeftButton);
    QCOMPARE(dialogs->openedUrls.size(), 1);
    const QUrl url = dialogs->openedUrls.first();
    QVERIFY(url.isValid());
    QCOMPARE(url.scheme(), QStringLiteral("https"));
    // The support button goes where the about box's "Creator" link goes.
    window->ui->action_About_Zarnel->trigger();
    QVERIFY(dialogs->boxes.last().informativeText.contains(
        QStringLiteral("Creator: The Zarnel developers<br><a href=\"%1\">").arg(url.toString())));
}

void TestWinState::debugLines()
{
    QTest::ignoreMessage(QtDebugMsg, "setArg(1)");
    auto window = startWindow();
    QTest::ignoreMessage(QtDebugMsg, "> Settings");
    // The action is always disabled, so call the handler the way a connection would.
    QVERIFY(QMetaObject::invokeMethod(window.get(), "on_action_Settings_triggered"));
    QVERIFY(dialogs->boxes.isEmpty());
}

void TestWinState::commandLineBackslashes()
{
    char program[] = "zarnel";
    char first[] = "C:\\Mods\\Textures\\a.ba2";
    char second[] = "D:\\other";
    char* argv[] = {program, first, second, nullptr};
    MainWindow window;
    QTest::ignoreMessage(QtDebugMsg, "setArg(3)");
    window.setArg(3, argv);
    window.initialize();
    // The first argument is rewritten in place before it is loaded; later ones are ignored.
    QCOMPARE(QByteArray(first), QByteArray("C:/Mods/Textures/a.ba2"));
    QCOMPARE(QByteArray(second), QByteArray("D:\\other"));
}

void TestWinState::exitEndsProcessWithZero()
{
    // Exit must end the process from inside the slot, so run it in a child copy of this test.
    QProcess child;
    child.setWorkingDirectory(work->path());
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("ZARNEL_EXIT_CHILD"), QStringLiteral("1"));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    // Only the status matters here; a leak report at exit would replace it.
    env.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("detect_leaks=0"));
    child.setProcessEnvironment(env);
    child.start(QCoreApplication::applicationFilePath(), QStringList());
    QVERIFY(child.waitForFinished(60000));
    QCOMPARE(child.exitStatus(), QProcess::NormalExit);
    QCOMPARE(child.exitCode(), 0);
    QVERIFY(child.readAllStandardOutput().contains("exit triggered"));
    QVERIFY(QFile::exists(work->filePath(QStringLiteral("Zarnel.ini"))));
}

// The child of exitEndsProcessWithZero: returns 3 if Exit ever gives control back.
static int runExitChild(int argc, char** argv)
{
    QApplication app(argc, argv);
    MainWindow window;
    window.setArg(1, argv);
    window.initialize();
    window.show();
    QTimer::singleShot(0, &window, [&window] {
        fputs("exit triggered\n", stdout);
        fflush(stdout);
        window.ui->action_Exit->trigger();
        fputs("returned\n", stdout);
        std::_Exit(3);
    });
    app.exec();
    return 3;
}

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsSet("ZARNEL_EXIT_CHILD"))
        return runExitChild(argc, argv);
    QApplication app(argc, argv);
    TestWinState test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_win_state.moc"

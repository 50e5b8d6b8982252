// The themes, the Help boxes, the support button, the debug lines and Exit.

#include "windowtestutil.h"

#include <QtTest>

#include <cstdio>
#include <cstdlib>

using namespace wintest;

namespace {

// Brightest grey level among a widget's pixels: white text reaches the top, gray text does not.
int brightest(QWidget* w)
{
    const QImage image = w->grab().toImage();
    int best = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) best = qMax(best, qGray(image.pixel(x, y)));
    return best;
}

}  // namespace

class TestWinState : public QObject {
    Q_OBJECT
    std::unique_ptr<TempWorkDir> work;
    std::unique_ptr<ScriptedDialogs> dialogs;

private slots:
    void init() { work = std::make_unique<TempWorkDir>(); dialogs = std::make_unique<ScriptedDialogs>(); }
    void cleanup() { dialogs.reset(); work.reset(); }
    void themes_data(); void themes();
    void helpAndDebug();
    void exitEndsProcessWithZero();
};

void TestWinState::themes_data()
{
    QTest::addColumn<bool>("starfield");
    QTest::newRow("starfield (first start)") << true;
    QTest::newRow("windows default") << false;
}

void TestWinState::themes()
{
    QFETCH(bool, starfield);
    if (!starfield) QVERIFY(writeIni("[General]\nTheme=0\n"));
    auto window = startWindow();
    const Ui::MainWindow& ui = *window->ui;
    // Theme 1 shows the window itself; theme 0 leaves that to the entry point.
    QCOMPARE(window->isVisible(), starfield);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    for (QFrame* line : {ui.line_1, ui.line_2, ui.line_3, ui.line_4}) QCOMPARE(line->isVisible(), starfield);

    // Each stripe draws a 10-pixel line through its middle; line_1 lies on top of line_2. The
    // lowest band begins at 446, just above where a tall status bar may cut the central area.
    const QImage image = ui.centralwidget->grab().toImage();
    const QVector<QPair<QPoint, QString>> colours = {{{100, 420}, "#d5aa60"}, {{100, 430}, "#e16136"},
                                                     {{100, 440}, "#c72238"}, {{100, 447}, "#2f4c79"},
                                                     {{300, 245}, "#4a668c"}};  // the last: window background
    for (const auto& c : colours) QCOMPARE(image.pixelColor(c.first).name() == c.second, starfield);
    QCOMPARE(ui.listWidget_Files->grab().toImage().pixelColor(400, 100).name() == "#253747", starfield);
    if (!starfield) {
        QVERIFY(ui.menubar->styleSheet().isEmpty());
        return;
    }
    QCOMPARE(ui.statusbar->grab().toImage().pixelColor(300, 5).name(), QStringLiteral("#253747"));
    // The style draws a faint frame shade over the group box's own colour.
    const QColor box = ui.groupBox_Extract->grab().toImage().pixelColor(150, 110);
    QVERIFY2(qAbs(box.red() - 0x4a) <= 3 && qAbs(box.green() - 0x66) <= 3 && qAbs(box.blue() - 0x8c) <= 3,
             qPrintable(box.name()));

    // Choosing another theme stores it but keeps this run's colours.
    ui.action_Theme_Windows_default->trigger();
    QCOMPARE(window->theme, 0);
    QCOMPARE(ui.centralwidget->grab().toImage(), image);

    // Disabled, the command buttons and the version combo turn gray; enabled, white.
    QWidget* controls[] = {ui.pushButton_ExtractAll, ui.pushButton_Archive, ui.pushButton_ClearList, ui.comboBox_Ver};
    ui.comboBox_Ver->setEnabled(false);
    for (QWidget* w : controls) QVERIFY2(brightest(w) < 200, qPrintable(w->objectName()));
    window->extractEnabled = window->archiveEnabled = true;
    window->updateUi();
    ui.comboBox_Ver->setEnabled(true);
    for (QWidget* w : controls) QVERIFY2(brightest(w) > 230, qPrintable(w->objectName()));
}

void TestWinState::helpAndDebug()
{
    QTest::ignoreMessage(QtDebugMsg, "setArg(1)");
    auto window = startWindow();
    QTest::ignoreMessage(QtDebugMsg, "> Settings");
    // The action is always disabled, so call the handler the way a connection would.
    QVERIFY(QMetaObject::invokeMethod(window.get(), "on_action_Settings_triggered"));
    window->ui->action_About_Zarnel->trigger();
    window->ui->action_About_Qt->trigger();
    QCOMPARE(dialogs->boxes.size(), 2);
    QCOMPARE(dialogs->boxes[1], QStringLiteral("aboutQt|About Qt."));
    QCOMPARE(dialogs->boxes[0].section(QLatin1Char('|'), 0, 1), QStringLiteral("about|About this software."));
    const QString html = dialogs->boxes[0].section(QLatin1Char('|'), 2);
    QVERIFY(html.startsWith("<span style=\"font-weight:bold\">Zarnel version 1.0.0</span><br>"));

    // Title, blank, "- description -", blank, site, link, creator, link, two blanks, LZ4 note and link.
    QTextDocument doc;
    doc.setHtml(html);
    const QStringList lines = doc.toPlainText().split(QRegularExpression(QStringLiteral("[\\n\\x{2028}]")));
    QCOMPARE(lines.size(), 12);
    QCOMPARE(lines[0], QStringLiteral("Zarnel version 1.0.0"));
    QVERIFY(lines[1].isEmpty() && lines[3].isEmpty() && lines[8].isEmpty() && lines[9].isEmpty());
    QVERIFY(lines[2].startsWith("- ") && lines[2].endsWith(" -"));
    QVERIFY(lines[4].startsWith("This Mod Site: ") && lines[4].size() > 15);
    QVERIFY(lines[6].startsWith("Creator: ") && lines[6].size() > 9);
    QCOMPARE(lines[10], QStringLiteral("This tool uses LZ4 Library."));
    // HTML drops the leading space of the last line when it renders; the source keeps it.
    QVERIFY(html.contains("<br> LZ4: <a href="));
    // Every link shows its own address, a well-formed https one.
    QStringList hrefs;
    auto it = QRegularExpression(QStringLiteral("<a href=\"([^\"]+)\">([^<]+)</a>")).globalMatch(html);
    while (it.hasNext()) {
        const auto m = it.next();
        QCOMPARE(m.captured(2), m.captured(1));
        QVERIFY(QUrl(m.captured(1), QUrl::StrictMode).isValid() && m.captured(1).startsWith("https://"));
        hrefs << m.captured(1);
    }
    QCOMPARE(hrefs.size(), 3);
    QCOMPARE((QStringList{lines[5], lines[7], lines[11]}), (QStringList{hrefs[0], hrefs[1], "LZ4: " + hrefs[2]}));

    // The support button goes where the "Creator" link goes.
    window->ui->pushButton_KoFi->click();
    QCOMPARE(dialogs->urls, QList<QUrl>{QUrl(hrefs[1])});
}

void TestWinState::exitEndsProcessWithZero()
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
    QVERIFY(QFile::exists(work->path("Zarnel.ini")));
}

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    if (!qEnvironmentVariableIsSet("ZARNEL_EXIT_CHILD")) {
        TestWinState test;
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

#include "tst_win_state.moc"

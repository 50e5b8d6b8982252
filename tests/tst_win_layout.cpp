// The widget tree, menus and stacking of the main window as built at start-up.

#include "windowtestutil.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QStatusBar>
#include <QtTest>

using namespace wintest;

class TestWinLayout : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void widgets_data();
    void widgets();
    void properties_data();
    void properties();
    void comboItems_data();
    void comboItems();
    void actions_data();
    void actions();
    void menus_data();
    void menus();
    void menuBarOrder();
    void stackingOrder();
    void fixedSize();
    void supportButtonPicture();

private:
    std::unique_ptr<TempWorkDir> work;
    std::unique_ptr<MainWindow> window;
};

void TestWinLayout::initTestCase()
{
    QFont font;
    font.setFamily(QStringLiteral("Arial"));
    font.setPixelSize(15);
    QApplication::setFont(font);
}

void TestWinLayout::init()
{
    work = std::make_unique<TempWorkDir>();
    window = startWindow();
}

void TestWinLayout::cleanup()
{
    window.reset();
    work.reset();
}

namespace {
QString visibleText(QWidget* w)
{
    if (auto* b = qobject_cast<QAbstractButton*>(w))
        return b->text();
    if (auto* l = qobject_cast<QLabel*>(w))
        return l->text();
    if (auto* g = qobject_cast<QGroupBox*>(w))
        return g->title();
    if (auto* e = qobject_cast<QLineEdit*>(w))
        return e->text();
    return QString();
}
}  // namespace

void TestWinLayout::widgets_data()
{
    QTest::addColumn<QString>("className");
    QTest::addColumn<QString>("parentName");
    QTest::addColumn<QRect>("geometry");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("hand");
    QTest::addColumn<bool>("enabled");  // at start-up, nothing loaded

    auto row = [](const char* name, const char* cls, const char* parent, QRect r, const char* text, bool hand,
                  bool enabled) {
        QTest::newRow(name) << QString::fromLatin1(cls) << QString::fromLatin1(parent) << r
                            << QString::fromLatin1(text) << hand << enabled;
    };
    const char* drop = "*** Drag and drop the File or Folder ***";
    row("lineEdit_SrcFile", "QLineEdit", "centralwidget", {100, 10, 761, 21}, drop, false, true);
    row("pushButton_KoFi", "QPushButton", "centralwidget", {682, 425, 179, 21}, "", true, true);
    row("groupBox_Extract", "QGroupBox", "centralwidget", {9, 250, 211, 151}, "Extract archive", false, true);
    row("label_Ba2Info1", "QLabel", "groupBox_Extract", {10, 20, 191, 21}, "", false, true);
    row("label_Ba2Info2", "QLabel", "groupBox_Extract", {10, 40, 191, 21}, "", false, true);
    row("pushButton_ExtractAll", "QPushButton", "groupBox_Extract", {10, 120, 121, 21}, "Extract All", true, false);
    row("pushButton_File", "QPushButton", "groupBox_Extract", {10, 90, 121, 21}, "Select Archive", true, true);
    row("label_Ba2Info3", "QLabel", "groupBox_Extract", {10, 60, 191, 21}, "", false, true);
    row("groupBox_Archive", "QGroupBox", "centralwidget", {230, 250, 631, 151}, "Create archive", false, true);
    row("pushButton_Archive", "QPushButton", "groupBox_Archive", {10, 120, 121, 21}, "Create Archive", true, false);
    row("label_Version", "QLabel", "groupBox_Archive", {10, 20, 101, 21}, "Ba2 Version", false, true);
    row("comboBox_Ver", "QComboBox", "groupBox_Archive", {10, 40, 361, 21}, "", true, true);
    row("label_Compression", "QLabel", "groupBox_Archive", {430, 20, 161, 21}, "Compression level", false, true);
    row("comboBox_zlibComp", "QComboBox", "groupBox_Archive", {430, 40, 191, 21}, "", true, true);
    row("comboBox_LZ4Comp", "QComboBox", "groupBox_Archive", {430, 70, 191, 21}, "", true, true);
    row("label_LZ4Compression", "QLabel", "groupBox_Archive", {375, 70, 51, 21}, "Ver.3", false, true);
    row("label_zlibCompression", "QLabel", "groupBox_Archive", {375, 40, 51, 21}, "Ver.1,2", false, true);
    row("comboBox_Format", "QComboBox", "groupBox_Archive", {200, 90, 171, 21}, "", true, true);
    row("label_Format", "QLabel", "groupBox_Archive", {145, 90, 51, 21}, "Format", false, true);
    row("pushButton_SelFolder", "QPushButton", "groupBox_Archive", {10, 90, 121, 21}, "Select Folder", true, true);
    row("checkBox_assist", "QCheckBox", "groupBox_Archive", {430, 120, 171, 22}, "BA2 Create assistance", true,
        true);
    row("listWidget_Files", "QListWidget", "centralwidget", {10, 40, 851, 201}, "", false, true);
    row("line_2", "QFrame", "centralwidget", {0, 421, 871, 20}, "", false, true);
    row("line_3", "QFrame", "centralwidget", {0, 431, 871, 20}, "", false, true);
    row("line_4", "QFrame", "centralwidget", {0, 441, 871, 20}, "", false, true);
    row("line_1", "QFrame", "centralwidget", {0, 411, 871, 20}, "", false, true);
    row("pushButton_ClearList", "QPushButton", "centralwidget", {10, 10, 81, 21}, "Clear List", true, false);
}

void TestWinLayout::widgets()
{
    QFETCH(QString, className);
    QFETCH(QString, parentName);
    QFETCH(QRect, geometry);
    QFETCH(QString, text);
    QFETCH(bool, hand);
    QFETCH(bool, enabled);
    const QString name = QString::fromLatin1(QTest::currentDataTag());
    const QList<QWidget*> found = window->findChildren<QWidget*>(name);
    QCOMPARE(found.size(), 1);
    QWidget* w = found.first();
    QCOMPARE(QString::fromLatin1(w->metaObject()->className()), className);
    QVERIFY(w->parentWidget());
    QCOMPARE(w->parentWidget()->objectName(), parentName);
    QCOMPARE(w->geometry(), geometry);
    QCOMPARE(visibleText(w), text);
    QCOMPARE(w->testAttribute(Qt::WA_SetCursor) && w->cursor().shape() == Qt::PointingHandCursor, hand);
    QCOMPARE(w->isEnabled(), enabled);
}

void TestWinLayout::properties_data()
{
    QTest::addColumn<QString>("object");
    QTest::addColumn<QByteArray>("property");
    QTest::addColumn<QVariant>("expected");

    const QVariant rightCentred = QVariant(int(Qt::AlignRight | Qt::AlignVCenter));
    QTest::newRow("window name") << "MainWindow" << QByteArray("objectName") << QVariant("MainWindow");
    QTest::newRow("window title") << "MainWindow" << QByteArray("windowTitle") << QVariant("Zarnel Archive Manager");
    QTest::newRow("window drops") << "MainWindow" << QByteArray("acceptDrops") << QVariant(true);
    QTest::newRow("window sheet") << "MainWindow" << QByteArray("styleSheet") << QVariant(QString());
    QTest::newRow("window locale") << "MainWindow" << QByteArray("locale")
                                   << QVariant(QLocale(QLocale::English, QLocale::UnitedStates));
    QTest::newRow("window min") << "MainWindow" << QByteArray("minimumSize") << QVariant(QSize(870, 500));
    QTest::newRow("window max") << "MainWindow" << QByteArray("maximumSize") << QVariant(QSize(870, 500));
    QTest::newRow("source read-only") << "lineEdit_SrcFile" << QByteArray("readOnly") << QVariant(true);
    QTest::newRow("list edit") << "listWidget_Files" << QByteArray("editTriggers")
                               << QVariant(int(QAbstractItemView::NoEditTriggers));
    QTest::newRow("list drop indicator") << "listWidget_Files" << QByteArray("showDropIndicator") << QVariant(false);
    QTest::newRow("list sorting") << "listWidget_Files" << QByteArray("sortingEnabled") << QVariant(false);
    QTest::newRow("kofi icon size") << "pushButton_KoFi" << QByteArray("iconSize") << QVariant(QSize(179, 21));
    QTest::newRow("archive box flat") << "groupBox_Archive" << QByteArray("flat") << QVariant(false);
    QTest::newRow("archive box checkable") << "groupBox_Archive" << QByteArray("checkable") << QVariant(false);
    for (const char* label : {"label_LZ4Compression", "label_zlibCompression", "label_Format"})
        QTest::newRow(label) << label << QByteArray("alignment") << rightCentred;
    for (const char* stripe : {"line_1", "line_2", "line_3", "line_4"}) {
        const QString s = QString::fromLatin1(stripe);
        QTest::newRow(qPrintable(s + " shape")) << s << QByteArray("frameShape") << QVariant(int(QFrame::HLine));
        QTest::newRow(qPrintable(s + " shadow")) << s << QByteArray("frameShadow") << QVariant(int(QFrame::Plain));
        QTest::newRow(qPrintable(s + " width")) << s << QByteArray("lineWidth") << QVariant(10);
        QTest::newRow(qPrintable(s + " min")) << s << QByteArray("minimumSize") << QVariant(QSize(10, 10));
        QTest::newRow(qPrintable(s + " fill")) << s << QByteArray("autoFillBackground") << QVariant(false);
    }
    QTest::newRow("menubar geometry") << "menubar" << QByteArray("geometry") << QVariant(QRect(0, 0, 870, 21));
    QTest::newRow("status empty") << "statusbar" << QByteArray("currentMessage") << QVariant(QString());
}

void TestWinLayout::properties()
{
    QFETCH(QString, object);
    QFETCH(QByteArray, property);
    QFETCH(QVariant, expected);
    QObject* o = object == QLatin1String("MainWindow") ? window.get() : window->findChild<QObject*>(object);
    QVERIFY(o);
    QVariant actual = o->property(property.constData());
    // Flag and enum properties are compared as plain numbers.
    if (property == "alignment")
        actual = int(static_cast<QLabel*>(o)->alignment());
    else if (property == "editTriggers")
        actual = int(static_cast<QAbstractItemView*>(o)->editTriggers());
    else if (property == "frameShape")
        actual = int(static_cast<QFrame*>(o)->frameShape());
    else if (property == "frameShadow")
        actual = int(static_cast<QFrame*>(o)->frameShadow());
    else if (property == "currentMessage")
        actual = static_cast<QStatusBar*>(o)->currentMessage();
    if (property == "geometry" && object == QLatin1String("menubar")) {
        // The main window's layout resizes the bar to its font; its place and width stay.
        const QRect r = actual.toRect();
        QCOMPARE(r.topLeft(), QPoint(0, 0));
        QCOMPARE(r.width(), 870);
        return;
    }
    QCOMPARE(actual, expected);
}

void TestWinLayout::comboItems_data()
{
    QTest::addColumn<QStringList>("items");
    QTest::newRow("comboBox_Ver") << QStringList{"Version 1 (for Fallout4/76 General, Texture)",
                                                 "Version 2 (for Starfield General, Texture)",
                                                 "Version 3 (for Starfield Texture only)",
                                                 "BSA (for Skyrim/Fallout3...)"};
    QTest::newRow("comboBox_zlibComp") << QStringList{"1 (Fast decompression)", "2", "3", "4", "5",
                                                      "6 (Default by Bethesda)", "7", "8", "9 (High compression)",
                                                      "0 (No compression)"};
    QTest::newRow("comboBox_LZ4Comp") << QStringList{"Default by LZ4 (16KB)", "Close to Bethesda (1GB)",
                                                     "No compression"};
    QTest::newRow("comboBox_Format") << QStringList{"General (non-texture)", "DDS (texture only)"};
}

void TestWinLayout::comboItems()
{
    QFETCH(QStringList, items);
    auto* combo = window->findChild<QComboBox*>(QString::fromLatin1(QTest::currentDataTag()));
    QVERIFY(combo);
    QStringList actual;
    for (int i = 0; i < combo->count(); ++i)
        actual << combo->itemText(i);
    QCOMPARE(actual, items);
}

void TestWinLayout::actions_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("checkable");
    QTest::addColumn<bool>("enabled");
    auto row = [](const char* name, const char* text, bool checkable, bool enabled) {
        QTest::newRow(name) << QString::fromLatin1(text) << checkable << enabled;
    };
    row("action_Exit", "Exit", false, true);
    row("action_Settings", "Settings...", false, false);
    row("action_About_Zarnel", "About Zarnel (Zarnel Archive Manager)", false, true);
    row("action_About_Qt", "About Qt", false, true);
    row("action_Open_Archive", "Open Archive", false, true);
    row("action_Create_Archive_from_Folder", "Create Archive from Folder", false, true);
    row("action_BA2_Upgrader_deb", "BA2 Upgrader deb", false, false);
    row("action_SFS_Editor_0x0369", "SFS Editor (0xB639)", false, false);
    row("action_File_Compare", "File Compare", false, false);
    row("action_DXGI_Checker_0x0639", "DXGI Checker (0x0A)", false, false);
    row("action_Tal_Injector_deb", "Tal Injector deb", false, false);
    row("action_Upgrade_Archive", "Upgrade Archive", false, false);
    row("action_Full", "Full", true, true);
    row("action_1000_Items", "Max 1000 Items", true, true);
    row("action_NotShown", "Not shown", true, true);
    row("action_Theme_Windows_default", "Wiindows default", true, true);
    row("action_Theme_Starfield", "Starfield", true, true);
    row("action_Theme_Fallout", "Fallout", true, false);
}

void TestWinLayout::actions()
{
    QFETCH(QString, text);
    QFETCH(bool, checkable);
    QFETCH(bool, enabled);
    const QList<QAction*> found = window->findChildren<QAction*>(QString::fromLatin1(QTest::currentDataTag()),
                                                                 Qt::FindDirectChildrenOnly);
    QCOMPARE(found.size(), 1);  // parented to the window itself
    QAction* a = found.first();
    QCOMPARE(a->text(), text);
    QCOMPARE(a->isCheckable(), checkable);
    QCOMPARE(a->isEnabled(), enabled);
    QVERIFY(a->icon().isNull());
    QVERIFY(a->shortcut().isEmpty());
    QVERIFY(a->actionGroup() == nullptr);
}

void TestWinLayout::menus_data()
{
    QTest::addColumn<QString>("parentMenu");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QStringList>("entries");  // "-" a separator, ">Title" a submenu
    QTest::newRow("menuFile") << "menubar" << "File" << QStringList{"Exit"};
    QTest::newRow("menuArchive") << "menubar" << "Archive"
                                 << QStringList{"Open Archive", "Create Archive from Folder", "Upgrade Archive", "-",
                                                "Settings..."};
    QTest::newRow("menuDisplay") << "menubar" << "Display" << QStringList{">List View", ">Theme"};
    QTest::newRow("menuList_View") << "menuDisplay" << "List View"
                                   << QStringList{"Full", "Max 1000 Items", "Not shown"};
    QTest::newRow("menuTheme") << "menuDisplay" << "Theme"
                               << QStringList{"Wiindows default", "Starfield", "Fallout"};
    QTest::newRow("menuHelp") << "menubar" << "Help"
                              << QStringList{"About Zarnel (Zarnel Archive Manager)", "About Qt", ">BAADF00D"};
    QTest::newRow("menuBAADF00D") << "menuHelp" << "BAADF00D"
                                  << QStringList{"BA2 Upgrader deb", "SFS Editor (0xB639)", "File Compare",
                                                 "DXGI Checker (0x0A)", "Tal Injector deb"};
}

void TestWinLayout::menus()
{
    QFETCH(QString, parentMenu);
    QFETCH(QString, title);
    QFETCH(QStringList, entries);
    auto* menu = window->findChild<QMenu*>(QString::fromLatin1(QTest::currentDataTag()));
    QVERIFY(menu);
    QCOMPARE(menu->parent()->objectName(), parentMenu);
    QCOMPARE(menu->title(), title);
    QStringList actual;
    for (QAction* a : menu->actions()) {
        if (a->isSeparator())
            actual << QStringLiteral("-");
        else if (a->menu())
            actual << QStringLiteral(">") + a->menu()->title();
        else
            actual << a->text();
    }
    QCOMPARE(actual, entries);
    // Submenus are reachable even when every entry inside is greyed out.
    if (menu->menuAction())
        QVERIFY(menu->menuAction()->isEnabled());
}

void TestWinLayout::menuBarOrder()
{
    QStringList titles;
    for (QAction* a : window->menuBar()->actions())
        titles << (a->menu() ? a->menu()->objectName() : a->text());
    QCOMPARE(titles, (QStringList{"menuFile", "menuArchive", "menuDisplay", "menuHelp"}));
    QCOMPARE(window->menuBar(), window->ui->menubar);
    QCOMPARE(window->statusBar(), window->ui->statusbar);
    QCOMPARE(window->centralWidget(), window->ui->centralwidget);
}

void TestWinLayout::stackingOrder()
{
    // A widget's children list runs from the bottom of the stack to the top.
    QStringList order;
    for (QObject* child : window->ui->centralwidget->children()) {
        if (child->isWidgetType())
            order << child->objectName();
    }
    QCOMPARE(order, (QStringList{"groupBox_Archive", "lineEdit_SrcFile", "groupBox_Extract", "listWidget_Files",
                                 "line_2", "line_3", "line_4", "line_1", "pushButton_KoFi", "pushButton_ClearList"}));
    // The support button must win clicks over the stripes it lies on.
    const QPoint centre = window->ui->pushButton_KoFi->geometry().center();
    QCOMPARE(window->ui->centralwidget->childAt(centre), static_cast<QWidget*>(window->ui->pushButton_KoFi));
}

void TestWinLayout::fixedSize()
{
    window->resize(1000, 700);
    QCOMPARE(window->size(), QSize(870, 500));
    window->resize(400, 300);
    QCOMPARE(window->size(), QSize(870, 500));
    QCOMPARE(window->sizePolicy().horizontalPolicy(), QSizePolicy::Expanding);
    QCOMPARE(window->sizePolicy().verticalPolicy(), QSizePolicy::Expanding);
    // Only the family is set on the window; the 15-pixel size comes from the application font.
    QCOMPARE(window->font().family(), QStringLiteral("Arial"));
    QCOMPARE(window->font().pixelSize(), 15);
}

void TestWinLayout::supportButtonPicture()
{
    const QImage image(QStringLiteral(":/icon/kofi_179x21.png"));
    QVERIFY(!image.isNull());
    QCOMPARE(image.size(), QSize(179, 21));
    const QIcon icon = window->ui->pushButton_KoFi->icon();
    QVERIFY(!icon.isNull());
    QCOMPARE(icon.availableSizes(QIcon::Normal, QIcon::Off), QList<QSize>{QSize(179, 21)});
    // Not a blank picture: both the badge and its lettering are there.
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            colours.insert(image.pixel(x, y));
    QVERIFY(colours.size() >= 3);
}

QTEST_MAIN(TestWinLayout)
#include "tst_win_layout.moc"

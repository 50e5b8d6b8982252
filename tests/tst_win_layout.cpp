// The widget tree, menus, actions and stacking of the main window as built at start-up.

#include "windowtestutil.h"

#include <QtTest>

using namespace wintest;

class TestWinLayout : public QObject {
    Q_OBJECT
    std::unique_ptr<TempWorkDir> work;
    std::unique_ptr<MainWindow> window;

private slots:
    void initTestCase()
    {
        QFont font(QStringLiteral("Arial"));
        font.setPixelSize(15);
        QApplication::setFont(font);
    }
    void init() { work = std::make_unique<TempWorkDir>(); window = startWindow(); }
    void cleanup() { window.reset(); work.reset(); }
    void objects_data(); void objects();
    void properties_data(); void properties();
    void comboItems_data(); void comboItems();
    void menus_data(); void menus();
    void frame();
};

void TestWinLayout::objects_data()
{
    QTest::addColumn<QString>("className");
    QTest::addColumn<QString>("parentName");
    QTest::addColumn<QRect>("geometry");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("flags");  // h: pointing-hand cursor, c: checkable, d: disabled at start-up
    auto row = [](const char* name, const char* cls, const char* parent, QRect r, const char* text, const char* flags) {
        QTest::newRow(name) << QString(cls) << QString(parent) << r << QString(text) << QString(flags);
    };
    auto action = [&](const char* name, const char* text, const char* flags) {
        row(name, "QAction", "MainWindow", {}, text, flags);
    };
    const char *central = "centralwidget", *extract = "groupBox_Extract", *archive = "groupBox_Archive";
    row("lineEdit_SrcFile", "QLineEdit", central, {100, 10, 761, 21}, "*** Drag and drop the File or Folder ***", "");
    row("pushButton_KoFi", "QPushButton", central, {682, 425, 179, 21}, "", "h");
    row("groupBox_Extract", "QGroupBox", central, {9, 250, 211, 151}, "Extract archive", "");
    row("label_Ba2Info1", "QLabel", extract, {10, 20, 191, 21}, "", "");
    row("label_Ba2Info2", "QLabel", extract, {10, 40, 191, 21}, "", "");
    row("pushButton_ExtractAll", "QPushButton", extract, {10, 120, 121, 21}, "Extract All", "hd");
    row("pushButton_File", "QPushButton", extract, {10, 90, 121, 21}, "Select Archive", "h");
    row("label_Ba2Info3", "QLabel", extract, {10, 60, 191, 21}, "", "");
    row("groupBox_Archive", "QGroupBox", central, {230, 250, 631, 151}, "Create archive", "");
    row("pushButton_Archive", "QPushButton", archive, {10, 120, 121, 21}, "Create Archive", "hd");
    row("label_Version", "QLabel", archive, {10, 20, 101, 21}, "Ba2 Version", "");
    row("comboBox_Ver", "QComboBox", archive, {10, 40, 361, 21}, "", "h");
    row("label_Compression", "QLabel", archive, {430, 20, 161, 21}, "Compression level", "");
    row("comboBox_zlibComp", "QComboBox", archive, {430, 40, 191, 21}, "", "h");
    row("comboBox_LZ4Comp", "QComboBox", archive, {430, 70, 191, 21}, "", "h");
    row("label_LZ4Compression", "QLabel", archive, {375, 70, 51, 21}, "Ver.3", "");
    row("label_zlibCompression", "QLabel", archive, {375, 40, 51, 21}, "Ver.1,2", "");
    row("comboBox_Format", "QComboBox", archive, {200, 90, 171, 21}, "", "h");
    row("label_Format", "QLabel", archive, {145, 90, 51, 21}, "Format", "");
    row("pushButton_SelFolder", "QPushButton", archive, {10, 90, 121, 21}, "Select Folder", "h");
    row("checkBox_assist", "QCheckBox", archive, {430, 120, 171, 22}, "BA2 Create assistance", "h");
    row("listWidget_Files", "QListWidget", central, {10, 40, 851, 201}, "", "");
    row("line_2", "QFrame", central, {0, 421, 871, 20}, "", "");
    row("line_3", "QFrame", central, {0, 431, 871, 20}, "", "");
    row("line_4", "QFrame", central, {0, 441, 871, 20}, "", "");
    row("line_1", "QFrame", central, {0, 411, 871, 20}, "", "");
    row("pushButton_ClearList", "QPushButton", central, {10, 10, 81, 21}, "Clear List", "hd");
    action("action_Exit", "Exit", "");
    action("action_Settings", "Settings...", "d");
    action("action_About_Zarnel", "About Zarnel (Zarnel Archive Manager)", "");
    action("action_About_Qt", "About Qt", "");
    action("action_Open_Archive", "Open Archive", "");
    action("action_Create_Archive_from_Folder", "Create Archive from Folder", "");
    action("action_BA2_Upgrader_deb", "BA2 Upgrader deb", "d");
    action("action_SFS_Editor_0x0369", "SFS Editor (0xB639)", "d");
    action("action_File_Compare", "File Compare", "d");
    action("action_DXGI_Checker_0x0639", "DXGI Checker (0x0A)", "d");
    action("action_Tal_Injector_deb", "Tal Injector deb", "d");
    action("action_Upgrade_Archive", "Upgrade Archive", "d");
    action("action_Full", "Full", "c");
    action("action_1000_Items", "Max 1000 Items", "c");
    action("action_NotShown", "Not shown", "c");
    action("action_Theme_Windows_default", "Wiindows default", "c");
    action("action_Theme_Starfield", "Starfield", "c");
    action("action_Theme_Fallout", "Fallout", "cd");
}

void TestWinLayout::objects()
{
    QFETCH(QString, className);
    QFETCH(QString, parentName);
    QFETCH(QRect, geometry);
    QFETCH(QString, text);
    QFETCH(QString, flags);
    const QList<QObject*> found = window->findChildren<QObject*>(QString(QTest::currentDataTag()));
    QCOMPARE(found.size(), 1);
    QObject* o = found.first();
    QCOMPARE(QString(o->metaObject()->className()), className);
    QCOMPARE(o->parent()->objectName(), parentName);
    QString shown, shownFlags;
    bool enabled = true;
    if (auto* a = qobject_cast<QAction*>(o)) {
        shown = a->text();
        shownFlags += a->isCheckable() ? "c" : "";
        enabled = a->isEnabled();
        QVERIFY(a->icon().isNull() && a->shortcut().isEmpty() && !a->actionGroup());
    }
    if (auto* w = qobject_cast<QWidget*>(o)) {
        QCOMPARE(w->geometry(), geometry);
        shownFlags += w->testAttribute(Qt::WA_SetCursor) && w->cursor().shape() == Qt::PointingHandCursor ? "h" : "";
        enabled = w->isEnabled();
    }
    if (auto* b = qobject_cast<QAbstractButton*>(o)) shown = b->text();
    if (auto* l = qobject_cast<QLabel*>(o)) shown = l->text();
    if (auto* g = qobject_cast<QGroupBox*>(o)) shown = g->title();
    if (auto* e = qobject_cast<QLineEdit*>(o)) shown = e->text();
    QCOMPARE(shown, text);
    QCOMPARE(shownFlags + (enabled ? "" : "d"), flags);
}

void TestWinLayout::properties_data()
{
    QTest::addColumn<QString>("object");
    QTest::addColumn<QByteArray>("property");
    QTest::addColumn<QVariant>("expected");  // flags and enums as plain numbers
    auto row = [](const QString& object, const char* property, const QVariant& expected) {
        QTest::newRow(qPrintable(object + QLatin1Char(' ') + QLatin1String(property)))
            << object << QByteArray(property) << expected;
    };
    row("MainWindow", "windowTitle", QString("Zarnel Archive Manager"));
    row("MainWindow", "acceptDrops", true);
    row("MainWindow", "styleSheet", QString());
    row("MainWindow", "locale", QLocale(QLocale::English, QLocale::UnitedStates));
    row("lineEdit_SrcFile", "readOnly", true);
    row("listWidget_Files", "editTriggers", int(QAbstractItemView::NoEditTriggers));
    row("listWidget_Files", "showDropIndicator", false);
    row("listWidget_Files", "sortingEnabled", false);
    row("pushButton_KoFi", "iconSize", QSize(179, 21));
    row("groupBox_Archive", "flat", false);
    row("groupBox_Archive", "checkable", false);
    for (const char* label : {"label_LZ4Compression", "label_zlibCompression", "label_Format"})
        row(label, "alignment", int(Qt::AlignRight | Qt::AlignVCenter));
    for (const char* stripe : {"line_1", "line_2", "line_3", "line_4"}) {
        row(stripe, "frameShape", int(QFrame::HLine));
        row(stripe, "frameShadow", int(QFrame::Plain));
        row(stripe, "lineWidth", 10);
        row(stripe, "minimumSize", QSize(10, 10));
        row(stripe, "autoFillBackground", false);
    }
    row("statusbar", "currentMessage", QString());
}

void TestWinLayout::properties()
{
    QFETCH(QString, object);
    QFETCH(QByteArray, property);
    QFETCH(QVariant, expected);
    QObject* o = object == QLatin1String("MainWindow") ? window.get() : window->findChild<QObject*>(object);
    QVERIFY(o);
    QVariant actual = o->property(property.constData());
    if (property == "currentMessage") actual = static_cast<QStatusBar*>(o)->currentMessage();
    if (expected.userType() == QMetaType::Int) actual = actual.toInt();
    QCOMPARE(actual, expected);
}

void TestWinLayout::comboItems_data()
{
    QTest::addColumn<QStringList>("items");
    QTest::addColumn<QString>("enabled");  // per item at start-up
    QTest::newRow("comboBox_Ver") << QStringList{"Version 1 (for Fallout4/76 General, Texture)",
                                                 "Version 2 (for Starfield General, Texture)",
                                                 "Version 3 (for Starfield Texture only)",
                                                 "BSA (for Skyrim/Fallout3...)"} << "1100";
    QTest::newRow("comboBox_zlibComp") << QStringList{"1 (Fast decompression)", "2", "3", "4", "5",
                                                      "6 (Default by Bethesda)", "7", "8", "9 (High compression)",
                                                      "0 (No compression)"} << "1111111111";
    QTest::newRow("comboBox_LZ4Comp") << QStringList{"Default by LZ4 (16KB)", "Close to Bethesda (1GB)",
                                                     "No compression"} << "111";
    QTest::newRow("comboBox_Format") << QStringList{"General (non-texture)", "DDS (texture only)"} << "11";
}

void TestWinLayout::comboItems()
{
    QFETCH(QStringList, items);
    QFETCH(QString, enabled);
    auto* combo = window->findChild<QComboBox*>(QString(QTest::currentDataTag()));
    auto* model = qobject_cast<QStandardItemModel*>(combo->model());
    QStringList texts;
    QString states;
    for (int i = 0; i < combo->count(); ++i) {
        texts << combo->itemText(i);
        states += model->item(i)->isEnabled() ? QLatin1Char('1') : QLatin1Char('0');
    }
    QCOMPARE(texts, items);
    QCOMPARE(states, enabled);
}

void TestWinLayout::menus_data()
{
    QTest::addColumn<QString>("parentName");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QStringList>("entries");  // "-" a separator, ">Title" a submenu
    QTest::newRow("menubar") << "MainWindow" << "" << QStringList{">File", ">Archive", ">Display", ">Help"};
    QTest::newRow("menuFile") << "menubar" << "File" << QStringList{"Exit"};
    QTest::newRow("menuArchive") << "menubar" << "Archive"
                                 << QStringList{"Open Archive", "Create Archive from Folder", "Upgrade Archive", "-",
                                                "Settings..."};
    QTest::newRow("menuDisplay") << "menubar" << "Display" << QStringList{">List View", ">Theme"};
    QTest::newRow("menuList_View") << "menuDisplay" << "List View"
                                   << QStringList{"Full", "Max 1000 Items", "Not shown"};
    QTest::newRow("menuTheme") << "menuDisplay" << "Theme" << QStringList{"Wiindows default", "Starfield", "Fallout"};
    QTest::newRow("menuHelp") << "menubar" << "Help"
                              << QStringList{"About Zarnel (Zarnel Archive Manager)", "About Qt", ">BAADF00D"};
    QTest::newRow("menuBAADF00D") << "menuHelp" << "BAADF00D"
                                  << QStringList{"BA2 Upgrader deb", "SFS Editor (0xB639)", "File Compare",
                                                 "DXGI Checker (0x0A)", "Tal Injector deb"};
}

void TestWinLayout::menus()
{
    QFETCH(QString, parentName);
    QFETCH(QString, title);
    QFETCH(QStringList, entries);
    auto* menu = window->findChild<QWidget*>(QString(QTest::currentDataTag()));
    QCOMPARE(menu->parent()->objectName(), parentName);
    auto* asMenu = qobject_cast<QMenu*>(menu);
    QCOMPARE(asMenu ? asMenu->title() : QString(), title);
    QStringList actual;
    for (QAction* a : menu->actions())
        actual << (a->isSeparator() ? QStringLiteral("-")
                   : a->menu()      ? QLatin1Char('>') + a->menu()->title()
                                    : a->text());
    QCOMPARE(actual, entries);
    // Submenus open even when every entry inside is greyed out.
    if (asMenu) QVERIFY(asMenu->menuAction()->isEnabled());
}

void TestWinLayout::frame()
{
    QVERIFY(window->menuBar() == window->ui->menubar && window->statusBar() == window->ui->statusbar
            && window->centralWidget() == window->ui->centralwidget);
    // The main window's layout resizes the menu bar to its font; its place and width stay.
    QCOMPARE(window->ui->menubar->geometry().topLeft(), QPoint(0, 0));
    QCOMPARE(window->ui->menubar->width(), 870);

    // A widget's children run from the bottom of the stack to the top; the support button must
    // win clicks over the stripes it lies on.
    QStringList order;
    for (QObject* child : window->ui->centralwidget->children())
        if (child->isWidgetType()) order << child->objectName();
    QCOMPARE(order, (QStringList{"groupBox_Archive", "lineEdit_SrcFile", "groupBox_Extract", "listWidget_Files",
                                 "line_2", "line_3", "line_4", "line_1", "pushButton_KoFi", "pushButton_ClearList"}));
    QCOMPARE(window->ui->centralwidget->childAt(window->ui->pushButton_KoFi->geometry().center()),
             static_cast<QWidget*>(window->ui->pushButton_KoFi));

    for (QSize size : {QSize(1000, 700), QSize(400, 300)}) {
        window->resize(size);
        QCOMPARE(window->size(), QSize(870, 500));
    }
    QCOMPARE(window->sizePolicy(), QSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding));
    // Only the family is set on the window; the 15-pixel size comes from the application font.
    QCOMPARE(window->font().family(), QStringLiteral("Arial"));
    QCOMPARE(window->font().pixelSize(), 15);

    // The support button's picture: 179 x 21, not blank (badge and lettering).
    const QImage image(QStringLiteral(":/icon/kofi_179x21.png"));
    QCOMPARE(image.size(), QSize(179, 21));
    QCOMPARE(window->ui->pushButton_KoFi->icon().availableSizes(), QList<QSize>{QSize(179, 21)});
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) colours.insert(image.pixel(x, y));
    QVERIFY(colours.size() >= 3);
}

QTEST_MAIN(TestWinLayout)
#include "tst_win_layout.moc"

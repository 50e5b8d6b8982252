#include "app/ui_mainwindow.h"

#include "app/mainwindow.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QCursor>
#include <QFrame>
#include <QGroupBox>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QLocale>
#include <QMenu>
#include <QMenuBar>
#include <QMetaObject>
#include <QPushButton>
#include <QStatusBar>

namespace {

QAction* makeAction(::MainWindow* window, const char* name, bool checkable = false)
{
    auto* action = new QAction(window);
    action->setObjectName(QString::fromLatin1(name));
    if (checkable) action->setCheckable(true);
    return action;
}

template<typename W>
W* makeWidget(QWidget* parent, const char* name, int x, int y, int w, int h)
{
    auto* widget = new W(parent);
    widget->setObjectName(QString::fromLatin1(name));
    widget->setGeometry(QRect(x, y, w, h));
    return widget;
}

void setHandCursor(QWidget* widget)
{
    widget->setCursor(QCursor(Qt::PointingHandCursor));
}

// The four coloured stripes behind the support button: only theme 1 shows them.
QFrame* makeStripe(QWidget* parent, const char* name, int y)
{
    auto* line = makeWidget<QFrame>(parent, name, 0, y, 871, 20);
    line->setMinimumSize(QSize(10, 10));
    line->setAutoFillBackground(false);
    line->setStyleSheet(QString());
    line->setFrameShadow(QFrame::Plain);
    line->setLineWidth(10);
    line->setFrameShape(QFrame::HLine);
    return line;
}

// Items start empty; retranslateUi gives them their texts.
void addEmptyItems(QComboBox* combo, int count)
{
    for (int i = 0; i < count; ++i)
        combo->addItem(QString());
}

constexpr Qt::Alignment rightCentred = Qt::AlignRight | Qt::AlignTrailing | Qt::AlignVCenter;

} // namespace

void Ui_MainWindow::setupUi(::MainWindow* window)
{
    if (window->objectName().isEmpty()) window->setObjectName(QString::fromLatin1("MainWindow"));
    window->resize(870, 500);
    QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    policy.setHorizontalStretch(0);
    policy.setVerticalStretch(0);
    policy.setHeightForWidth(window->sizePolicy().hasHeightForWidth());
    window->setSizePolicy(policy);
    window->setMinimumSize(QSize(870, 500));
    window->setMaximumSize(QSize(870, 500));
    QFont font;
    font.setFamily(QString::fromLatin1("Arial"));
    window->setFont(font);
    window->setAcceptDrops(true);
    window->setStyleSheet(QString());
    window->setLocale(QLocale(QLocale::English, QLocale::UnitedStates));

    action_Exit = makeAction(window, "action_Exit");
    action_Settings = makeAction(window, "action_Settings");
    action_About_Zarnel = makeAction(window, "action_About_Zarnel");
    action_About_Qt = makeAction(window, "action_About_Qt");
    action_Open_Archive = makeAction(window, "action_Open_Archive");
    action_Create_Archive_from_Folder = makeAction(window, "action_Create_Archive_from_Folder");
    action_BA2_Upgrader_deb = makeAction(window, "action_BA2_Upgrader_deb");
    action_SFS_Editor_0x0369 = makeAction(window, "action_SFS_Editor_0x0369");
    action_File_Compare = makeAction(window, "action_File_Compare");
    action_DXGI_Checker_0x0639 = makeAction(window, "action_DXGI_Checker_0x0639");
    action_Tal_Injector_deb = makeAction(window, "action_Tal_Injector_deb");
    action_Upgrade_Archive = makeAction(window, "action_Upgrade_Archive");
    action_Full = makeAction(window, "action_Full", true);
    action_1000_Items = makeAction(window, "action_1000_Items", true);
    action_NotShown = makeAction(window, "action_NotShown", true);
    action_Theme_Windows_default = makeAction(window, "action_Theme_Windows_default", true);
    action_Theme_Starfield = makeAction(window, "action_Theme_Starfield", true);
    action_Theme_Fallout = makeAction(window, "action_Theme_Fallout", true);

    centralwidget = new QWidget(window);
    centralwidget->setObjectName(QString::fromLatin1("centralwidget"));

    lineEdit_SrcFile = makeWidget<QLineEdit>(centralwidget, "lineEdit_SrcFile", 100, 10, 761, 21);
    lineEdit_SrcFile->setReadOnly(true);

    pushButton_KoFi = makeWidget<QPushButton>(centralwidget, "pushButton_KoFi", 682, 425, 179, 21);
    setHandCursor(pushButton_KoFi);
    // The picture lives in a static library; registering it here keeps the linker from dropping it.
    Q_INIT_RESOURCE(resources);
    QIcon kofi;
    kofi.addFile(QString::fromLatin1(":/icon/kofi_179x21.png"), QSize(), QIcon::Normal, QIcon::Off);
    pushButton_KoFi->setIcon(kofi);
    pushButton_KoFi->setIconSize(QSize(179, 21));

    groupBox_Extract = makeWidget<QGroupBox>(centralwidget, "groupBox_Extract", 9, 250, 211, 151);
    label_Ba2Info1 = makeWidget<QLabel>(groupBox_Extract, "label_Ba2Info1", 10, 20, 191, 21);
    label_Ba2Info2 = makeWidget<QLabel>(groupBox_Extract, "label_Ba2Info2", 10, 40, 191, 21);
    pushButton_ExtractAll
        = makeWidget<QPushButton>(groupBox_Extract, "pushButton_ExtractAll", 10, 120, 121, 21);
    setHandCursor(pushButton_ExtractAll);
    pushButton_File = makeWidget<QPushButton>(groupBox_Extract, "pushButton_File", 10, 90, 121, 21);
    setHandCursor(pushButton_File);
    label_Ba2Info3 = makeWidget<QLabel>(groupBox_Extract, "label_Ba2Info3", 10, 60, 191, 21);

    groupBox_Archive = makeWidget<QGroupBox>(centralwidget, "groupBox_Archive", 230, 250, 631, 151);
    groupBox_Archive->setFlat(false);
    groupBox_Archive->setCheckable(false);
    pushButton_Archive
        = makeWidget<QPushButton>(groupBox_Archive, "pushButton_Archive", 10, 120, 121, 21);
    setHandCursor(pushButton_Archive);
    label_Version = makeWidget<QLabel>(groupBox_Archive, "label_Version", 10, 20, 101, 21);
    comboBox_Ver = makeWidget<QComboBox>(groupBox_Archive, "comboBox_Ver", 10, 40, 361, 21);
    addEmptyItems(comboBox_Ver, 4);
    setHandCursor(comboBox_Ver);
    label_Compression = makeWidget<QLabel>(groupBox_Archive, "label_Compression", 430, 20, 161, 21);
    comboBox_zlibComp
        = makeWidget<QComboBox>(groupBox_Archive, "comboBox_zlibComp", 430, 40, 191, 21);
    addEmptyItems(comboBox_zlibComp, 10);
    setHandCursor(comboBox_zlibComp);
    comboBox_LZ4Comp
        = makeWidget<QComboBox>(groupBox_Archive, "comboBox_LZ4Comp", 430, 70, 191, 21);
    addEmptyItems(comboBox_LZ4Comp, 3);
    setHandCursor(comboBox_LZ4Comp);
    label_LZ4Compression
        = makeWidget<QLabel>(groupBox_Archive, "label_LZ4Compression", 375, 70, 51, 21);
    label_LZ4Compression->setAlignment(rightCentred);
    label_zlibCompression
        = makeWidget<QLabel>(groupBox_Archive, "label_zlibCompression", 375, 40, 51, 21);
    label_zlibCompression->setAlignment(rightCentred);
    comboBox_Format = makeWidget<QComboBox>(groupBox_Archive, "comboBox_Format", 200, 90, 171, 21);
    addEmptyItems(comboBox_Format, 2);
    setHandCursor(comboBox_Format);
    label_Format = makeWidget<QLabel>(groupBox_Archive, "label_Format", 145, 90, 51, 21);
    label_Format->setAlignment(rightCentred);
    pushButton_SelFolder
        = makeWidget<QPushButton>(groupBox_Archive, "pushButton_SelFolder", 10, 90, 121, 21);
    setHandCursor(pushButton_SelFolder);
    checkBox_assist = makeWidget<QCheckBox>(groupBox_Archive, "checkBox_assist", 430, 120, 171, 22);
    setHandCursor(checkBox_assist);

    listWidget_Files = makeWidget<QListWidget>(centralwidget, "listWidget_Files", 10, 40, 851, 201);
    listWidget_Files->setEditTriggers(QAbstractItemView::NoEditTriggers);
    listWidget_Files->setProperty("showDropIndicator", QVariant(false));
    listWidget_Files->setSortingEnabled(false);

    line_2 = makeStripe(centralwidget, "line_2", 421);
    line_3 = makeStripe(centralwidget, "line_3", 431);
    line_4 = makeStripe(centralwidget, "line_4", 441);
    line_1 = makeStripe(centralwidget, "line_1", 411);

    pushButton_ClearList
        = makeWidget<QPushButton>(centralwidget, "pushButton_ClearList", 10, 10, 81, 21);
    setHandCursor(pushButton_ClearList);

    window->setCentralWidget(centralwidget);
    // Bottom to top; the support button must lie above the stripes it overlaps.
    for (QWidget* w :
         {static_cast<QWidget*>(groupBox_Archive), static_cast<QWidget*>(lineEdit_SrcFile),
          static_cast<QWidget*>(groupBox_Extract), static_cast<QWidget*>(listWidget_Files),
          static_cast<QWidget*>(line_2), static_cast<QWidget*>(line_3),
          static_cast<QWidget*>(line_4), static_cast<QWidget*>(line_1),
          static_cast<QWidget*>(pushButton_KoFi), static_cast<QWidget*>(pushButton_ClearList)})
        w->raise();

    menubar = new QMenuBar(window);
    menubar->setObjectName(QString::fromLatin1("menubar"));
    menubar->setGeometry(QRect(0, 0, 870, 21));
    menuFile = new QMenu(menubar);
    menuFile->setObjectName(QString::fromLatin1("menuFile"));
    menuArchive = new QMenu(menubar);
    menuArchive->setObjectName(QString::fromLatin1("menuArchive"));
    menuHelp = new QMenu(menubar);
    menuHelp->setObjectName(QString::fromLatin1("menuHelp"));
    menuBAADF00D = new QMenu(menuHelp);
    menuBAADF00D->setObjectName(QString::fromLatin1("menuBAADF00D"));
    menuDisplay = new QMenu(menubar);
    menuDisplay->setObjectName(QString::fromLatin1("menuDisplay"));
    menuList_View = new QMenu(menuDisplay);
    menuList_View->setObjectName(QString::fromLatin1("menuList_View"));
    menuTheme = new QMenu(menuDisplay);
    menuTheme->setObjectName(QString::fromLatin1("menuTheme"));
    window->setMenuBar(menubar);
    statusbar = new QStatusBar(window);
    statusbar->setObjectName(QString::fromLatin1("statusbar"));
    window->setStatusBar(statusbar);

    menubar->addAction(menuFile->menuAction());
    menubar->addAction(menuArchive->menuAction());
    menubar->addAction(menuDisplay->menuAction());
    menubar->addAction(menuHelp->menuAction());
    menuFile->addAction(action_Exit);
    menuArchive->addAction(action_Open_Archive);
    menuArchive->addAction(action_Create_Archive_from_Folder);
    menuArchive->addAction(action_Upgrade_Archive);
    menuArchive->addSeparator();
    menuArchive->addAction(action_Settings);
    menuDisplay->addAction(menuList_View->menuAction());
    menuDisplay->addAction(menuTheme->menuAction());
    menuList_View->addAction(action_Full);
    menuList_View->addAction(action_1000_Items);
    menuList_View->addAction(action_NotShown);
    menuTheme->addAction(action_Theme_Windows_default);
    menuTheme->addAction(action_Theme_Starfield);
    menuTheme->addAction(action_Theme_Fallout);
    menuHelp->addAction(action_About_Zarnel);
    menuHelp->addAction(action_About_Qt);
    menuHelp->addAction(menuBAADF00D->menuAction());
    menuBAADF00D->addAction(action_BA2_Upgrader_deb);
    menuBAADF00D->addAction(action_SFS_Editor_0x0369);
    menuBAADF00D->addAction(action_File_Compare);
    menuBAADF00D->addAction(action_DXGI_Checker_0x0639);
    menuBAADF00D->addAction(action_Tal_Injector_deb);

    retranslateUi(window);
    QMetaObject::connectSlotsByName(window);
}

void Ui_MainWindow::retranslateUi(::MainWindow* window)
{
    auto tr = [](const char* text) {
        return QCoreApplication::translate("MainWindow", text);
    };
    window->setWindowTitle(tr("Zarnel Archive Manager"));
    action_Exit->setText(tr("Exit"));
    action_Settings->setText(tr("Settings..."));
    action_About_Zarnel->setText(tr("About Zarnel (Zarnel Archive Manager)"));
    action_About_Qt->setText(tr("About Qt"));
    action_Open_Archive->setText(tr("Open Archive"));
    action_Create_Archive_from_Folder->setText(tr("Create Archive from Folder"));
    action_BA2_Upgrader_deb->setText(tr("BA2 Upgrader deb"));
    action_SFS_Editor_0x0369->setText(tr("SFS Editor (0xB639)"));
    action_File_Compare->setText(tr("File Compare"));
    action_DXGI_Checker_0x0639->setText(tr("DXGI Checker (0x0A)"));
    action_Tal_Injector_deb->setText(tr("Tal Injector deb"));
    action_Upgrade_Archive->setText(tr("Upgrade Archive"));
    action_Full->setText(tr("Full"));
    action_1000_Items->setText(tr("Max 1000 Items"));
    action_NotShown->setText(tr("Not shown"));
    action_Theme_Windows_default->setText(tr("Wiindows default"));
    action_Theme_Starfield->setText(tr("Starfield"));
    action_Theme_Fallout->setText(tr("Fallout"));
    pushButton_KoFi->setText(QString());
    groupBox_Extract->setTitle(tr("Extract archive"));
    label_Ba2Info1->setText(QString());
    label_Ba2Info2->setText(QString());
    pushButton_ExtractAll->setText(tr("Extract All"));
    pushButton_File->setText(tr("Select Archive"));
    label_Ba2Info3->setText(QString());
    groupBox_Archive->setTitle(tr("Create archive"));
    pushButton_Archive->setText(tr("Create Archive"));
    label_Version->setText(tr("Ba2 Version"));
    comboBox_Ver->setItemText(0, tr("Version 1 (for Fallout4/76 General, Texture)"));
    comboBox_Ver->setItemText(1, tr("Version 2 (for Starfield General, Texture)"));
    comboBox_Ver->setItemText(2, tr("Version 3 (for Starfield Texture only)"));
    comboBox_Ver->setItemText(3, tr("BSA (for Skyrim/Fallout3...)"));
    label_Compression->setText(tr("Compression level"));
    comboBox_zlibComp->setItemText(0, tr("1 (Fast decompression)"));
    comboBox_zlibComp->setItemText(1, tr("2"));
    comboBox_zlibComp->setItemText(2, tr("3"));
    comboBox_zlibComp->setItemText(3, tr("4"));
    comboBox_zlibComp->setItemText(4, tr("5"));
    comboBox_zlibComp->setItemText(5, tr("6 (Default by Bethesda)"));
    comboBox_zlibComp->setItemText(6, tr("7"));
    comboBox_zlibComp->setItemText(7, tr("8"));
    comboBox_zlibComp->setItemText(8, tr("9 (High compression)"));
    comboBox_zlibComp->setItemText(9, tr("0 (No compression)"));
    comboBox_LZ4Comp->setItemText(0, tr("Default by LZ4 (16KB)"));
    comboBox_LZ4Comp->setItemText(1, tr("Close to Bethesda (1GB)"));
    comboBox_LZ4Comp->setItemText(2, tr("No compression"));
    label_LZ4Compression->setText(tr("Ver.3"));
    label_zlibCompression->setText(tr("Ver.1,2"));
    comboBox_Format->setItemText(0, tr("General (non-texture)"));
    comboBox_Format->setItemText(1, tr("DDS (texture only)"));
    label_Format->setText(tr("Format"));
    pushButton_SelFolder->setText(tr("Select Folder"));
    checkBox_assist->setText(tr("BA2 Create assistance"));
    pushButton_ClearList->setText(tr("Clear List"));
    menuFile->setTitle(tr("File"));
    menuArchive->setTitle(tr("Archive"));
    menuHelp->setTitle(tr("Help"));
    menuBAADF00D->setTitle(tr("BAADF00D"));
    menuDisplay->setTitle(tr("Display"));
    menuList_View->setTitle(tr("List View"));
    menuTheme->setTitle(tr("Theme"));
}

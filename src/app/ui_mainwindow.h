#pragma once
// The widget holder of the main window, written by hand rather than generated: one pointer per
// action, widget and menu, in creation order. The holder owns nothing; Qt's parent chain does.

class MainWindow;
class QAction;
class QCheckBox;
class QComboBox;
class QFrame;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QMenu;
class QMenuBar;
class QPushButton;
class QStatusBar;
class QWidget;

class Ui_MainWindow
{
public:
    QAction* action_Exit = nullptr;
    QAction* action_Settings = nullptr;
    QAction* action_About_Zarnel = nullptr;
    QAction* action_About_Qt = nullptr;
    QAction* action_Open_Archive = nullptr;
    QAction* action_Create_Archive_from_Folder = nullptr;
    QAction* action_BA2_Upgrader_deb = nullptr;
    QAction* action_SFS_Editor_0x0369 = nullptr;
    QAction* action_File_Compare = nullptr;
    QAction* action_DXGI_Checker_0x0639 = nullptr;
    QAction* action_Tal_Injector_deb = nullptr;
    QAction* action_Upgrade_Archive = nullptr;
    QAction* action_Full = nullptr;
    QAction* action_1000_Items = nullptr;
    QAction* action_NotShown = nullptr;
    QAction* action_Theme_Windows_default = nullptr;
    QAction* action_Theme_Starfield = nullptr;
    QAction* action_Theme_Fallout = nullptr;
    QWidget* centralwidget = nullptr;
    QLineEdit* lineEdit_SrcFile = nullptr;
    QPushButton* pushButton_KoFi = nullptr;
    QGroupBox* groupBox_Extract = nullptr;
    QLabel* label_Ba2Info1 = nullptr;
    QLabel* label_Ba2Info2 = nullptr;
    QPushButton* pushButton_ExtractAll = nullptr;
    QPushButton* pushButton_File = nullptr;
    QLabel* label_Ba2Info3 = nullptr;
    QGroupBox* groupBox_Archive = nullptr;
    QPushButton* pushButton_Archive = nullptr;
    QLabel* label_Version = nullptr;
    QComboBox* comboBox_Ver = nullptr;
    QLabel* label_Compression = nullptr;
    QComboBox* comboBox_zlibComp = nullptr;
    QComboBox* comboBox_LZ4Comp = nullptr;
    QLabel* label_LZ4Compression = nullptr;
    QLabel* label_zlibCompression = nullptr;
    QComboBox* comboBox_Format = nullptr;
    QLabel* label_Format = nullptr;
    QPushButton* pushButton_SelFolder = nullptr;
    QCheckBox* checkBox_assist = nullptr;
    QListWidget* listWidget_Files = nullptr;
    QFrame* line_2 = nullptr;
    QFrame* line_3 = nullptr;
    QFrame* line_4 = nullptr;
    QFrame* line_1 = nullptr;
    QPushButton* pushButton_ClearList = nullptr;
    QMenuBar* menubar = nullptr;
    QMenu* menuFile = nullptr;
    QMenu* menuArchive = nullptr;
    QMenu* menuHelp = nullptr;
    QMenu* menuBAADF00D = nullptr;
    QMenu* menuDisplay = nullptr;
    QMenu* menuList_View = nullptr;
    QMenu* menuTheme = nullptr;
    QStatusBar* statusbar = nullptr;

    // Builds every object once, sets all texts, then binds the on_<name>_<signal> slots.
    void setupUi(::MainWindow* window);
    // Sets every visible text through the translation context "MainWindow".
    void retranslateUi(::MainWindow* window);
};

namespace Ui {
class MainWindow : public Ui_MainWindow
{ };
} // namespace Ui

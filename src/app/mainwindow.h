#pragma once
// The one window of the program. All state lives in its members; its member functions are
// spread over src/app (start-up, settings, layout, themes) and src/operations (slots, UI state,
// loading, list, assistance, commands).

#include "archive/format.h"
#include "creation/gather.h"
#include "creation/sourceentry.h"

#include <QMainWindow>
#include <QString>

#include <cstdint>
#include <vector>

class ArchiveReader;
class QDragEnterEvent;
class QDropEvent;
class QListWidgetItem;
class QMenu;
class QProgressDialog;

namespace Ui {
class MainWindow;
}

class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    void setArg(int argc, char** argv);
    void initialize();
    void saveSettings();

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private slots:
    void on_pushButton_File_clicked();
    void on_pushButton_ExtractAll_clicked();
    void on_pushButton_SelFolder_clicked();
    void on_pushButton_Archive_clicked();
    void on_comboBox_Ver_activated(int index);
    void on_comboBox_Format_activated(int index);
    void on_comboBox_zlibComp_activated(int index);
    void on_comboBox_LZ4Comp_activated(int index);
    void on_pushButton_KoFi_clicked();
    void on_action_About_Zarnel_triggered();
    void on_action_About_Qt_triggered();
    void on_action_Exit_triggered();
    void on_action_Settings_triggered();
    void on_action_Open_Archive_triggered();
    void on_action_Create_Archive_from_Folder_triggered();
    void on_checkBox_assist_clicked(bool checked);
    void on_listWidget_Files_itemClicked(QListWidgetItem* item);
    void on_action_Full_triggered();
    void on_action_1000_Items_triggered();
    void on_action_NotShown_triggered();
    void on_action_Theme_Windows_default_triggered();
    void on_action_Theme_Starfield_triggered();
    void on_action_Theme_Fallout_triggered();
    void on_pushButton_ClearList_clicked();

public:
    // --- operations (src/operations) ---
    void updateUi();
    void loadSettings();
    void applyStartupTheme();
    // Load sequence of a drop, the command line and Select Folder (clearAfterFailure: not at
    // start-up).
    void runLoadSequence(const QStringList& paths, bool clearAfterFailure);
    LoadStatus loadSourcePath(const QString& path, int pathCount, QProgressDialog* progress);
    static bool hasSuffix(const QString& path, const QString& extension);
    LoadStatus loadPath(const QString& path, LoadMode mode);
    LoadStatus scanSourceFolder(const QString& path, bool recursing, QProgressDialog* progress);
    void fillArchiveList();
    void fillSourceList();
    void runCreateAssistance();
    void createArchive(const QString& targetPath);
    void releaseSources();
    // The "Reading Files..." dialog of the load sequences, shown.
    QProgressDialog* makeReadingDialog();
    // The engine dialog of Create Archive / Extract All, not shown.
    QProgressDialog* makeEngineDialog(const QString& label);
    // Tear-down shared by the destructor and Exit.
    void tearDown();
    // The file list's selection and context menu (Extract Selected, Copy Names).
    void setupFileListMenu();
    QMenu* makeFileListMenu();
    std::vector<uint32_t> selectedFileRows() const;
    void copySelectedNames();
    void extractSelected();
    // Extract All (selection null) or Extract Selected: folder dialog, engine, status bar.
    void runExtraction(const std::vector<uint32_t>* selection);

    // --- members, in declaration order ---
    NameHashTable hashTable; // nameHashTable and nameHashReady
    int32_t argCount = 0;
    char** argValues = nullptr;
    Ui::MainWindow* ui = nullptr;
    ArchiveReader* reader = nullptr;
    bool readerActive = false;
    QString sourcePath;
    QString ba2Info1;
    QString ba2Info2;
    QString ba2Info3;
    bool extractEnabled = false;
    bool archiveEnabled = false;
    SourceList sources;
    uint8_t sourceKind = 0;
    uint32_t rootPrefixLength = 0; // wider than a byte so long Linux paths gather correctly
    QString rootFolderName;
    bool ver3Enabled = false;
    bool allDds = false;
    bool allCompressible = false;
    QString iniFileName;
    int32_t archiveFormat = 0;
    int32_t archiveVersion = 0;
    int32_t zlibLevel = 1;
    int32_t lz4Mode = 1;
    int32_t createAssistance = 1;
    int32_t saveStringTable = 1;
    int32_t maxChunkCount = 4;
    int32_t singleMipChunkAreaWidth = 512;
    int32_t singleMipChunkAreaHeight = 512;
    int32_t listView = 1;
    int32_t theme = 1;
    QString extractAllDir;
    QString openArchiveDir;
    QString createArchiveDir;
    QString dropFileDir;
    // The list's first fileItemCount rows are files (of the archive when fileItemsAreArchive,
    // else sources); any rows after them are marker lines.
    uint32_t fileItemCount = 0;
    bool fileItemsAreArchive = false;

private:
    bool tornDown = false;
};

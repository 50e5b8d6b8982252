// How paths reach the window: drag and drop, Open Archive, Select Folder, the command line;
// the "Reading Files..." sequence around them, and Clear List.

#include "app/dialogs.h"
#include "app/mainwindow.h"
#include "app/ui_mainwindow.h"
#include "archive/archivereader.h"
#include "archive/status.h"

#include <QApplication>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFile>
#include <QFileInfo>
#include <QListWidget>
#include <QMimeData>
#include <QProgressDialog>
#include <QStatusBar>
#include <QUrl>

#include <memory>

namespace {

// Both long-operation dialogs share this recipe; only the label and whether it is shown differ.
QProgressDialog* makeProgressDialog(QWidget* parent, const QString& label)
{
    auto* dialog
        = new QProgressDialog(label, QStringLiteral("Cancel"), 0, 0, parent, Qt::WindowFlags());
    dialog->setWindowFlags(dialog->windowFlags() & ~Qt::WindowContextHelpButtonHint
                           & ~Qt::WindowCloseButtonHint);
    dialog->setWindowModality(Qt::WindowModal);
    dialog->setMinimum(0);
    dialog->setMaximum(0);
    return dialog;
}

// Closes and disposes of a dialog made by makeProgressDialog.
struct DialogCloser
{
    void operator()(QProgressDialog* dialog) const
    {
        dialog->close();
        delete dialog;
    }
};
using DialogHandle = std::unique_ptr<QProgressDialog, DialogCloser>;

// Only an archive's first bytes tell it apart from a file that merely carries the suffix.
bool startsWithArchiveMagic(const QString& path, const QByteArray& magic)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return false;
    return file.read(4) == magic;
}

void resetList(QListWidget* list)
{
    list->hide();
    list->setSortingEnabled(false);
    list->setEnabled(false);
    list->clear();
}

} // namespace

QProgressDialog* MainWindow::makeReadingDialog()
{
    QProgressDialog* dialog = makeProgressDialog(this, QStringLiteral("Reading Files..."));
    dialog->setValue(0);
    dialog->setStyleSheet(QStringLiteral("QLabel{min-width: 400px;}"));
    dialog->show();
    QApplication::processEvents();
    return dialog;
}

QProgressDialog* MainWindow::makeEngineDialog(const QString& label)
{
    QProgressDialog* dialog = makeProgressDialog(this, label);
    dialog->setStyleSheet(QStringLiteral("QLabel{min-width: 400px;}"));
    return dialog;
}

bool MainWindow::hasSuffix(const QString& path, const QString& extension)
{
    return path.trimmed().endsWith(QLatin1Char('.') + extension, Qt::CaseInsensitive);
}

void MainWindow::releaseSources()
{
    sources.releaseSources();
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event)
{
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event)
{
    const QMimeData* mime = event->mimeData();
    if (!mime->hasUrls()) return;
    statusBar()->clearMessage();
    QStringList paths;
    const QList<QUrl> urls = mime->urls();
    for (const QUrl& url : urls)
        paths << url.toLocalFile();
    if (paths.isEmpty()) return;
    runLoadSequence(paths, true);
}

void MainWindow::runLoadSequence(const QStringList& paths, bool clearAfterFailure)
{
    DialogHandle dialog(makeReadingDialog());
    LoadStatus status = LoadStatus::Loaded;
    for (const QString& path : paths) {
        rootFolderName.clear();
        rootPrefixLength = 0;
        status = loadSourcePath(path, paths.size(), dialog.get());
        if (status != LoadStatus::Loaded) break;
    }
    if (status == LoadStatus::Loaded && sourceKind == 2) {
        QApplication::processEvents();
        sources.sortSources();
        QApplication::processEvents();
        fillSourceList();
        QApplication::processEvents();
        runCreateAssistance();
    }
    dialog.reset();
    if (status == LoadStatus::Loaded) return;

    Dialogs::current().showMessage(QMessageBox::Information, outcomeTitle(status),
                                   outcomeText(status));
    if (clearAfterFailure) on_pushButton_ClearList_clicked();
}

LoadStatus MainWindow::loadSourcePath(const QString& path, int pathCount, QProgressDialog* progress)
{
    progress->setValue(0);
    QApplication::processEvents();
    sourcePath = path;
    archiveEnabled = false;
    updateUi();

    // Several paths dropped together are always gathered, even archives among them.
    const bool isDirectory = QFileInfo(path).isDir();
    const bool ba2 = hasSuffix(path, QStringLiteral("ba2"))
        && startsWithArchiveMagic(path, QByteArrayLiteral("BTDX"));
    const bool bsa = hasSuffix(path, QStringLiteral("bsa"))
        && startsWithArchiveMagic(path, QByteArray("BSA", 4));
    if (!isDirectory && pathCount == 1 && (ba2 || bsa)) {
        sourceKind = 1;
        return loadPath(path, Archive);
    }

    if (sourceKind == 1) {
        resetList(ui->listWidget_Files);
        QApplication::processEvents();
    }
    sourceKind = 2;

    const LoadStatus status = scanSourceFolder(path, false, progress);
    if (status == LoadStatus::Canceled) {
        releaseSources();
        resetList(ui->listWidget_Files);
        return status;
    }
    if (isFailure(status)) return status;
    QApplication::processEvents();
    progress->setValue(0);
    QApplication::processEvents();
    return LoadStatus::Loaded;
}

// Open Archive
void MainWindow::on_pushButton_File_clicked()
{
    const QString fileName
        = Dialogs::current().getOpenFileName(this, QStringLiteral("Open Archive"), openArchiveDir,
                                             QStringLiteral("BA2 Archive (*.ba2);;"
                                                            "BSA Archive (*.bsa)"));
    if (fileName.isEmpty()) return;
    QString head, tail;
    splitPath(fileName, QStringLiteral("/"), head, tail);
    openArchiveDir = head;
    saveSettings();

    // Unlike the other load sequences this one reports nothing itself: a refused archive
    // shows as "BA2 Error." in the information line.
    DialogHandle dialog(makeReadingDialog());
    rootFolderName.clear();
    rootPrefixLength = 0;
    loadSourcePath(fileName, 1, dialog.get());
}

void MainWindow::on_action_Open_Archive_triggered()
{
    on_pushButton_File_clicked();
}

// Select Folder
void MainWindow::on_pushButton_SelFolder_clicked()
{
    const QString folder = Dialogs::current().getExistingDirectory(
        this, QStringLiteral("Pick a folder to Archive"), dropFileDir,
        QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
    if (folder.isEmpty()) return;
    QDir parent(folder);
    parent.cd(QStringLiteral(".."));
    dropFileDir = parent.path();
    saveSettings();
    runLoadSequence(QStringList {folder}, true);
}

void MainWindow::on_action_Create_Archive_from_Folder_triggered()
{
    on_pushButton_SelFolder_clicked();
}

void MainWindow::on_pushButton_ClearList_clicked()
{
    sourceKind = 0;
    extractEnabled = false;
    archiveEnabled = false;
    sourcePath.clear();
    updateUi();

    QListWidget* list = ui->listWidget_Files;
    list->hide();
    list->setEnabled(false);
    list->setSortingEnabled(false);
    list->clear();
    sourceKind = 0;
    QApplication::processEvents();

    releaseSources();
    QApplication::processEvents();

    list->show();
    list->setEnabled(true);
    QApplication::processEvents();
}

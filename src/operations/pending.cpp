// TEMPORARY — placeholders so the window links while the loading, list, assistance and
// command operations are written on the operations branch. That branch deletes this file
// when it brings the real definitions; nothing here is meant to work.

#include "app/mainwindow.h"
#include "archive/archivereader.h"

#include <QProgressDialog>

void MainWindow::on_pushButton_File_clicked() {}
void MainWindow::on_pushButton_ExtractAll_clicked() {}
void MainWindow::on_pushButton_SelFolder_clicked() {}
void MainWindow::on_pushButton_Archive_clicked() {}
void MainWindow::on_action_Open_Archive_triggered() {}
void MainWindow::on_action_Create_Archive_from_Folder_triggered() {}
void MainWindow::on_pushButton_ClearList_clicked() {}
void MainWindow::dragEnterEvent(QDragEnterEvent* event) { (void)event; }
void MainWindow::dropEvent(QDropEvent* event) { (void)event; }
void MainWindow::runLoadSequence(const QStringList& paths, bool clearAfterFailure)
{
    (void)paths;
    (void)clearAfterFailure;
}
int MainWindow::loadSourcePath(const QString& path, int pathCount, QProgressDialog* progress)
{
    (void)path;
    (void)pathCount;
    (void)progress;
    return 0;
}
bool MainWindow::hasSuffix(const QString& path, const QString& extension)
{
    (void)path;
    (void)extension;
    return false;
}
int MainWindow::loadPath(const QString& path, LoadMode mode)
{
    (void)path;
    (void)mode;
    return 0;
}
int MainWindow::scanSourceFolder(const QString& path, bool recursing, QProgressDialog* progress)
{
    (void)path;
    (void)recursing;
    (void)progress;
    return 0;
}
void MainWindow::fillArchiveList() {}
void MainWindow::fillSourceList() {}
void MainWindow::runCreateAssistance() {}
void MainWindow::createArchive(const QString& targetPath) { (void)targetPath; }
void MainWindow::releaseSources() {}
QProgressDialog* MainWindow::makeReadingDialog() { return nullptr; }
QProgressDialog* MainWindow::makeEngineDialog(const QString& label)
{
    (void)label;
    return nullptr;
}

// Weak, so the reader's real definitions replace these as soon as they are linked in.
__attribute__((weak)) ArchiveReader::~ArchiveReader() = default;
__attribute__((weak)) bool ArchiveReader::close() { return true; }

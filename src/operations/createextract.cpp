// The two commands that write files: Create Archive and Extract All. The engines report their
// own outcome boxes; these commands handle the dialogs, remembered folders and window state.

#include "app/dialogs.h"
#include "app/mainwindow.h"
#include "app/ui_mainwindow.h"
#include "archive/archivereader.h"
#include "archive/status.h"
#include "operations/codecsettings.h"
#include "operations/engines.h"

#include <QComboBox>
#include <QListWidget>
#include <QProgressDialog>
#include <QStatusBar>

void MainWindow::on_pushButton_Archive_clicked()
{
    const QString target
        = Dialogs::current().getSaveFileName(this, QStringLiteral("Save Archive"), createArchiveDir,
                                             QStringLiteral("BA2 Archive (*.ba2)"));
    if (target.isEmpty()) return;
    QString head, tail;
    splitPath(target, QStringLiteral("/"), head, tail);
    createArchiveDir = head;
    saveSettings();

    archiveEnabled = false;
    updateUi();
    createArchive(target);
    archiveEnabled = true;
    updateUi();
}

void MainWindow::createArchive(const QString& targetPath)
{
    // A settings file may name a format or version the combos do not offer; they then show no
    // item, and nothing is written until the user picks one.
    if (ui->comboBox_Format->currentIndex() < 0 || ui->comboBox_Ver->currentIndex() < 0) {
        Dialogs::current().showMessage(
            QMessageBox::Warning, outcomeTitle(SaveStatus::Aborted),
            saveErrorText(QStringLiteral("Choose a format and a version.")));
        return;
    }
    // The combos as they stand now decide, so a second run can use other settings.
    archiveFormat = ui->comboBox_Format->currentIndex();
    archiveVersion = versionFromIndex(ui->comboBox_Ver->currentIndex());
    zlibLevel = zlibLevelFromIndex(ui->comboBox_zlibComp->currentIndex());
    lz4Mode = lz4ModeFromIndex(ui->comboBox_LZ4Comp->currentIndex());
    saveSettings();

    ui->listWidget_Files->setEnabled(false);
    QProgressDialog* dialog = makeEngineDialog(QStringLiteral("Create Archive"));
    Gui::saveArchive(sources, targetPath, archiveFormat != 0, archiveVersion, zlibLevel, lz4Mode,
                     dialog);
    dialog->close();
    delete dialog;
    ui->listWidget_Files->setEnabled(true);
}

void MainWindow::on_pushButton_ExtractAll_clicked()
{
    runExtraction(nullptr);
}

void MainWindow::runExtraction(const std::vector<uint32_t>* selection)
{
    if (!readerActive || !extractEnabled) return;
    QString folder = Dialogs::current().getExistingDirectory(
        this, tr("Pick a folder to extract to"), extractAllDir,
        QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
    if (folder.isEmpty()) return;
    if (!folder.endsWith(QLatin1Char('/'))) folder += QLatin1Char('/');

    extractEnabled = false;
    updateUi();
    extractAllDir = folder;
    saveSettings();

    ui->listWidget_Files->setEnabled(false);
    const ExtractScope scope = selection ? ExtractScope::Selected : ExtractScope::All;
    QProgressDialog* dialog = makeEngineDialog(extractCommandName(scope));
    const ArchiveStatus status = selection
        ? Gui::extractSelected(*reader, folder, dialog, *selection)
        : Gui::extractAll(*reader, folder, dialog);
    dialog->close();
    delete dialog;
    ui->listWidget_Files->setEnabled(true);
    extractEnabled = true;
    updateUi();

    // Success fades after ten seconds; an error stays until something replaces it.
    statusBar()->showMessage(extractStatusBarText(status, scope),
                             status == ArchiveStatus::Complete ? 10000 : 0);

    sourcePath.clear();
    updateUi();
}

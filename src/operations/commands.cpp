// The small slots (combo boxes, check box, menus, about boxes, exit) and updateUi, the one
// routine that sets every control from the window's members.

#include "app/dialogs.h"
#include "app/mainwindow.h"
#include "app/ui_mainwindow.h"
#include "operations/codecsettings.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDebug>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStandardItemModel>
#include <QStatusBar>

#include <cstdlib>

namespace {

const char* const ver3Warning = "* Warning * Only texture files can be archived to Ver.3 BA2.";
constexpr int warningTimeout = 5000;

// The one address behind the about box links and the support button.
const char* const projectAddress = "https://github.com/zarnel/zarnel";
const char* const lz4Address = "https://lz4.org/";

void setComboItemEnabled(QComboBox* combo, int row, bool enabled)
{
    auto* model = qobject_cast<QStandardItemModel*>(combo->model());
    if (!model) return;
    if (QStandardItem* item = model->item(row)) item->setEnabled(enabled);
}

QString linkLine(const QString& address)
{
    return QStringLiteral("<a href=\"%1\">%1</a>").arg(address);
}

} // namespace

void MainWindow::updateUi()
{
    if (!ui) return;
    ui->action_Settings->setEnabled(false);
    ui->action_Upgrade_Archive->setEnabled(false);

    ui->pushButton_ExtractAll->setEnabled(extractEnabled);
    ui->pushButton_Archive->setEnabled(archiveEnabled);

    setComboItemEnabled(ui->comboBox_Ver, 3, false);

    ui->lineEdit_SrcFile->setText(
        sourcePath.isEmpty() ? tr("*** Drag and drop the File or Folder ***") : sourcePath);

    ui->label_Ba2Info1->setText(ba2Info1);
    ui->label_Ba2Info2->setText(ba2Info2);
    ui->label_Ba2Info3->setText(ba2Info3);

    ui->action_BA2_Upgrader_deb->setEnabled(false);
    ui->action_DXGI_Checker_0x0639->setEnabled(false);
    ui->action_File_Compare->setEnabled(false);
    ui->action_SFS_Editor_0x0369->setEnabled(false);
    ui->action_Tal_Injector_deb->setEnabled(false);

    ui->action_Full->setChecked(false);
    ui->action_1000_Items->setChecked(false);
    ui->action_NotShown->setChecked(false);
    if (listView == 1)
        ui->action_Full->setChecked(true);
    else if (listView == 2)
        ui->action_1000_Items->setChecked(true);
    else if (listView == 0)
        ui->action_NotShown->setChecked(true);

    ui->action_Theme_Windows_default->setChecked(false);
    ui->action_Theme_Starfield->setChecked(false);
    ui->action_Theme_Fallout->setChecked(false);
    ui->action_Theme_Fallout->setEnabled(false);
    if (theme == 0)
        ui->action_Theme_Windows_default->setChecked(true);
    else if (theme == 1 || theme == 2)
        ui->action_Theme_Starfield->setChecked(true);

    // An index outside a combo's items shows no item, which is what an odd stored value deserves.
    ui->comboBox_Format->setCurrentIndex(archiveFormat);
    ui->comboBox_zlibComp->setCurrentIndex(zlibIndexFromLevel(zlibLevel));
    ui->comboBox_LZ4Comp->setCurrentIndex(lz4IndexFromMode(lz4Mode));
    ui->comboBox_Ver->setCurrentIndex(versionIndex(archiveVersion));

    setComboItemEnabled(ui->comboBox_Ver, 2, ver3Enabled);

    ui->pushButton_ExtractAll->setEnabled(extractEnabled);
    ui->pushButton_Archive->setEnabled(archiveEnabled);

    ui->checkBox_assist->setChecked(createAssistance != 0);

    ui->pushButton_ClearList->setEnabled(extractEnabled || archiveEnabled);
}

void MainWindow::on_comboBox_Ver_activated(int index)
{
    const int32_t old = archiveVersion;
    archiveVersion = index + 1;
    if (archiveVersion == 3 && ui->comboBox_Format->currentIndex() == 0) {
        ui->comboBox_Ver->setCurrentIndex(1);
        archiveVersion = 2;
        ui->statusbar->showMessage(tr(ver3Warning), warningTimeout);
    }
    if (archiveVersion != old) saveSettings();
}

void MainWindow::on_comboBox_Format_activated(int index)
{
    const int32_t old = archiveFormat;
    archiveFormat = index;
    if (index == 0 && ui->comboBox_Ver->currentIndex() == 2) {
        ui->comboBox_Ver->setCurrentIndex(1);
        archiveVersion = 2;
        ui->statusbar->showMessage(tr(ver3Warning), warningTimeout);
        saveSettings();
        return;
    }
    if (index != old) saveSettings();
}

void MainWindow::on_comboBox_zlibComp_activated(int index)
{
    const int32_t old = zlibLevel;
    zlibLevel = zlibLevelFromIndex(index);
    if (zlibLevel != old) saveSettings();
}

void MainWindow::on_comboBox_LZ4Comp_activated(int index)
{
    const int32_t old = lz4Mode;
    lz4Mode = lz4ModeFromIndex(index);
    if (lz4Mode != old) saveSettings();
}

void MainWindow::on_pushButton_KoFi_clicked()
{
    Dialogs::current().openUrl(QUrl(QString::fromLatin1(projectAddress), QUrl::TolerantMode));
}

void MainWindow::on_action_About_Zarnel_triggered()
{
    const QString br = QStringLiteral("<br>");
    QString text;
    text += QStringLiteral("<span style=\"font-weight:bold\">");
    text += QStringLiteral("Zarnel version " ZARNEL_VERSION);
    text += QStringLiteral("</span><br>");
    text += br;
    text += QStringLiteral(
                "- A native Linux tool to open, check, extract and build Bethesda BA2 archives -")
        + br;
    text += br;
    text += QStringLiteral("This Mod Site: Zarnel project page") + br;
    text += linkLine(QString::fromLatin1(projectAddress)) + br;
    text += QStringLiteral("Creator: The Zarnel developers") + br;
    text += linkLine(QString::fromLatin1(projectAddress)) + br;
    text += br;
    text += br;
    text += QStringLiteral("This tool uses LZ4 Library.") + br;
    text += QStringLiteral(" LZ4: ") + linkLine(QString::fromLatin1(lz4Address));
    Dialogs::current().about(this, tr("About this software."), text);
}

void MainWindow::on_action_About_Qt_triggered()
{
    Dialogs::current().aboutQt(this, tr("About Qt."));
}

void MainWindow::on_action_Exit_triggered()
{
    // Close the archive and free the sources, then end here: the event loop must not resume,
    // and the window on main()'s stack is never destroyed a second time.
    tearDown();
    std::exit(0);
}

void MainWindow::on_action_Settings_triggered()
{
    qDebug("> Settings");
}

void MainWindow::on_checkBox_assist_clicked(bool checked)
{
    const int32_t old = createAssistance;
    createAssistance = checked ? 1 : 0;
    if (createAssistance != old) saveSettings();
}

void MainWindow::on_listWidget_Files_itemClicked(QListWidgetItem* item)
{
    Q_UNUSED(item);
    updateUi();
}

void MainWindow::on_action_Full_triggered()
{
    listView = 1;
    saveSettings();
    updateUi();
}

void MainWindow::on_action_1000_Items_triggered()
{
    listView = 2;
    saveSettings();
    updateUi();
}

void MainWindow::on_action_NotShown_triggered()
{
    listView = 0;
    saveSettings();
    updateUi();
}

void MainWindow::on_action_Theme_Windows_default_triggered()
{
    theme = 0;
    saveSettings();
    updateUi();
}

void MainWindow::on_action_Theme_Starfield_triggered()
{
    theme = 1;
    saveSettings();
    updateUi();
}

void MainWindow::on_action_Theme_Fallout_triggered()
{
    theme = 2;
    saveSettings();
    updateUi();
}

// After every load of source files: decide what the gathered files allow, apply the chosen
// settings when assistance is on, and report it in the status bar.

#include "app/mainwindow.h"
#include "app/ui_mainwindow.h"
#include "creation/assistance.h"

#include <QCheckBox>
#include <QComboBox>
#include <QStatusBar>

void MainWindow::runCreateAssistance()
{
    // The box itself is read, not createAssistance: they agree after every updateUi.
    const bool assist = ui->checkBox_assist->isChecked();
    CreationSettings current;
    current.archiveFormat = archiveFormat;
    current.archiveVersion = archiveVersion;
    current.zlibLevel = zlibLevel;
    current.lz4Mode = lz4Mode;
    const AssistanceResult result = assessSources(sources, assist, current);

    ver3Enabled = result.ver3Enabled;
    allDds = result.allDds;
    allCompressible = result.allCompressible;
    // Create Archive becomes available together with the settings only for an all-texture
    // set; otherwise after them.
    archiveEnabled = result.allDds;
    if (result.settingsChanged) {
        archiveFormat = result.settings.archiveFormat;
        archiveVersion = result.settings.archiveVersion;
        zlibLevel = result.settings.zlibLevel;
        lz4Mode = result.settings.lz4Mode;
        saveSettings();
        updateUi();
    }
    archiveEnabled = true;

    // Version 3 holds textures only, whether or not assistance chose the settings.
    if (!allDds && ui->comboBox_Ver->currentIndex() == 2) {
        archiveVersion = 2;
        saveSettings();
        updateUi();
    }

    statusBar()->showMessage(result.message);
    updateUi();
}

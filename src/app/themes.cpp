// The colour theme, applied once at start-up; a change from the menu shows at the next start.

#include "app/mainwindow.h"

#include "app/ui_mainwindow.h"

#include <QColor>
#include <QComboBox>
#include <QFrame>
#include <QGroupBox>
#include <QLineEdit>
#include <QListWidget>
#include <QMenuBar>
#include <QPalette>
#include <QPushButton>
#include <QStatusBar>

void MainWindow::applyStartupTheme()
{
    if (theme != 1) {
        ui->line_1->hide();
        ui->line_2->hide();
        ui->line_3->hide();
        ui->line_4->hide();
        return;
    }

    QPalette pal = palette();
    pal.setBrush(QPalette::All, QPalette::Window,
                 QBrush(QColor(QStringLiteral("#4a668c")), Qt::SolidPattern));
    setAutoFillBackground(true);
    setPalette(pal);
    show();

    ui->menubar->setStyleSheet(
        QStringLiteral(":enabled { color: white; background-color: #253747}:disabled { color: "
                       "gray; background-color: "
                       "#253747}:item:selected { color: white; background-color: #4a668c}"));
    ui->statusbar->setStyleSheet(QStringLiteral("background-color: #253747; color:white"));
    ui->lineEdit_SrcFile->setStyleSheet(
        QStringLiteral("background-color: #253747; color:white; border: 1px"));
    ui->listWidget_Files->setStyleSheet(
        QStringLiteral("background-color: #253747; color:white; border: 1px"));
    ui->groupBox_Extract->setStyleSheet(QStringLiteral("background-color: #4a668c; color:white"));
    ui->groupBox_Archive->setStyleSheet(QStringLiteral("background-color: #4a668c; color:white"));
    ui->pushButton_ClearList->setStyleSheet(
        QStringLiteral(":enabled { color: white; background-color: #253747} :disabled { color: "
                       "gray; background-color: #253747}"));
    ui->pushButton_ExtractAll->setStyleSheet(
        QStringLiteral(":enabled { color: white; background-color: #253747}:disabled { color: "
                       "gray; background-color: #253747}"));
    ui->pushButton_File->setStyleSheet(QStringLiteral("background-color: #253747; color:white"));
    ui->pushButton_Archive->setStyleSheet(
        QStringLiteral(":enabled { color: white; background-color: #253747} :disabled { color: "
                       "gray; background-color: #253747}"));
    ui->pushButton_SelFolder->setStyleSheet(
        QStringLiteral("background-color: #253747; color:white"));
    ui->comboBox_Ver->setStyleSheet(QStringLiteral(
        ":enabled { color: white; background-color: #253747; border: 1px}:disabled { color: gray; "
        "background-color: #253747; border: 1px}"));
    ui->comboBox_Format->setStyleSheet(
        QStringLiteral("background-color: #253747; color:white; border: 1px"));
    ui->comboBox_zlibComp->setStyleSheet(
        QStringLiteral("background-color: #253747; color:white; border: 1px"));
    ui->comboBox_LZ4Comp->setStyleSheet(
        QStringLiteral("background-color: #253747; color:white; border: 1px"));
    ui->line_1->setStyleSheet(QStringLiteral("color: #d5aa60;"));
    ui->line_2->setStyleSheet(QStringLiteral("color: #e16136;"));
    ui->line_3->setStyleSheet(QStringLiteral("color: #c72238;"));
    ui->line_4->setStyleSheet(QStringLiteral("color: #2f4c79;"));
}

// Construction, start-up order and tear-down of the main window.

#include "app/mainwindow.h"

#include "app/ui_mainwindow.h"
#include "archive/archivereader.h"

#include <QDebug>
#include <QString>

#include <cstring>

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
    , ui(new Ui::MainWindow)
{
    // hashTable's own constructor builds the name-hash table and sets nameHashReady.
}

MainWindow::~MainWindow()
{
    tearDown();
}

void MainWindow::setArg(int argc, char** argv)
{
    argCount = argc;
    argValues = argv;
    qDebug("setArg(%d)", argc);
}

void MainWindow::initialize()
{
    ui->setupUi(this);
    setupFileListMenu();
    iniFileName.clear();
    iniFileName.append(QStringLiteral("Zarnel.ini"));
    loadSettings();
    updateUi();
    applyStartupTheme();
    if (argCount < 2 || argValues == nullptr || argValues[1] == nullptr) return;
    // Only the first argument counts; paths typed Windows-style still work.
    char* arg = argValues[1];
    const size_t length = std::strlen(arg);
    for (size_t i = 0; i < length; ++i) {
        if (arg[i] == '\\') arg[i] = '/';
    }
    const QString path = QString::fromUtf8(arg, int(length));
    runLoadSequence(QStringList {path}, false);
}

void MainWindow::tearDown()
{
    // Exit runs this before ending the process; the destructor must not repeat it.
    if (tornDown) return;
    tornDown = true;
    if (readerActive) {
        reader->close();
        delete reader;
        reader = nullptr;
        readerActive = false;
    }
    releaseSources();
    delete ui;
    ui = nullptr;
}

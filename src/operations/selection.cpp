// Working with part of the list: several items can be selected, and the list's context menu
// extracts the selected files of an archive or copies their names.

#include "app/mainwindow.h"
#include "app/ui_mainwindow.h"
#include "archive/archivereader.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QListWidget>
#include <QMenu>

#include <algorithm>
#include <memory>

void MainWindow::setupFileListMenu()
{
    QListWidget* list = ui->listWidget_Files;
    list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    list->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(list, &QWidget::customContextMenuRequested, this, [this](const QPoint& at) {
        std::unique_ptr<QMenu> menu(makeFileListMenu());
        menu->exec(ui->listWidget_Files->viewport()->mapToGlobal(at));
    });
}

std::vector<uint32_t> MainWindow::selectedFileRows() const
{
    std::vector<uint32_t> rows;
    // Only the first fileItemCount rows stand for files; marker lines follow them.
    for (const QModelIndex& index : ui->listWidget_Files->selectionModel()->selectedIndexes()) {
        if (index.row() >= 0 && uint32_t(index.row()) < fileItemCount)
            rows.push_back(uint32_t(index.row()));
    }
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    return rows;
}

QMenu* MainWindow::makeFileListMenu()
{
    auto* menu = new QMenu(this);
    const bool anyFile = !selectedFileRows().empty();
    if (fileItemsAreArchive) {
        QAction* extract = menu->addAction(QStringLiteral("Extract Selected..."));
        extract->setEnabled(anyFile && readerActive && extractEnabled);
        connect(extract, &QAction::triggered, this, &MainWindow::extractSelected);
    }
    QAction* copy = menu->addAction(QStringLiteral("Copy Names"));
    copy->setEnabled(anyFile);
    connect(copy, &QAction::triggered, this, &MainWindow::copySelectedNames);
    return menu;
}

void MainWindow::copySelectedNames()
{
    QStringList names;
    for (uint32_t row : selectedFileRows()) {
        if (fileItemsAreArchive) {
            if (readerActive && row < reader->fileCount) names << reader->nameOf(row);
        } else if (row < sources.size()) {
            const SourceEntry& entry = sources[row];
            names << QString::fromUtf8(entry.relativePath(), int(entry.relativeLength()));
        }
    }
    QApplication::clipboard()->setText(names.join(QLatin1Char('\n')));
}

void MainWindow::extractSelected()
{
    if (!fileItemsAreArchive) return;
    const std::vector<uint32_t> rows = selectedFileRows();
    if (rows.empty()) return;
    runExtraction(&rows);
}

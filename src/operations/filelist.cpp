// The file list: the names of an opened archive or the gathered sources, numbered, in one of
// three views (full, first 1,000 items, none).

#include "app/mainwindow.h"
#include "app/ui_mainwindow.h"
#include "archive/archivereader.h"

#include <QApplication>
#include <QListWidget>
#include <QProgressBar>
#include <QStatusBar>

#include <memory>

namespace {

constexpr int kAbbreviatedLimit = 1000;

const char* const kArchiveNotShown =
    "<<< All data is loaded, although the list is not displayed to speed things up.>>>";
const char* const kSourcesNotShown =
    "<<< All data is loaded, although the list is not displayed to Improve performance.>>>";
const char* const kAbbreviated = "<<< This is an abbreviated list view >>>";

QString numberedItem(qint64 number, const QString& name)
{
    return groupedNumber(number) + QStringLiteral(": ") + name;
}

}  // namespace

void MainWindow::fillArchiveList()
{
    QListWidget* list = ui->listWidget_Files;
    list->hide();
    list->setEnabled(false);
    list->setSortingEnabled(false);
    list->clear();

    auto bar = std::make_unique<QProgressBar>();
    statusBar()->addWidget(bar.get(), 0);
    bar->setMinimum(0);
    bar->setMaximum(int(qMin<uint32_t>(reader->fileCount, INT_MAX)));
    bar->setValue(0);

    if (listView == 0) {
        list->addItem(QString::fromLatin1(kArchiveNotShown));
    } else {
        const uint32_t count = reader->fileCount;
        for (uint32_t i = 0; i < count; ++i) {
            bar->setValue(int(qMin<uint32_t>(i + 1, INT_MAX)));
            list->addItem(numberedItem(i + 1, reader->nameOf(i)));
            if (listView == 2 && i + 1 == kAbbreviatedLimit) {
                if (i + 1 < count) list->addItem(QString::fromLatin1(kAbbreviated));
                break;
            }
        }
    }

    list->setEnabled(true);
    list->show();
    statusBar()->removeWidget(bar.get());
}

void MainWindow::fillSourceList()
{
    QListWidget* list = ui->listWidget_Files;
    list->hide();
    list->setSortingEnabled(false);
    list->setEnabled(false);
    list->clear();
    QApplication::processEvents();

    if (listView == 0) {
        list->addItem(QString::fromLatin1(kSourcesNotShown));
    } else {
        const size_t count = sources.size();
        for (size_t i = 0; i < count; ++i) {
            const SourceEntry& entry = sources[i];
            list->addItem(numberedItem(qint64(i + 1),
                                       QString::fromUtf8(entry.relativePath(), int(entry.relativeLength()))));
            if (listView == 2 && i + 1 == kAbbreviatedLimit) {
                if (i + 1 < count) list->addItem(QString::fromLatin1(kAbbreviated));
                break;
            }
        }
    }

    list->setEnabled(true);
    list->show();
}

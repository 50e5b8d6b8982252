// The file list: the names of an opened archive or the gathered sources, numbered, in one of
// three views (full, first 1,000 items, none).

#include "app/mainwindow.h"
#include "app/ui_mainwindow.h"
#include "archive/archivereader.h"

#include <QApplication>
#include <QListWidget>
#include <QProgressBar>
#include <QStatusBar>
#include <QStringList>

#include <memory>

namespace {

constexpr int kAbbreviatedLimit = 1000;

const char* const kArchiveNotShown
    = "<<< All data is loaded, although the list is not displayed to speed things up.>>>";
const char* const kSourcesNotShown
    = "<<< All data is loaded, although the list is not displayed to Improve performance.>>>";
const char* const kAbbreviated = "<<< This is an abbreviated list view >>>";

QString numberedItem(qint64 number, const QString& name)
{
    return groupedNumber(number) + QStringLiteral(": ") + name;
}

// "n: name" for each of count names; the abbreviated view (2) stops after the first thousand
// and says so when more were left out. onItem(n) is told after item n is made.
template<typename NameOf, typename OnItem>
void appendNumbered(QStringList& items, uint64_t count, int listView, NameOf nameOf, OnItem onItem)
{
    for (uint64_t i = 0; i < count; ++i) {
        onItem(i + 1);
        items << numberedItem(qint64(i + 1), nameOf(i));
        if (listView == 2 && i + 1 == kAbbreviatedLimit) {
            if (i + 1 < count) items << QString::fromLatin1(kAbbreviated);
            break;
        }
    }
}

// How many of the rows a fill makes stand for files: none in the not-shown view, at most the
// first thousand in the abbreviated one.
uint32_t fileRows(uint64_t count, int listView)
{
    if (listView == 0) return 0;
    if (listView == 2) count = qMin<uint64_t>(count, kAbbreviatedLimit);
    return uint32_t(qMin<uint64_t>(count, INT_MAX));
}

} // namespace

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

    // The hidden list takes every item in one insertion: the same items at the end, without
    // the model announcing each row on its own.
    QStringList items;
    if (listView == 0) {
        items << QString::fromLatin1(kArchiveNotShown);
    } else {
        const uint32_t count = reader->fileCount;
        // Under a style sheet every bar update costs tens of microseconds just to decide whether
        // to repaint, and nothing reaches the screen before the fill ends anyway: a thousand
        // steps (and the last value) show the same progress as one step per item.
        const uint32_t step = qMax<uint32_t>(1, count / 1000);
        items.reserve(int(listView == 2 ? qMin<uint32_t>(count, kAbbreviatedLimit + 1)
                                        : qMin<uint32_t>(count, INT_MAX)));
        appendNumbered(
            items, count, listView, [&](uint64_t i) { return reader->nameOf(uint32_t(i)); },
            [&](uint64_t n) {
                if (n % step == 0 || n == count) bar->setValue(int(qMin<uint64_t>(n, INT_MAX)));
            });
    }
    list->addItems(items);
    fileItemsAreArchive = true;
    fileItemCount = fileRows(reader->fileCount, listView);

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

    QStringList items;
    if (listView == 0) {
        items << QString::fromLatin1(kSourcesNotShown);
    } else {
        appendNumbered(
            items, sources.size(), listView,
            [&](uint64_t i) {
                const SourceEntry& entry = sources[size_t(i)];
                return QString::fromUtf8(entry.relativePath(), int(entry.relativeLength()));
            },
            [](uint64_t) {});
    }
    list->addItems(items);
    fileItemsAreArchive = false;
    fileItemCount = fileRows(sources.size(), listView);

    list->setEnabled(true);
    list->show();
}

// Where every path ends up: opened as an archive, or added as one gathered source file; and
// the window's folder scan over the shared gathering core.

#include "app/mainwindow.h"
#include "app/progressadapters.h"
#include "app/ui_mainwindow.h"
#include "archive/archivereader.h"
#include "creation/gather.h"
#include "operations/engines.h"

#include <QProgressBar>
#include <QStatusBar>

#include <memory>

LoadStatus MainWindow::loadPath(const QString& path, LoadMode mode)
{
    extractEnabled = false;
    archiveEnabled = false;
    ba2Info1.clear();
    ba2Info2.clear();
    ba2Info3.clear();

    if (mode != Archive) {
        GatherState state;
        state.sources = &sources;
        state.table = &hashTable;
        state.rootFolderName = rootFolderName;
        state.rootPrefixLength = rootPrefixLength;
        return addSourceFile(state, path, mode);
    }

    if (readerActive) {
        readerActive = false;
        reader->close();
        delete reader;
        reader = nullptr;
    }
    reader = new ArchiveReader;
    readerActive = true;

    // The bar lives only for the open; removing it from the status bar hands it back to us.
    auto bar = std::make_unique<QProgressBar>();
    statusBar()->addWidget(bar.get(), 0);
    bar->setMinimum(0);
    bar->setMaximum(0);
    bar->setValue(0);
    // File systems here are case-sensitive: open the path exactly as it was given.
    const bool ok = Gui::open(*reader, path, bar.get());
    statusBar()->removeWidget(bar.get());

    if (!ok) {
        readerActive = false;
        delete reader;
        reader = nullptr;
        extractEnabled = false;
        ba2Info1 = QStringLiteral("BA2 Error.");
        updateUi();
        return LoadStatus::ArchiveError;
    }

    sourcePath = path;
    ba2Info1 = archiveInfoLine1(*reader);
    ba2Info2 = archiveInfoLine2(*reader);
    ba2Info3 = archiveInfoLine3(*reader);
    fillArchiveList();
    extractEnabled = true;
    archiveEnabled = false;
    updateUi();
    return LoadStatus::Loaded;
}

LoadStatus MainWindow::scanSourceFolder(const QString& path, bool recursing,
                                        QProgressDialog* progress)
{
    GatherState state;
    state.sources = &sources;
    state.table = &hashTable;
    state.rootFolderName = rootFolderName;
    state.rootPrefixLength = rootPrefixLength;

    std::unique_ptr<DialogProgress> adapter;
    if (progress) adapter = std::make_unique<DialogProgress>(progress);

    // Every file goes through this window's loadPath so that it sees the root that the scan
    // derived for this tree, which the core records in state as it walks.
    const PathLoader loader = [this, &state](const QString& file, LoadMode mode) {
        rootFolderName = state.rootFolderName;
        rootPrefixLength = state.rootPrefixLength;
        return loadPath(file, mode);
    };
    const LoadStatus status = ::scanSourceFolder(state, path, recursing, adapter.get(), loader);
    rootFolderName = state.rootFolderName;
    rootPrefixLength = state.rootPrefixLength;
    return status;
}

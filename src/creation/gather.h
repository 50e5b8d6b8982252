#pragma once
// Gathering source files from dropped or named paths: the folder scan and the per-file loader.

#include "archive/progress.h"
#include "archive/status.h"
#include "creation/sourceentry.h"

#include <QString>

#include <functional>

enum LoadMode { Archive = 0, FolderFile = 1, SingleFile = 2 };

struct GatherState
{
    SourceList* sources = nullptr;
    const NameHashTable* table = nullptr;
    QString rootFolderName;        // lower-cased name of the top-level folder being scanned
    uint32_t rootPrefixLength = 0; // byte position in the lower-cased 8-bit path where the
                                   // relative path begins (0: the bare file name)
};

// Adds one file (modes FolderFile/SingleFile): skips a duplicate relative path (Loaded),
// SourceError when no entry can be built. The real path is kept for opening.
LoadStatus addSourceFile(GatherState& state, const QString& path, LoadMode mode);

using PathLoader = std::function<LoadStatus(const QString& path, LoadMode mode)>;

// Walks a folder in Qt's default name order (case-insensitive, hidden and system entries
// skipped) handing every file to loadPath; a path that is not a folder goes to loadPath as a
// SingleFile. Polls progress (when given) for a cancel before every entry. A folder link that
// leads back to a folder being scanned is skipped rather than walked again. Returns Loaded,
// Canceled, or the failure of a file or sub-scan.
LoadStatus scanSourceFolder(GatherState& state, const QString& path, bool recursing,
                            Progress* progress, const PathLoader& loadPath);

// Convenience for the CLI and tests: gathers every path as a drop of these paths would
// (made absolute and clean, root reset before each path), then sorts. Returns the first
// status other than Loaded, or Loaded.
LoadStatus gatherPaths(GatherState& state, const QStringList& paths, Progress* progress);

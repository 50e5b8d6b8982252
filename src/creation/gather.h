#pragma once
// Gathering source files from dropped or named paths: the folder scan and the per-file loader.

#include "archive/progress.h"
#include "creation/sourceentry.h"

#include <QString>

#include <functional>

enum LoadMode { Archive = 0, FolderFile = 1, SingleFile = 2 };

// Load statuses: 1 loaded, 0 cancelled, -1 archive unreadable, -2 entry not buildable.
struct GatherState
{
    SourceList* sources = nullptr;
    const NameHashTable* table = nullptr;
    QString rootFolderName;        // lower-cased name of the top-level folder being scanned
    uint32_t rootPrefixLength = 0; // byte position in the lower-cased 8-bit path where the
                                   // relative path begins (0: the bare file name)
};

// Adds one file (modes FolderFile/SingleFile): skips a duplicate relative path (returns 1),
// returns -2 when no entry can be built, 1 when added. The real path is kept for opening.
int addSourceFile(GatherState& state, const QString& path, LoadMode mode);

using PathLoader = std::function<int(const QString& path, LoadMode mode)>;

// Walks a folder in Qt's default name order (case-insensitive, hidden and system entries
// skipped) handing every file to loadPath; a path that is not a folder goes to loadPath as a
// SingleFile. Polls progress (when given) for a cancel before every entry. A folder link that
// leads back to a folder being scanned is skipped rather than walked again. Returns 1, 0 when
// cancelled, or the negative status of a failed file/sub-scan.
int scanSourceFolder(GatherState& state, const QString& path, bool recursing, Progress* progress,
                     const PathLoader& loadPath);

// Convenience for the CLI and tests: gathers every path as a drop of these paths would
// (made absolute and clean, root reset before each path), then sorts. Returns the first
// status other than 1, or 1.
int gatherPaths(GatherState& state, const QStringList& paths, Progress* progress);

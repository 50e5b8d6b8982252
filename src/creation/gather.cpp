#include "creation/gather.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QStringList>

LoadStatus addSourceFile(GatherState& state, const QString& path, LoadMode mode)
{
    if (mode == Archive || !state.sources || !state.table) return LoadStatus::ArchiveError;

    const QString lower = path.toLower();
    const QByteArray bytes = lower.toLocal8Bit();

    // The duplicate key is the relative path the new entry would carry. rootPrefixLength is a
    // byte position in the 8-bit form, so the key is cut from the bytes, not from the text.
    QByteArray key;
    if (state.rootPrefixLength == 0)
        key = bytes.mid(bytes.lastIndexOf('/') + 1);
    else
        key = bytes.mid(int(state.rootPrefixLength));
    if (state.sources->containsRelativePath(key)) return LoadStatus::Loaded;

    std::optional<SourceEntry> entry = makeSourceEntry(bytes, state.rootPrefixLength, *state.table);
    if (!entry) return LoadStatus::SourceError;
    entry->sourceFile = path;
    state.sources->append(std::move(*entry));
    return LoadStatus::Loaded;
}

namespace {

bool isDotEntry(const QString& name)
{
    return name == QLatin1String(".") || name == QLatin1String("..");
}

// ancestors holds the canonical paths of the folders being scanned above this one, so that a
// link leading back up the tree is not walked again and again.
LoadStatus scan(GatherState& state, const QString& path, bool recursing, Progress* progress,
                const PathLoader& loadPath, QStringList& ancestors)
{
    if (progress) {
        progress->setValue(0);
        progress->processEvents();
        if (progress->wasCanceled()) {
            qDebug("pushed cancel");
            return LoadStatus::Canceled;
        }
    }

    const QFileInfo info(path);
    if (!info.isDir()) return loadPath(path, SingleFile);

    // Qt's default listing: files and folders without hidden or system entries, "." and ".."
    // included, sorted by name regardless of case.
    const QFileInfoList list = QDir(path).entryInfoList();
    bool hasEntries = false;
    for (const QFileInfo& entry : list) {
        if (!isDotEntry(entry.fileName())) {
            hasEntries = true;
            break;
        }
    }
    if (!hasEntries) return LoadStatus::Loaded;

    if (!recursing && state.rootFolderName.isEmpty()) {
        const int p = path.lastIndexOf(QLatin1Char('/'));
        state.rootPrefixLength = uint32_t(path.left(p + 1).toLower().toLocal8Bit().size());
        state.rootFolderName = path.mid(p + 1).toLower();
    }

    ancestors.append(info.canonicalFilePath());
    LoadStatus result = LoadStatus::Loaded;
    for (const QFileInfo& entry : list) {
        if (progress) {
            progress->setValue(0);
            progress->processEvents();
            if (progress->wasCanceled()) {
                result = LoadStatus::Canceled;
                break;
            }
        }
        if (!entry.isDir()) {
            result = loadPath(entry.filePath(), FolderFile);
            continue;
        }
        if (isDotEntry(entry.fileName())) continue;
        if (entry.isSymLink() && ancestors.contains(entry.canonicalFilePath())) continue;
        result = scan(state, entry.filePath(), true, progress, loadPath, ancestors);
        // With a dialog any unfinished sub-scan ends this folder; without one only failures do.
        if (progress ? result != LoadStatus::Loaded : isFailure(result)) break;
    }
    ancestors.removeLast();
    return result;
}

} // namespace

LoadStatus scanSourceFolder(GatherState& state, const QString& path, bool recursing,
                            Progress* progress, const PathLoader& loadPath)
{
    QStringList ancestors;
    return scan(state, path, recursing, progress, loadPath, ancestors);
}

LoadStatus gatherPaths(GatherState& state, const QStringList& paths, Progress* progress)
{
    const PathLoader loader = [&state](const QString& path, LoadMode mode) {
        return addSourceFile(state, path, mode);
    };
    LoadStatus status = LoadStatus::Loaded;
    for (const QString& given : paths) {
        // A drop hands over absolute, clean paths; the folder's own name starts the names.
        const QString path = QDir::cleanPath(QFileInfo(given).absoluteFilePath());
        state.rootFolderName.clear();
        state.rootPrefixLength = 0;
        status = scanSourceFolder(state, path, false, progress, loader);
        if (status != LoadStatus::Loaded) break;
    }
    if (state.sources) state.sources->sortSources();
    return status;
}

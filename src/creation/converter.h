#pragma once
// Rewriting an opened archive with another version or compression, block by block, without
// extracting it.

#include "archive/archivereader.h"
#include "archive/progress.h"
#include "archive/status.h"
#include "creation/codecs.h"

#include <QString>

struct ConvertSettings
{
    int version = 0;    // 1, 2, 3, 7 or 8; 0 keeps the archive's own
    int zlibLevel = -1; // 0..9 for a zlib target (0: store); -1 leaves the blocks as they are
    int lz4Mode = -1;   // 0..2 for a version-3 target (0: store); -1 likewise
    int jobs = 1;       // worker threads that decode and compress
    ZlibEngine engine = ZlibEngine::Auto;
};

struct ConvertResult
{
    SaveStatus status = SaveStatus::Aborted;
    bool reading = false; // the failure is the archive's (a read or a decode), not the output's
    QString failedName;   // the stored name, or the file written, where it failed
};

// Writes the files of reader (opened, not closed meanwhile) into targetPath as an archive of the
// version in settings: same records in the same order, same names, same texture fields and chunk
// split; the header of the target version (code 3, LZ4 blocks, for version 3; zlib blocks for the
// others). A block keeps its stored bytes when its codec does not change and no level is given;
// one that must change codec is re-compressed as creation would by default (zlib 1, LZ4 mode 1);
// with a level, every block is re-compressed at it. Stored blocks stay stored unless a level says
// otherwise. Between header sizes and codecs that agree, with no level, the archive is copied
// whole and only the version field changes.
// targetPath may be the reader's own file: the result is written beside it and renamed over it
// at the end; on any failure or cancel the target (and so the input) is untouched and no
// temporary file remains. Memory stays within a few blocks per worker. Progress gets the range
// 0..fileCount and polls for a cancel between blocks.
// Failures with reading set: FileReadError data outside the file or a short read, Lz4Error or
// ZlibError a block that does not decode to its recorded size; without: FileOpenError or
// FileWriteError the output could not be opened or written (or renamed), Lz4Error or ZlibError
// compression failed, TooLarge a block too large for the target codec, OutOfMemory.
ConvertResult convertArchive(const ArchiveReader& reader, const QString& targetPath,
                             const ConvertSettings& settings, Progress& progress);

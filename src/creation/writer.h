#pragma once
// Writing a BA2 archive from gathered sources.

#include "archive/progress.h"
#include "archive/status.h"
#include "creation/codecs.h"
#include "creation/sourceentry.h"

#include <QString>

struct WriteResult
{
    SaveStatus status = SaveStatus::Aborted;
    QString failedFile; // the source that caused a failure, when one did
};

// Writes sources (in their order) into targetPath: header, records, data, name table, through
// a temporary file beside the target that is renamed over it only when complete. Progress
// gets the range 0..count and the value i before file i; a cancel is honoured between files.
// Returns NoSources at once for an empty list. No temporary file survives any outcome, and an
// existing target is untouched unless the run completes. FileReadError also covers a source that
// changed during the run, TooLarge a source beyond what the format or a codec can hold;
// failedFile names the source or file concerned.
// jobs > 1 reads and compresses files on that many worker threads, a few files ahead, while this
// thread writes them in order and alone talks to progress: the archive, the status and what is
// left on disk are those of a one-thread run. engine picks the zlib library for versions 1 and 2
// (ZlibEngine::Zlib gives qCompress's exact streams).
WriteResult writeArchive(SourceList& sources, const QString& targetPath, bool isTexture,
                         int version, int zlibLevel, int lz4Mode, Progress& progress, int jobs = 1,
                         ZlibEngine engine = ZlibEngine::Auto);

// The worker threads worth using to write these sources: jobs, or 1 for a folder of tiny files,
// where handing files between threads costs more than it saves.
int creationJobs(const SourceList& sources, int jobs);

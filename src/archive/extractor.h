#pragma once
// Extracting every file of an opened archive, and verifying one in memory.

#include "archive/archivereader.h"
#include "archive/status.h"

#include <array>
#include <vector>

struct ExtractResult
{
    ArchiveStatus status = ArchiveStatus::Aborted;
    QString failedName; // the stored name where a failure happened
};

// Writes every file under targetFolder (which must exist), making folders as needed and
// rebuilding DDS headers for textures. Progress gets the range 0..fileCount and the value i
// before file i; a cancel is honoured between files. Names that would leave the target are
// refused. Files written before a failure stay. jobs > 1 opens, decodes, writes and closes the
// files on that many worker threads while this thread follows the progress: the files left
// behind (after a cancel or a failure too) are those of a one-thread run. Memory stays bounded
// whatever the block sizes: stored and zlib blocks are handled in windows once they are large
// (an LZ4 block, which cannot be split, needs its unpacked size once per worker).
// selection, when given, names the record indexes to extract (ascending; others are ignored):
// only those are written, in that order, and the progress range is their number.
ExtractResult extractArchive(ArchiveReader& reader, const QString& targetFolder, Progress& progress,
                             int jobs = 1, const std::vector<uint32_t>* selection = nullptr);

// Decodes every block (in windows when large) and checks every size and every texture's format.
// Returns true for a sound archive; otherwise fault names the first problem and its file.
// digests, when given, receives per record the XXH3 128-bit digest (canonical, big-endian
// bytes) of the bytes extraction would write (for
// a texture: its DDS header, then its data), computed while decoding; complete only on true.
using Digest = std::array<unsigned char, 16>;
bool verifyArchive(ArchiveReader& reader, QString& fault, int jobs = 1,
                   std::vector<Digest>* digests = nullptr);

// Worker threads to use when the user does not say: one per core.
int defaultJobCount();

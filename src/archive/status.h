#pragma once
// The results of the engines, and every word the user is shown for them. Extraction and creation
// have types of their own: the same number may come to mean different things in the two, and the
// window compares and shows the numbers, so they must not drift.

#include <QString>

// What extracting (or verifying) an archive came to.
enum class ArchiveStatus : int {
    Complete = 1,
    Aborted = 0,
    SystemError = -1, // the target folder does not exist
    FileOpenError = -2,
    FileWriteError = -3,
    FileReadError = -4, // a read came up short, or data lies outside the archive file
    Lz4Error = -5,
    ZlibError = -6,
    UnsafeName = -7,         // a stored name would leave the target folder
    UnsupportedFormat = -10, // texture pixel format not supported (no words of its own)
    OutOfMemory = -11,
};

// What writing an archive came to.
enum class SaveStatus : int {
    Complete = 1,
    Aborted = 0,
    NoSources = -1, // nothing to write; reported by no box at all
    FileOpenError = -2,
    FileWriteError = -3,
    FileReadError = -4, // a short read, or a source that changed during the run
    Lz4Error = -5,
    ZlibError = -6,
    TooLarge = -8,           // a source beyond what the format or a codec can hold
    DdsFileError = -9,       // a texture source that is not a DDS file (or a broken one)
    UnsupportedFormat = -10, // texture pixel format not supported (no words of its own)
    OutOfMemory = -11,
};

// What analysing one DDS file came to; its failures end a creation with the same numbers.
enum class LayoutStatus : int {
    Ok = 1,
    DdsFileError = -9,
    UnsupportedFormat = -10,
};
SaveStatus toSaveStatus(LayoutStatus status);

// What loading one path into the window (or gathering paths for the CLI) came to.
enum class LoadStatus : int {
    Loaded = 1,
    Canceled = 0,
    ArchiveError = -1, // the archive could not be opened or read
    SourceError = -2,  // no source entry can be built from a path
};

inline bool isFailure(ArchiveStatus status)
{
    return int(status) < 0;
}
inline bool isFailure(SaveStatus status)
{
    return int(status) < 0;
}
inline bool isFailure(LoadStatus status)
{
    return int(status) < 0;
}

// The detail line of a failure, as shown after "Extract All Error.\n " or "Save Archive
// Error.\n " (empty for an unsupported texture format, and for statuses that are no failure).
QString statusDetail(ArchiveStatus status);
QString statusDetail(SaveStatus status);

// The outcome box of each engine: its text (the same for every status) and its informative
// text, "Complete.", "Aborted." or the error line with the detail.
QString outcomeTitle(ArchiveStatus status);
QString outcomeTitle(SaveStatus status);
QString outcomeText(ArchiveStatus status);
QString outcomeText(SaveStatus status);
// The creation box's error line for a failure that has no status of its own.
QString saveErrorText(const QString& detail);

// The line a script is given for a failure: the detail, with words where the window has none.
QString failureLine(ArchiveStatus status);
QString failureLine(SaveStatus status);

// The window's two extraction commands: every file, or the files selected in the list.
enum class ExtractScope { All, Selected };
// The command's name: the progress dialog's label and the outcome box's text.
QString extractCommandName(ExtractScope scope);
// The status-bar line the window shows after Extract All or Extract Selected.
QString extractStatusBarText(ArchiveStatus status, ExtractScope scope = ExtractScope::All);

// The box of a failed or cancelled load: "Read Files." with "Aborted.", "BA2 File Error" or
// "File Error".
QString outcomeTitle(LoadStatus status);
QString outcomeText(LoadStatus status);

#pragma once
// Results of the extractor and the writer, with the words each failure is shown with.

#include <QString>

namespace ArchiveStatus {
enum : int {
    Complete = 1,
    Aborted = 0,
    SystemError = -1, // extractor: target folder missing; writer: empty source list (silent)
    FileOpenError = -2,
    FileWriteError = -3,
    FileReadError = -4, // a read came up short, or data lies outside the archive file
    Lz4Error = -5,
    ZlibError = -6,
    UnsafeName = -7,         // extractor: a stored name would leave the target folder
    TooLarge = -8,           // writer: a source file beyond what the format or a codec can hold
    DdsOrVer3General = -9,   // extractor: compressed file in a version-3 general archive;
                             // writer: a texture source that is not a DDS file
    UnsupportedFormat = -10, // texture pixel format not supported (no words of its own)
};
}

// Detail line of an extraction status, as shown after "Extract All Error.\n ".
QString extractStatusDetail(int status);
// Detail line of a creation status, as shown after "Save Archive Error.\n ".
QString saveStatusDetail(int status);
// Full informative text of the outcome boxes: "Complete.", "Aborted." or the error line.
QString extractOutcomeText(int status);
QString saveOutcomeText(int status);

#pragma once
// The window's forms of opening, extracting and creating: the engines of the core, driving the
// window's progress widgets and showing the boxes the user sees.

#include "archive/status.h"
#include "creation/sourceentry.h"

#include <QString>

#include <vector>

class ArchiveReader;
class QProgressBar;
class QProgressDialog;

namespace Gui {

// Loads the archive at path into a new reader, driving a status-bar progress bar. An unsupported
// version-3 compression and too many chunks show a warning box; the other refusals show none
// (the window then says "BA2 Error.").
bool open(ArchiveReader& reader, QString path, QProgressBar* progressBar);

// Extracts every file into targetFolder (ending with '/'), driving the dialog (owned by the
// caller, window-modal), then closes it and shows the "Extract All" box.
ArchiveStatus extractAll(ArchiveReader& reader, QString targetFolder,
                         QProgressDialog* progressDialog);
// The same for the records named by rows (ascending), with the "Extract Selected" box.
ArchiveStatus extractSelected(ArchiveReader& reader, QString targetFolder,
                              QProgressDialog* progressDialog, const std::vector<uint32_t>& rows);

// Writes sources into targetPath, driving the dialog (owned by the caller, window-modal). An
// empty source list returns NoSources at once and shows nothing; every other outcome closes the
// dialog and then shows the "Save Archive" box.
SaveStatus saveArchive(SourceList& sources, QString targetPath, bool isTexture, int version,
                       int zlibLevel, int lz4Mode, QProgressDialog* progress);

} // namespace Gui

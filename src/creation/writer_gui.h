#pragma once
// The window's Create Archive engine call: writes the archive and shows its outcome box.

#include "creation/sourceentry.h"

#include <QString>

class QProgressDialog;

// Writes sources into targetPath through writeArchive, driving progress (owned by the caller,
// window-modal). Returns the ArchiveStatus. An empty source list returns -1 at once and shows
// nothing; every other outcome closes the dialog and then shows the "Save Archive" box.
int saveArchive(SourceList& sources, QString targetPath, bool isTexture, int version, int zlibLevel,
                int lz4Mode, QProgressDialog* progress);

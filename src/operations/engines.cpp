#include "operations/engines.h"

#include "app/dialogs.h"
#include "app/progressadapters.h"
#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "creation/writer.h"

#include <QApplication>
#include <QProgressBar>
#include <QProgressDialog>

namespace {

// Both engines end the same way: a full bar after success, the dialog gone, then the box.
template<typename Status>
Status report(Status status, QProgressDialog* progress, const QString& title)
{
    if (int(status) == 1) {
        progress->setMaximum(100);
        progress->setValue(100);
    }
    progress->close();
    QApplication::processEvents();
    Dialogs::current().showMessage(isFailure(status) ? QMessageBox::Warning
                                                     : QMessageBox::Information,
                                   title, outcomeText(status));
    return status;
}

} // namespace

namespace Gui {

bool open(ArchiveReader& reader, QString path, QProgressBar* progressBar)
{
    BarProgress adapter(progressBar);
    if (reader.open(path, adapter)) return true;
    const OpenError error = reader.openError();
    if (error == OpenError::UnsupportedVer3 || error == OpenError::TooManyChunks)
        Dialogs::current().showMessage(QMessageBox::Warning, reader.errorText(),
                                       reader.errorAdvice());
    return false;
}

ArchiveStatus extractAll(ArchiveReader& reader, QString targetFolder,
                         QProgressDialog* progressDialog)
{
    DialogProgress adapter(progressDialog);
    const ExtractResult result = extractArchive(reader, targetFolder, adapter, defaultJobCount());
    return report(result.status, progressDialog, outcomeTitle(result.status));
}

ArchiveStatus extractSelected(ArchiveReader& reader, QString targetFolder,
                              QProgressDialog* progressDialog, const std::vector<uint32_t>& rows)
{
    DialogProgress adapter(progressDialog);
    const ExtractResult result
        = extractArchive(reader, targetFolder, adapter, defaultJobCount(), &rows);
    return report(result.status, progressDialog, extractCommandName(ExtractScope::Selected));
}

SaveStatus saveArchive(SourceList& sources, QString targetPath, bool isTexture, int version,
                       int zlibLevel, int lz4Mode, QProgressDialog* progress)
{
    if (sources.isEmpty()) return SaveStatus::NoSources;
    DialogProgress adapter(progress);
    const WriteResult result
        = writeArchive(sources, targetPath, isTexture, version, zlibLevel, lz4Mode, adapter,
                       creationJobs(sources, defaultJobCount()));
    return report(result.status, progress, outcomeTitle(result.status));
}

} // namespace Gui

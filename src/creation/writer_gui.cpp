#include "creation/writer_gui.h"

#include "app/dialogs.h"
#include "app/progressadapters.h"
#include "archive/extractor.h"
#include "archive/status.h"
#include "creation/writer.h"

#include <QApplication>
#include <QProgressDialog>

int saveArchive(SourceList& sources, QString targetPath, bool isTexture, int version, int zlibLevel,
                int lz4Mode, QProgressDialog* progress)
{
    if (sources.isEmpty()) return ArchiveStatus::SystemError;

    DialogProgress adapter(progress);
    const WriteResult result
        = writeArchive(sources, targetPath, isTexture, version, zlibLevel, lz4Mode, adapter,
                       creationJobs(sources, defaultJobCount()));
    if (result.status == ArchiveStatus::Complete) {
        progress->setMaximum(100);
        progress->setValue(100);
    }
    progress->close();
    QApplication::processEvents();

    Dialogs::current().showMessage(result.status < 0 ? QMessageBox::Warning
                                                     : QMessageBox::Information,
                                   QStringLiteral("Save Archive"), saveOutcomeText(result.status));
    return result.status;
}

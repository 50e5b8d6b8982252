// The window's forms of opening and extracting: the engines in the core, plus the progress
// widgets they drive and the message boxes the user sees.

#include "app/dialogs.h"
#include "app/progressadapters.h"
#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "archive/status.h"

#include <QApplication>
#include <QProgressBar>
#include <QProgressDialog>

bool ArchiveReader::open(QString path, QProgressBar* progressBar)
{
    BarProgress adapter(progressBar);
    if (open(path, static_cast<Progress&>(adapter))) return true;

    switch (openError()) {
    case OpenError::UnsupportedVer3:
        Dialogs::current().showMessage(
            QMessageBox::Warning,
            QStringLiteral("This is Ver3-BA2 of a kind not yet supported.(code:%1)")
                .arg(int(compressionCode)),
            QStringLiteral("Please report to the author."));
        break;
    case OpenError::TooManyChunks:
        Dialogs::current().showMessage(
            QMessageBox::Warning,
            QStringLiteral("The maximum number of chunks that Zarnel can process is %1.")
                .arg(int(ba2::kMaxChunks)),
            QString());
        break;
    default:
        // The other refusals have no box; the window shows "BA2 Error." for them.
        break;
    }
    return false;
}

int ArchiveReader::extractAll(QString targetFolder, QProgressDialog* progressDialog)
{
    DialogProgress adapter(progressDialog);
    const ExtractResult result = extractArchive(*this, targetFolder, adapter, defaultJobCount());
    if (result.status == ArchiveStatus::Complete) {
        progressDialog->setMaximum(100);
        progressDialog->setValue(100);
    }
    progressDialog->close();
    QApplication::processEvents();

    Dialogs::current().showMessage(
        result.status < 0 ? QMessageBox::Warning : QMessageBox::Information,
        QStringLiteral("Extract All"), extractOutcomeText(result.status));
    return result.status;
}

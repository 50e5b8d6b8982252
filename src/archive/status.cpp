#include "archive/status.h"

namespace {

const QString kUnsupportedFormatLine = QStringLiteral("Unsupported texture format.");

QString outcome(int status, const QString& errorLine)
{
    if (status == 1) return QStringLiteral("Complete.");
    if (status == 0) return QStringLiteral("Aborted.");
    return errorLine;
}

} // namespace

SaveStatus toSaveStatus(LayoutStatus status)
{
    return status == LayoutStatus::Ok ? SaveStatus::Complete : SaveStatus(int(status));
}

QString statusDetail(ArchiveStatus status)
{
    switch (status) {
    case ArchiveStatus::SystemError: return QStringLiteral("System Error.");
    case ArchiveStatus::FileOpenError: return QStringLiteral("File Open Error.");
    case ArchiveStatus::FileWriteError: return QStringLiteral("File Write Error.");
    case ArchiveStatus::FileReadError: return QStringLiteral("File Read Error.");
    case ArchiveStatus::Lz4Error: return QStringLiteral("Decompress(LZ4) Error.");
    case ArchiveStatus::ZlibError: return QStringLiteral("Decompress(zlib) Error.");
    case ArchiveStatus::UnsafeName: return QStringLiteral("Unsafe File Name.");
    case ArchiveStatus::OutOfMemory: return QStringLiteral("Out Of Memory.");
    case ArchiveStatus::Complete:
    case ArchiveStatus::Aborted:
    case ArchiveStatus::UnsupportedFormat: break;
    }
    return QString();
}

QString statusDetail(SaveStatus status)
{
    switch (status) {
    case SaveStatus::FileOpenError: return QStringLiteral("File Open Error.");
    case SaveStatus::FileWriteError: return QStringLiteral("File Write Error.");
    case SaveStatus::FileReadError: return QStringLiteral("File Read Error.");
    case SaveStatus::Lz4Error: return QStringLiteral("Compress(LZ4) Error.");
    case SaveStatus::ZlibError: return QStringLiteral("Compress(zlib) Error.");
    case SaveStatus::TooLarge: return QStringLiteral("File Too Large.");
    case SaveStatus::DdsFileError: return QStringLiteral("DDS File Error.");
    case SaveStatus::OutOfMemory: return QStringLiteral("Out Of Memory.");
    case SaveStatus::Complete:
    case SaveStatus::Aborted:
    case SaveStatus::NoSources:
    case SaveStatus::UnsupportedFormat: break;
    }
    return QString();
}

QString outcomeTitle(ArchiveStatus)
{
    return extractCommandName(ExtractScope::All);
}

QString outcomeTitle(SaveStatus)
{
    return QStringLiteral("Save Archive");
}

QString outcomeText(ArchiveStatus status)
{
    return outcome(int(status),
                   QStringLiteral("Extract All Error.\n %1").arg(statusDetail(status)));
}

QString outcomeText(SaveStatus status)
{
    return outcome(int(status), saveErrorText(statusDetail(status)));
}

QString saveErrorText(const QString& detail)
{
    return QStringLiteral("Save Archive Error.\n %1").arg(detail);
}

QString failureLine(ArchiveStatus status)
{
    if (status == ArchiveStatus::UnsupportedFormat) return kUnsupportedFormatLine;
    return statusDetail(status);
}

QString failureLine(SaveStatus status)
{
    if (status == SaveStatus::UnsupportedFormat) return kUnsupportedFormatLine;
    const QString detail = statusDetail(status);
    return detail.isEmpty() ? QStringLiteral("Save Archive Error.") : detail;
}

QString extractCommandName(ExtractScope scope)
{
    return scope == ExtractScope::All ? QStringLiteral("Extract All")
                                      : QStringLiteral("Extract Selected");
}

QString extractStatusBarText(ArchiveStatus status, ExtractScope scope)
{
    return QLatin1Char(' ') + extractCommandName(scope)
        + (status == ArchiveStatus::Complete ? QStringLiteral(" Complete!")
                                             : QStringLiteral(" Error!"));
}

QString outcomeTitle(LoadStatus)
{
    return QStringLiteral("Read Files.");
}

QString outcomeText(LoadStatus status)
{
    switch (status) {
    case LoadStatus::Loaded: break;
    case LoadStatus::Canceled: return QStringLiteral("Aborted.");
    case LoadStatus::ArchiveError: return QStringLiteral("BA2 File Error");
    case LoadStatus::SourceError: return QStringLiteral("File Error");
    }
    return QString();
}

#include "archive/status.h"

QString extractStatusDetail(int status)
{
    switch (status) {
    case ArchiveStatus::SystemError: return QStringLiteral("System Error.");
    case ArchiveStatus::FileOpenError: return QStringLiteral("File Open Error.");
    case ArchiveStatus::FileWriteError: return QStringLiteral("File Write Error.");
    case ArchiveStatus::FileReadError: return QStringLiteral("File Read Error.");
    case ArchiveStatus::Lz4Error: return QStringLiteral("Decompress(LZ4) Error.");
    case ArchiveStatus::ZlibError: return QStringLiteral("Decompress(zlib) Error.");
    case ArchiveStatus::UnsafeName: return QStringLiteral("Unsafe File Name.");
    case ArchiveStatus::DdsOrVer3General: return QStringLiteral("Ver.3 General.");
    default: return QString();
    }
}

QString saveStatusDetail(int status)
{
    switch (status) {
    case ArchiveStatus::FileOpenError: return QStringLiteral("File Open Error.");
    case ArchiveStatus::FileWriteError: return QStringLiteral("File Write Error.");
    case ArchiveStatus::FileReadError: return QStringLiteral("File Read Error.");
    case ArchiveStatus::Lz4Error: return QStringLiteral("Compress(LZ4) Error.");
    case ArchiveStatus::ZlibError: return QStringLiteral("Compress(zlib) Error.");
    case ArchiveStatus::TooLarge: return QStringLiteral("File Too Large.");
    case ArchiveStatus::DdsOrVer3General: return QStringLiteral("DDS File Error.");
    default: return QString();
    }
}

static QString outcome(int status, const QString& errorFormat, const QString& detail)
{
    if (status == ArchiveStatus::Complete) return QStringLiteral("Complete.");
    if (status == ArchiveStatus::Aborted) return QStringLiteral("Aborted.");
    return errorFormat.arg(detail);
}

QString extractOutcomeText(int status)
{
    return outcome(status, QStringLiteral("Extract All Error.\n %1"), extractStatusDetail(status));
}

QString saveOutcomeText(int status)
{
    return outcome(status, QStringLiteral("Save Archive Error.\n %1"), saveStatusDetail(status));
}

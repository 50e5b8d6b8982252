// Arbitrary bytes as an archive: open, list and verify must never crash, hang or over-allocate.
#include "archive/archivereader.h"
#include "archive/extractor.h"

#include <QFile>
#include <QTemporaryDir>

#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const QString path = QStringLiteral("/tmp/zarnel-fuzz-reader-%1.ba2").arg(getpid());
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate)) return 0;
    f.write(reinterpret_cast<const char*>(data), qint64(size));
    f.close();
    ArchiveReader reader;
    NullProgress none;
    if (reader.open(path, none)) {
        for (uint32_t i = 0; i < reader.fileCount; ++i)
            (void)reader.nameOf(i);
        QString fault;
        verifyArchive(reader, fault, 1);
        (void)archiveInfoLine3(reader);
    }
    return 0;
}

// Arbitrary bytes as an archive, extracted into a scratch folder: nothing may be written
// outside it, and nothing may crash.
#include "archive/archivereader.h"
#include "archive/extractor.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>

#include <cstdlib>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const QString base = QStringLiteral("/tmp/zarnel-fuzz-extract-%1").arg(getpid());
    static const QString target = base + "/a/b/target";
    QDir(base).removeRecursively();
    QDir().mkpath(target);
    const QString path = base + "/in.ba2";
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate)) return 0;
    f.write(reinterpret_cast<const char*>(data), qint64(size));
    f.close();
    ArchiveReader reader;
    NullProgress none;
    if (reader.open(path, none)) extractArchive(reader, target + "/", none, 1);
    // Only the archive and the target tree may exist under base.
    QDirIterator it(base, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString p = it.next();
        if (p == path || p == base + "/a" || p == base + "/a/b" || p.startsWith(target)) continue;
        std::abort();
    }
    return 0;
}

// Arbitrary bytes as an archive, extracted into scratch folders with one thread and with worker
// threads: nothing may be written outside them, nothing may crash, and both runs must leave the
// same tree and report the same outcome.
#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "testutil.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>

#include <cstdlib>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const QString base = QStringLiteral("/tmp/zarnel-fuzz-extract-%1").arg(getpid());
    static const QString targets[2] = {base + "/a/b/one", base + "/a/b/two"};
    QDir(base).removeRecursively();
    for (const QString& t : targets)
        QDir().mkpath(t);
    const QString path = base + "/in.ba2";
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate)) return 0;
    f.write(reinterpret_cast<const char*>(data), qint64(size));
    f.close();
    ExtractResult results[2];
    for (int run = 0; run < 2; ++run) {
        ArchiveReader reader;
        NullProgress none;
        if (reader.open(path, none))
            results[run] = extractArchive(reader, targets[run] + "/", none, run == 0 ? 1 : 2);
    }
    if (results[0].status != results[1].status || results[0].failedName != results[1].failedName)
        std::abort();
    if (testutil::treeContents(targets[0]) != testutil::treeContents(targets[1])) std::abort();
    // Only the archive and the target trees may exist under base.
    QDirIterator it(base, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString p = it.next();
        if (p == path || p == base + "/a" || p == base + "/a/b" || p.startsWith(targets[0])
            || p.startsWith(targets[1]))
            continue;
        std::abort();
    }
    return 0;
}

// zarnel-bench: measures our engines against the raw limit of the same work in one run.
// Usage: zarnel-bench [WORKLOAD...]   (no argument: every workload)
// Each line: workload, our time, the limit's time, and limit/ours (1.0 = at the limit).

#include "archive/archivereader.h"
#include "archive/format.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

double bestOf(int runs, const std::function<void()>& work)
{
    double best = 1e30;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer t;
        t.start();
        work();
        best = std::min(best, t.nsecsElapsed() / 1e9);
    }
    return best;
}

void report(const char* workload, double ours, double limit, const char* limitName)
{
    std::printf("%-34s ours %9.4f s   %-22s %9.4f s   ours/limit %6.2fx\n", workload, ours, limitName, limit,
                ours / limit);
    std::fflush(stdout);
}

// An archive of count stored general files with short names, built byte by byte.
QByteArray generalArchive(uint32_t count)
{
    QByteArray names;
    std::vector<QByteArray> list;
    for (uint32_t i = 0; i < count; ++i) {
        QByteArray name = "meshes/set" + QByteArray::number(i / 1000) + "/file" + QByteArray::number(i) + ".nif";
        list.push_back(name);
    }
    const uint64_t dataStart = 24 + uint64_t(count) * 36;
    QByteArray out(int(dataStart), '\0');
    uint64_t cursor = dataStart;
    for (uint32_t i = 0; i < count; ++i) {
        ba2::GeneralFileRecord r;
        r.nameHash = i;
        r.dataOffset = cursor;
        r.unpackedSize = 4;
        cursor += 4;
        ba2::encodeGeneralRecord(r, reinterpret_cast<unsigned char*>(out.data()) + 24 + 36 * i);
    }
    out.append(QByteArray(int(count) * 4, 'd'));
    ba2::ArchiveHeader h;
    h.fileCount = count;
    h.nameTableOffset = cursor;
    ba2::encodeHeader(h, reinterpret_cast<unsigned char*>(out.data()));
    for (const QByteArray& n : list) {
        const char len[2] = {char(n.size() & 0xFF), char(n.size() >> 8)};
        out.append(len, 2);
        out.append(n);
    }
    return out;
}

void benchOpen(const QString& dir)
{
    const QString path = dir + "/open100k.ba2";
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(generalArchive(100000)) < 0) return;
    f.close();
    const double limit = bestOf(7, [&] {
        QFile in(path);
        in.open(QIODevice::ReadOnly);
        volatile qint64 n = in.readAll().size();
        (void)n;
    });
    const double ours = bestOf(7, [&] {
        ArchiveReader r;
        NullProgress none;
        if (!r.open(path, none)) std::fprintf(stderr, "open failed\n");
    });
    report("open 100,000-file archive", ours, limit, "one read of the file");
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList wanted = app.arguments().mid(1);
    QTemporaryDir dir;
    auto want = [&](const char* name) { return wanted.isEmpty() || wanted.contains(QLatin1String(name)); };
    if (want("open")) benchOpen(dir.path());
    return 0;
}

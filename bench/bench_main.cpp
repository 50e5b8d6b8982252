// zarnel-bench: measures our engines against the raw limit of the same work in one run.
// Usage: zarnel-bench [WORKLOAD...]   (no argument: every workload)
// Each line: workload, our time, the limit's time, and limit/ours (1.0 = at the limit).

#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "archive/format.h"
#include "archive/status.h"
#include "corpus.h"
#include "creation/codecs.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QDir>
#include <QTemporaryDir>

#include <lz4.h>
#ifdef ZARNEL_HAVE_LIBDEFLATE
#include <libdeflate.h>
#endif

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
    std::printf("%-34s ours %9.4f s   %-22s %9.4f s   limit/ours %5.2f\n", workload, ours, limitName, limit,
                limit / ours);
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

struct Block {
    QString name;
    QByteArray packed;
    uint32_t unpackedSize;
};

// Writes an archive of the blocks: general (zlib) or texture (one LZ4 chunk per file).
void writeArchive(const QString& path, const std::vector<Block>& blocks, bool texture)
{
    const uint32_t version = texture ? 3 : 1;
    const uint32_t headerSize = ba2::headerSizeFor(version);
    const uint64_t recordBytes = blocks.size() * uint64_t(texture ? 48 : 36);
    uint64_t cursor = headerSize + recordBytes;
    QByteArray records;
    for (const Block& b : blocks) {
        unsigned char rec[48];
        if (texture) {
            ba2::TextureFileRecord t;
            t.chunkCount = 1;
            t.width = t.height = 256;
            t.mipCount = 1;
            t.format = 71;
            ba2::encodeTextureRecord(t, rec);
            ba2::ChunkRecord c;
            c.dataOffset = cursor;
            c.packedSize = uint32_t(b.packed.size());
            c.unpackedSize = b.unpackedSize;
            ba2::encodeChunkRecord(c, rec + 24);
            records.append(reinterpret_cast<char*>(rec), 48);
        } else {
            ba2::GeneralFileRecord g;
            g.dataOffset = cursor;
            g.packedSize = uint32_t(b.packed.size());
            g.unpackedSize = b.unpackedSize;
            ba2::encodeGeneralRecord(g, rec);
            records.append(reinterpret_cast<char*>(rec), 36);
        }
        cursor += uint64_t(b.packed.size());
    }
    ba2::ArchiveHeader h;
    h.version = version;
    h.archiveType = texture ? ba2::kTypeTexture : ba2::kTypeGeneral;
    h.fileCount = uint32_t(blocks.size());
    h.nameTableOffset = cursor;
    h.headerExtra = 1;
    h.compressionCode = 3;
    unsigned char header[36];
    ba2::encodeHeader(h, header);
    QFile f(path);
    f.open(QIODevice::WriteOnly | QIODevice::Truncate);
    f.write(reinterpret_cast<char*>(header), headerSize);
    f.write(records);
    for (const Block& b : blocks) f.write(b.packed);
    for (const Block& b : blocks) {
        const QByteArray n = b.name.toUtf8();
        const char len[2] = {char(n.size() & 0xFF), char(n.size() >> 8)};
        f.write(len, 2);
        f.write(n);
    }
}

// The raw limit: decode every block from memory with the fastest decoder we have, and write
// each result into its own file with one write.
void rawExtract(const std::vector<Block>& blocks, bool lz4, const QString& out)
{
    std::vector<char> buffer;
#ifdef ZARNEL_HAVE_LIBDEFLATE
    libdeflate_decompressor* inflater = libdeflate_alloc_decompressor();
#endif
    QDir().mkpath(out);
    int n = 0;
    for (const Block& b : blocks) {
        if (buffer.size() < b.unpackedSize) buffer.resize(b.unpackedSize);
        if (lz4) {
            LZ4_decompress_safe(b.packed.constData(), buffer.data(), b.packed.size(), int(b.unpackedSize));
        } else {
#ifdef ZARNEL_HAVE_LIBDEFLATE
            size_t got = 0;
            libdeflate_zlib_decompress(inflater, b.packed.constData(), size_t(b.packed.size()), buffer.data(),
                                       b.unpackedSize, &got);
#else
            decompressZlib(b.packed.constData(), uint32_t(b.packed.size()), buffer.data(), b.unpackedSize);
#endif
        }
        QFile f(out + "/" + QString::number(n++));
        f.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
        f.write(buffer.data(), b.unpackedSize);
    }
#ifdef ZARNEL_HAVE_LIBDEFLATE
    libdeflate_free_decompressor(inflater);
#endif
}

void benchExtract(const QString& dir, const std::vector<corpus::File>& files, bool lz4)
{
    std::vector<Block> blocks;
    for (const corpus::File& f : files) {
        Block b{f.name, {}, uint32_t(f.data.size())};
        if (lz4) {
            b.packed.resize(int(lz4Bound(uint64_t(f.data.size()))));
            b.packed.resize(compressLz4(f.data.constData(), f.data.size(), b.packed.data(), b.packed.size()));
        } else {
            b.packed = compressZlib(f.data.constData(), uint32_t(f.data.size()), 6).mid(4);
        }
        blocks.push_back(std::move(b));
    }
    const QString archive = dir + (lz4 ? "/extract-lz4.ba2" : "/extract-zlib.ba2");
    writeArchive(archive, blocks, lz4);
    const QString out = dir + "/out";
    auto clean = [&] { QDir(out).removeRecursively(); };
    double limit = 1e30, one = 1e30, all = 1e30;
    const int jobs = defaultJobCount();
    for (int round = 0; round < 3; ++round) {
        clean();
        limit = std::min(limit, bestOf(1, [&] { rawExtract(blocks, lz4, out); }));
        for (int j : {1, jobs}) {
            clean();
            QDir().mkpath(out);
            const double t = bestOf(1, [&] {
                ArchiveReader r;
                NullProgress none;
                r.open(archive, none);
                if (extractArchive(r, out, none, j).status != ArchiveStatus::Complete) std::fprintf(stderr, "extract failed\n");
            });
            (j == 1 ? one : all) = std::min(j == 1 ? one : all, t);
        }
    }
    clean();
    const char* name = lz4 ? "extract LZ4 v3 textures, 1 thread" : "extract zlib v1, 1 thread";
    report(name, one, limit, "inflate + write");
    std::printf("%-34s ours %9.4f s   %d threads vs 1: speed-up %5.2fx\n", lz4 ? "extract LZ4 v3 textures, all cores" : "extract zlib v1, all cores",
                all, jobs, one / all);
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList wanted = app.arguments().mid(1);
    QTemporaryDir dir;
    auto want = [&](const char* name) { return wanted.isEmpty() || wanted.contains(QLatin1String(name)); };
    int64_t corpusBytes = 128ll << 20;
    if (qEnvironmentVariableIsSet("ZARNEL_BENCH_MIB")) corpusBytes = qEnvironmentVariableIntValue("ZARNEL_BENCH_MIB") * (1ll << 20);
    std::vector<corpus::File> files;
    auto corpusFiles = [&]() -> const std::vector<corpus::File>& {
        if (files.empty()) files = corpus::mixed(corpusBytes);
        return files;
    };
    std::printf("corpus: %lld MiB (ZARNEL_BENCH_MIB), %d cores\n", (long long)(corpusBytes >> 20), defaultJobCount());
    if (want("open")) benchOpen(dir.path());
    if (want("extract")) {
        benchExtract(dir.path(), corpusFiles(), false);
        benchExtract(dir.path(), corpusFiles(), true);
    }
    return 0;
}

// zarnel-bench: measures our engines against the raw limit of the same work in one run.
// Usage: zarnel-bench [WORKLOAD...]   (no argument: open list extract create gather convert
//                                     partial bsa)
//        zarnel-bench engines         zlib against libdeflate at every level (slow)
//        zarnel-bench write-corpus DIR   the create corpus as files, for memory measurements
// Each line: workload, our time, the limit's time, and limit/ours (1.0 = at the limit).

#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "archive/format.h"
#include "archive/status.h"
#include "corpus.h"
#include "creation/codecs.h"
#include "creation/converter.h"
#include "creation/gather.h"
#include "creation/texturelayout.h"
#include "creation/writer.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>

#include <libdeflate.h>
#include <lz4.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

double bestOf(int runs, const std::function<void()>& work)
{
    double best = 1e30;
    for (int i = 0; i < runs; ++i) {
        // Earlier runs' output is written back to disk by kernel threads; left pending, that
        // work would take the second core away from whichever run happens to come next.
        ::sync();
        QElapsedTimer t;
        t.start();
        work();
        best = std::min(best, t.nsecsElapsed() / 1e9);
    }
    return best;
}

// CPU seconds of this process so far, every thread included.
double cpuSeconds()
{
    struct rusage u;
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec)
        + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

// Runs part(0) .. part(threads - 1), each on a thread of its own (part(0) on this one).
void onThreads(int threads, const std::function<void(int)>& part)
{
    std::vector<std::thread> others;
    for (int t = 1; t < threads; ++t)
        others.emplace_back(part, t);
    part(0);
    for (std::thread& t : others)
        t.join();
}

void report(const char* workload, double ours, double limit, const char* limitName)
{
    std::printf("%-34s ours %9.4f s   %-22s %9.4f s   limit/ours %5.2f\n", workload, ours,
                limitName, limit, limit / ours);
    std::fflush(stdout);
}

// An archive of count stored general files with short names.
QByteArray generalArchive(uint32_t count)
{
    testutil::Ba2Builder b;
    for (uint32_t i = 0; i < count; ++i)
        b.addGeneral("meshes/set" + QByteArray::number(i / 1000) + "/file" + QByteArray::number(i)
                         + ".nif",
                     "dddd");
    return b.build();
}

// ArchiveReader::open of an archive against one read of its file.
void benchOpen(const QString& path, const QByteArray& archive, const char* workload)
{
    if (!testutil::writeFile(path, archive)) return;
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
    report(workload, ours, limit, "one read of the file");
}

// Runs a program with its output in a file (its complaints dropped); true when it exits with 0.
bool runTo(const QStringList& args, const QString& output)
{
    std::vector<QByteArray> bytes;
    for (const QString& a : args)
        bytes.push_back(QFile::encodeName(a));
    std::vector<char*> argv;
    for (QByteArray& b : bytes)
        argv.push_back(b.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, QFile::encodeName(output).constData(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    int status = -1;
    const bool started = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    return started && waitpid(pid, &status, 0) == pid && WIFEXITED(status)
        && WEXITSTATUS(status) == 0;
}

// zarnel-cli's listing of a 100,000-file archive against cat of the same archive: each a whole
// process, output into a file.
void benchList(const QString& dir)
{
    const QString path = dir + "/list100k.ba2", out = dir + "/listing.txt";
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(generalArchive(100000)) < 0) return;
    f.close();
    const QString cli = QStringLiteral(ZARNEL_CLI_PATH);
    const double cat = bestOf(9, [&] { runTo({"cat", path}, out); });
    const char* names[] = {"info", "list", "list --long"};
    const QStringList commands[]
        = {{cli, "info", path}, {cli, "list", path}, {cli, "list", "--long", path}};
    for (int k = 0; k < 3; ++k) {
        bool ok = true;
        const double t = bestOf(9, [&] { ok = runTo(commands[k], out) && ok; });
        const QString label = QStringLiteral("zarnel-cli %1, 100,000 files").arg(names[k]);
        if (!ok)
            std::printf("%-34s not available\n", qPrintable(label));
        else
            std::printf("%-34s ours %9.4f s   cat of the archive %9.4f s   ours/cat %5.2fx\n",
                        qPrintable(label), t, cat, t / cat);
    }
}

struct Block
{
    QString name;
    QByteArray packed;
    uint32_t unpackedSize;
};

// Writes an archive of the blocks: general (zlib) or texture (one LZ4 chunk per file).
void writeBlocksArchive(const QString& path, const std::vector<Block>& blocks, bool texture)
{
    testutil::Ba2Builder archive;
    archive.version = texture ? 3 : 1;
    archive.texture = texture;
    for (const Block& b : blocks) {
        testutil::TestEntry e;
        e.name = b.name.toUtf8();
        if (texture) {
            e.width = e.height = 256;
            e.format = 71;
            testutil::TestChunk c;
            c.stored = b.packed;
            c.packedSize = uint32_t(b.packed.size());
            c.unpackedSize = b.unpackedSize;
            e.chunks.append(c);
        } else {
            e.stored = b.packed;
            e.packedSize = uint32_t(b.packed.size());
            e.unpackedSize = b.unpackedSize;
        }
        archive.entries.append(e);
    }
    testutil::writeFile(path, archive.build());
}

// The raw limit: decode every block from memory with the fastest decoder we have, and write
// each result into its own file with one write. With threads > 1 each thread takes every
// threads-th block, with nothing shared between them.
void rawExtract(const std::vector<Block>& blocks, bool lz4, const QString& out, int threads = 1)
{
    QDir().mkpath(out);
    auto part = [&](int first) {
        std::vector<char> buffer;
        libdeflate_decompressor* inflater = libdeflate_alloc_decompressor();
        for (size_t n = size_t(first); n < blocks.size(); n += size_t(threads)) {
            const Block& b = blocks[n];
            if (buffer.size() < b.unpackedSize) buffer.resize(b.unpackedSize);
            if (lz4) {
                LZ4_decompress_safe(b.packed.constData(), buffer.data(), b.packed.size(),
                                    int(b.unpackedSize));
            } else {
                size_t got = 0;
                libdeflate_zlib_decompress(inflater, b.packed.constData(), size_t(b.packed.size()),
                                           buffer.data(), b.unpackedSize, &got);
            }
            const QByteArray path = QFile::encodeName(out + "/" + QString::number(n));
            const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (fd < 0 || ::write(fd, buffer.data(), b.unpackedSize) != ssize_t(b.unpackedSize))
                std::fprintf(stderr, "raw write failed\n");
            if (fd >= 0) ::close(fd);
        }
        libdeflate_free_decompressor(inflater);
    };
    onThreads(threads, part);
}

void benchExtract(const QString& dir, const std::vector<corpus::File>& files, bool lz4)
{
    std::vector<Block> blocks;
    for (const corpus::File& f : files) {
        Block b {f.name, {}, uint32_t(f.data.size())};
        if (lz4) {
            b.packed.resize(int(lz4Bound(uint64_t(f.data.size()))));
            b.packed.resize(
                compressLz4(f.data.constData(), f.data.size(), b.packed.data(), b.packed.size()));
        } else {
            b.packed = compressZlib(f.data.constData(), uint32_t(f.data.size()), 6).mid(4);
        }
        blocks.push_back(std::move(b));
    }
    const QString archive = dir + (lz4 ? "/extract-lz4.ba2" : "/extract-zlib.ba2");
    writeBlocksArchive(archive, blocks, lz4);
    // Every run writes into a folder of its own, all removed with the benchmark's temporary
    // folder at the very end: a file system that has just deleted many files (ext4) makes the
    // next creations slower, which would be measured as part of whichever run comes next.
    int runs = 0;
    QString out;
    auto fresh = [&] {
        out = dir + (lz4 ? "/lz4-out" : "/zlib-out") + QString::number(++runs);
    };
    double limit = 1e30, limitAll = 1e30, one = 1e30, all = 1e30;
    const int jobs = defaultJobCount();
    // Five rounds: on a disk file system the write-back of earlier runs makes single runs vary
    // by a third, more than on tmpfs.
    for (int round = 0; round < 5; ++round) {
        fresh();
        limit = std::min(limit, bestOf(1, [&] { rawExtract(blocks, lz4, out); }));
        fresh();
        limitAll = std::min(limitAll, bestOf(1, [&] { rawExtract(blocks, lz4, out, jobs); }));
        for (int j : {1, jobs}) {
            fresh();
            QDir().mkpath(out);
            const double t = bestOf(1, [&] {
                ArchiveReader r;
                NullProgress none;
                r.open(archive, none);
                if (extractArchive(r, out, none, j).status != ArchiveStatus::Complete)
                    std::fprintf(stderr, "extract failed\n");
            });
            (j == 1 ? one : all) = std::min(j == 1 ? one : all, t);
        }
    }
    const char* name = lz4 ? "extract LZ4 v3 textures, 1 thread" : "extract zlib v1, 1 thread";
    report(name, one, limit, "inflate + write");
    std::printf("%-34s ours %9.4f s   %d threads vs 1: speed-up %5.2fx   limit %9.4f s, "
                "speed-up %5.2fx   ours/limit speed-up %4.2f\n",
                lz4 ? "extract LZ4 v3 textures, all cores" : "extract zlib v1, all cores", all,
                jobs, one / all, limitAll, limit / limitAll, (one / all) / (limit / limitAll));
}

// ---- zlib engines: ratio and speed of qCompress's zlib and libdeflate at every level ----

struct EngineResult
{
    uint64_t packed = 0;
    double seconds = 0;
};

EngineResult runZlib(const std::vector<QByteArray>& blocks, int level)
{
    EngineResult r;
    r.seconds = bestOf(3, [&] {
        r.packed = 0;
        for (const QByteArray& b : blocks)
            r.packed += uint64_t(compressZlib(b.constData(), uint32_t(b.size()), level).size() - 4);
    });
    return r;
}

EngineResult runLibdeflate(const std::vector<QByteArray>& blocks, int level)
{
    EngineResult r;
    libdeflate_compressor* c = libdeflate_alloc_compressor(level);
    std::vector<char> out;
    r.seconds = bestOf(3, [&] {
        r.packed = 0;
        for (const QByteArray& b : blocks) {
            const size_t bound = libdeflate_zlib_compress_bound(c, size_t(b.size()));
            if (out.size() < bound) out.resize(bound);
            r.packed += libdeflate_zlib_compress(c, b.constData(), size_t(b.size()), out.data(),
                                                 out.size());
        }
    });
    libdeflate_free_compressor(c);
    return r;
}

void benchEngines(int64_t bytesPerKind)
{
    const corpus::Kind kinds[]
        = {corpus::Kind::Texture, corpus::Kind::Mesh, corpus::Kind::Incompressible};
    const char* names[] = {"texture-like", "mesh-like", "incompressible"};
    std::vector<QByteArray> data[3];
    double mib[3];
    for (int k = 0; k < 3; ++k) {
        data[k] = corpus::ofKind(kinds[k], bytesPerKind);
        uint64_t total = 0;
        for (const QByteArray& b : data[k])
            total += uint64_t(b.size());
        mib[k] = double(total) / (1 << 20);
    }
    std::printf(
        "| level | corpus | zlib size %% | zlib MiB/s | libdeflate size %% | libdeflate MiB/s |\n");
    std::printf("|---|---|---|---|---|---|\n");
    QString verdicts;
    for (int level = 1; level <= 9; ++level) {
        bool wins = true;
        for (int k = 0; k < 3; ++k) {
            const EngineResult z = runZlib(data[k], level);
            const EngineResult d = runLibdeflate(data[k], level);
            const double total = mib[k] * (1 << 20);
            std::printf("| %d | %s | %.3f | %.1f | %.3f | %.1f |\n", level, names[k],
                        100.0 * z.packed / total, mib[k] / z.seconds, 100.0 * d.packed / total,
                        mib[k] / d.seconds);
            std::fflush(stdout);
            // "The same size": within a ten-thousandth of the input, 0.01 points on the table.
            wins = wins && d.packed > 0 && d.packed <= z.packed + uint64_t(total / 10000)
                && d.seconds < z.seconds;
        }
        verdicts += QStringLiteral("level %1: %2\n").arg(level).arg(wins ? "libdeflate" : "zlib");
    }
    std::printf("\nengine that packs as small (within 0.01 points) or smaller on every corpus and "
                "is faster:\n%s",
                qPrintable(verdicts));
}

// ---- create: our writer against compressing the same blocks from memory into one file ----

struct CreateCase
{
    const char* name;
    bool texture;
    int version, zlibLevel, lz4Mode;
};

struct MemoryBlock
{
    const char* data;
    uint32_t size;
};

// The blocks an archive of these files holds: whole files, or the chunks of each texture.
std::vector<MemoryBlock> blocksOf(const std::vector<corpus::File>& files, bool texture)
{
    std::vector<MemoryBlock> blocks;
    for (const corpus::File& f : files) {
        if (!texture) {
            blocks.push_back({f.data.constData(), uint32_t(f.data.size())});
            continue;
        }
        TextureLayout layout;
        if (layoutTexture(f.data.constData(), uint64_t(f.data.size()), layout) != LayoutStatus::Ok)
            continue;
        for (int k = 0; k < layout.chunkCount; ++k)
            blocks.push_back({f.data.constData() + layout.chunks[k].sourceOffset,
                              layout.chunks[k].unpackedSize});
    }
    return blocks;
}

// The raw limit: the fastest codec we have for this output, block by block from memory, and one
// write of each result into one file. With threads > 1 each thread takes every threads-th block
// and writes into a file of its own, with nothing shared between them.
void rawCreate(const std::vector<MemoryBlock>& blocks, const CreateCase& c, const QString& path,
               int threads = 1)
{
    auto part = [&](int first) {
        const QByteArray name = QFile::encodeName(path + (first ? QString::number(first) : ""));
        const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        std::vector<char> out;
        libdeflate_compressor* deflater
            = c.version == 3 ? nullptr : libdeflate_alloc_compressor(c.zlibLevel);
        for (size_t k = size_t(first); k < blocks.size(); k += size_t(threads)) {
            const MemoryBlock& b = blocks[k];
            const size_t bound = size_t(std::max(lz4Bound(b.size), ZlibCompressor::bound(b.size)));
            if (out.size() < bound) out.resize(bound);
            int64_t n = 0;
            if (c.version == 3) {
                n = c.lz4Mode == 1
                    ? compressLz4(b.data, int(b.size), out.data(), int(out.size()))
                    : compressLz4Large(b.data, int(b.size), out.data(), int(out.size()));
            } else {
                n = int64_t(
                    libdeflate_zlib_compress(deflater, b.data, b.size, out.data(), out.size()));
            }
            if (n > 0 && ::write(fd, out.data(), size_t(n)) != n)
                std::fprintf(stderr, "write failed\n");
        }
        libdeflate_free_compressor(deflater);
        ::close(fd);
    };
    onThreads(threads, part);
}

QByteArray fileHash(const QString& path)
{
    QFile f(path);
    QCryptographicHash h(QCryptographicHash::Sha256);
    return f.open(QIODevice::ReadOnly) && h.addData(&f) ? h.result() : QByteArray();
}

SourceList gatherFolder(const QString& folder)
{
    SourceList list;
    GatherState state;
    state.sources = &list;
    state.table = &defaultNameHashTable();
    gatherPaths(state, {folder}, nullptr);
    return list;
}

void benchCreate(const QString& dir, int64_t corpusBytes)
{
    const std::vector<corpus::File> general = corpus::mixed(corpusBytes);
    const std::vector<corpus::File> textures = corpus::textures(corpusBytes);
    if (!corpus::writeTo(dir + "/general/Data", general)
        || !corpus::writeTo(dir + "/textures/Data", textures)) {
        std::fprintf(stderr, "cannot write the corpus\n");
        return;
    }
    const SourceList generalSources = gatherFolder(dir + "/general/Data");
    const SourceList textureSources = gatherFolder(dir + "/textures/Data");
    const CreateCase cases[] = {
        {"create zlib 1 v1 general", false, 1, 1, 0},
        {"create zlib 6 v1 general", false, 1, 6, 0},
        {"create LZ4 default v3 textures", true, 3, 0, 1},
        {"create LZ4 large table v3 textures", true, 3, 0, 2},
    };
    const int jobs = defaultJobCount();
    const QString out = dir + "/out.ba2", raw = dir + "/raw.bin";
    for (const CreateCase& c : cases) {
        const std::vector<MemoryBlock> blocks = blocksOf(c.texture ? textures : general, c.texture);
        double limit = 1e30, limitAll = 1e30, one = 1e30, all = 1e30, cpuOne = 0, cpuAll = 0;
        QByteArray hashOne, hashAll;
        for (int round = 0; round < 3; ++round) {
            limit = std::min(limit, bestOf(1, [&] { rawCreate(blocks, c, raw); }));
            limitAll = std::min(limitAll, bestOf(1, [&] { rawCreate(blocks, c, raw, jobs); }));
            for (int t = 0; t < jobs; ++t)
                QFile::remove(raw + (t ? QString::number(t) : ""));
            for (int j : {1, jobs}) {
                SourceList sources = c.texture ? textureSources : generalSources;
                NullProgress none;
                const double cpu = cpuSeconds();
                const double t = bestOf(1, [&] {
                    if (writeArchive(sources, out, c.texture, c.version, c.zlibLevel, c.lz4Mode,
                                     none, j)
                            .status
                        != SaveStatus::Complete)
                        std::fprintf(stderr, "create failed\n");
                });
                double& best = j == 1 ? one : all;
                if (t < best) (j == 1 ? cpuOne : cpuAll) = cpuSeconds() - cpu;
                best = std::min(best, t);
                if (round == 0) (j == 1 ? hashOne : hashAll) = fileHash(out);
                QFile::remove(out);
            }
        }
        report(qPrintable(QStringLiteral("%1, 1 thread").arg(c.name)), one, limit,
               c.version == 3 ? (c.lz4Mode == 1 ? "lz4 + write" : "large-table lz4 + write")
                              : "libdeflate + write");
        // CPU time tells how much of the machine a run really had: on a busy machine the wall
        // clock of a one-thread run exceeds its CPU time.
        std::printf("%-34s ours %9.4f s   %d threads vs 1: speed-up %5.2fx   archives %s   cpu "
                    "%.2f s / %.2f s\n",
                    qPrintable(QStringLiteral("%1, all cores").arg(c.name)), all, jobs, one / all,
                    hashOne == hashAll && !hashOne.isEmpty() ? "identical" : "DIFFER", cpuOne,
                    cpuAll);
        std::printf("%-34s limit %8.4f s   speed-up %5.2fx   ours/limit speed-up %4.2f\n",
                    qPrintable(QStringLiteral("%1, limit all cores").arg(c.name)), limitAll,
                    limit / limitAll, (one / all) / (limit / limitAll));
        std::fflush(stdout);
    }
}

// ---- gather: collecting many small files must grow about linearly with their number ----

bool makeSmallFiles(const QString& folder, int count)
{
    for (int i = 0; i < count; ++i) {
        const QString sub = QStringLiteral("%1/Data/meshes/set%2/part%3")
                                .arg(folder)
                                .arg(i / 1000)
                                .arg(i / 100 % 10);
        if (i % 100 == 0 && !QDir().mkpath(sub)) return false;
        QFile f(QStringLiteral("%1/piece_%2.nif").arg(sub).arg(i));
        if (!f.open(QIODevice::WriteOnly) || f.write("small file body\n") != 16) return false;
    }
    return true;
}

void benchGather(const QString& dir)
{
    double times[2];
    const int counts[2] = {25000, 100000};
    for (int k = 0; k < 2; ++k) {
        const QString folder = dir + QStringLiteral("/gather%1").arg(counts[k]);
        if (!makeSmallFiles(folder, counts[k])) {
            std::fprintf(stderr, "cannot write the small files\n");
            return;
        }
        times[k] = bestOf(3, [&] {
            if (int(gatherFolder(folder + "/Data").size()) != counts[k])
                std::fprintf(stderr, "gather lost files\n");
        });
        if (k == 0) {
            // Many small files: what the hand-over between threads costs per file.
            const SourceList sources = gatherFolder(folder + "/Data");
            double t[2];
            for (int j = 0; j < 2; ++j) {
                t[j] = bestOf(3, [&] {
                    SourceList copy = sources;
                    NullProgress none;
                    if (writeArchive(copy, dir + "/small.ba2", false, 1, 6, 0, none,
                                     j ? creationJobs(copy, defaultJobCount()) : 1)
                            .status
                        != SaveStatus::Complete)
                        std::fprintf(stderr, "create failed\n");
                    QFile::remove(dir + "/small.ba2");
                });
            }
            std::printf("%-34s ours %9.4f s   all cores %9.4f s   speed-up %5.2fx\n",
                        "create 25,000 small files, zlib 6", t[0], t[1], t[0] / t[1]);
        }
        QDir(folder).removeRecursively();
    }
    std::printf("%-34s %9.4f s\n%-34s %9.4f s   time(100k)/time(25k) %5.2f (target <= 6)\n",
                "gather 25,000 small files", times[0], "gather 100,000 small files", times[1],
                times[1] / times[0]);
}

// ---- partial work: diff against two verify runs, one file by pattern against open + one file ----

// Best of runs of a zarnel-cli process, output into a file; negative when it fails.
double cliTime(int runs, const QStringList& args, const QString& output)
{
    bool ok = true;
    const double t = bestOf(runs, [&] { ok = runTo(args, output) && ok; });
    return ok ? t : -1;
}

void benchPartial(const QString& dir, const std::vector<corpus::File>& files)
{
    const QString cli = QStringLiteral(ZARNEL_CLI_PATH), out = dir + "/partial.txt";
    // The same files at zlib 6 in a v1 archive and as LZ4 in a v3 archive: diff finds them equal.
    testutil::Ba2Builder zlib, lz4;
    lz4.version = 3;
    for (const corpus::File& f : files) {
        zlib.addGeneral(f.name.toUtf8(), f.data, testutil::Pack::Zlib);
        lz4.addGeneral(f.name.toUtf8(), f.data, testutil::Pack::Lz4);
    }
    const QString a = dir + "/diff-zlib.ba2", b = dir + "/diff-lz4.ba2";
    const QString c = dir + "/diff100k-a.ba2", d = dir + "/diff100k-b.ba2";
    const QByteArray many = generalArchive(100000);
    if (!testutil::writeFile(a, zlib.build()) || !testutil::writeFile(b, lz4.build())
        || !testutil::writeFile(c, many) || !testutil::writeFile(d, many))
        return;
    const struct
    {
        const char* label;
        QString first, second;
    } pairs[] = {{"diff zlib v1 / LZ4 v3 archive", a, b}, {"diff 100,000-file archives", c, d}};
    for (const auto& p : pairs) {
        const double verify = cliTime(5, {cli, "verify", p.first}, out)
            + cliTime(5, {cli, "verify", p.second}, out);
        const double diff = cliTime(5, {cli, "diff", p.first, p.second}, out);
        std::printf("%-34s ours %9.4f s   two verify runs %9.4f s   ours/verifies %5.2fx\n",
                    p.label, diff, verify, diff / verify);
    }
    // One file by its name out of 100,000, against opening the archive (info) plus extracting
    // an archive of that one file.
    testutil::Ba2Builder one;
    one.addGeneral("meshes/set50/file50000.nif", "dddd");
    const QString single = dir + "/one.ba2";
    if (!testutil::writeFile(single, one.build())) return;
    int runs = 0;
    auto fresh = [&] {
        const QString folder = dir + "/pattern" + QString::number(++runs);
        QDir().mkpath(folder);
        return folder;
    };
    double pattern = 1e30, reference = 1e30;
    for (int round = 0; round < 7; ++round) {
        const double p = cliTime(1, {cli, "extract", c, fresh(), "file50000.nif"}, out);
        const double open = cliTime(1, {cli, "info", c}, out);
        const double one = cliTime(1, {cli, "extract", single, fresh()}, out);
        if (p < 0 || open < 0 || one < 0) {
            std::printf("%-34s failed\n", "extract 1 of 100,000 by pattern");
            return;
        }
        pattern = std::min(pattern, p);
        reference = std::min(reference, open + one);
    }
    std::printf("%-34s ours %9.4f s   info + one-file extract %9.4f s   ratio %5.2fx\n",
                "extract 1 of 100,000 by pattern", pattern, reference, pattern / reference);
}

// ---- BSA: opening and extracting against the same work on a BA2 archive ----

// A BSA archive of the files (names and compression on, one folder per directory).
QByteArray bsaOf(const std::vector<corpus::File>& files, uint32_t version)
{
    testutil::BsaBuilder bsa;
    bsa.version = version;
    bsa.flags = 0x7;
    QMap<QString, int> folderIndex;
    for (const corpus::File& f : files) {
        const int slash = f.name.lastIndexOf('/');
        const QString folder = f.name.left(slash).replace('/', '\\');
        if (!folderIndex.contains(folder)) {
            folderIndex.insert(folder, bsa.folders.size());
            bsa.folders.append(qMakePair(folder.toUtf8(), QVector<testutil::BsaFile>()));
        }
        bsa.folders[folderIndex[folder]].second.append({f.name.mid(slash + 1).toUtf8(), f.data});
    }
    return bsa.build();
}

void benchBsa(const QString& dir, const std::vector<corpus::File>& files)
{
    std::vector<corpus::File> many;
    for (int i = 0; i < 100000; ++i)
        many.push_back({QStringLiteral("meshes/set%1/file%2.nif").arg(i / 1000).arg(i), "dddd"});
    testutil::BsaBuilder stored;
    stored.flags = 0x3;
    for (int k = 0; k < 100; ++k) {
        stored.folders.append(
            qMakePair("meshes\\set" + QByteArray::number(k), QVector<testutil::BsaFile>()));
        for (int i = 0; i < 1000; ++i)
            stored.folders.back().second.append(
                {"file" + QByteArray::number(k * 1000 + i) + ".nif", "dddd"});
    }
    benchOpen(dir + "/open100k.bsa", stored.build(), "open 100,000-file BSA (104)");
    // The same files in a BSA and a BA2 archive, zlib (104 / v1) and LZ4 (105 / v3 general).
    testutil::Ba2Builder zlib, lz4;
    lz4.version = 3;
    for (const corpus::File& f : files) {
        zlib.addGeneral(f.name.toUtf8(), f.data, testutil::Pack::Zlib);
        lz4.addGeneral(f.name.toUtf8(), f.data, testutil::Pack::Lz4);
    }
    const struct
    {
        const char* label;
        QString bsa, ba2;
        QByteArray bsaBytes, ba2Bytes;
    } cases[] = {
        {"extract BSA 104 (zlib)", dir + "/x104.bsa", dir + "/x1.ba2", bsaOf(files, 104),
         zlib.build()},
        {"extract BSA 105 (LZ4 frames)", dir + "/x105.bsa", dir + "/x3.ba2", bsaOf(files, 105),
         lz4.build()},
    };
    int runs = 0;
    auto extractTime = [&](const QString& archive, int jobs) {
        const QString out = dir + "/bsa-out" + QString::number(++runs);
        QDir().mkpath(out);
        return bestOf(1, [&] {
            ArchiveReader r;
            NullProgress none;
            if (!r.open(archive, none)
                || extractArchive(r, out, none, jobs).status != ArchiveStatus::Complete)
                std::fprintf(stderr, "extract failed\n");
        });
    };
    const int jobs = defaultJobCount();
    for (const auto& c : cases) {
        if (!testutil::writeFile(c.bsa, c.bsaBytes) || !testutil::writeFile(c.ba2, c.ba2Bytes))
            return;
        double t[2][2] = {{1e30, 1e30}, {1e30, 1e30}}; // [bsa, ba2][1 thread, all cores]
        for (int round = 0; round < 5; ++round)
            for (int kind = 0; kind < 2; ++kind)
                for (int j = 0; j < 2; ++j)
                    t[kind][j]
                        = std::min(t[kind][j], extractTime(kind ? c.ba2 : c.bsa, j ? jobs : 1));
        std::printf("%-34s 1 thread %7.4f s (BA2 %7.4f s, BA2/BSA %4.2f)   %d threads %7.4f s "
                    "(BA2 %7.4f s, BA2/BSA %4.2f)\n",
                    c.label, t[0][0], t[1][0], t[1][0] / t[0][0], jobs, t[0][1], t[1][1],
                    t[1][1] / t[0][1]);
    }
}

// ---- write-corpus: the create corpus on disk, for zarnel-cli under /usr/bin/time -v ----

// ---- convert: a relabelling runs like a file copy, a re-compression like create ----

void benchConvert(const QString& dir, int64_t corpusBytes)
{
    if (!corpus::writeTo(dir + "/cgeneral/Data", corpus::mixed(corpusBytes))
        || !corpus::writeTo(dir + "/ctextures/Data", corpus::textures(corpusBytes))) {
        std::fprintf(stderr, "cannot write the corpus\n");
        return;
    }
    const int jobs = defaultJobCount();
    NullProgress none;
    const auto create
        = [&](const QString& folder, bool texture, int version, int level, const QString& out) {
              SourceList sources = gatherFolder(folder);
              if (writeArchive(sources, out, texture, version, level, level, none, jobs).status
                  != SaveStatus::Complete)
                  std::fprintf(stderr, "create failed\n");
          };
    const auto convert
        = [&](const QString& in, const QString& out, int version, int zlib, int lz4) {
              ArchiveReader reader;
              ConvertSettings settings;
              settings.version = version;
              settings.zlibLevel = zlib;
              settings.lz4Mode = lz4;
              settings.jobs = jobs;
              if (!reader.open(in, none)
                  || convertArchive(reader, out, settings, none).status != SaveStatus::Complete)
                  std::fprintf(stderr, "convert failed\n");
              QFile::remove(out);
          };
    const QString general = dir + "/cgeneral.ba2", textures = dir + "/ctextures.ba2";
    const QString out = dir + "/converted.ba2", made = dir + "/made.ba2";
    create(dir + "/cgeneral/Data", false, 1, 1, general);
    create(dir + "/ctextures/Data", true, 1, 1, textures);

    const double cp = bestOf(3, [&] {
        QProcess::execute("cp", {general, made});
        QFile::remove(made);
    });
    // Our output reaches the disk before it is renamed; cp leaves that to the kernel.
    const double cpSync = bestOf(3, [&] {
        QProcess::execute("cp", {general, made});
        QFile copy(made);
        if (copy.open(QIODevice::ReadWrite)) ::fsync(copy.handle());
        QFile::remove(made);
    });
    const double relabel = bestOf(3, [&] { convert(general, out, 8, -1, -1); });
    report("convert general v1 to v8", relabel, cp, "cp");
    report("convert general v1 to v8", relabel, cpSync, "cp + fsync");
    report("convert general v1 to v2", bestOf(3, [&] { convert(general, out, 2, -1, -1); }), cpSync,
           "cp + fsync");
    const double made6 = bestOf(3, [&] {
        create(dir + "/cgeneral/Data", false, 1, 6, made);
        QFile::remove(made);
    });
    report("convert general zlib 1 to zlib 6", bestOf(3, [&] { convert(general, out, 0, 6, -1); }),
           made6, "create zlib 6");
    const double madeLz4 = bestOf(3, [&] {
        create(dir + "/ctextures/Data", true, 3, 1, made);
        QFile::remove(made);
    });
    report("convert textures v1 to v3", bestOf(3, [&] { convert(textures, out, 3, -1, -1); }),
           madeLz4, "create v3 LZ4");
}

int writeCorpus(const QString& dir, int64_t corpusBytes)
{
    const std::vector<corpus::File> general = corpus::mixed(corpusBytes);
    const std::vector<corpus::File> textures = corpus::textures(corpusBytes);
    if (!corpus::writeTo(dir + "/general/Data", general)
        || !corpus::writeTo(dir + "/textures/Data", textures)) {
        std::fprintf(stderr, "cannot write the corpus under %s\n", qPrintable(dir));
        return 1;
    }
    uint32_t largest = 0;
    for (const MemoryBlock& b : blocksOf(general, false))
        largest = std::max(largest, b.size);
    for (const MemoryBlock& b : blocksOf(textures, true))
        largest = std::max(largest, b.size);
    std::printf(
        "%s/general/Data: %zu files, %s/textures/Data: %zu DDS files; largest block %u bytes\n",
        qPrintable(dir), general.size(), qPrintable(dir), textures.size(), largest);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList wanted = app.arguments().mid(1);
    int64_t corpusBytes = 128ll << 20;
    if (qEnvironmentVariableIsSet("ZARNEL_BENCH_MIB"))
        corpusBytes = qEnvironmentVariableIntValue("ZARNEL_BENCH_MIB") * (1ll << 20);
    if (wanted.value(0) == QLatin1String("write-corpus")) {
        if (wanted.size() != 2) {
            std::fprintf(stderr, "usage: zarnel-bench write-corpus DIR\n");
            return 2;
        }
        return writeCorpus(wanted[1], corpusBytes);
    }
    QTemporaryDir dir;
    if (wanted.isEmpty())
        wanted = QStringList {"open",   "list",    "extract", "create",
                              "gather", "convert", "partial", "bsa"};
    auto want = [&](const char* name) {
        return wanted.contains(QLatin1String(name));
    };
    std::vector<corpus::File> files;
    auto corpusFiles = [&]() -> const std::vector<corpus::File>& {
        if (files.empty()) files = corpus::mixed(corpusBytes);
        return files;
    };
    std::printf("corpus: %lld MiB (ZARNEL_BENCH_MIB), %d cores\n", (long long)(corpusBytes >> 20),
                defaultJobCount());
    if (want("open"))
        benchOpen(dir.path() + "/open100k.ba2", generalArchive(100000),
                  "open 100,000-file archive");
    if (want("list")) benchList(dir.path());
    if (want("extract")) {
        benchExtract(dir.path(), corpusFiles(), false);
        benchExtract(dir.path(), corpusFiles(), true);
    }
    if (want("create")) benchCreate(dir.path(), corpusBytes);
    if (want("gather")) benchGather(dir.path());
    if (want("convert")) benchConvert(dir.path(), corpusBytes);
    if (want("partial")) benchPartial(dir.path(), corpusFiles());
    if (want("bsa")) benchBsa(dir.path(), corpusFiles());
    if (want("engines")) benchEngines(corpusBytes / 8);
    return 0;
}

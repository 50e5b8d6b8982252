#include "testutil.h"

#include "archive/bsa.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <lz4.h>
#include <lz4frame.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace testutil {

// Little-endian fields of N bytes each.
template<int N>
static void put(QByteArray& b, std::initializer_list<uint64_t> values)
{
    for (uint64_t v : values)
        for (int i = 0; i < N; ++i)
            b.append(char((v >> (8 * i)) & 0xFF));
}
static void put16(QByteArray& b, uint16_t v)
{
    put<2>(b, {v});
}
static void put32(QByteArray& b, uint32_t v)
{
    put<4>(b, {v});
}

QByteArray zlibStream(const QByteArray& data, int level)
{
    uLongf len = compressBound(uLong(data.size()));
    QByteArray out(int(len), '\0');
    compress2(reinterpret_cast<Bytef*>(out.data()), &len,
              reinterpret_cast<const Bytef*>(data.constData()), uLong(data.size()), level);
    out.resize(int(len));
    return out;
}

QByteArray lz4Block(const QByteArray& data)
{
    QByteArray out(LZ4_compressBound(data.size()), '\0');
    int n = LZ4_compress_default(data.constData(), out.data(), data.size(), out.size());
    out.resize(n);
    return out;
}

static void packInto(const QByteArray& data, Pack pack, QByteArray& stored, uint32_t& packed,
                     uint32_t& unpacked)
{
    unpacked = uint32_t(data.size());
    switch (pack) {
    case Pack::Stored:
        stored = data;
        packed = 0;
        break;
    case Pack::Zlib:
        stored = zlibStream(data);
        packed = uint32_t(stored.size());
        break;
    case Pack::Lz4:
        stored = lz4Block(data);
        packed = uint32_t(stored.size());
        break;
    }
}

TestEntry& Ba2Builder::addGeneral(const QByteArray& name, const QByteArray& data, Pack pack)
{
    TestEntry e;
    e.name = name;
    packInto(data, pack, e.stored, e.packedSize, e.unpackedSize);
    entries.append(e);
    return entries.last();
}

TestEntry& Ba2Builder::addTexture(const QByteArray& name, uint16_t width, uint16_t height,
                                  uint8_t mipCount, uint8_t format,
                                  const QVector<QByteArray>& chunkData, Pack pack)
{
    TestEntry e;
    e.name = name;
    e.width = width;
    e.height = height;
    e.mipCount = mipCount;
    e.format = format;
    uint16_t mip = 0;
    for (int i = 0; i < chunkData.size(); ++i) {
        TestChunk c;
        packInto(chunkData[i], pack, c.stored, c.packedSize, c.unpackedSize);
        c.firstMip = mip;
        c.lastMip = (i + 1 == chunkData.size()) ? uint16_t(mipCount ? mipCount - 1 : 0) : mip;
        ++mip;
        e.chunks.append(c);
    }
    entries.append(e);
    return entries.last();
}

QByteArray Ba2Builder::build() const
{
    const uint32_t headerSize = version == 3 ? 36 : version == 2 ? 32 : 24;
    uint64_t recordBytes = 0;
    for (const TestEntry& e : entries)
        recordBytes += texture ? 24 + uint64_t(e.chunks.size()) * e.chunkRecordSize : 36;
    uint64_t dataCursor = headerSize + recordBytes;
    QByteArray records, data;
    for (const TestEntry& e : entries) {
        if (!texture) {
            put<4>(records, {0x11111111, 0x00736464, 0x22222222, 0x00100100});
            put<8>(records, {dataCursor});
            put<4>(records, {e.packedSize, e.unpackedSize, 0xBAADF00D});
            data += e.stored;
            dataCursor += uint64_t(e.stored.size());
        } else {
            put<4>(records, {0x11111111, 0x00736464, 0x22222222});
            put<1>(records, {0, uint64_t(e.chunks.size())});
            put<2>(records, {e.chunkRecordSize, e.height, e.width});
            put<1>(records, {e.mipCount, e.format});
            put16(records, e.textureFlags);
            for (const TestChunk& c : e.chunks) {
                QByteArray rec;
                put<8>(rec, {dataCursor});
                put<4>(rec, {c.packedSize, c.unpackedSize});
                put<2>(rec, {c.firstMip, c.lastMip});
                put32(rec, 0xBAADF00D);
                rec.resize(e.chunkRecordSize);
                records += rec;
                data += c.stored;
                dataCursor += uint64_t(c.stored.size());
            }
        }
    }
    QByteArray out;
    put<4>(out,
           {0x58445442, version, texture ? 0x30315844u : 0x4C524E47u, uint32_t(entries.size())});
    put<8>(out, {dataCursor});
    if (headerSize >= 32) put<8>(out, {headerExtra});
    if (headerSize >= 36) put32(out, compressionCode);
    out += records;
    out += data;
    for (const TestEntry& e : entries) {
        put16(out, uint16_t(e.name.size()));
        out += e.name;
    }
    out += trailingNameBytes;
    return out;
}

QByteArray lz4Frame(const QByteArray& data)
{
    LZ4F_preferences_t prefs = {};
    prefs.frameInfo.contentSize = uint64_t(data.size());
    QByteArray out(int(LZ4F_compressFrameBound(size_t(data.size()), &prefs)), '\0');
    out.resize(int(LZ4F_compressFrame(out.data(), size_t(out.size()), data.constData(),
                                      size_t(data.size()), &prefs)));
    return out;
}

QByteArray BsaBuilder::build() const
{
    auto folderList = folders;
    const auto hash = [](const QByteArray& n, bool folder) {
        return bsa::nameHash(n.constData(), size_t(n.size()), folder);
    };
    if (!keepOrder) {
        for (auto& f : folderList)
            std::stable_sort(f.second.begin(), f.second.end(), [&](auto& a, auto& b) {
                return hash(a.name, false) < hash(b.name, false);
            });
        std::stable_sort(folderList.begin(), folderList.end(), [&](auto& a, auto& b) {
            return hash(a.first, true) < hash(b.first, true);
        });
    }
    const int recordSize = version == 105 ? 24 : 16;
    QByteArray names, blocks, folderRecords, data;
    int files = 0, folderNames = 0;
    for (const auto& f : folderList) {
        files += f.second.size();
        folderNames += f.first.size() + 1;
        for (const BsaFile& file : f.second)
            names += file.name + '\0';
    }
    const uint32_t blocksAt = 36 + uint32_t(folderList.size() * recordSize);
    uint32_t dataAt = blocksAt + uint32_t(folderNames + folderList.size() + 16 * files)
        + uint32_t(names.size());
    for (const auto& f : folderList) {
        put<8>(folderRecords, {hash(f.first, true)});
        put32(folderRecords, uint32_t(f.second.size()));
        if (version == 105) put32(folderRecords, 0);
        const uint64_t at = blocksAt + uint32_t(blocks.size() + names.size());
        version == 105 ? put<8>(folderRecords, {at}) : put32(folderRecords, uint32_t(at));
        blocks += char(f.first.size() + 1) + f.first + '\0';
        for (const BsaFile& file : f.second) {
            QByteArray stored;
            if (version != 103 && (flags & 0x100)) {
                const QByteArray path = f.first + '\\' + file.name;
                stored += char(path.size()) + path;
            }
            if (bool(flags & 0x4) != file.toggle) {
                put32(stored, uint32_t(file.data.size()));
                stored += version == 105 ? lz4Frame(file.data) : zlibStream(file.data);
            } else {
                stored += file.data;
            }
            put<8>(blocks, {hash(file.name, false)});
            put<4>(blocks,
                   {uint32_t(stored.size()) | (file.toggle ? 0x40000000u : 0u),
                    dataAt + uint32_t(data.size())});
            data += stored;
        }
    }
    QByteArray out("BSA", 4);
    for (uint32_t v : {version, 36u, flags, uint32_t(folderList.size()), uint32_t(files),
                       uint32_t(folderNames), uint32_t(names.size()), 0x10002u})
        put32(out, v);
    return out + folderRecords + blocks + names + data;
}

QByteArray patternBytes(int size, uint32_t seed, bool compressible)
{
    QByteArray out(size, '\0');
    uint32_t x = seed * 2654435761u + 1;
    for (int i = 0; i < size; ++i) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        out[i] = compressible ? char("abcdefgh"[(x >> 7) & 7] + ((i / 64) & 3)) : char(x >> 11);
    }
    return out;
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    // A fresh file each time: truncating and rewriting one makes ext4 flush it to disk.
    QFile::remove(path);
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QStringList fileList(const QString& root)
{
    QStringList files;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << it.next().mid(root.size() + 1);
    files.sort();
    return files;
}

QMap<QString, QByteArray> treeContents(const QString& root)
{
    QMap<QString, QByteArray> tree;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = path.mid(root.size() + 1);
        if (it.fileInfo().isDir())
            tree[relative + "/"] = QByteArray();
        else
            tree[relative] = readFile(path);
    }
    return tree;
}

QString samplesDir()
{
    return QStringLiteral(ZARNEL_SAMPLES_DIR);
}

bool samplesRequired()
{
    return ZARNEL_REQUIRE_SAMPLES != 0;
}

uint32_t referenceNameHash(const QByteArray& bytes)
{
    return ~uint32_t(
        crc32(0xFFFFFFFFul, reinterpret_cast<const Bytef*>(bytes.constData()), uInt(bytes.size())));
}

DdsPixelFormat ddsFourCC(uint32_t code)
{
    DdsPixelFormat pf;
    pf.flags = 0x4;
    pf.fourCC = code;
    return pf;
}

DdsPixelFormat ddsFourCC(const char* code)
{
    return ddsFourCC(uint32_t(uint8_t(code[0])) | uint32_t(uint8_t(code[1])) << 8
                     | uint32_t(uint8_t(code[2])) << 16 | uint32_t(uint8_t(code[3])) << 24);
}

DdsPixelFormat ddsDx10(int dxgi)
{
    DdsPixelFormat pf = ddsFourCC("DX10");
    pf.dxgi = dxgi;
    return pf;
}

DdsPixelFormat ddsMasks(uint32_t flags, uint32_t bits, uint32_t r, uint32_t g, uint32_t b,
                        uint32_t a)
{
    return DdsPixelFormat {flags, 0, bits, {r, g, b, a}, -1};
}

QByteArray makeDds(const DdsPixelFormat& pf, uint32_t width, uint32_t height, uint32_t mips,
                   int dataBytes, const DdsFields& h, uint32_t seed)
{
    QByteArray f;
    put<4>(f, {0x20534444, 124, h.flags, height, width, h.pitchOrLinearSize, 1, mips});
    f += QByteArray(44, '\0');
    put<4>(f,
           {32, pf.flags, pf.fourCC, pf.bits, pf.masks[0], pf.masks[1], pf.masks[2], pf.masks[3],
            h.caps, h.caps2});
    f += QByteArray(12, '\0');
    if (pf.dxgi >= 0) put<4>(f, {uint64_t(pf.dxgi), h.dimension, h.miscFlag, h.arraySize, 0u});
    return f + patternBytes(dataBytes, seed);
}

QByteArray blockDds(uint32_t width, uint32_t height, uint32_t mips, uint32_t seed, bool bc7,
                    const char* fourCC, DdsShape shape)
{
    uint64_t size = 0;
    for (uint32_t m = 0, w = width, h = height; m < mips;
         ++m, w = std::max(w / 2, 4u), h = std::max(h / 2, 4u))
        size += uint64_t(w) * h / 16 * (bc7 ? 16 : 8);
    const bool cube = shape == DdsShape::Cube || shape == DdsShape::FiveFaces;
    const DdsPixelFormat pf = bc7 ? ddsDx10(98) : ddsFourCC(fourCC ? fourCC : "DXT1");
    DdsFields fields;
    fields.flags = 0x000A1007;
    fields.caps2 = shape == DdsShape::FiveFaces ? 0xFA00 : cube && !bc7 ? 0xFE00 : 0;
    fields.miscFlag = cube ? 4 : 0;
    fields.arraySize = shape == DdsShape::Array ? 2 : 1;
    const int copies = cube ? 6 : shape == DdsShape::Array ? 2 : 1;
    return makeDds(pf, width, height, mips, int(size * copies), fields, seed);
}

QString cliPath()
{
    return QStringLiteral(ZARNEL_CLI_PATH);
}

CliRun runCli(const QStringList& args, const QString& limit)
{
    QList<QByteArray> bytes;
    if (!limit.isEmpty())
        bytes << QFile::encodeName(QStandardPaths::findExecutable("prlimit")) << limit.toUtf8()
              << "--";
    bytes << QFile::encodeName(cliPath());
    for (const QString& a : args)
        bytes << QFile::encodeName(a);
    std::vector<char*> argv;
    for (QByteArray& b : bytes)
        argv.push_back(b.data());
    argv.push_back(nullptr);
    CliRun r;
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0) return r;
    if (pipe2(err, O_CLOEXEC) != 0) {
        close(out[0]);
        close(out[1]);
        return r;
    }
    posix_spawn_file_actions_t redirect;
    posix_spawn_file_actions_init(&redirect);
    posix_spawn_file_actions_adddup2(&redirect, out[1], 1);
    posix_spawn_file_actions_adddup2(&redirect, err[1], 2);
    pid_t pid = 0;
    const bool started = posix_spawn(&pid, argv[0], &redirect, nullptr, argv.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&redirect);
    close(out[1]);
    close(err[1]);
    // Both pipes are drained as the child writes, so it never waits for us whatever it prints.
    QByteArray gathered[2];
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    int openPipes = 2;
    while (started && openPipes > 0) {
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !fds[i].revents) continue;
            char chunk[65536];
            const ssize_t n = read(fds[i].fd, chunk, sizeof chunk);
            if (n > 0) {
                gathered[i].append(chunk, int(n));
            } else if (n == 0 || errno != EINTR) {
                fds[i].fd = -1;
                --openPipes;
            }
        }
    }
    close(out[0]);
    close(err[0]);
    int status = 0;
    struct rusage usage = {};
    if (started && wait4(pid, &status, 0, &usage) == pid && WIFEXITED(status))
        r.exitCode = WEXITSTATUS(status);
    r.peakKib = usage.ru_maxrss;
    r.out = QString::fromUtf8(gathered[0]);
    r.err = QString::fromUtf8(gathered[1]);
    return r;
}

} // namespace testutil

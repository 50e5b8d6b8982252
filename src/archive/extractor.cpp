#include "archive/extractor.h"

#include "archive/ddsheader.h"
#include "archive/status.h"
#include "creation/codecs.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace {

// Largest output a stream of n bytes can honestly decode to: deflate cannot expand by more
// than 1032:1 and an LZ4 block by more than 255:1, so anything beyond is a lie of the record
// and is refused before memory is reserved for it.
uint64_t zlibExpansionLimit(uint64_t packed) { return packed * 1032 + 1024; }
uint64_t lz4ExpansionLimit(uint64_t packed) { return packed * 255 + 16; }

// One stored block: a general file, or one chunk of a texture.
struct Piece {
    uint64_t dataOffset;
    uint32_t packedSize;
    uint32_t unpackedSize;
};

// Reads and decodes pieces into work buffers that follow the largest piece actually handled.
// Reads use pread on the archive's descriptor, so several decoders may share one open file.
class PieceDecoder {
public:
    PieceDecoder(int fd, const char* mapped, uint64_t fileSize, uint32_t version, bool generalV3)
        : fd(fd), mapped(mapped), fileSize(fileSize), lz4(version == 3), generalV3(generalV3)
    {
    }

    // On success data/size describe the decoded bytes until the next call.
    int decode(const Piece& piece)
    {
        const uint64_t stored = piece.packedSize ? piece.packedSize : piece.unpackedSize;
        if (piece.dataOffset > fileSize || stored > fileSize - piece.dataOffset) return ArchiveStatus::FileReadError;
        size = piece.unpackedSize;
        data = nullptr;
        if (piece.packedSize == 0) {
            if (size == 0) return ArchiveStatus::Complete;
            data = fetch(piece.dataOffset, size);
            return data ? int(ArchiveStatus::Complete) : int(ArchiveStatus::FileReadError);
        }
        if (generalV3) return ArchiveStatus::DdsOrVer3General;
        const uint64_t limit = lz4 ? lz4ExpansionLimit(piece.packedSize) : zlibExpansionLimit(piece.packedSize);
        const int failure = lz4 ? ArchiveStatus::Lz4Error : ArchiveStatus::ZlibError;
        if (piece.unpackedSize > limit) return failure;
        if (!reserve(unpackedBuffer, std::max<uint32_t>(size, 1))) return ArchiveStatus::FileReadError;
        const char* packed = fetch(piece.dataOffset, piece.packedSize);
        if (!packed) return ArchiveStatus::FileReadError;
        const bool ok = lz4 ? decompressLz4(packed, piece.packedSize, unpackedBuffer.data(),
                                            uint32_t(unpackedBuffer.size()), size)
                            : decompressZlib(packed, piece.packedSize, unpackedBuffer.data(), size);
        if (!ok) return failure;
        data = unpackedBuffer.data();
        return ArchiveStatus::Complete;
    }

    const char* data = nullptr;
    uint32_t size = 0;

private:
    // Left uninitialised on purpose: a page the decoder never writes is never touched, so a
    // record that claims far more than its stream yields costs address space, not memory.
    struct WorkBuffer {
        std::unique_ptr<char[]> bytes;
        size_t capacity = 0;
        char* data() const { return bytes.get(); }
        size_t size() const { return capacity; }
    };

    static bool reserve(WorkBuffer& buffer, size_t need)
    {
        if (buffer.capacity >= need) return true;
        buffer.bytes.reset();
        buffer.capacity = 0;
        buffer.bytes.reset(new (std::nothrow) char[need + 4096]);
        if (!buffer.bytes) return false;
        buffer.capacity = need + 4096;
        return true;
    }

    // The bytes at offset, straight from the mapping when there is one (no copy).
    const char* fetch(uint64_t offset, uint32_t length)
    {
        if (mapped) return mapped + offset;
        if (!reserve(packedBuffer, length) || !readAt(offset, packedBuffer.data(), length)) return nullptr;
        return packedBuffer.data();
    }

    bool readAt(uint64_t offset, char* out, uint32_t length)
    {
        uint32_t done = 0;
        while (done < length) {
            const ssize_t got = ::pread(fd, out + done, length - done, off_t(offset + done));
            if (got <= 0) return false;
            done += uint32_t(got);
        }
        return true;
    }

    int fd;
    const char* mapped;
    uint64_t fileSize;
    bool lz4;
    bool generalV3;
    WorkBuffer packedBuffer;
    WorkBuffer unpackedBuffer;
};

// Hands out decoded pieces strictly in order. With one job it decodes each piece when asked;
// with more, worker threads decode a bounded window of pieces ahead while the caller writes,
// so the output and every side effect stay exactly those of a one-thread run.
class PieceSource {
public:
    PieceSource(const ArchiveReader& reader, std::vector<Piece> pieces, int jobs)
        : pieces(std::move(pieces)), workers(jobs > 1 && worthThreads(this->pieces) ? jobs : 0)
    {
        const int fd = reader.file.handle();
        const bool generalV3 = reader.version == 3 && !reader.isTexture;
        // Decoding straight from a read-only mapping saves copying every block once.
        if (ArchiveReader::mapFiles && reader.fileSize > 0) {
            void* m = ::mmap(nullptr, size_t(reader.fileSize), PROT_READ, MAP_SHARED, fd, 0);
            if (m != MAP_FAILED) {
                mapping = static_cast<const char*>(m);
                ::madvise(m, size_t(reader.fileSize), MADV_SEQUENTIAL);
            }
        }
        mappingSize = size_t(reader.fileSize);
        const size_t slotCount = workers ? size_t(workers) + 1 : 1;
        for (size_t i = 0; i < slotCount; ++i)
            window.emplace_back(new Slot{PieceDecoder(fd, mapping, uint64_t(reader.fileSize), reader.version, generalV3)});
        for (int w = 0; w < workers; ++w) threads.emplace_back([this] { work(); });
    }

    ~PieceSource()
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            stopping = true;
        }
        wake.notify_all();
        for (std::thread& t : threads) t.join();
        if (mapping) ::munmap(const_cast<char*>(mapping), mappingSize);
    }

    // Decodes (or waits for) piece k; the result stays valid until release(k).
    const PieceDecoder& get(size_t k, int& status)
    {
        Slot& slot = *window[k % window.size()];
        if (!workers) {
            status = slot.decoder.decode(pieces[k]);
            return slot.decoder;
        }
        std::unique_lock<std::mutex> lock(mutex);
        done.wait(lock, [&] { return slot.readyPiece == k; });
        status = slot.status;
        return slot.decoder;
    }

    void release(size_t k)
    {
        if (!workers) return;
        {
            std::lock_guard<std::mutex> lock(mutex);
            consumed = k + 1;
        }
        wake.notify_all();
    }

private:
    struct Slot {
        PieceDecoder decoder;
        size_t readyPiece = SIZE_MAX;
        int status = 0;
    };

    // Handing a piece to another thread costs a few microseconds; that only pays off when the
    // pieces carry real decoding work, not for archives of many tiny or stored files.
    static bool worthThreads(const std::vector<Piece>& pieces)
    {
        uint64_t packedBytes = 0;
        for (const Piece& p : pieces) packedBytes += p.packedSize;
        return !pieces.empty() && packedBytes / pieces.size() >= 16 * 1024;
    }

    void work()
    {
        std::unique_lock<std::mutex> lock(mutex);
        while (true) {
            wake.wait(lock, [&] { return stopping || (next < pieces.size() && next < consumed + window.size()); });
            if (stopping) return;
            const size_t k = next++;
            Slot& slot = *window[k % window.size()];
            lock.unlock();
            const int status = slot.decoder.decode(pieces[k]);
            lock.lock();
            slot.status = status;
            slot.readyPiece = k;
            done.notify_all();
        }
    }

    std::vector<Piece> pieces;
    int workers;
    const char* mapping = nullptr;
    size_t mappingSize = 0;
    std::vector<std::unique_ptr<Slot>> window;
    std::vector<std::thread> threads;
    std::mutex mutex;
    std::condition_variable wake;  // workers: room in the window, or stop
    std::condition_variable done;  // caller: a piece is ready
    size_t next = 0;
    size_t consumed = 0;
    bool stopping = false;
};

std::vector<Piece> piecesOf(const ArchiveReader& reader)
{
    std::vector<Piece> pieces;
    pieces.reserve(reader.fileCount);
    for (const FileRecord& r : reader.records) {
        if (!reader.isTexture) {
            pieces.push_back({r.dataOffset, r.packedSize, r.unpackedSize});
            continue;
        }
        const ChunkInfo* chunks = reader.chunks(r);
        for (uint32_t c = 0; c < r.chunkCount; ++c)
            pieces.push_back({chunks[c].dataOffset, chunks[c].packedSize, chunks[c].unpackedSize});
    }
    return pieces;
}

// A stored name may only name a place inside the target folder.
bool nameIsSafe(const FileRecord& record)
{
    const char* name = record.name;
    const size_t length = strlen(name);
    if (length != record.nameEntryLength) return false;  // a NUL inside the name
    if (length == 0) return true;  // fails later as an unopenable file, like any other
    if (name[0] == '/') return false;
    if (length >= 2 && name[1] == ':' && ((name[0] | 0x20) >= 'a' && (name[0] | 0x20) <= 'z')) return false;
    const char* part = name;
    while (true) {
        const char* slash = strchr(part, '/');
        const size_t partLength = slash ? size_t(slash - part) : strlen(part);
        if (partLength == 2 && part[0] == '.' && part[1] == '.') return false;
        if (!slash) break;
        part = slash + 1;
    }
    return true;
}

// Makes each missing folder of a name's directory part under target, one level at a time.
void makeFolders(const QString& target, const QString& directoryPart)
{
    const QStringList parts = directoryPart.split(QLatin1Char('/'), Qt::KeepEmptyParts);
    QString path = target;
    for (int i = 0; i + 1 < parts.size(); ++i) {
        path += parts[i];
        if (!QFileInfo(path).isDir()) QDir().mkdir(path);
        path += QLatin1Char('/');
    }
}

}  // namespace

int defaultJobCount()
{
    const unsigned n = std::thread::hardware_concurrency();
    return n == 0 ? 1 : int(std::min(n, 64u));
}

ExtractResult extractArchive(ArchiveReader& reader, const QString& targetFolder, Progress& progress, int jobs)
{
    ExtractResult result;
    if (!QFileInfo(targetFolder).isDir()) {
        result.status = ArchiveStatus::SystemError;
        return result;
    }
    QString target = targetFolder;
    if (!target.endsWith(QLatin1Char('/'))) target += QLatin1Char('/');

    unsigned char ddsHeader[kDdsHeaderCapacity];
    if (reader.isTexture) initDdsHeader(ddsHeader);
    progress.setMaximum(int(std::min<uint32_t>(reader.fileCount, INT32_MAX)));
    PieceSource source(reader, piecesOf(reader), jobs);
    size_t piece = 0;

    for (uint32_t i = 0; i < reader.fileCount; ++i) {
        progress.setValue(int(std::min<uint32_t>(i, INT32_MAX)));
        if (progress.wasCanceled()) {
            result.status = ArchiveStatus::Aborted;
            return result;
        }
        const FileRecord& record = reader.records[i];
        result.failedName = reader.nameOf(i);
        if (!nameIsSafe(record)) {
            result.status = ArchiveStatus::UnsafeName;
            return result;
        }
        QFile out(target + result.failedName);
        if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
            QString directoryPart, fileName;
            splitPath(result.failedName, QStringLiteral("/"), directoryPart, fileName);
            if (directoryPart.isEmpty()) {
                result.status = ArchiveStatus::FileOpenError;
                return result;
            }
            makeFolders(target, directoryPart);
            if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
                result.status = ArchiveStatus::FileOpenError;
                return result;
            }
        }
        uint32_t pieceCount = 1;
        if (reader.isTexture) {
            pieceCount = record.chunkCount;
            const int headerLength = buildDdsHeader(ddsHeader, record);
            if (headerLength == 0) {
                result.status = ArchiveStatus::UnsupportedFormat;
                return result;
            }
            if (out.write(reinterpret_cast<const char*>(ddsHeader), headerLength) != headerLength) {
                result.status = ArchiveStatus::FileWriteError;
                return result;
            }
        }
        for (uint32_t c = 0; c < pieceCount; ++c, ++piece) {
            int status = 0;
            const PieceDecoder& decoded = source.get(piece, status);
            if (status == ArchiveStatus::Complete && decoded.size != 0
                && out.write(decoded.data, decoded.size) != qint64(decoded.size))
                status = ArchiveStatus::FileWriteError;
            source.release(piece);
            if (status != ArchiveStatus::Complete) {
                result.status = status;
                return result;
            }
        }
    }
    result.failedName.clear();
    result.status = ArchiveStatus::Complete;
    progress.setMaximum(100);
    progress.setValue(100);
    return result;
}

bool verifyArchive(ArchiveReader& reader, QString& fault, int jobs)
{
    PieceSource source(reader, piecesOf(reader), jobs);
    unsigned char ddsHeader[kDdsHeaderCapacity];
    initDdsHeader(ddsHeader);
    size_t piece = 0;
    for (uint32_t i = 0; i < reader.fileCount; ++i) {
        const FileRecord& record = reader.records[i];
        auto report = [&](const QString& what) {
            fault = QStringLiteral("%1: %2").arg(reader.nameOf(i), what);
            return false;
        };
        if (!nameIsSafe(record)) return report(extractStatusDetail(ArchiveStatus::UnsafeName));
        if (reader.isTexture && buildDdsHeader(ddsHeader, record) == 0)
            return report(QStringLiteral("unsupported texture format %1").arg(record.format));
        const uint32_t pieceCount = reader.isTexture ? record.chunkCount : 1;
        for (uint32_t c = 0; c < pieceCount; ++c, ++piece) {
            int status = 0;
            source.get(piece, status);
            source.release(piece);
            if (status == ArchiveStatus::Complete) continue;
            const QString detail = extractStatusDetail(status);
            return report(reader.isTexture ? QStringLiteral("chunk %1: %2").arg(c).arg(detail) : detail);
        }
    }
    fault.clear();
    return true;
}

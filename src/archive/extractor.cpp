#include "archive/extractor.h"

#include "archive/ddsheader.h"
#include "archive/status.h"
#include "creation/codecs.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xxhash.h>
#include <zlib.h>

namespace {

// Largest output a stream of n bytes can honestly decode to: deflate cannot expand by more
// than 1032:1 and an LZ4 block by more than 255:1, so anything beyond is a lie of the record
// and is refused before memory is reserved for it.
uint64_t zlibExpansionLimit(uint64_t packed)
{
    return packed * 1032 + 1024;
}
uint64_t lz4ExpansionLimit(uint64_t packed)
{
    return packed * 255 + 16;
}

// A stored or zlib block larger than a worker's share of this is read, decoded and written in
// windows, so that memory stays bounded whatever the size of the block.
constexpr uint64_t kWholeBlockBudget = 96u << 20;
constexpr uint64_t kWholeBlockMax = 32u << 20;
constexpr uint32_t kWindow = 4u << 20;

// One stored block: a general file, or one chunk of a texture.
struct Piece
{
    uint64_t dataOffset;
    uint32_t packedSize;
    uint32_t unpackedSize;
    uint64_t stored() const { return packedSize ? packedSize : unpackedSize; }
};

// Left uninitialised on purpose: a page the decoder never writes is never touched, so a record
// that claims far more than its stream yields costs address space, not memory.
class WorkBuffer
{
public:
    bool reserve(size_t need)
    {
        if (capacity >= need) return true;
        bytes.reset();
        capacity = 0;
        bytes.reset(new (std::nothrow) char[need + 4096]);
        if (!bytes) return false;
        capacity = need + 4096;
        return true;
    }
    char* data() const { return bytes.get(); }
    size_t size() const { return capacity; }

private:
    std::unique_ptr<char[]> bytes;
    size_t capacity = 0;
};

// A read-only mapping of the whole archive, so blocks are decoded without being copied.
// Every page read stays resident until it is unmapped, so without forget() a large archive
// would count in full against the process: pages of finished ranges are given back in
// batches. A page dropped under a thread that still reads it is faulted in again from the
// page cache, so forgetting too much costs time, never correctness.
class ArchiveMapping
{
public:
    explicit ArchiveMapping(const ArchiveReader& reader)
        : size(size_t(reader.fileSize))
    {
        if (!ArchiveReader::mapFiles || reader.fileSize <= 0) return;
        void* m = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, reader.file.handle(), 0);
        if (m == MAP_FAILED) return;
        bytes = static_cast<char*>(m);
        ::madvise(m, size, MADV_SEQUENTIAL);
    }
    ~ArchiveMapping()
    {
        if (bytes) ::munmap(bytes, size);
    }
    ArchiveMapping(const ArchiveMapping&) = delete;
    ArchiveMapping& operator=(const ArchiveMapping&) = delete;

    const char* data() const { return bytes; }

    void forget(uint64_t offset, uint64_t length)
    {
        if (!bytes || offset >= size || length == 0) return;
        const uint64_t end = std::min<uint64_t>(offset + length, size);
        std::lock_guard<std::mutex> lock(mutex);
        low = pending ? std::min(low, offset) : offset;
        high = pending ? std::max(high, end) : end;
        pending += end - offset;
        if (pending < kBatch) return;
        static const uint64_t page = uint64_t(::sysconf(_SC_PAGESIZE));
        const uint64_t from = low / page * page;
        const uint64_t to = std::min<uint64_t>((high + page - 1) / page * page, size);
        if (to > from) ::madvise(bytes + from, size_t(to - from), MADV_DONTNEED);
        pending = 0;
    }

private:
    static constexpr uint64_t kBatch = 16u << 20;
    char* bytes = nullptr;
    size_t size;
    std::mutex mutex;
    uint64_t low = 0, high = 0, pending = 0;
};

// Where a file's decoded bytes go: its output file, or nowhere when only verifying; and its
// digest when one is asked for.
struct Sink
{
    int fd = -1;
    uint64_t length = 0; // bytes in the file so far
    XXH3_state_t* hash = nullptr;

    // count stays below 2 GiB: a window, or a block decoded whole.
    bool put(const char* data, size_t count)
    {
        if (hash) XXH3_128bits_update(hash, data, count);
        if (fd < 0 || count == 0) return true;
        size_t done = 0;
        while (done < count) {
            const ssize_t n = ::write(fd, data + done, count - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            done += size_t(n);
        }
        length += done;
        return done == count;
    }
    // A block found bad after some of it went out is taken back, as if decoded whole.
    void cutTo(uint64_t at)
    {
        if (fd >= 0 && length > at) (void)::ftruncate(fd, off_t(at));
        length = at;
    }
};

// Reads, decodes and hands on pieces. Reads use pread on the archive's descriptor, so every
// worker shares one open file. One object per thread.
class PieceRunner
{
public:
    PieceRunner(const ArchiveReader& reader, ArchiveMapping& mapping, uint64_t wholeLimit)
        : fd(reader.file.handle())
        , mapping(mapping)
        , fileSize(uint64_t(reader.fileSize))
        , lz4(reader.storedCodec() != StoredCodec::Zlib)
        , frames(reader.storedCodec() == StoredCodec::Lz4Frame)
        , wholeLimit(wholeLimit)
    { }
    // The digest of the file this worker is on, when digests are asked for: one state per
    // worker, reset for each file. XXH3 hashes at memory speed; SHA-1 took longer than the
    // decoding it was meant to follow.
    XXH3_state_t* const digest = XXH3_createState();

    ~PieceRunner()
    {
        XXH3_freeState(digest);
        if (inflating) inflateEnd(&stream);
    }
    PieceRunner(const PieceRunner&) = delete;
    PieceRunner& operator=(const PieceRunner&) = delete;

    ArchiveStatus run(const Piece& piece, Sink& sink)
    {
        if (piece.dataOffset > fileSize || piece.stored() > fileSize - piece.dataOffset)
            return ArchiveStatus::FileReadError;
        if (piece.packedSize == 0) return copyStored(piece, sink);
        if (piece.unpackedSize
            > (lz4 ? lz4ExpansionLimit(piece.packedSize) : zlibExpansionLimit(piece.packedSize))) {
            return lz4 ? ArchiveStatus::Lz4Error : ArchiveStatus::ZlibError;
        } else if (lz4 || (piece.packedSize <= wholeLimit && piece.unpackedSize <= wholeLimit)) {
            const ArchiveStatus status = decodeWhole(piece, sink);
            mapping.forget(piece.dataOffset, piece.packedSize);
            return status;
        }
        return inflateInWindows(piece, sink);
    }

private:
    ArchiveStatus copyStored(const Piece& piece, Sink& sink)
    {
        for (uint64_t at = 0; at < piece.unpackedSize;) {
            const uint32_t n = uint32_t(std::min<uint64_t>(kWindow, piece.unpackedSize - at));
            const char* data = fetch(piece.dataOffset + at, n);
            if (!data) return readFailure();
            if (!sink.put(data, n)) return ArchiveStatus::FileWriteError;
            mapping.forget(piece.dataOffset + at, n);
            at += n;
        }
        return ArchiveStatus::Complete;
    }

    ArchiveStatus decodeWhole(const Piece& piece, Sink& sink)
    {
        const uint32_t size = piece.unpackedSize;
        if (!unpacked.reserve(std::max<uint32_t>(size, 1))) return ArchiveStatus::OutOfMemory;
        const char* data = fetch(piece.dataOffset, piece.packedSize);
        if (!data) return readFailure();
        const bool ok = frames
            ? bsa::decompressLz4Frame(data, piece.packedSize, unpacked.data(), size)
            : lz4 ? decompressLz4(data, piece.packedSize, unpacked.data(),
                                  uint32_t(std::min<size_t>(unpacked.size(), UINT32_MAX)), size)
                  : decompressZlib(data, piece.packedSize, unpacked.data(), size);
        if (!ok) return lz4 ? ArchiveStatus::Lz4Error : ArchiveStatus::ZlibError;
        return sink.put(unpacked.data(), size) ? ArchiveStatus::Complete
                                               : ArchiveStatus::FileWriteError;
    }

    // A zlib stream too large to hold: a window of input in, a window of output out. A stream
    // that yields more than the record says fails before the excess is written; one that ends
    // early or is cut fails too, and what went out of the block is taken back.
    ArchiveStatus inflateInWindows(const Piece& piece, Sink& sink)
    {
        if (!inflating) {
            std::memset(&stream, 0, sizeof stream);
            if (inflateInit(&stream) != Z_OK) return ArchiveStatus::ZlibError;
            inflating = true;
        } else if (inflateReset(&stream) != Z_OK) {
            return ArchiveStatus::ZlibError;
        }
        if (!unpacked.reserve(kWindow)) return ArchiveStatus::OutOfMemory;
        const uint64_t start = sink.length;
        auto fail = [&](ArchiveStatus status) {
            sink.cutTo(start);
            return status;
        };
        uint64_t read = 0, produced = 0;
        uint32_t window = 0;
        while (true) {
            if (stream.avail_in == 0 && read < piece.packedSize) {
                if (window) mapping.forget(piece.dataOffset + read - window, window);
                window = uint32_t(std::min<uint64_t>(kWindow, piece.packedSize - read));
                const char* data = fetch(piece.dataOffset + read, window);
                if (!data) return fail(readFailure());
                stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
                stream.avail_in = window;
                read += window;
            }
            stream.next_out = reinterpret_cast<Bytef*>(unpacked.data());
            stream.avail_out = kWindow;
            const int z = inflate(&stream, Z_NO_FLUSH);
            const uint32_t got = kWindow - stream.avail_out;
            if (z != Z_OK && z != Z_STREAM_END && z != Z_BUF_ERROR)
                return fail(ArchiveStatus::ZlibError);
            produced += got;
            if (produced > piece.unpackedSize) return fail(ArchiveStatus::ZlibError);
            if (!sink.put(unpacked.data(), got)) return ArchiveStatus::FileWriteError;
            if (z == Z_STREAM_END) break;
            if (got == 0 && stream.avail_in == 0 && read >= piece.packedSize)
                return fail(ArchiveStatus::ZlibError);
        }
        mapping.forget(piece.dataOffset + read - window, window);
        return produced == piece.unpackedSize ? ArchiveStatus::Complete
                                              : fail(ArchiveStatus::ZlibError);
    }

    ArchiveStatus readFailure()
    {
        const bool memory = outOfMemory;
        outOfMemory = false;
        return memory ? ArchiveStatus::OutOfMemory : ArchiveStatus::FileReadError;
    }

    // The bytes at offset, straight from the mapping when there is one (no copy). Null: no
    // memory for them (outOfMemory set), or a short read.
    const char* fetch(uint64_t offset, uint32_t length)
    {
        if (mapping.data()) return mapping.data() + offset;
        if (!packed.reserve(length)) {
            outOfMemory = true;
            return nullptr;
        }
        for (uint32_t done = 0; done < length;) {
            const ssize_t got
                = ::pread(fd, packed.data() + done, length - done, off_t(offset + done));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return nullptr;
            done += uint32_t(got);
        }
        return packed.data();
    }

    int fd;
    ArchiveMapping& mapping;
    uint64_t fileSize;
    bool lz4;    // compressed pieces are LZ4 blocks, otherwise zlib streams
    bool frames; // LZ4 frames rather than bare blocks
    uint64_t wholeLimit;
    WorkBuffer packed;
    WorkBuffer unpacked;
    z_stream stream;
    bool inflating = false;
    bool outOfMemory = false;
};

// A stored name may only name a place inside the target folder.
bool nameIsSafe(const FileRecord& record)
{
    const char* name = record.name;
    const size_t length = strlen(name);
    if (length != record.nameEntryLength) return false; // a NUL inside the name
    if (length == 0) return true; // fails later as an unopenable file, like any other
    if (name[0] == '/') return false;
    if (length >= 2 && name[1] == ':' && ((name[0] | 0x20) >= 'a' && (name[0] | 0x20) <= 'z'))
        return false;
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

// Makes each missing folder of a name's directory part under target, one level at a time,
// and adds those it made to created.
void makeFolders(const QString& target, const QString& directoryPart, QStringList& created)
{
    const QStringList parts = directoryPart.split(QLatin1Char('/'), Qt::KeepEmptyParts);
    QString path = target;
    for (int i = 0; i + 1 < parts.size(); ++i) {
        path += parts[i];
        if (!QFileInfo(path).isDir() && QDir().mkdir(path)) created.append(path);
        path += QLatin1Char('/');
    }
}

// One loop over the files for extraction and verification alike. Files are taken in record
// order by a pool of workers, in small batches; a worker opens, writes and closes the files of
// its batch itself. A one-thread run is a pool of one: the calling thread is the worker.
//
// What is left behind is always what a one-thread run leaves. Output files are opened strictly
// in record order (the workers take turns), so names, folders and failures to open meet each
// other as they would one at a time. A file that exists already is only truncated once every
// file before it went in and the progress has reached it. Work done past the file where the
// run stops is undone at the end: files and folders this run made for later files are removed.
class Engine
{
public:
    // Files are numbered by their place in order, the record indexes handled.
    Engine(ArchiveReader& reader, std::vector<uint32_t> order, bool writing, const QString& target,
           Progress& progress, std::vector<Digest>* digests = nullptr)
        : reader(reader)
        , order(std::move(order))
        , count(uint32_t(this->order.size()))
        , writing(writing)
        , target(target)
        , progress(progress)
        , digests(digests)
        , mapping(reader)
        , outcome(count, kPending)
    {
        firstPiece.reserve(size_t(count) + 1);
        pieces.reserve(count);
        for (uint32_t i : this->order) {
            const FileRecord& r = reader.records[i];
            firstPiece.push_back(uint32_t(pieces.size()));
            if (!reader.isTexture) {
                pieces.push_back({r.dataOffset, r.packedSize, r.unpackedSize});
                continue;
            }
            const ChunkInfo* chunks = reader.chunks(r);
            for (uint32_t c = 0; c < r.chunkCount; ++c)
                pieces.push_back(
                    {chunks[c].dataOffset, chunks[c].packedSize, chunks[c].unpackedSize});
        }
        firstPiece.push_back(uint32_t(pieces.size()));
    }

    // Handing a batch to another thread costs a few microseconds; that only pays off when the
    // pieces carry real work (decoding, or copying a large stored block), not for archives of
    // many tiny files.
    bool worthThreads() const
    {
        uint64_t bytes = 0;
        for (const Piece& p : pieces)
            bytes += p.stored();
        return !pieces.empty() && bytes / pieces.size() >= 16 * 1024;
    }

    void run(int jobs)
    {
        std::vector<std::thread> threads;
        if (jobs > 1 && worthThreads()) {
            wholeLimit = std::min(kWholeBlockMax, kWholeBlockBudget / uint64_t(jobs));
            for (int w = 0; w < jobs; ++w) {
                try {
                    threads.emplace_back([this] { work(false); });
                } catch (const std::system_error&) {
                    break; // fewer threads; with none this thread works alone
                }
            }
        }
        if (threads.empty()) {
            work(true);
        } else {
            if (writing) followProgress();
            for (std::thread& t : threads)
                t.join();
        }
        if (writing) undoPastStop();
    }

    // The record where the run stopped, or UINT32_MAX.
    uint32_t stopFile() const { return stop == UINT32_MAX ? stop : order[stop]; }
    ArchiveStatus stopStatus() const { return status; }
    uint32_t stopChunk() const { return chunk; }

private:
    static constexpr uint8_t kPending = 0, kDone = 1, kFailed = 2;

    struct Opened
    {
        uint32_t file;
        int fd;
        ArchiveStatus status;
    };

    // Under the lock. The run stops at file i: the first failure, or a cancel before it.
    void stopAt(uint32_t i, ArchiveStatus why, uint32_t failedChunk = 0)
    {
        if (i > stop || (i == stop && why != ArchiveStatus::Aborted)) return;
        stop = i;
        stopHint.store(i, std::memory_order_relaxed);
        status = why;
        chunk = failedChunk;
        turn.notify_all();
        caller.notify_all();
    }

    bool pastStop(uint32_t i) const { return i > stopHint.load(std::memory_order_relaxed); }

    // Under the lock.
    void finish(uint32_t i, ArchiveStatus result, uint32_t failedChunk)
    {
        outcome[i] = result == ArchiveStatus::Complete ? kDone : kFailed;
        if (result != ArchiveStatus::Complete) stopAt(i, result, failedChunk);
        const uint32_t before = prefix;
        while (prefix < outcome.size() && outcome[prefix] == kDone)
            ++prefix;
        if (prefix == before) return;
        if (waitingForPrefix) turn.notify_all();
        if (callerWaits && (grantWanted || prefix == outcome.size())) caller.notify_all();
    }

    // The files a worker takes at once: a few small ones, or one large.
    uint32_t batchEnd(uint32_t first, bool alone) const
    {
        if (alone) return first + 1;
        uint32_t end = first;
        uint64_t bytes = 0;
        while (end < count && end - first < 16 && bytes < (256u << 10)) {
            for (uint32_t k = firstPiece[end]; k < firstPiece[end + 1]; ++k)
                bytes += pieces[k].stored();
            ++end;
        }
        return end;
    }

    // The calling thread's part: progress value i before file i, and the Cancel check there.
    bool reach(uint32_t i)
    {
        progress.setValue(int(std::min<uint32_t>(i, INT32_MAX)));
        std::lock_guard<std::mutex> lock(mutex);
        if (progress.wasCanceled()) {
            stopAt(i, ArchiveStatus::Aborted);
            return false;
        }
        granted = i + 1;
        if (grantWanted) turn.notify_all();
        return true;
    }

    // With worker threads the calling thread follows the files that went in, reporting each
    // in turn; a long wait lets the window repaint every few hundredths of a second.
    void followProgress()
    {
        std::unique_lock<std::mutex> lock(mutex);
        for (uint32_t i = 0; i < count; ++i) {
            while (prefix < i && stop >= i) {
                callerWaits = true;
                if (caller.wait_for(lock, std::chrono::milliseconds(50))
                    == std::cv_status::timeout) {
                    lock.unlock();
                    progress.processEvents();
                    lock.lock();
                }
            }
            callerWaits = false;
            if (stop < i) return;
            lock.unlock();
            const bool go = reach(i);
            lock.lock();
            if (!go) return;
        }
    }

    void work(bool alone)
    {
        PieceRunner runner(reader, mapping, alone ? kWholeBlockMax : wholeLimit);
        unsigned char ddsHeader[kDdsHeaderCapacity];
        if (reader.isTexture) initDdsHeader(ddsHeader);
        std::vector<Opened> batch;
        std::unique_lock<std::mutex> lock(mutex);
        while (next < count && next <= stop) {
            const uint32_t first = next, end = batchEnd(first, alone);
            next = end;
            if (writing) {
                turn.wait(lock, [&] { return openTurn == first || stop < first; });
                if (stop < first) break;
                lock.unlock();
                openBatch(first, end, alone, batch, runner, ddsHeader);
                lock.lock();
                openTurn = end;
                turn.notify_all();
            } else {
                for (uint32_t i = first; i < end; ++i)
                    batch.push_back({i, -1, ArchiveStatus::Complete});
            }
            lock.unlock();
            workOn(batch, runner, ddsHeader);
            lock.lock();
        }
    }

    // Opens the files [first, end) in order; stops at the first that cannot be opened.
    void openBatch(uint32_t first, uint32_t end, bool alone, std::vector<Opened>& batch,
                   PieceRunner& runner, unsigned char* ddsHeader)
    {
        for (uint32_t i = first; i < end && !pastStop(i); ++i) {
            if (alone && !reach(i)) return;
            if (!nameIsSafe(reader.records[order[i]])) {
                batch.push_back({i, -1, ArchiveStatus::UnsafeName});
                return;
            }
            const QString name = reader.nameOf(order[i]);
            const QByteArray path = QFile::encodeName(target + name);
            int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (fd < 0 && errno != EEXIST) {
                QString directoryPart, fileName;
                splitPath(name, QStringLiteral("/"), directoryPart, fileName);
                if (directoryPart.isEmpty()) {
                    batch.push_back({i, -1, ArchiveStatus::FileOpenError});
                    return;
                }
                QStringList folders;
                makeFolders(target, directoryPart, folders);
                for (const QString& folder : folders)
                    madeFolders.emplace_back(i, QFile::encodeName(folder));
                fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            }
            if (fd >= 0) {
                madeFiles.emplace_back(i, path);
            } else if (errno == EEXIST) {
                // Overwritten only once every file before it went in and the run reached it.
                workOn(batch, runner, ddsHeader);
                std::unique_lock<std::mutex> lock(mutex);
                waitingForPrefix = grantWanted = true;
                caller.notify_all();
                turn.wait(lock, [&] { return (prefix >= i && granted > i) || stop < i; });
                waitingForPrefix = grantWanted = false;
                if (stop < i) return;
                lock.unlock();
                fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
            }
            if (fd < 0) {
                batch.push_back({i, -1, ArchiveStatus::FileOpenError});
                return;
            }
            batch.push_back({i, fd, ArchiveStatus::Complete});
        }
    }

    // Writes (or, verifying, decodes) the files of a batch and closes them.
    void workOn(std::vector<Opened>& batch, PieceRunner& runner, unsigned char* ddsHeader)
    {
        for (const Opened& f : batch) {
            uint32_t failedChunk = 0;
            ArchiveStatus result = f.status;
            if (result == ArchiveStatus::Complete && !pastStop(f.file))
                result = writeFile(f, runner, ddsHeader, failedChunk);
            if (f.fd >= 0) ::close(f.fd);
            std::lock_guard<std::mutex> lock(mutex);
            if (f.file <= stop) finish(f.file, result, failedChunk);
        }
        batch.clear();
    }

    ArchiveStatus writeFile(const Opened& f, PieceRunner& runner, unsigned char* ddsHeader,
                            uint32_t& failedChunk)
    {
        const FileRecord& record = reader.records[order[f.file]];
        Sink sink {f.fd, 0, nullptr};
        if (digests) {
            if (!runner.digest) return ArchiveStatus::OutOfMemory;
            XXH3_128bits_reset(runner.digest);
            sink.hash = runner.digest;
        }
        const ArchiveStatus result
            = writeFileTo(f.file, record, sink, runner, ddsHeader, failedChunk);
        if (digests && result == ArchiveStatus::Complete) {
            XXH128_canonical_t sum;
            XXH128_canonicalFromHash(&sum, XXH3_128bits_digest(runner.digest));
            std::memcpy((*digests)[order[f.file]].data(), sum.digest, sizeof sum.digest);
        }
        return result;
    }

    ArchiveStatus writeFileTo(uint32_t file, const FileRecord& record, Sink& sink,
                              PieceRunner& runner, unsigned char* ddsHeader, uint32_t& failedChunk)
    {
        if (!writing && !nameIsSafe(record)) return ArchiveStatus::UnsafeName;
        if (reader.isTexture) {
            const int headerLength = buildDdsHeader(ddsHeader, record);
            if (headerLength == 0) return ArchiveStatus::UnsupportedFormat;
            if (!sink.put(reinterpret_cast<const char*>(ddsHeader), size_t(headerLength)))
                return ArchiveStatus::FileWriteError;
        }
        for (uint32_t k = firstPiece[file]; k < firstPiece[file + 1]; ++k) {
            if (pastStop(file)) return ArchiveStatus::Aborted; // undone anyway
            const ArchiveStatus result = runner.run(pieces[k], sink);
            if (result != ArchiveStatus::Complete) {
                failedChunk = k - firstPiece[file];
                return result;
            }
        }
        return ArchiveStatus::Complete;
    }

    // Removes what was made for files past the stopping point: everything from a cancelled
    // file on, everything after a failed one.
    void undoPastStop()
    {
        if (stop == UINT32_MAX) return;
        const uint32_t keep = status == ArchiveStatus::Aborted ? stop : stop + 1;
        for (auto it = madeFiles.rbegin(); it != madeFiles.rend() && it->first >= keep; ++it)
            ::unlink(it->second.constData());
        for (auto it = madeFolders.rbegin(); it != madeFolders.rend() && it->first >= keep; ++it)
            ::rmdir(it->second.constData());
    }

    ArchiveReader& reader;
    const std::vector<uint32_t> order;
    const uint32_t count;
    const bool writing;
    const QString target;
    Progress& progress;
    std::vector<Digest>* digests;
    ArchiveMapping mapping;
    std::vector<Piece> pieces;
    std::vector<uint32_t> firstPiece; // per file, and one past the last
    uint64_t wholeLimit = kWholeBlockMax;

    std::mutex mutex;
    std::condition_variable turn;   // workers: the turn to open, a file reached, a stop
    std::condition_variable caller; // the calling thread: files went in, or a stop
    std::vector<uint8_t> outcome;
    uint32_t next = 0;     // the next file to take
    uint32_t openTurn = 0; // the next file to be opened
    uint32_t prefix = 0;   // files 0..prefix-1 went in
    uint32_t granted = 0;  // files the progress has reached
    uint32_t stop = UINT32_MAX;
    std::atomic<uint32_t> stopHint {UINT32_MAX};
    ArchiveStatus status = ArchiveStatus::Complete;
    uint32_t chunk = 0;
    bool waitingForPrefix = false, grantWanted = false, callerWaits = false;
    // Made by this run, in record order (the opener holds the turn when it adds to them).
    std::vector<std::pair<uint32_t, QByteArray>> madeFiles, madeFolders;
};

} // namespace

int defaultJobCount()
{
    const unsigned n = std::thread::hardware_concurrency();
    return n == 0 ? 1 : int(std::min(n, 64u));
}

// The record indexes to handle: the caller's selection (ascending, those out of range dropped)
// or every file.
static std::vector<uint32_t> filesToHandle(const ArchiveReader& reader,
                                           const std::vector<uint32_t>* selection)
{
    std::vector<uint32_t> order;
    if (!selection) {
        order.resize(reader.fileCount);
        for (uint32_t i = 0; i < reader.fileCount; ++i)
            order[i] = i;
        return order;
    }
    for (uint32_t i : *selection)
        if (i < reader.fileCount && (order.empty() || i > order.back())) order.push_back(i);
    return order;
}

ExtractResult extractArchive(ArchiveReader& reader, const QString& targetFolder, Progress& progress,
                             int jobs, const std::vector<uint32_t>* selection)
{
    ExtractResult result;
    if (!QFileInfo(targetFolder).isDir()) {
        result.status = ArchiveStatus::SystemError;
        return result;
    }
    QString target = targetFolder;
    if (!target.endsWith(QLatin1Char('/'))) target += QLatin1Char('/');

    std::vector<uint32_t> order = filesToHandle(reader, selection);
    progress.setMaximum(int(std::min<size_t>(order.size(), INT32_MAX)));
    Engine engine(reader, std::move(order), true, target, progress);
    engine.run(jobs);
    result.status = engine.stopStatus();
    if (engine.stopFile() == UINT32_MAX) {
        progress.setMaximum(100);
        progress.setValue(100);
    } else if (result.status != ArchiveStatus::Aborted) {
        result.failedName = reader.nameOf(engine.stopFile());
    }
    return result;
}

bool verifyArchive(ArchiveReader& reader, QString& fault, int jobs, std::vector<Digest>* digests)
{
    NullProgress none;
    if (digests) digests->assign(reader.fileCount, Digest());
    Engine engine(reader, filesToHandle(reader, nullptr), false, QString(), none, digests);
    engine.run(jobs);
    const uint32_t i = engine.stopFile();
    if (i == UINT32_MAX) {
        // The data is sound; what the game needs to find it comes last.
        fault = reader.isBsa ? bsa::hashFault(reader) : QString();
        return fault.isEmpty();
    }
    const ArchiveStatus status = engine.stopStatus();
    QString what = statusDetail(status);
    if (status == ArchiveStatus::UnsupportedFormat)
        what = QStringLiteral("unsupported texture format %1").arg(reader.records[i].format);
    else if (reader.isTexture && status != ArchiveStatus::UnsafeName)
        what = QStringLiteral("chunk %1: %2").arg(engine.stopChunk()).arg(what);
    fault = QStringLiteral("%1: %2").arg(reader.nameOf(i), what);
    return false;
}

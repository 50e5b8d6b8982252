#include "archive/extractor.h"

#include "archive/ddsheader.h"
#include "archive/status.h"
#include "creation/codecs.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

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

// One stored block: a general file, or one chunk of a texture.
struct Piece
{
    uint64_t dataOffset;
    uint32_t packedSize;
    uint32_t unpackedSize;
};

// Reads and decodes pieces into work buffers that follow the largest piece actually handled.
// Reads use pread on the archive's descriptor, so several decoders may share one open file.
class PieceDecoder
{
public:
    // lz4: compressed pieces are LZ4 blocks, otherwise zlib streams.
    PieceDecoder(int fd, const char* mapped, uint64_t fileSize, bool lz4)
        : fd(fd)
        , mapped(mapped)
        , fileSize(fileSize)
        , lz4(lz4)
    { }

    // On success data/size describe the decoded bytes until the next call.
    ArchiveStatus decode(const Piece& piece)
    {
        const uint64_t stored = piece.packedSize ? piece.packedSize : piece.unpackedSize;
        if (piece.dataOffset > fileSize || stored > fileSize - piece.dataOffset)
            return ArchiveStatus::FileReadError;
        size = piece.unpackedSize;
        data = nullptr;
        if (piece.packedSize == 0) {
            if (size == 0) return ArchiveStatus::Complete;
            return fetch(piece.dataOffset, size, data);
        }
        const uint64_t limit
            = lz4 ? lz4ExpansionLimit(piece.packedSize) : zlibExpansionLimit(piece.packedSize);
        const ArchiveStatus failure = lz4 ? ArchiveStatus::Lz4Error : ArchiveStatus::ZlibError;
        if (piece.unpackedSize > limit) return failure;
        if (!reserve(unpackedBuffer, std::max<uint32_t>(size, 1)))
            return ArchiveStatus::OutOfMemory;
        const char* packed = nullptr;
        const ArchiveStatus fetched = fetch(piece.dataOffset, piece.packedSize, packed);
        if (fetched != ArchiveStatus::Complete) return fetched;
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
    struct WorkBuffer
    {
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
    ArchiveStatus fetch(uint64_t offset, uint32_t length, const char*& bytes)
    {
        bytes = nullptr;
        if (mapped) {
            bytes = mapped + offset;
            return ArchiveStatus::Complete;
        }
        if (!reserve(packedBuffer, length)) return ArchiveStatus::OutOfMemory;
        if (!readAt(offset, packedBuffer.data(), length)) return ArchiveStatus::FileReadError;
        bytes = packedBuffer.data();
        return ArchiveStatus::Complete;
    }

    bool readAt(uint64_t offset, char* out, uint32_t length)
    {
        uint32_t done = 0;
        while (done < length) {
            const ssize_t got = ::pread(fd, out + done, length - done, off_t(offset + done));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return false;
            done += uint32_t(got);
        }
        return true;
    }

    int fd;
    const char* mapped;
    uint64_t fileSize;
    bool lz4;
    WorkBuffer packedBuffer;
    WorkBuffer unpackedBuffer;
};

// A read-only mapping of the whole archive, so blocks are decoded without being copied.
// Every page read stays resident until it is unmapped, so without forget() a large archive
// would count in full against the process: pages of finished pieces are given back in
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

    // Not thread-safe: callers take turns.
    void forget(const Piece& piece)
    {
        if (!bytes || piece.dataOffset >= size) return;
        const uint64_t stored = piece.packedSize ? piece.packedSize : piece.unpackedSize;
        const uint64_t end = std::min<uint64_t>(piece.dataOffset + stored, size);
        low = pending ? std::min(low, piece.dataOffset) : piece.dataOffset;
        high = pending ? std::max(high, end) : end;
        pending += stored;
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
    uint64_t low = 0, high = 0, pending = 0;
};

// The record indexes an extraction handles: the caller's selection (ascending, those out of
// range dropped) or every file.
std::vector<uint32_t> filesToHandle(const ArchiveReader& reader,
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

std::vector<Piece> piecesOf(const ArchiveReader& reader, const std::vector<uint32_t>& order)
{
    std::vector<Piece> pieces;
    pieces.reserve(order.size());
    for (uint32_t i : order) {
        const FileRecord& r = reader.records[i];
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

// A file's digest covers the bytes extraction writes: for a texture, its DDS header first.
std::unique_ptr<QCryptographicHash> startDigest(const ArchiveReader& reader, uint32_t record)
{
    std::unique_ptr<QCryptographicHash> hash(new QCryptographicHash(QCryptographicHash::Sha1));
    if (reader.isTexture) {
        unsigned char header[kDdsHeaderCapacity];
        initDdsHeader(header);
        const int length = buildDdsHeader(header, reader.records[record]);
        hash->addData(reinterpret_cast<const char*>(header), length);
    }
    return hash;
}

// Handing a piece to another thread costs a few microseconds; that only pays off when the
// pieces carry real work (decoding, or copying a large stored block), not for archives of
// many tiny files.
bool worthThreads(const std::vector<Piece>& pieces)
{
    uint64_t bytes = 0;
    for (const Piece& p : pieces)
        bytes += p.packedSize ? p.packedSize : p.unpackedSize;
    return !pieces.empty() && bytes / pieces.size() >= 16 * 1024;
}

// Worker threads that decode the pieces in order and, in an extraction, write each at its
// place in its file once the calling thread has opened that file. The caller opens files
// strictly in record order and decides when to stop. The parts of one texture may go in out
// of order; after a failure the caller cuts the file back to what went in before it, which is
// what a one-thread run leaves. In a verification nothing is written and a piece is done once
// decoded, or, when digests are asked for, once it went into its file's digest (the pieces of
// one file in order, those of different files in parallel).
// Files are numbered by their position in order (the record indexes handled).
class PieceWorkers
{
public:
    PieceWorkers(const ArchiveReader& reader, const std::vector<uint32_t>& order,
                 const std::vector<Piece>& pieces, std::vector<uint32_t> owner,
                 ArchiveMapping& mapping, int jobs, bool writing,
                 std::vector<QByteArray>* digests = nullptr)
        : reader(reader)
        , order(order)
        , pieces(pieces)
        , fileOf(std::move(owner))
        , mapping(mapping)
        , writing(writing)
        , digests(digests)
        , state(pieces.size(), PieceState::Pending)
        , status(pieces.size(), ArchiveStatus::Complete)
    {
        if (digests) {
            nextToHash.resize(order.size());
            hashes.resize(order.size());
            for (size_t k = pieces.size(); k-- > 0;)
                nextToHash[fileOf[k]] = k;
        }
        if (writing) {
            files.resize(order.size());
            size_t k = 0;
            for (uint32_t j = 0; j < order.size(); ++j) {
                FileSlot& f = files[j];
                f.firstPiece = k;
                f.pieceCount = reader.isTexture ? reader.records[order[j]].chunkCount : 1;
                uint64_t length = 0;
                for (uint32_t c = 0; c < f.pieceCount; ++c, ++k) {
                    pieceOffset.push_back(length);
                    length += pieces[k].unpackedSize;
                }
            }
            written.assign(pieces.size(), 0);
        }
        for (int w = 0; w < jobs; ++w) {
            decoders.emplace_back(new PieceDecoder(reader.file.handle(), mapping.data(),
                                                   uint64_t(reader.fileSize), reader.usesLz4()));
            PieceDecoder* decoder = decoders.back().get();
            try {
                threads.emplace_back([this, decoder] { work(*decoder); });
            } catch (const std::system_error&) {
                break; // fewer threads; with none the caller works alone
            }
        }
    }

    ~PieceWorkers() { stop(); }

    bool running() const { return !threads.empty(); }

    // Index of file i's first piece (the piece count when i is one past the last file).
    size_t firstPieceOf(uint32_t file) const
    {
        return file < files.size() ? files[file].firstPiece : pieces.size();
    }
    uint32_t fileOfPiece(size_t k) const { return fileOf[k]; }

    // File i is open on fd (its header of headerLength bytes written): its pieces may go in.
    void publish(uint32_t file, int fd, uint64_t headerLength)
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            files[file].fd = fd;
            files[file].base = headerLength;
            files[file].state = FileSlot::Open;
            published = file + 1;
        }
        opened.notify_all();
    }

    // The status of piece k once it is done.
    ArchiveStatus wait(size_t k)
    {
        std::unique_lock<std::mutex> lock(mutex);
        done.wait(lock, [&] { return state[k] != PieceState::Pending; });
        return status[k];
    }

    // Waits until every piece before k is done; true if all of them went through. A long wait
    // (one very large block) lets the window repaint every few tenths of a second.
    bool waitAllBefore(size_t k, Progress& progress)
    {
        std::unique_lock<std::mutex> lock(mutex);
        while (finishedPrefix() < k) {
            if (done.wait_for(lock, std::chrono::milliseconds(200)) != std::cv_status::timeout)
                continue;
            lock.unlock();
            progress.processEvents();
            lock.lock();
        }
        return firstFailed >= k;
    }

    // True once some piece has failed (the caller then stops opening files).
    bool failed()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return firstFailed != SIZE_MAX;
    }

    // Gives up every file not yet opened, lets the pieces in hand finish and ends the threads.
    // Returns the first piece that failed, or SIZE_MAX.
    size_t stop()
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            stopping = true;
        }
        wake.notify_all();
        opened.notify_all();
        for (std::thread& t : threads)
            t.join();
        threads.clear();
        return firstFailed;
    }

    ArchiveStatus statusOf(size_t k) const { return status[k]; }

    // Where a file has to be cut after piece k failed: its header and everything before the
    // failure, as one-thread writing would have left it.
    uint64_t cutAfterFailure(size_t k) const
    {
        return files[fileOf[k]].base + pieceOffset[k] + written[k];
    }

private:
    enum class PieceState : uint8_t {
        Pending, // not yet done
        Done,    // decoded, and written when writing; its status says how that went
        Skipped, // not written: its file was given up
    };

    struct FileSlot
    {
        enum State : uint8_t { Closed, Open };
        size_t firstPiece = 0;
        uint32_t pieceCount = 0;
        uint64_t base = 0;
        int fd = -1;
        State state = Closed;
    };

    size_t finishedPrefix()
    {
        while (prefix < state.size() && state[prefix] != PieceState::Pending)
            ++prefix;
        return prefix;
    }

    // May piece k be written now, or be settled without writing?
    bool settled(size_t k) const
    {
        if (stopping && fileOf[k] >= published) return true; // its file will never open
        return files[fileOf[k]].state == FileSlot::Open;
    }

    void work(PieceDecoder& decoder)
    {
        std::unique_lock<std::mutex> lock(mutex);
        while (true) {
            wake.wait(lock, [&] { return stopping || next < pieces.size(); });
            if (stopping || next >= pieces.size()) return;
            const size_t k = next++;
            lock.unlock();
            ArchiveStatus result = decoder.decode(pieces[k]);
            lock.lock();
            PieceState outcome = PieceState::Done;
            if (digests) {
                digest(k, decoder, result, lock);
            } else if (writing) {
                opened.wait(lock, [&] { return settled(k); });
                const FileSlot& f = files[fileOf[k]];
                if (f.state != FileSlot::Open || fileOf[k] > failedFile) {
                    outcome = PieceState::Skipped;
                } else if (result == ArchiveStatus::Complete && decoder.size != 0) {
                    const int fd = f.fd;
                    const uint64_t at = f.base + pieceOffset[k];
                    lock.unlock();
                    const uint32_t count = writeAt(fd, decoder.data, decoder.size, at);
                    lock.lock();
                    written[k] = count;
                    if (count != decoder.size) result = ArchiveStatus::FileWriteError;
                }
            }
            state[k] = outcome;
            status[k] = result;
            if (outcome == PieceState::Done && result != ArchiveStatus::Complete
                && k < firstFailed) {
                firstFailed = k;
                failedFile = fileOf[k];
            }
            mapping.forget(pieces[k]);
            done.notify_all();
        }
    }

    // Adds piece k to its file's digest once the piece before it in the same file went in (a
    // texture's digest begins with its DDS header). A failed piece takes its turn too, so the
    // pieces after it never wait for ever. Called and returns with the lock held.
    void digest(size_t k, const PieceDecoder& decoder, ArchiveStatus result,
                std::unique_lock<std::mutex>& lock)
    {
        const uint32_t file = fileOf[k];
        hashed.wait(lock, [&] { return nextToHash[file] == k; });
        if (result == ArchiveStatus::Complete) {
            std::unique_ptr<QCryptographicHash>& hash = hashes[file];
            lock.unlock();
            if (!hash) hash = startDigest(reader, order[file]);
            hash->addData(decoder.data, int(decoder.size));
            const bool last = k + 1 == pieces.size() || fileOf[k + 1] != file;
            if (last) {
                (*digests)[order[file]] = hash->result();
                hash.reset();
            }
            lock.lock();
        }
        ++nextToHash[file];
        hashed.notify_all();
    }

    // Bytes written before the end or the first error.
    static uint32_t writeAt(int fd, const char* data, uint32_t length, uint64_t offset)
    {
        uint32_t count = 0;
        while (count < length) {
            const ssize_t n = ::pwrite(fd, data + count, length - count, off_t(offset + count));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            count += uint32_t(n);
        }
        return count;
    }

    const ArchiveReader& reader;
    const std::vector<uint32_t>& order;
    const std::vector<Piece>& pieces;
    std::vector<uint32_t> fileOf;
    std::vector<uint64_t> pieceOffset; // where in its file's data a piece begins
    std::vector<uint32_t> written;     // bytes of each piece that went in
    ArchiveMapping& mapping;
    const bool writing;
    std::vector<QByteArray>* digests;
    std::vector<size_t> nextToHash; // per file: the piece whose turn it is
    std::vector<std::unique_ptr<QCryptographicHash>> hashes;
    std::condition_variable hashed; // workers: a piece went into its digest
    std::vector<FileSlot> files;
    std::vector<std::unique_ptr<PieceDecoder>> decoders;
    std::vector<std::thread> threads;
    std::mutex mutex;
    std::condition_variable wake;   // workers: stop
    std::condition_variable opened; // workers: a file opened
    std::condition_variable done;   // caller: a piece is done
    std::vector<PieceState> state;
    std::vector<ArchiveStatus> status;
    size_t next = 0;
    size_t prefix = 0;
    size_t firstFailed = SIZE_MAX;
    uint32_t failedFile = UINT32_MAX;
    uint32_t published = 0;
    bool stopping = false;
};

// The position in order of each piece's file.
std::vector<uint32_t> ownersOf(const ArchiveReader& reader, const std::vector<uint32_t>& order)
{
    std::vector<uint32_t> owner;
    owner.reserve(order.size());
    for (uint32_t j = 0; j < order.size(); ++j)
        owner.insert(owner.end(), reader.isTexture ? reader.records[order[j]].chunkCount : 1, j);
    return owner;
}

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
void makeFolders(const QString& target, const QString& directoryPart,
                 QStringList* created = nullptr)
{
    const QStringList parts = directoryPart.split(QLatin1Char('/'), Qt::KeepEmptyParts);
    QString path = target;
    for (int i = 0; i + 1 < parts.size(); ++i) {
        path += parts[i];
        if (!QFileInfo(path).isDir() && QDir().mkdir(path) && created) created->append(path);
        path += QLatin1Char('/');
    }
}

bool writeAll(int fd, const char* data, size_t length)
{
    size_t written = 0;
    while (written < length) {
        const ssize_t n = ::write(fd, data + written, length - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        written += size_t(n);
    }
    return true;
}

// Extraction with worker threads doing the decoding and writing while this thread opens the
// files in record order. Files are opened ahead of the writes, so a failure found late may
// leave files that a one-thread run would never have begun: those were all made by this run
// (an existing file is only opened once everything before it went in), and are removed
// again with the folders made for them.
// Nothing when no worker thread could be started.
std::optional<ExtractResult> extractWithWorkers(ArchiveReader& reader, const QString& target,
                                                Progress& progress, int jobs,
                                                const std::vector<uint32_t>& order,
                                                const std::vector<Piece>& pieces)
{
    ArchiveMapping mapping(reader);
    PieceWorkers workers(reader, order, pieces, ownersOf(reader, order), mapping, jobs, true);
    if (!workers.running()) return std::nullopt;
    unsigned char ddsHeader[kDdsHeaderCapacity];
    if (reader.isTexture) initDdsHeader(ddsHeader);

    struct OpenFile
    {
        uint32_t file;
        int fd;
    };
    std::deque<OpenFile> open; // files whose pieces may still be going in
    std::vector<std::pair<uint32_t, QByteArray>> madeFiles;
    std::vector<std::pair<uint32_t, QString>> madeFolders;
    const size_t maxOpen = size_t(jobs) * 4;
    uint32_t stopFile = UINT32_MAX;
    ArchiveStatus stopStatus = ArchiveStatus::Complete;
    uint32_t published = 0;
    auto stopAt = [&](uint32_t file, ArchiveStatus status) {
        stopFile = file;
        stopStatus = status;
    };

    // i counts the files handled; the record is order[i].
    for (uint32_t i = 0; i < order.size(); ++i) {
        progress.setValue(int(std::min<uint32_t>(i, INT32_MAX)));
        if (progress.wasCanceled()) {
            stopAt(i, ArchiveStatus::Aborted);
            break;
        }
        if (workers.failed()) break;
        const FileRecord& record = reader.records[order[i]];
        if (!nameIsSafe(record)) {
            stopAt(i, ArchiveStatus::UnsafeName);
            break;
        }
        bool failedBefore = false;
        while (open.size() >= maxOpen && !failedBefore) {
            failedBefore
                = !workers.waitAllBefore(workers.firstPieceOf(open.front().file + 1), progress);
            if (failedBefore) break; // that file may still have to be cut
            ::close(open.front().fd);
            open.pop_front();
        }
        if (failedBefore) break;
        const QString name = reader.nameOf(order[i]);
        const QByteArray path = QFile::encodeName(target + name);
        int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && errno != EEXIST) {
            QString directoryPart, fileName;
            splitPath(name, QStringLiteral("/"), directoryPart, fileName);
            if (directoryPart.isEmpty()) {
                stopAt(i, ArchiveStatus::FileOpenError);
                break;
            }
            QStringList folders;
            makeFolders(target, directoryPart, &folders);
            for (const QString& folder : folders)
                madeFolders.emplace_back(i, folder);
            fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        }
        if (fd >= 0) {
            madeFiles.emplace_back(i, path);
        } else if (errno == EEXIST) {
            if (!workers.waitAllBefore(workers.firstPieceOf(i), progress)) break;
            fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        }
        if (fd < 0) {
            stopAt(i, ArchiveStatus::FileOpenError);
            break;
        }
        open.push_back({i, fd});
        int headerLength = 0;
        if (reader.isTexture) {
            headerLength = buildDdsHeader(ddsHeader, record);
            if (headerLength == 0) {
                stopAt(i, ArchiveStatus::UnsupportedFormat);
                break;
            }
            if (!writeAll(fd, reinterpret_cast<const char*>(ddsHeader), size_t(headerLength))) {
                stopAt(i, ArchiveStatus::FileWriteError);
                break;
            }
        }
        workers.publish(i, fd, uint64_t(headerLength));
        published = i + 1;
    }

    workers.waitAllBefore(workers.firstPieceOf(published), progress);
    const size_t bad = workers.stop();

    ExtractResult result;
    uint32_t last = stopFile; // the last file a one-thread run would have touched
    result.status = stopStatus;
    if (bad != SIZE_MAX && workers.fileOfPiece(bad) < stopFile) {
        last = workers.fileOfPiece(bad);
        result.status = workers.statusOf(bad);
        for (const OpenFile& f : open)
            if (f.file == last) {
                const uint64_t cut = workers.cutAfterFailure(bad);
                struct stat info;
                if (::fstat(f.fd, &info) == 0 && uint64_t(info.st_size) > cut)
                    (void)::ftruncate(f.fd, off_t(cut));
            }
    }
    for (const OpenFile& f : open)
        ::close(f.fd);
    if (last == UINT32_MAX) {
        progress.setMaximum(100);
        progress.setValue(100);
        return result;
    }
    if (result.status != ArchiveStatus::Aborted) result.failedName = reader.nameOf(order[last]);
    for (auto it = madeFiles.rbegin(); it != madeFiles.rend() && it->first > last; ++it)
        ::unlink(it->second.constData());
    for (auto it = madeFolders.rbegin(); it != madeFolders.rend() && it->first > last; ++it)
        ::rmdir(QFile::encodeName(it->second).constData());
    return result;
}

} // namespace

int defaultJobCount()
{
    const unsigned n = std::thread::hardware_concurrency();
    return n == 0 ? 1 : int(std::min(n, 64u));
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

    const std::vector<uint32_t> order = filesToHandle(reader, selection);
    progress.setMaximum(int(std::min<size_t>(order.size(), INT32_MAX)));
    const std::vector<Piece> pieces = piecesOf(reader, order);
    if (jobs > 1 && worthThreads(pieces))
        if (std::optional<ExtractResult> done
            = extractWithWorkers(reader, target, progress, jobs, order, pieces))
            return *done;

    unsigned char ddsHeader[kDdsHeaderCapacity];
    if (reader.isTexture) initDdsHeader(ddsHeader);
    ArchiveMapping mapping(reader);
    PieceDecoder decoder(reader.file.handle(), mapping.data(), uint64_t(reader.fileSize),
                         reader.usesLz4());
    size_t piece = 0;

    for (uint32_t i = 0; i < order.size(); ++i) {
        progress.setValue(int(std::min<uint32_t>(i, INT32_MAX)));
        if (progress.wasCanceled()) {
            result.status = ArchiveStatus::Aborted;
            result.failedName.clear(); // nothing failed
            return result;
        }
        const FileRecord& record = reader.records[order[i]];
        result.failedName = reader.nameOf(order[i]);
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
            ArchiveStatus status = decoder.decode(pieces[piece]);
            if (status == ArchiveStatus::Complete && decoder.size != 0
                && out.write(decoder.data, decoder.size) != qint64(decoder.size))
                status = ArchiveStatus::FileWriteError;
            mapping.forget(pieces[piece]);
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

bool verifyArchive(ArchiveReader& reader, QString& fault, int jobs,
                   std::vector<QByteArray>* digests)
{
    const std::vector<uint32_t> order = filesToHandle(reader, nullptr);
    const std::vector<Piece> pieces = piecesOf(reader, order);
    if (digests) digests->assign(reader.fileCount, QByteArray());
    ArchiveMapping mapping(reader);
    PieceDecoder decoder(reader.file.handle(), mapping.data(), uint64_t(reader.fileSize),
                         reader.usesLz4());
    std::unique_ptr<PieceWorkers> workers;
    if (jobs > 1 && worthThreads(pieces))
        workers.reset(new PieceWorkers(reader, order, pieces, ownersOf(reader, order), mapping,
                                       jobs, false, digests));
    if (workers && !workers->running()) workers.reset();
    unsigned char ddsHeader[kDdsHeaderCapacity];
    initDdsHeader(ddsHeader);
    size_t piece = 0;
    for (uint32_t i = 0; i < reader.fileCount; ++i) {
        const FileRecord& record = reader.records[i];
        auto report = [&](const QString& what) {
            fault = QStringLiteral("%1: %2").arg(reader.nameOf(i), what);
            return false;
        };
        if (!nameIsSafe(record)) return report(statusDetail(ArchiveStatus::UnsafeName));
        if (reader.isTexture && buildDdsHeader(ddsHeader, record) == 0)
            return report(QStringLiteral("unsupported texture format %1").arg(record.format));
        const uint32_t pieceCount = reader.isTexture ? record.chunkCount : 1;
        std::unique_ptr<QCryptographicHash> hash;
        if (digests && (!workers || pieceCount == 0)) hash = startDigest(reader, i);
        for (uint32_t c = 0; c < pieceCount; ++c, ++piece) {
            ArchiveStatus status;
            if (workers) {
                status = workers->wait(piece);
            } else {
                status = decoder.decode(pieces[piece]);
                if (hash && status == ArchiveStatus::Complete)
                    hash->addData(decoder.data, int(decoder.size));
                mapping.forget(pieces[piece]);
            }
            if (status == ArchiveStatus::Complete) continue;
            const QString detail = statusDetail(status);
            return report(reader.isTexture ? QStringLiteral("chunk %1: %2").arg(c).arg(detail)
                                           : detail);
        }
        if (hash) (*digests)[i] = hash->result();
    }
    fault.clear();
    return true;
}

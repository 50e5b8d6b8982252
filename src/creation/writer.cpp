#include "creation/writer.h"

#include "archive/format.h"
#include "archive/status.h"
#include "creation/blockcodec.h"
#include "creation/codecs.h"
#include "creation/texturelayout.h"
#include "creation/workbuffer.h"

#include <QFile>

#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <functional>
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

namespace {

using Codec = BlockCodec;

// unpackedSize and packedSize are 32-bit fields, and LZ4 refuses more than 0x7E000000 bytes.
// A zlib block is streamed when large, so it may be as large as a stored one.
constexpr uint64_t kMaxStoredSize = 0xFFFFFFFFull;
constexpr uint64_t kMaxLz4Input = 0x7E000000ull;
// A stored or zlib block above this size is never held whole: the writing thread reads it,
// compresses it (zlib's own deflate, fed window by window, whatever the engine) and writes it
// in windows of kStreamWindow bytes. Below it every engine compresses whole blocks.
constexpr uint64_t kStreamAbove = 64u << 20;
constexpr uint32_t kStreamWindow = 4u << 20;
constexpr uint32_t kMaxNameLength = 0xFFFF;
constexpr int kNameFlushSize = 1 << 20;
// Source bytes that worker threads may hold between reading a file and its being written; a
// file larger than this is still taken, alone, when its turn comes.
constexpr uint64_t kBytesInFlight = 64u << 20;
// What the worker window keeps allocated in idle buffers between files.
constexpr uint64_t kIdleBufferBytes = 64u << 20;
// Files a worker may run ahead of the writer. Sizes differ a thousandfold, so a worker must be
// able to go on with many small files while another compresses a large one.
constexpr size_t kFilesPerWorker = 8;
// When the writer has to wait, it sleeps until this many files are ready (or the workers can do
// no more), rather than waking for every small file.
constexpr size_t kFilesPerWake = 4;
// Written data is handed to the disk in steps of this size while the run goes on.
constexpr uint64_t kEarlyWriteStep = 8u << 20;

using Buffer = WorkBuffer;

uint64_t sizeLimit(Codec codec)
{
    return codec == Codec::Lz4 || codec == Codec::Lz4Large ? kMaxLz4Input : kMaxStoredSize;
}

bool streams(Codec codec, uint64_t size)
{
    return size > kStreamAbove && (codec == Codec::Store || codec == Codec::Zlib);
}

QString sourcePathOf(const SourceEntry& e)
{
    return e.sourceFile.isEmpty() ? QString::fromLocal8Bit(e.path) : e.sourceFile;
}

// An open source file, closed when it goes out of scope.
class SourceFile
{
public:
    ~SourceFile()
    {
        if (fd >= 0) ::close(fd);
    }

    // Opens name and checks its size against what the archive can hold.
    SaveStatus open(const QString& name, Codec codec)
    {
        fd = ::open(QFile::encodeName(name).constData(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) return SaveStatus::FileOpenError;
        struct stat st;
        if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) return SaveStatus::FileOpenError;
        if (st.st_size < 0 || uint64_t(st.st_size) > sizeLimit(codec)) return SaveStatus::TooLarge;
        size = uint64_t(st.st_size);
        return SaveStatus::Complete;
    }

    SaveStatus readAll(Buffer& buffer)
    {
        if (!buffer.reserve(size)) return SaveStatus::OutOfMemory;
        uint64_t got = 0;
        while (got < size) {
            const ssize_t n
                = ::read(fd, buffer.data() + got, size_t(std::min<uint64_t>(size - got, 1u << 30)));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            got += uint64_t(n);
        }
        return got == size ? SaveStatus::Complete : SaveStatus::FileReadError;
    }

    int fd = -1;
    uint64_t size = 0;
};

// The chunk count of a texture, needed before any data is written so that the record table
// can be sized. Mapping the file lets the analysis see the real size while only the header
// pages are touched; where mapping is not possible the file is read.
SaveStatus analyseTexture(const QString& name, Codec codec, Buffer& scratch, uint8_t& chunkCount)
{
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly)) return SaveStatus::FileOpenError;
    const qint64 s = file.size();
    if (s < 0 || uint64_t(s) > sizeLimit(codec)) return SaveStatus::TooLarge;
    const uint64_t size = uint64_t(s);
    TextureLayout layout;
    SaveStatus status = SaveStatus::Complete;
    uchar* mapped = size > 0 ? file.map(0, qint64(size)) : nullptr;
    if (mapped) {
        status = toSaveStatus(layoutTexture(reinterpret_cast<const char*>(mapped), size, layout));
        file.unmap(mapped);
    } else {
        SourceFile source;
        status = source.open(name, codec);
        if (status == SaveStatus::Complete) status = source.readAll(scratch);
        if (status == SaveStatus::Complete)
            status = toSaveStatus(layoutTexture(scratch.data(), source.size, layout));
    }
    if (status == SaveStatus::Complete) chunkCount = layout.chunkCount;
    return status;
}

struct EncodeSettings
{
    Codec codec;
    bool isTexture;
    int zlibLevel;
    ZlibEngine engine;
};

// One file's work up to the bytes to store: reading it, cutting a texture into its chunks and
// compressing every block. Everything it leaves is read by the thread that writes the archive.
class FileEncoder
{
public:
    explicit FileEncoder(const EncodeSettings& settings)
        : settings(settings)
    { }

    // Waits, once a file's size is known, until its bytes may be taken into memory; false: stop.
    using Admission = std::function<bool(uint64_t size)>;

    // Encodes file; expectedChunks is what the first pass over the textures found (0: that pass
    // did not reach this file). Stops early, with a status of no meaning, once admit says no or
    // stop is set. On failure, the first blockCount blocks are complete and are still written.
    // zlib belongs to the calling thread: its tables stay warm in that core's cache.
    SaveStatus encode(const QString& file, uint8_t expectedChunks, ZlibCompressor& zlib,
                      const Admission& admit, const std::atomic<bool>* stop)
    {
        blockCount = 0;
        streamedCount = 0;
        SourceFile source;
        SaveStatus status = source.open(file, settings.codec);
        const bool stream = status == SaveStatus::Complete && streams(settings.codec, source.size);
        if (admit && !admit(status == SaveStatus::Complete && !stream ? source.size : 0))
            return SaveStatus::Aborted;
        if (status != SaveStatus::Complete) return status;
        const uint64_t size = source.size;
        if (stream) {
            // Only the texture's header pages are read here; the writing thread reads the rest.
            void* mapped = settings.isTexture
                ? ::mmap(nullptr, size_t(size), PROT_READ, MAP_SHARED, source.fd, 0)
                : nullptr;
            if (settings.isTexture && mapped == MAP_FAILED) return SaveStatus::FileReadError;
            status = plan(static_cast<const char*>(mapped), size, expectedChunks);
            if (mapped) ::munmap(mapped, size_t(size));
            if (status == SaveStatus::Complete)
                streamedCount = settings.isTexture ? layout.chunkCount : 1;
            return status;
        }
        status = source.readAll(readBuffer);
        if (status != SaveStatus::Complete) return status;
        status = plan(readBuffer.data(), size, expectedChunks);
        if (status != SaveStatus::Complete) return status;
        const uint32_t count = settings.isTexture ? layout.chunkCount : 1;

        uint64_t room = 0;
        for (uint32_t k = 0; k < count; ++k)
            room += packRoom(blocks[k].unpackedSize);
        if (room && !packBuffer.reserve(room)) return SaveStatus::OutOfMemory;
        uint64_t packedAt = 0;
        for (uint32_t k = 0; k < count; ++k) {
            if (stop && stop->load(std::memory_order_relaxed)) return SaveStatus::Aborted;
            ChunkPlan& block = blocks[k];
            const char* source = readBuffer.data() + block.sourceOffset;
            const uint64_t capacity = packRoom(block.unpackedSize);
            char* destination = packBuffer.data() + packedAt;
            out[k] = source;
            outLength[k] = block.unpackedSize;
            const int64_t n = encodeBlock(settings.codec, zlib, source, block.unpackedSize,
                                          destination, capacity);
            if (n < 0)
                return settings.codec == Codec::Zlib ? SaveStatus::ZlibError : SaveStatus::Lz4Error;
            block.packedSize = uint32_t(n);
            if (block.packedSize) {
                out[k] = destination;
                outLength[k] = block.packedSize;
            }
            block.packedBytes = block.packedSize ? out[k] : nullptr;
            packedAt += capacity;
            blockCount = k + 1;
        }
        return SaveStatus::Complete;
    }

    // The blocks of a file of size bytes whose bytes (or, for a texture, whose header pages) are
    // at data.
    SaveStatus plan(const char* data, uint64_t size, uint8_t expectedChunks)
    {
        if (!settings.isTexture) {
            blocks[0] = ChunkPlan();
            blocks[0].unpackedSize = uint32_t(size);
            return SaveStatus::Complete;
        }
        const SaveStatus status = toSaveStatus(layoutTexture(data, size, layout));
        if (status != SaveStatus::Complete) return status;
        // A different answer than in the first pass means the file changed meanwhile.
        if (expectedChunks == 0 || layout.chunkCount != expectedChunks || layout.chunkCount > 4)
            return SaveStatus::FileReadError;
        for (uint32_t k = 0; k < layout.chunkCount; ++k) {
            blocks[k] = layout.chunks[k];
            if (uint64_t(blocks[k].sourceOffset) + blocks[k].unpackedSize > size)
                return SaveStatus::DdsFileError;
        }
        return SaveStatus::Complete;
    }

    // Hands the work buffers to a pool of idle ones, which keeps at most limit bytes.
    void lendBuffers(std::vector<Buffer>& pool, uint64_t& pooled, uint64_t limit)
    {
        for (Buffer* b : {&readBuffer, &packBuffer}) {
            if (b->size() == 0) continue;
            if (pooled + b->size() > limit) {
                b->release();
                continue;
            }
            pooled += b->size();
            pool.emplace_back();
            pool.back().swap(*b);
        }
    }
    // Takes pooled buffers in place of missing ones for a file of fileSize bytes: for each, the
    // smallest that is large enough, else the largest.
    void borrowBuffers(std::vector<Buffer>& pool, uint64_t& pooled, uint64_t fileSize)
    {
        const uint64_t needs[2]
            = {fileSize, settings.codec == Codec::Store ? 0 : fileSize + fileSize / 128 + 4096};
        Buffer* mine[2] = {&readBuffer, &packBuffer};
        for (int k = 0; k < 2; ++k) {
            if (mine[k]->size() != 0 || needs[k] == 0 || pool.empty()) continue;
            size_t best = 0;
            for (size_t p = 1; p < pool.size(); ++p) {
                const bool fits = pool[p].size() >= needs[k],
                           bestFits = pool[best].size() >= needs[k];
                if (fits ? !bestFits || pool[p].size() < pool[best].size()
                         : !bestFits && pool[p].size() > pool[best].size())
                    best = p;
            }
            pooled -= pool[best].size();
            mine[k]->swap(pool[best]);
            pool[best].swap(pool.back());
            pool.pop_back();
        }
    }

    TextureLayout layout;
    ChunkPlan blocks[4];
    uint32_t blockCount = 0;    // blocks ready to be written
    uint32_t streamedCount = 0; // blocks the writing thread reads, compresses and writes itself
    const char* out[4] = {};    // the bytes to store of each block
    uint32_t outLength[4] = {};

private:
    uint64_t packRoom(uint32_t length) const { return blockPackRoom(settings.codec, length); }

    EncodeSettings settings;
    Buffer readBuffer;
    Buffer packBuffer;
};

// Hands out encoded files strictly in order. With one job each file is encoded when asked for;
// with more, worker threads encode a bounded window of files ahead while the caller writes, so
// the archive and every side effect stay exactly those of a one-thread run.
class EncodedFiles
{
public:
    EncodedFiles(const SourceList& sources, const std::vector<uint8_t>& chunkCounts,
                 const EncodeSettings& settings, int jobs)
        : sources(sources)
        , chunkCounts(chunkCounts)
        , settings(settings)
        , zlib(settings.zlibLevel, settings.engine)
    {
        const int workers = jobs > 1 ? std::min(jobs, 64) : 0;
        const size_t slotCount = workers ? kFilesPerWorker * size_t(workers) : 1;
        for (size_t i = 0; i < slotCount; ++i)
            window.emplace_back(new Slot(settings));
        // Workers start by taking the lock, so they see workerCount only once it is final.
        std::lock_guard<std::mutex> lock(mutex);
        for (int w = 0; w < workers; ++w) {
            try {
                threads.emplace_back([this] { work(); });
            } catch (const std::system_error&) {
                break; // fewer threads, or none: the caller then encodes itself
            }
        }
        workerCount = threads.size();
        if (threads.empty()) window.resize(1);
    }

    ~EncodedFiles()
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            stopping = true;
        }
        stop.store(true);
        wake.notify_all();
        for (std::thread& t : threads)
            t.join();
    }

    // Encodes (or waits for) file i; the result stays valid until release(i).
    const FileEncoder& get(size_t i, SaveStatus& status)
    {
        Slot& slot = *window[i % window.size()];
        if (threads.empty()) {
            status = slot.encoder.encode(sourcePathOf(sources[i]), expectedChunks(i), zlib, nullptr,
                                         nullptr);
            return slot.encoder;
        }
        std::unique_lock<std::mutex> lock(mutex);
        if (slot.readyFile != i) {
            // Room made by the last few releases, not yet announced (see release).
            if (roomWaiters > 0) wake.notify_all();
            waitFirst = i;
            waitLast = std::min(i + kFilesPerWake, sources.size()) - 1;
            callerWaits = true;
            done.wait(lock, [&] { return callerMayGo(); });
            callerWaits = false;
        }
        status = slot.status;
        return slot.encoder;
    }

    void release(size_t i)
    {
        if (threads.empty()) return;
        Slot& slot = *window[i % window.size()];
        bool wakeWorkers;
        {
            std::lock_guard<std::mutex> lock(mutex);
            // The buffers go to a common pool of limited size, so that memory follows the files
            // in flight rather than the largest files ever met, and any slot reuses warm ones.
            slot.encoder.lendBuffers(pool, pooledBytes, kIdleBufferBytes);
            bytesInFlight -= slot.bytes;
            slot.bytes = 0;
            consumed = i + 1;
            // A worker waiting to read gets every change of the budget; workers waiting for room
            // in the window are woken for a few files at a time, or when the writer must wait.
            wakeWorkers = admitWaiters > 0 || (roomWaiters > 0 && consumed % kFilesPerWake == 0);
        }
        if (wakeWorkers) wake.notify_all();
    }

private:
    struct Slot
    {
        explicit Slot(const EncodeSettings& settings)
            : encoder(settings)
        { }
        FileEncoder encoder;
        size_t readyFile = SIZE_MAX;
        uint64_t bytes = 0; // the file's share of bytesInFlight
        SaveStatus status = SaveStatus::Aborted;
    };

    uint8_t expectedChunks(size_t i) const { return i < chunkCounts.size() ? chunkCounts[i] : 0; }

    bool isReady(size_t i) const { return window[i % window.size()]->readyFile == i; }

    // Under the lock. All workers waiting means no file gets ready without the writer; the file
    // it waits for is then ready, as the file at the head of the window is always admitted.
    bool callerMayGo() const
    {
        return isReady(waitFirst) && (isReady(waitLast) || waitingWorkers == workerCount);
    }

    template<typename Ready>
    void waitFor(std::unique_lock<std::mutex>& lock, size_t& waiters, Ready ready)
    {
        ++waitingWorkers;
        ++waiters;
        if (callerWaits && !ready() && callerMayGo()) done.notify_one();
        wake.wait(lock, ready);
        --waiters;
        --waitingWorkers;
    }

    void work()
    {
        ZlibCompressor ownZlib(settings.zlibLevel, settings.engine);
        size_t i = 0;
        Slot* slot = nullptr;
        // Between opening a file and reading it: the file the writer waits for always goes
        // ahead; the others keep within the budget of bytes in flight.
        const FileEncoder::Admission admit = [&](uint64_t bytes) {
            std::unique_lock<std::mutex> lock(mutex);
            waitFor(lock, admitWaiters, [&] {
                return stopping || i == consumed || bytesInFlight + bytes <= kBytesInFlight;
            });
            if (stopping) return false;
            bytesInFlight += bytes;
            slot->bytes = bytes;
            slot->encoder.borrowBuffers(pool, pooledBytes, bytes);
            return true;
        };
        std::unique_lock<std::mutex> lock(mutex);
        while (true) {
            waitFor(lock, roomWaiters, [&] {
                return stopping || (next < sources.size() && next < consumed + window.size());
            });
            if (stopping) return;
            i = next++;
            slot = window[i % window.size()].get();
            lock.unlock();
            const SaveStatus status = slot->encoder.encode(
                sourcePathOf(sources[i]), expectedChunks(i), ownZlib, admit, &stop);
            lock.lock();
            slot->status = status;
            slot->readyFile = i;
            if (callerWaits && callerMayGo()) done.notify_one();
        }
    }

    const SourceList& sources;
    const std::vector<uint8_t>& chunkCounts;
    const EncodeSettings settings;
    ZlibCompressor zlib; // the caller's, when it encodes itself
    std::vector<std::unique_ptr<Slot>> window;
    std::vector<std::thread> threads;
    std::mutex mutex;
    std::condition_variable wake; // workers: room in the window or the budget, or stop
    std::condition_variable done; // caller: a file is ready
    std::atomic<bool> stop {false};
    std::vector<Buffer> pool; // idle work buffers
    uint64_t pooledBytes = 0;
    size_t next = 0;
    size_t consumed = 0;
    uint64_t bytesInFlight = 0;
    size_t workerCount = 0;
    size_t waitingWorkers = 0;
    size_t admitWaiters = 0;            // of them, waiting to read their file
    size_t roomWaiters = 0;             // waiting for a file to take
    size_t waitFirst = 0, waitLast = 0; // the files the writer waits for
    bool callerWaits = false;
    bool stopping = false;
};

bool writeAll(QFile& file, const char* bytes, qint64 size)
{
    return file.write(bytes, size) == size;
}

// Reads the block at offset of the source in windows and appends it to out: as it is, or as
// one zlib stream that deflate makes of the windows in turn (the same bytes compress2 makes of
// the whole block). packedSize is then the stream's length. The status says which side failed.
SaveStatus streamBlock(const QString& source, uint64_t offset, uint32_t length, Codec codec,
                       int level, QFile& out, uint32_t& packedSize, bool& outputFailed,
                       Progress& progress)
{
    outputFailed = false;
    SourceFile file;
    file.fd = ::open(QFile::encodeName(source).constData(), O_RDONLY | O_CLOEXEC);
    if (file.fd < 0) return SaveStatus::FileOpenError;
    Buffer in, packed;
    if (!in.reserve(kStreamWindow) || (codec == Codec::Zlib && !packed.reserve(kStreamWindow)))
        return SaveStatus::OutOfMemory;
    z_stream z;
    std::memset(&z, 0, sizeof z);
    if (codec == Codec::Zlib && deflateInit(&z, level) != Z_OK) return SaveStatus::ZlibError;
    struct End
    {
        z_stream* z;
        ~End()
        {
            if (z) deflateEnd(z);
        }
    } end {codec == Codec::Zlib ? &z : nullptr};
    uint64_t produced = 0;
    for (uint64_t done = 0; done < length;) {
        const uint32_t n = uint32_t(std::min<uint64_t>(kStreamWindow, length - done));
        for (uint32_t got = 0; got < n;) {
            const ssize_t r
                = ::pread(file.fd, in.data() + got, n - got, off_t(offset + done + got));
            if (r < 0 && errno == EINTR) continue;
            if (r <= 0) return SaveStatus::FileReadError; // the source shrank meanwhile
            got += uint32_t(r);
        }
        done += n;
        if (codec != Codec::Zlib) {
            outputFailed = !writeAll(out, in.data(), n);
            if (outputFailed) return SaveStatus::FileWriteError;
            continue;
        }
        z.next_in = reinterpret_cast<Bytef*>(in.data());
        z.avail_in = n;
        const int flush = done == length ? Z_FINISH : Z_NO_FLUSH;
        int result;
        do {
            z.next_out = reinterpret_cast<Bytef*>(packed.data());
            z.avail_out = kStreamWindow;
            result = deflate(&z, flush);
            if (result == Z_STREAM_ERROR) return SaveStatus::ZlibError;
            const uint32_t have = kStreamWindow - z.avail_out;
            produced += have;
            if (produced > kMaxStoredSize) return SaveStatus::TooLarge;
            outputFailed = !writeAll(out, packed.data(), have);
            if (outputFailed) return SaveStatus::FileWriteError;
        } while (z.avail_out == 0);
        if (flush == Z_FINISH && result != Z_STREAM_END) return SaveStatus::ZlibError;
        progress.processEvents();
    }
    packedSize = uint32_t(produced);
    return SaveStatus::Complete;
}

} // namespace

WriteResult writeArchive(SourceList& sources, const QString& targetPath, bool isTexture,
                         int version, int zlibLevel, int lz4Mode, Progress& progress, int jobs,
                         ZlibEngine engine)
{
    WriteResult result;
    if (sources.isEmpty()) {
        result.status = SaveStatus::NoSources;
        return result;
    }
    const QString tempPath = targetPath + QStringLiteral(".Zarneler");
    if (sources.size() > size_t(INT32_MAX)) {
        result.status = SaveStatus::TooLarge;
        result.failedFile = targetPath;
        return result;
    }
    const uint32_t count = uint32_t(sources.size());
    progress.setMinimum(0);
    progress.setMaximum(int(count));
    progress.setValue(0);

    const Codec codec = blockCodecFor(version, zlibLevel, lz4Mode);
    ba2::ArchiveHeader header;
    header.version = uint32_t(version);
    header.archiveType = isTexture ? ba2::kTypeTexture : ba2::kTypeGeneral;
    header.fileCount = count;
    header.headerExtra = (version == 2 || version == 3) ? 1 : 0;
    header.compressionCode = version == 3 ? ba2::kCompressionLz4 : 0;
    unsigned char headerBytes[36] = {};
    const uint32_t headerSize = ba2::encodeHeader(header, headerBytes);

    // A leftover of an interrupted run goes first; removing (rather than truncating) also
    // drops a link planted under that name.
    QFile::remove(tempPath);
    QFile temp(tempPath);
    if (!temp.open(QIODevice::ReadWrite | QIODevice::Truncate)) {
        result.status = SaveStatus::FileOpenError;
        result.failedFile = tempPath;
        return result;
    }
    bool keepTemp = false;
    struct Cleanup
    {
        QFile& file;
        const bool& keep;
        ~Cleanup()
        {
            if (keep) return;
            file.close();
            QFile::remove(file.fileName());
        }
    } cleanup {temp, keepTemp};

    auto fail = [&result](SaveStatus status, const QString& file) {
        result.status = status;
        result.failedFile = file;
        return result;
    };

    Buffer scratch;

    // The record table's size must be known before the first data block lands behind it.
    // A texture's chunk count comes from its header; a file that cannot be analysed here
    // will fail again in the main loop, which reports it in its turn.
    uint64_t recordBytes = 0;
    std::vector<uint8_t> chunkCounts;
    uint32_t analysed = count;
    if (isTexture) {
        chunkCounts.assign(count, 0);
        for (uint32_t i = 0; i < count; ++i) {
            if ((i & 31) == 31) progress.processEvents();
            if (analyseTexture(sourcePathOf(sources[i]), codec, scratch, chunkCounts[i])
                != SaveStatus::Complete) {
                analysed = i;
                break;
            }
            recordBytes
                += ba2::kTextureRecordSize + uint64_t(chunkCounts[i]) * ba2::kChunkRecordSize;
        }
    } else {
        recordBytes = uint64_t(count) * ba2::kGeneralRecordSize;
    }
    // The record table is assembled in memory; no real archive comes near this bound.
    if (recordBytes > (1u << 30)) return fail(SaveStatus::TooLarge, targetPath);
    const uint64_t base = headerSize + recordBytes;

    if (!writeAll(temp, reinterpret_cast<const char*>(headerBytes), headerSize)
        || !temp.seek(qint64(base)))
        return fail(SaveStatus::FileWriteError, tempPath);

    QByteArray records;
    records.reserve(int(qMin<uint64_t>(recordBytes, 64u << 20)));
    uint64_t dataCursor = base;
    uint64_t syncedTo = 0;
    if (analysed < count) chunkCounts.resize(analysed);
    EncodedFiles encoded(sources, chunkCounts, EncodeSettings {codec, isTexture, zlibLevel, engine},
                         jobs);

    for (uint32_t i = 0; i < count; ++i) {
        progress.setValue(int(i));
        if (progress.wasCanceled()) return fail(SaveStatus::Aborted, QString());

        SourceEntry& entry = sources[i];
        SaveStatus status = SaveStatus::Complete;
        const FileEncoder& file = encoded.get(i, status);
        // Blocks before a failing one are written first, as they would be one at a time.
        ChunkPlan blocks[4];
        for (uint32_t k = 0; k < file.blockCount; ++k) {
            blocks[k] = file.blocks[k];
            blocks[k].dataOffset = dataCursor;
            if (!writeAll(temp, file.out[k], file.outLength[k]))
                return fail(SaveStatus::FileWriteError, tempPath);
            dataCursor += file.outLength[k];
        }
        if (status != SaveStatus::Complete) return fail(status, sourcePathOf(entry));
        uint32_t blockCount = file.blockCount;
        for (uint32_t k = 0; k < file.streamedCount; ++k, ++blockCount) {
            blocks[k] = file.blocks[k];
            blocks[k].dataOffset = dataCursor;
            bool outputFailed = false;
            const SaveStatus streamed
                = streamBlock(sourcePathOf(entry), blocks[k].sourceOffset, blocks[k].unpackedSize,
                              codec, zlibLevel, temp, blocks[k].packedSize, outputFailed, progress);
            if (streamed != SaveStatus::Complete)
                return fail(streamed, outputFailed ? tempPath : sourcePathOf(entry));
            dataCursor += blocks[k].packedSize ? blocks[k].packedSize : blocks[k].unpackedSize;
        }
        const TextureLayout layout = file.layout;
        encoded.release(i);
        // Start writing the data out while later files are compressed, so that little is left
        // for the final sync. A hint only: the sync at the end reports any failure.
        if (dataCursor - syncedTo >= kEarlyWriteStep && temp.flush()) {
            ::sync_file_range(temp.handle(), off_t(syncedTo), off_t(dataCursor - syncedTo),
                              SYNC_FILE_RANGE_WRITE);
            syncedTo = dataCursor;
        }

        const int recordStart = records.size();
        if (isTexture) {
            entry.chunkTablePosition = headerSize + uint64_t(recordStart) + ba2::kTextureRecordSize;
            entry.chunkCount = uint8_t(blockCount);
            records.resize(recordStart + int((blockCount + 1) * ba2::kChunkRecordSize));
            auto* p = reinterpret_cast<unsigned char*>(records.data() + recordStart);
            ba2::TextureFileRecord r;
            r.nameHash = entry.nameHash;
            r.extension = entry.extension;
            r.directoryHash = entry.directoryHash;
            r.chunkCount = uint8_t(blockCount);
            r.height = uint16_t(layout.height);
            r.width = uint16_t(layout.width);
            r.mipCount = uint8_t(layout.mipCount);
            r.format = layout.format;
            r.textureFlags = layout.textureFlags;
            ba2::encodeTextureRecord(r, p);
            for (uint32_t k = 0; k < blockCount; ++k) {
                ba2::ChunkRecord c;
                c.dataOffset = blocks[k].dataOffset;
                c.packedSize = blocks[k].packedSize;
                c.unpackedSize = blocks[k].unpackedSize;
                c.firstMip = blocks[k].firstMip;
                c.lastMip = blocks[k].lastMip;
                ba2::encodeChunkRecord(c, p + ba2::kTextureRecordSize * (k + 1));
            }
        } else {
            records.resize(recordStart + int(ba2::kGeneralRecordSize));
            ba2::GeneralFileRecord r;
            r.nameHash = entry.nameHash;
            r.extension = entry.extension;
            r.directoryHash = entry.directoryHash;
            r.dataOffset = blocks[0].dataOffset;
            r.packedSize = blocks[0].packedSize;
            r.unpackedSize = blocks[0].unpackedSize;
            ba2::encodeGeneralRecord(
                r, reinterpret_cast<unsigned char*>(records.data() + recordStart));
        }
    }

    if (uint64_t(records.size()) != recordBytes) return fail(SaveStatus::FileReadError, QString());
    if (!temp.seek(headerSize) || !writeAll(temp, records.constData(), records.size()))
        return fail(SaveStatus::FileWriteError, tempPath);
    records = QByteArray();

    // Name table: 16-bit length and the relative path of every entry, in record order.
    const uint64_t nameTableOffset = dataCursor;
    if (!temp.seek(qint64(nameTableOffset))) return fail(SaveStatus::FileWriteError, tempPath);
    QByteArray names;
    for (const SourceEntry& entry : sources) {
        const QByteArray relative = entry.relativePathBytes();
        if (uint32_t(relative.size()) > kMaxNameLength)
            return fail(SaveStatus::TooLarge, sourcePathOf(entry));
        unsigned char length[2];
        ba2::writeLE16(length, uint16_t(relative.size()));
        names.append(reinterpret_cast<const char*>(length), 2);
        names.append(relative);
        if (names.size() >= kNameFlushSize) {
            if (!writeAll(temp, names.constData(), names.size()))
                return fail(SaveStatus::FileWriteError, tempPath);
            names.clear();
        }
    }
    if (!writeAll(temp, names.constData(), names.size()))
        return fail(SaveStatus::FileWriteError, tempPath);

    unsigned char offsetBytes[8];
    ba2::writeLE64(offsetBytes, nameTableOffset);
    if (!temp.seek(16) || !writeAll(temp, reinterpret_cast<const char*>(offsetBytes), 8))
        return fail(SaveStatus::FileWriteError, tempPath);

    // The rename below must never expose a half-written file.
    if (!temp.flush() || ::fsync(temp.handle()) != 0)
        return fail(SaveStatus::FileWriteError, tempPath);
    temp.close();
    if (temp.error() != QFileDevice::NoError) return fail(SaveStatus::FileWriteError, tempPath);
    if (::rename(QFile::encodeName(tempPath).constData(), QFile::encodeName(targetPath).constData())
        != 0)
        return fail(SaveStatus::FileWriteError, targetPath);
    keepTemp = true;

    progress.setMaximum(100);
    progress.setValue(100);
    result.status = SaveStatus::Complete;
    return result;
}

// Handing a file to another thread costs about what compressing a few kilobytes does. The sizes
// of up to 64 files spread over the list decide; the archive is the same either way.
int creationJobs(const SourceList& sources, int jobs)
{
    const size_t count = sources.size();
    const size_t samples = std::min<size_t>(count, 64);
    if (jobs <= 1 || samples == 0) return 1;
    uint64_t bytes = 0;
    for (size_t s = 0; s < samples; ++s) {
        struct stat info;
        if (::stat(QFile::encodeName(sourcePathOf(sources[s * count / samples])).constData(), &info)
            == 0)
            bytes += uint64_t(info.st_size);
    }
    return bytes / samples < 16 * 1024 ? 1 : jobs;
}

#include "creation/converter.h"

#include "archive/format.h"
#include "archive/status.h"
#include "creation/blockcodec.h"
#include "creation/workbuffer.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

namespace {

// Blocks a worker may have finished ahead of the writer; each holds at most three buffers.
constexpr size_t kBlocksPerWorker = 2;
// Pieces of a byte copy, between two looks at the cancel flag.
constexpr uint64_t kCopyStep = 64u << 20;

using Buffer = WorkBuffer;

bool readAt(int fd, char* out, uint64_t length, uint64_t offset)
{
    uint64_t done = 0;
    while (done < length) {
        const ssize_t n
            = ::pread(fd, out + done, size_t(std::min<uint64_t>(length - done, 1u << 30)),
                      off_t(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += uint64_t(n);
    }
    return true;
}

bool writeAt(int fd, const char* bytes, uint64_t length, uint64_t offset)
{
    uint64_t done = 0;
    while (done < length) {
        const ssize_t n
            = ::pwrite(fd, bytes + done, size_t(std::min<uint64_t>(length - done, 1u << 30)),
                       off_t(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += uint64_t(n);
    }
    return true;
}

// Copies length bytes between two files at the given offsets, in the kernel where it can.
// Returns Complete, FileReadError (the input ended early) or FileWriteError.
SaveStatus copyRange(int in, uint64_t from, int out, uint64_t to, uint64_t length, Buffer& scratch)
{
    // The kernel copies page-aligned runs fastest; shifted ones go faster through a buffer.
    bool kernel = from % 4096 == to % 4096;
    while (length > 0) {
        const uint64_t step = std::min<uint64_t>(length, kCopyStep);
        if (kernel) {
            loff_t src = loff_t(from), dst = loff_t(to);
            const ssize_t n = ::copy_file_range(in, &src, out, &dst, size_t(step), 0);
            if (n > 0) {
                from += uint64_t(n), to += uint64_t(n), length -= uint64_t(n);
                continue;
            }
            if (n == 0) return SaveStatus::FileReadError;
            if (errno == EINTR) continue;
            // Not offered between these files: the same through memory. Anything else is the
            // output's failure (no space, a size limit) or a read error found again below.
            if (errno != EXDEV && errno != ENOSYS && errno != EOPNOTSUPP && errno != EINVAL
                && errno != EIO)
                return SaveStatus::FileWriteError;
            kernel = false;
        }
        const uint64_t piece = std::min<uint64_t>(step, 8u << 20);
        if (!scratch.reserve(piece)) return SaveStatus::OutOfMemory;
        if (!readAt(in, scratch.data(), piece, from)) return SaveStatus::FileReadError;
        if (!writeAt(out, scratch.data(), piece, to)) return SaveStatus::FileWriteError;
        from += piece, to += piece, length -= piece;
    }
    return SaveStatus::Complete;
}

// One stored block of the input, where it goes, and whether its bytes change.
struct Block
{
    uint64_t offset;     // in the input
    uint32_t packedSize; // 0: stored
    uint32_t unpackedSize;
    uint32_t file;    // record index
    uint32_t patchAt; // within the record table: its dataOffset, packedSize follows
    bool transcode;
    uint64_t stored() const { return packedSize ? packedSize : unpackedSize; }
};

struct Transcoding
{
    bool lz4In;       // the input's compressed blocks are LZ4 blocks
    BlockCodec codec; // how transcoded blocks are stored
    int zlibLevel;
    ZlibEngine engine;
};

// A transcoded block: the bytes to store (pointing into a buffer of the slot or of the input).
struct Recoded
{
    SaveStatus status = SaveStatus::Complete;
    bool reading = false;
    const char* bytes = nullptr;
    uint32_t length = 0;
    uint32_t packedSize = 0;
};

class Recoder
{
public:
    Recoder(int fd, const Transcoding& t)
        : fd(fd)
        , t(t)
    { }

    Recoded run(const Block& b, ZlibCompressor& zlib)
    {
        Recoded r;
        const auto fail = [&r](SaveStatus status, bool reading) {
            r.status = status;
            r.reading = reading;
            return r;
        };
        if (!in.reserve(b.stored())) return fail(SaveStatus::OutOfMemory, false);
        if (!readAt(fd, in.data(), b.stored(), b.offset))
            return fail(SaveStatus::FileReadError, true);
        const char* data = in.data();
        if (b.packedSize) {
            const SaveStatus bad = t.lz4In ? SaveStatus::Lz4Error : SaveStatus::ZlibError;
            if (!plausibleExpansion(t.lz4In, b.packedSize, b.unpackedSize)) return fail(bad, true);
            if (!raw.reserve(b.unpackedSize)) return fail(SaveStatus::OutOfMemory, false);
            const bool ok = t.lz4In
                ? decompressLz4(in.data(), b.packedSize, raw.data(), b.unpackedSize, b.unpackedSize)
                : decompressZlib(in.data(), b.packedSize, raw.data(), b.unpackedSize);
            if (!ok) return fail(bad, true);
            data = raw.data();
        }
        r.bytes = data;
        r.length = b.unpackedSize;
        if (t.codec == BlockCodec::Store) return r;
        if (b.unpackedSize > blockInputLimit(t.codec)) return fail(SaveStatus::TooLarge, false);
        const uint64_t room = blockPackRoom(t.codec, b.unpackedSize);
        if (!out.reserve(room)) return fail(SaveStatus::OutOfMemory, false);
        const int64_t n = encodeBlock(t.codec, zlib, data, b.unpackedSize, out.data(), room);
        if (n < 0)
            return fail(t.codec == BlockCodec::Zlib ? SaveStatus::ZlibError : SaveStatus::Lz4Error,
                        false);
        if (n > 0) {
            r.bytes = out.data();
            r.length = uint32_t(n);
            r.packedSize = uint32_t(n);
        }
        return r;
    }

private:
    int fd;
    Transcoding t;
    Buffer in, raw, out;
};

// A stored or zlib block above this size is never held whole when it is re-encoded into
// a stored or zlib block: it is read, inflated, deflated and written window by window on the
// calling thread, by zlib's own deflate whatever the engine (as creation makes the stream of
// a source this large).
constexpr uint64_t kStreamAbove = 64u << 20;
constexpr uint32_t kStreamWindow = 4u << 20;

bool streams(const Block& b, const Transcoding& t)
{
    return b.unpackedSize > kStreamAbove && (b.packedSize == 0 || !t.lz4In)
        && (t.codec == BlockCodec::Store || t.codec == BlockCodec::Zlib);
}

// Re-encodes a block that streams() takes, writing it at cursor of out. A zlib input that
// yields more or less than its record says, or ends before its stream does, fails as the
// extractor would; nothing is kept of it.
Recoded streamRecode(int in, const Block& b, const Transcoding& t, int out, uint64_t cursor)
{
    Recoded r;
    const auto fail = [&r](SaveStatus status, bool reading) {
        r.status = status;
        r.reading = reading;
        return r;
    };
    Buffer packed, plain, deflated;
    if (!packed.reserve(kStreamWindow) || !plain.reserve(kStreamWindow)
        || !deflated.reserve(kStreamWindow))
        return fail(SaveStatus::OutOfMemory, false);
    z_stream inflater {}, deflater {};
    const bool inflating = b.packedSize != 0, deflating = t.codec == BlockCodec::Zlib;
    if (inflating && inflateInit(&inflater) != Z_OK) return fail(SaveStatus::ZlibError, true);
    if (deflating && deflateInit(&deflater, t.zlibLevel) != Z_OK) {
        if (inflating) inflateEnd(&inflater);
        return fail(SaveStatus::ZlibError, false);
    }
    struct End
    {
        z_stream *in, *out;
        ~End()
        {
            if (in) inflateEnd(in);
            if (out) deflateEnd(out);
        }
    } end {inflating ? &inflater : nullptr, deflating ? &deflater : nullptr};

    uint64_t read = 0, produced = 0, written = 0;
    bool ended = !inflating;
    while (produced < b.unpackedSize) {
        // The next window of the block's own bytes.
        uint32_t have = 0;
        if (!inflating) {
            have = uint32_t(std::min<uint64_t>(kStreamWindow, b.unpackedSize - produced));
            if (!readAt(in, plain.data(), have, b.offset + produced))
                return fail(SaveStatus::FileReadError, true);
        } else {
            inflater.next_out = reinterpret_cast<Bytef*>(plain.data());
            inflater.avail_out = kStreamWindow;
            while (inflater.avail_out > 0 && !ended) {
                if (inflater.avail_in == 0) {
                    const uint32_t n
                        = uint32_t(std::min<uint64_t>(kStreamWindow, b.packedSize - read));
                    if (n == 0) return fail(SaveStatus::ZlibError, true); // cut short
                    if (!readAt(in, packed.data(), n, b.offset + read))
                        return fail(SaveStatus::FileReadError, true);
                    read += n;
                    inflater.next_in = reinterpret_cast<Bytef*>(packed.data());
                    inflater.avail_in = n;
                }
                const int z = inflate(&inflater, Z_NO_FLUSH);
                if (z == Z_STREAM_END)
                    ended = true;
                else if (z != Z_OK)
                    return fail(SaveStatus::ZlibError, true);
            }
            have = kStreamWindow - inflater.avail_out;
            if (have > b.unpackedSize - produced || (have == 0 && ended))
                return fail(SaveStatus::ZlibError, true);
        }
        produced += have;
        if (!deflating) {
            if (!writeAt(out, plain.data(), have, cursor + written))
                return fail(SaveStatus::FileWriteError, false);
            written += have;
            continue;
        }
        deflater.next_in = reinterpret_cast<Bytef*>(plain.data());
        deflater.avail_in = have;
        const int flush = produced == b.unpackedSize ? Z_FINISH : Z_NO_FLUSH;
        int z;
        do {
            deflater.next_out = reinterpret_cast<Bytef*>(deflated.data());
            deflater.avail_out = kStreamWindow;
            z = deflate(&deflater, flush);
            if (z == Z_STREAM_ERROR) return fail(SaveStatus::ZlibError, false);
            const uint32_t n = kStreamWindow - deflater.avail_out;
            if (written + n > UINT32_MAX) return fail(SaveStatus::TooLarge, false);
            if (!writeAt(out, deflated.data(), n, cursor + written))
                return fail(SaveStatus::FileWriteError, false);
            written += n;
        } while (deflater.avail_out == 0);
        if (flush == Z_FINISH && z != Z_STREAM_END) return fail(SaveStatus::ZlibError, false);
    }
    // The stream must end exactly where the record says the bytes do.
    if (inflating && !ended) {
        char extra;
        inflater.next_out = reinterpret_cast<Bytef*>(&extra);
        inflater.avail_out = 1;
        if (inflater.avail_in == 0 && read < b.packedSize) {
            const uint32_t n = uint32_t(std::min<uint64_t>(kStreamWindow, b.packedSize - read));
            if (!readAt(in, packed.data(), n, b.offset + read))
                return fail(SaveStatus::FileReadError, true);
            read += n;
            inflater.next_in = reinterpret_cast<Bytef*>(packed.data());
            inflater.avail_in = n;
        }
        if (inflate(&inflater, Z_NO_FLUSH) != Z_STREAM_END || inflater.avail_out == 0)
            return fail(SaveStatus::ZlibError, true);
    }
    r.length = uint32_t(written);
    r.packedSize = deflating ? uint32_t(written) : 0;
    return r;
}

// Transcodes the blocks listed in work strictly in order for the caller. With workers, they run
// a bounded window ahead; the result is the same as with none.
class RecodedBlocks
{
public:
    RecodedBlocks(int fd, const std::vector<Block>& blocks, const std::vector<size_t>& work,
                  const Transcoding& t, int jobs)
        : blocks(blocks)
        , work(work)
        , t(t)
        , zlib(t.zlibLevel, t.engine)
    {
        const size_t workers = jobs > 1 ? size_t(std::min(jobs, 64)) : 0;
        const size_t slotCount = std::max<size_t>(workers * kBlocksPerWorker, 1);
        for (size_t i = 0; i < slotCount; ++i)
            window.emplace_back(new Slot(fd, t));
        std::lock_guard<std::mutex> lock(mutex);
        for (size_t w = 0; w < workers && work.size() > 1; ++w) {
            try {
                threads.emplace_back([this] { loop(); });
            } catch (const std::system_error&) {
                break; // fewer threads, or none: the caller then works alone
            }
        }
    }

    ~RecodedBlocks()
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            stopping = true;
        }
        wake.notify_all();
        for (std::thread& thread : threads)
            thread.join();
    }

    // The n-th transcoded block; valid until release(n).
    const Recoded& get(size_t n)
    {
        Slot& slot = *window[n % window.size()];
        if (threads.empty()) {
            slot.result = slot.recoder.run(blocks[work[n]], zlib);
            return slot.result;
        }
        std::unique_lock<std::mutex> lock(mutex);
        done.wait(lock, [&] { return slot.ready == n; });
        return slot.result;
    }

    void release(size_t n)
    {
        if (threads.empty()) return;
        {
            std::lock_guard<std::mutex> lock(mutex);
            released = n + 1;
        }
        wake.notify_all();
    }

private:
    struct Slot
    {
        Slot(int fd, const Transcoding& t)
            : recoder(fd, t)
        { }
        Recoder recoder;
        Recoded result;
        size_t ready = SIZE_MAX;
    };

    void loop()
    {
        ZlibCompressor own(t.zlibLevel, t.engine);
        std::unique_lock<std::mutex> lock(mutex);
        while (true) {
            wake.wait(lock, [&] {
                return stopping || next >= work.size() || next < released + window.size();
            });
            if (stopping || next >= work.size()) return;
            const size_t n = next++;
            Slot& slot = *window[n % window.size()];
            lock.unlock();
            Recoded result = slot.recoder.run(blocks[work[n]], own);
            lock.lock();
            slot.result = result;
            slot.ready = n;
            done.notify_all();
        }
    }

    const std::vector<Block>& blocks;
    const std::vector<size_t>& work;
    const Transcoding t;
    ZlibCompressor zlib; // the caller's, when it works alone
    std::vector<std::unique_ptr<Slot>> window;
    std::vector<std::thread> threads;
    std::mutex mutex;
    std::condition_variable wake, done;
    size_t next = 0, released = 0;
    bool stopping = false;
};

// The output file beside the target, removed unless it was renamed onto the target.
class TempOutput
{
public:
    explicit TempOutput(const QString& target)
        : path(QFile::encodeName(target + QStringLiteral(".Zarneler")))
    { }
    ~TempOutput()
    {
        if (fd >= 0) ::close(fd);
        if (!renamed) ::unlink(path.constData());
    }
    bool open()
    {
        // Removing (rather than truncating) a leftover also drops a link planted under its name.
        ::unlink(path.constData());
        fd = ::open(path.constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        return fd >= 0;
    }
    bool finish(const QString& target)
    {
        if (::fsync(fd) != 0 || ::close(fd) != 0) {
            fd = -1;
            return false;
        }
        fd = -1;
        renamed = ::rename(path.constData(), QFile::encodeName(target).constData()) == 0;
        return renamed;
    }
    QString name() const { return QFile::decodeName(path); }

    int fd = -1;

private:
    QByteArray path;
    bool renamed = false;
};

} // namespace

ConvertResult convertArchive(const ArchiveReader& reader, const QString& targetPath,
                             const ConvertSettings& settings, Progress& progress)
{
    ConvertResult result;
    const auto fail = [&result](SaveStatus status, bool reading, const QString& name) {
        result.status = status;
        result.reading = reading;
        result.failedName = name;
        return result;
    };
    // A BSA's blocks carry size prefixes and LZ4 frames that no BA2 block has: refused, never
    // copied into an archive that would not decode.
    if (reader.isBsa) return fail(SaveStatus::FileReadError, true, QString());
    const int in = reader.file.handle();
    const uint64_t inSize = uint64_t(reader.fileSize);
    const uint32_t count = reader.fileCount;
    progress.setMinimum(0);
    progress.setMaximum(int(std::min<uint32_t>(count, INT32_MAX)));
    progress.setValue(0);

    const uint32_t version = settings.version ? uint32_t(settings.version) : reader.version;
    const bool lz4In = reader.version == 3 && reader.compressionCode == ba2::kCompressionLz4;
    const bool lz4Out = version == 3;
    const int level = lz4Out ? settings.lz4Mode : settings.zlibLevel;
    const bool keepBlocks = level < 0;
    Transcoding t;
    t.lz4In = lz4In;
    t.codec = blockCodecFor(lz4Out ? 3 : 1, keepBlocks ? 1 : level, keepBlocks ? 1 : level);
    t.zlibLevel = lz4Out || keepBlocks ? 1 : level;
    t.engine = settings.engine;

    // Every block, in record order, with where its offset lies in the record table.
    const uint32_t inHeader = ba2::headerSizeFor(reader.version);
    uint64_t recordBytes = 0;
    std::vector<Block> blocks;
    std::vector<size_t> work;
    for (uint32_t i = 0; i < count; ++i) {
        const FileRecord& r = reader.record(i);
        const auto add = [&](uint64_t offset, uint32_t packed, uint32_t unpacked, uint64_t at) {
            Block b {offset, packed, unpacked, i, uint32_t(at), false};
            b.transcode = packed ? !keepBlocks || lz4In != lz4Out : level > 0;
            if (b.offset > inSize || b.stored() > inSize - b.offset) return false;
            if (b.transcode && !streams(b, t)) work.push_back(blocks.size());
            blocks.push_back(b);
            return true;
        };
        bool inside = true;
        if (reader.isTexture) {
            for (uint32_t k = 0; k < r.chunkCount; ++k) {
                const ChunkInfo& c = reader.chunks(r)[k];
                inside = inside
                    && add(c.dataOffset, c.packedSize, c.unpackedSize,
                           recordBytes + ba2::kChunkRecordSize * (k + 1));
            }
            recordBytes += ba2::kTextureRecordSize + uint64_t(ba2::kChunkRecordSize) * r.chunkCount;
        } else {
            inside = add(r.dataOffset, r.packedSize, r.unpackedSize, recordBytes + 16);
            recordBytes += ba2::kGeneralRecordSize;
        }
        if (!inside) return fail(SaveStatus::FileReadError, true, reader.nameOf(i));
    }
    // The reader stops names at the end of the file; their table is taken as stored.
    uint64_t nameBytes = 0;
    for (uint32_t i = 0; i < count; ++i)
        nameBytes += 2u + reader.record(i).nameEntryLength;
    if (inHeader + recordBytes > inSize || reader.nameTableOffset > inSize
        || nameBytes > inSize - reader.nameTableOffset)
        return fail(SaveStatus::FileReadError, true, reader.file.fileName());

    TempOutput out(targetPath);
    if (!out.open()) return fail(SaveStatus::FileOpenError, false, out.name());
    Buffer scratch;

    unsigned char header[36] = {};
    ba2::ArchiveHeader h;
    h.version = version;
    h.archiveType = reader.archiveType;
    h.fileCount = count;
    h.headerExtra = reader.version == 2 || reader.version == 3 ? reader.headerExtra : 1;
    h.compressionCode = ba2::kCompressionLz4;
    const uint32_t outHeader = ba2::headerSizeFor(version);

    if (inHeader == outHeader && lz4In == lz4Out && keepBlocks) {
        // Nothing but the version changes: the archive is copied as it stands.
        for (uint64_t done = 0; done < inSize;) {
            progress.setValue(int(double(count) * double(done) / double(inSize)));
            if (progress.wasCanceled()) return fail(SaveStatus::Aborted, false, QString());
            const uint64_t step = std::min<uint64_t>(inSize - done, kCopyStep);
            const SaveStatus status = copyRange(in, done, out.fd, done, step, scratch);
            if (status != SaveStatus::Complete)
                return fail(status, status == SaveStatus::FileReadError,
                            status == SaveStatus::FileReadError ? reader.file.fileName()
                                                                : out.name());
            done += step;
        }
        ba2::writeLE32(header, version);
        if (!writeAt(out.fd, reinterpret_cast<const char*>(header), 4, 4))
            return fail(SaveStatus::FileWriteError, false, out.name());
    } else {
        QByteArray records(int(std::min<uint64_t>(recordBytes, INT32_MAX)), '\0');
        if (uint64_t(records.size()) != recordBytes || recordBytes > (1u << 30))
            return fail(SaveStatus::TooLarge, false, targetPath);
        if (!readAt(in, records.data(), recordBytes, inHeader))
            return fail(SaveStatus::FileReadError, true, reader.file.fileName());
        auto* patch = reinterpret_cast<unsigned char*>(records.data());

        RecodedBlocks recoded(in, blocks, work, t, settings.jobs);
        uint64_t cursor = outHeader + recordBytes;
        size_t nextWork = 0;
        uint32_t shownFile = UINT32_MAX;
        // Copied blocks that lie one after another go in one piece.
        uint64_t runFrom = 0, runLength = 0;
        uint32_t runFile = 0;
        const auto flush = [&]() {
            const SaveStatus status
                = copyRange(in, runFrom, out.fd, cursor - runLength, runLength, scratch);
            runLength = 0;
            return status;
        };
        for (const Block& b : blocks) {
            if (b.file != shownFile) {
                shownFile = b.file;
                progress.setValue(int(b.file));
            }
            if (progress.wasCanceled()) return fail(SaveStatus::Aborted, false, QString());
            uint32_t packed = b.packedSize;
            uint64_t length = b.stored();
            const bool joins = !b.transcode && runLength > 0 && runFrom + runLength == b.offset
                && runLength < kCopyStep;
            if (runLength > 0 && !joins) {
                const SaveStatus status = flush();
                if (status != SaveStatus::Complete)
                    return fail(status, status == SaveStatus::FileReadError,
                                status == SaveStatus::FileReadError ? reader.nameOf(runFile)
                                                                    : out.name());
            }
            if (b.transcode && streams(b, t)) {
                const Recoded r = streamRecode(in, b, t, out.fd, cursor);
                if (r.status != SaveStatus::Complete)
                    return fail(r.status, r.reading,
                                r.status == SaveStatus::FileWriteError ? out.name()
                                                                       : reader.nameOf(b.file));
                packed = r.packedSize;
                length = r.length;
            } else if (b.transcode) {
                const Recoded& r = recoded.get(nextWork);
                if (r.status != SaveStatus::Complete)
                    return fail(r.status, r.reading, reader.nameOf(b.file));
                if (!writeAt(out.fd, r.bytes, r.length, cursor))
                    return fail(SaveStatus::FileWriteError, false, out.name());
                packed = r.packedSize;
                length = r.length;
                recoded.release(nextWork++);
            } else if (joins) {
                runLength += length;
            } else {
                runFrom = b.offset, runLength = length, runFile = b.file;
            }
            ba2::writeLE64(patch + b.patchAt, cursor);
            ba2::writeLE32(patch + b.patchAt + 8, packed);
            cursor += length;
        }
        const SaveStatus copied = flush();
        if (copied != SaveStatus::Complete)
            return fail(copied, copied == SaveStatus::FileReadError,
                        copied == SaveStatus::FileReadError ? reader.nameOf(runFile) : out.name());
        progress.setValue(int(std::min<uint32_t>(count, INT32_MAX)));
        if (!writeAt(out.fd, records.constData(), recordBytes, outHeader))
            return fail(SaveStatus::FileWriteError, false, out.name());
        const SaveStatus status
            = copyRange(in, reader.nameTableOffset, out.fd, cursor, nameBytes, scratch);
        if (status != SaveStatus::Complete)
            return fail(status, status == SaveStatus::FileReadError, out.name());
        h.nameTableOffset = cursor;
        ba2::encodeHeader(h, header);
        if (!writeAt(out.fd, reinterpret_cast<const char*>(header), outHeader, 0))
            return fail(SaveStatus::FileWriteError, false, out.name());
    }
    if (!out.finish(targetPath)) return fail(SaveStatus::FileWriteError, false, targetPath);
    result.status = SaveStatus::Complete;
    return result;
}

#include "creation/writer.h"

#include "archive/format.h"
#include "archive/status.h"
#include "creation/codecs.h"
#include "creation/texturelayout.h"

#include <QFile>

#include <cstdio>
#include <memory>
#include <new>
#include <unistd.h>
#include <vector>

namespace {

enum class Codec { Store, Zlib, Lz4, Lz4Large };

// unpackedSize is a 32-bit field; the codecs take int lengths, and LZ4 refuses more than
// 0x7E000000 bytes. The same bound keeps qCompress's output array below Qt's size limit.
constexpr uint64_t kMaxStoredSize = 0xFFFFFFFFull;
constexpr uint64_t kMaxCodecInput = 0x7E000000ull;
constexpr uint32_t kMaxNameLength = 0xFFFF;
constexpr int kNameFlushSize = 1 << 20;

Codec codecFor(int version, int zlibLevel, int lz4Mode)
{
    if (version == 3) {
        if (lz4Mode == 1) return Codec::Lz4;
        if (lz4Mode == 2) return Codec::Lz4Large;
        return Codec::Store;
    }
    if ((version == 1 || version == 2) && zlibLevel >= 1 && zlibLevel <= 9) return Codec::Zlib;
    return Codec::Store;
}

// A work buffer that grows to the largest size asked of it; allocation failure is a result,
// not an exception.
class Buffer {
public:
    bool reserve(uint64_t size)
    {
        if (size <= capacity) return true;
        bytes.reset();
        capacity = 0;
        bytes.reset(new (std::nothrow) char[size]);
        if (!bytes) return false;
        capacity = size;
        return true;
    }
    char* data() { return bytes.get(); }

private:
    std::unique_ptr<char[]> bytes;
    uint64_t capacity = 0;
};

QString sourcePathOf(const SourceEntry& e)
{
    return e.sourceFile.isEmpty() ? QString::fromLocal8Bit(e.path) : e.sourceFile;
}

// Opens a source and checks its size against what the archive can hold.
int openSource(QFile& file, Codec codec, uint64_t& size)
{
    if (!file.open(QIODevice::ReadOnly)) return ArchiveStatus::FileOpenError;
    const qint64 s = file.size();
    const uint64_t limit = codec == Codec::Store ? kMaxStoredSize : kMaxCodecInput;
    if (s < 0 || uint64_t(s) > limit) return ArchiveStatus::TooLarge;
    size = uint64_t(s);
    return ArchiveStatus::Complete;
}

int readWhole(QFile& file, uint64_t size, Buffer& buffer)
{
    if (!buffer.reserve(size)) return ArchiveStatus::TooLarge;
    uint64_t got = 0;
    while (got < size) {
        const qint64 n = file.read(buffer.data() + got, qint64(size - got));
        if (n <= 0) break;
        got += uint64_t(n);
    }
    return got == size ? ArchiveStatus::Complete : ArchiveStatus::FileReadError;
}

int readSource(const QString& name, Codec codec, Buffer& buffer, uint64_t& size)
{
    QFile file(name);
    const int status = openSource(file, codec, size);
    if (status != ArchiveStatus::Complete) return status;
    return readWhole(file, size, buffer);
}

// The chunk count of a texture, needed before any data is written so that the record table
// can be sized. Mapping the file lets the analysis see the real size while only the header
// pages are touched; where mapping is not possible the file is read.
int analyseTexture(const QString& name, Codec codec, Buffer& scratch, uint8_t& chunkCount)
{
    QFile file(name);
    uint64_t size = 0;
    int status = openSource(file, codec, size);
    if (status != ArchiveStatus::Complete) return status;
    TextureLayout layout;
    uchar* mapped = size > 0 ? file.map(0, qint64(size)) : nullptr;
    if (mapped) {
        status = layoutTexture(reinterpret_cast<const char*>(mapped), size, layout);
        file.unmap(mapped);
    } else {
        status = readWhole(file, size, scratch);
        if (status == ArchiveStatus::Complete) status = layoutTexture(scratch.data(), size, layout);
    }
    if (status == ArchiveStatus::Complete) chunkCount = layout.chunkCount;
    return status;
}

bool writeAll(QFile& file, const char* bytes, qint64 size)
{
    return file.write(bytes, size) == size;
}

}  // namespace

WriteResult writeArchive(SourceList& sources, const QString& targetPath, bool isTexture, int version,
                         int zlibLevel, int lz4Mode, Progress& progress)
{
    WriteResult result;
    if (sources.isEmpty()) {
        result.status = ArchiveStatus::SystemError;
        return result;
    }
    const QString tempPath = targetPath + QStringLiteral(".Zarneler");
    if (sources.size() > size_t(INT32_MAX)) {
        result.status = ArchiveStatus::TooLarge;
        result.failedFile = targetPath;
        return result;
    }
    const uint32_t count = uint32_t(sources.size());
    progress.setMinimum(0);
    progress.setMaximum(int(count));
    progress.setValue(0);

    const Codec codec = codecFor(version, zlibLevel, lz4Mode);
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
        result.status = ArchiveStatus::FileOpenError;
        result.failedFile = tempPath;
        return result;
    }
    bool keepTemp = false;
    struct Cleanup {
        QFile& file;
        const bool& keep;
        ~Cleanup()
        {
            if (keep) return;
            file.close();
            QFile::remove(file.fileName());
        }
    } cleanup{temp, keepTemp};

    auto fail = [&result](int status, const QString& file) {
        result.status = status;
        result.failedFile = file;
        return result;
    };

    Buffer readBuffer, packBuffer;

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
            if (analyseTexture(sourcePathOf(sources[i]), codec, readBuffer, chunkCounts[i])
                != ArchiveStatus::Complete) {
                analysed = i;
                break;
            }
            recordBytes += ba2::kTextureRecordSize + uint64_t(chunkCounts[i]) * ba2::kChunkRecordSize;
        }
    } else {
        recordBytes = uint64_t(count) * ba2::kGeneralRecordSize;
    }
    // The record table is assembled in memory; no real archive comes near this bound.
    if (recordBytes > (1u << 30)) return fail(ArchiveStatus::TooLarge, targetPath);
    const uint64_t base = headerSize + recordBytes;

    if (!writeAll(temp, reinterpret_cast<const char*>(headerBytes), headerSize) || !temp.seek(qint64(base)))
        return fail(ArchiveStatus::FileWriteError, tempPath);

    QByteArray records;
    records.reserve(int(qMin<uint64_t>(recordBytes, 64u << 20)));
    uint64_t dataCursor = base;

    for (uint32_t i = 0; i < count; ++i) {
        progress.setValue(int(i));
        if (progress.wasCanceled()) return fail(ArchiveStatus::Aborted, QString());

        SourceEntry& entry = sources[i];
        const QString file = sourcePathOf(entry);
        uint64_t size = 0;
        int status = readSource(file, codec, readBuffer, size);
        if (status != ArchiveStatus::Complete) return fail(status, file);

        ChunkPlan blocks[4];
        uint32_t blockCount = 1;
        TextureLayout layout;
        if (isTexture) {
            status = layoutTexture(readBuffer.data(), size, layout);
            if (status != ArchiveStatus::Complete) return fail(status, file);
            // A different answer than in the first pass means the file changed meanwhile.
            if (i >= analysed || layout.chunkCount != chunkCounts[i] || layout.chunkCount > 4)
                return fail(ArchiveStatus::FileReadError, file);
            blockCount = layout.chunkCount;
            for (uint32_t k = 0; k < blockCount; ++k) {
                blocks[k] = layout.chunks[k];
                if (uint64_t(blocks[k].sourceOffset) + blocks[k].unpackedSize > size)
                    return fail(ArchiveStatus::DdsOrVer3General, file);
            }
        } else {
            blocks[0].unpackedSize = uint32_t(size);
        }

        for (uint32_t k = 0; k < blockCount; ++k) {
            ChunkPlan& block = blocks[k];
            const char* source = readBuffer.data() + block.sourceOffset;
            block.dataOffset = dataCursor;
            block.packedSize = 0;
            const char* out = source;
            uint32_t outLength = block.unpackedSize;
            QByteArray zlibOut;  // must outlive the write below
            switch (codec) {
            case Codec::Store: break;
            case Codec::Zlib:
                zlibOut = compressZlib(source, block.unpackedSize, zlibLevel);
                if (zlibOut.size() < 4) return fail(ArchiveStatus::ZlibError, file);
                block.packedSize = uint32_t(zlibOut.size() - 4);
                if (block.packedSize) {
                    out = zlibOut.constData() + 4;
                    outLength = block.packedSize;
                }
                break;
            case Codec::Lz4:
            case Codec::Lz4Large: {
                const uint64_t capacity = lz4Bound(block.unpackedSize);
                if (!packBuffer.reserve(capacity)) return fail(ArchiveStatus::TooLarge, file);
                const int n = codec == Codec::Lz4
                                  ? compressLz4(source, int(block.unpackedSize), packBuffer.data(), int(capacity))
                                  : compressLz4Large(source, int(block.unpackedSize), packBuffer.data(),
                                                     int(capacity));
                if (n <= 0) return fail(ArchiveStatus::Lz4Error, file);
                block.packedSize = uint32_t(n);
                out = packBuffer.data();
                outLength = block.packedSize;
                break;
            }
            }
            block.packedBytes = block.packedSize ? out : nullptr;
            if (!writeAll(temp, out, outLength)) return fail(ArchiveStatus::FileWriteError, tempPath);
            dataCursor += outLength;
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
            ba2::encodeGeneralRecord(r, reinterpret_cast<unsigned char*>(records.data() + recordStart));
        }
    }

    if (uint64_t(records.size()) != recordBytes) return fail(ArchiveStatus::FileReadError, QString());
    if (!temp.seek(headerSize) || !writeAll(temp, records.constData(), records.size()))
        return fail(ArchiveStatus::FileWriteError, tempPath);
    records = QByteArray();

    // Name table: 16-bit length and the relative path of every entry, in record order.
    const uint64_t nameTableOffset = dataCursor;
    if (!temp.seek(qint64(nameTableOffset))) return fail(ArchiveStatus::FileWriteError, tempPath);
    QByteArray names;
    for (const SourceEntry& entry : sources) {
        const QByteArray relative = entry.relativePathBytes();
        if (uint32_t(relative.size()) > kMaxNameLength) return fail(ArchiveStatus::TooLarge, sourcePathOf(entry));
        unsigned char length[2];
        ba2::writeLE16(length, uint16_t(relative.size()));
        names.append(reinterpret_cast<const char*>(length), 2);
        names.append(relative);
        if (names.size() >= kNameFlushSize) {
            if (!writeAll(temp, names.constData(), names.size()))
                return fail(ArchiveStatus::FileWriteError, tempPath);
            names.clear();
        }
    }
    if (!writeAll(temp, names.constData(), names.size())) return fail(ArchiveStatus::FileWriteError, tempPath);

    unsigned char offsetBytes[8];
    ba2::writeLE64(offsetBytes, nameTableOffset);
    if (!temp.seek(16) || !writeAll(temp, reinterpret_cast<const char*>(offsetBytes), 8))
        return fail(ArchiveStatus::FileWriteError, tempPath);

    // The rename below must never expose a half-written file.
    if (!temp.flush() || ::fsync(temp.handle()) != 0) return fail(ArchiveStatus::FileWriteError, tempPath);
    temp.close();
    if (temp.error() != QFileDevice::NoError) return fail(ArchiveStatus::FileWriteError, tempPath);
    if (::rename(QFile::encodeName(tempPath).constData(), QFile::encodeName(targetPath).constData()) != 0)
        return fail(ArchiveStatus::FileWriteError, targetPath);
    keepTemp = true;

    progress.setMaximum(100);
    progress.setValue(100);
    result.status = ArchiveStatus::Complete;
    return result;
}

#include "archive/extractor.h"

#include "archive/ddsheader.h"
#include "archive/status.h"
#include "creation/codecs.h"

#include <QDir>
#include <QFileInfo>

#include <cstring>
#include <new>
#include <vector>

namespace {

// Largest output a stream of n bytes can honestly decode to: deflate cannot expand by more
// than 1032:1 and an LZ4 block by more than 255:1, so anything beyond is a lie of the record
// and is refused before memory is reserved for it.
uint64_t zlibExpansionLimit(uint64_t packed) { return packed * 1032 + 1024; }
uint64_t lz4ExpansionLimit(uint64_t packed) { return packed * 255 + 16; }

struct Piece {
    uint64_t dataOffset;
    uint32_t packedSize;
    uint32_t unpackedSize;
};

// Work buffers that follow the largest piece actually handled.
class PieceDecoder {
public:
    explicit PieceDecoder(ArchiveReader& reader) : reader(reader) {}

    // Reads and decodes one piece; on success data/size describe the decoded bytes.
    int decode(const Piece& piece, bool generalV3)
    {
        const uint64_t fileSize = uint64_t(reader.fileSize);
        const uint64_t stored = piece.packedSize ? piece.packedSize : piece.unpackedSize;
        if (piece.dataOffset > fileSize || stored > fileSize - piece.dataOffset) return ArchiveStatus::FileReadError;
        size = piece.unpackedSize;
        if (piece.packedSize == 0) {
            if (size == 0) {
                data = nullptr;
                return ArchiveStatus::Complete;
            }
            if (!reserve(packedBuffer, size)) return ArchiveStatus::FileReadError;
            if (!readAt(piece.dataOffset, packedBuffer.data(), size)) return ArchiveStatus::FileReadError;
            data = packedBuffer.data();
            return ArchiveStatus::Complete;
        }
        if (generalV3) return ArchiveStatus::DdsOrVer3General;
        const bool lz4 = reader.version == 3;
        const uint64_t limit = lz4 ? lz4ExpansionLimit(piece.packedSize) : zlibExpansionLimit(piece.packedSize);
        const int failure = lz4 ? ArchiveStatus::Lz4Error : ArchiveStatus::ZlibError;
        if (piece.unpackedSize > limit) return failure;
        if (!reserve(packedBuffer, piece.packedSize) || !reserve(unpackedBuffer, std::max<uint32_t>(size, 1)))
            return ArchiveStatus::FileReadError;
        if (!readAt(piece.dataOffset, packedBuffer.data(), piece.packedSize)) return ArchiveStatus::FileReadError;
        const bool ok = lz4 ? decompressLz4(packedBuffer.data(), piece.packedSize, unpackedBuffer.data(),
                                            uint32_t(unpackedBuffer.size()), size)
                            : decompressZlib(packedBuffer.data(), piece.packedSize, unpackedBuffer.data(), size);
        if (!ok) return failure;
        data = unpackedBuffer.data();
        return ArchiveStatus::Complete;
    }

    const char* data = nullptr;
    uint32_t size = 0;

private:
    static bool reserve(std::vector<char>& buffer, size_t need)
    {
        if (buffer.size() >= need) return true;
        try {
            buffer.clear();
            buffer.shrink_to_fit();
            buffer.resize(need + 4096);
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }

    bool readAt(uint64_t offset, char* out, uint32_t length)
    {
        return reader.file.seek(qint64(offset)) && reader.file.read(out, length) == qint64(length);
    }

    ArchiveReader& reader;
    std::vector<char> packedBuffer;
    std::vector<char> unpackedBuffer;
};

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

// Makes each missing folder of name's directory part under target, one level at a time.
void makeFolders(const QString& target, const QString& directoryPart)
{
    const QStringList parts = directoryPart.split(QLatin1Char('/'), Qt::KeepEmptyParts);
    QString path = target;
    for (int i = 0; i + 1 < parts.size(); ++i) {
        path += parts[i];
        QDir dir(path);
        if (!dir.exists()) QDir().mkdir(path);
        path += QLatin1Char('/');
    }
}

int writeAll(QFile& out, const char* data, uint32_t size)
{
    if (size == 0) return ArchiveStatus::Complete;
    return out.write(data, size) == qint64(size) ? ArchiveStatus::Complete : ArchiveStatus::FileWriteError;
}

}  // namespace

ExtractResult extractArchive(ArchiveReader& reader, const QString& targetFolder, Progress& progress)
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
    PieceDecoder decoder(reader);
    const bool generalV3 = reader.version == 3 && !reader.isTexture;

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
        const QString name = result.failedName;
        QFile out(target + name);
        if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            QString directoryPart, fileName;
            splitPath(name, QStringLiteral("/"), directoryPart, fileName);
            if (directoryPart.isEmpty()) {
                result.status = ArchiveStatus::FileOpenError;
                return result;
            }
            makeFolders(target, directoryPart);
            if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
                result.status = ArchiveStatus::FileOpenError;
                return result;
            }
        }

        int status = ArchiveStatus::Complete;
        if (reader.isTexture) {
            const int headerLength = buildDdsHeader(ddsHeader, record);
            if (headerLength == 0) {
                result.status = ArchiveStatus::UnsupportedFormat;
                return result;
            }
            if (out.write(reinterpret_cast<const char*>(ddsHeader), headerLength) != headerLength) {
                result.status = ArchiveStatus::FileWriteError;
                return result;
            }
            const ChunkInfo* chunks = reader.chunks(record);
            for (uint32_t c = 0; c < record.chunkCount && status == ArchiveStatus::Complete; ++c) {
                status = decoder.decode({chunks[c].dataOffset, chunks[c].packedSize, chunks[c].unpackedSize}, false);
                if (status == ArchiveStatus::Complete) status = writeAll(out, decoder.data, decoder.size);
            }
        } else {
            status = decoder.decode({record.dataOffset, record.packedSize, record.unpackedSize}, generalV3);
            if (status == ArchiveStatus::Complete) status = writeAll(out, decoder.data, decoder.size);
        }
        if (status != ArchiveStatus::Complete) {
            result.status = status;
            return result;
        }
    }
    result.failedName.clear();
    result.status = ArchiveStatus::Complete;
    progress.setMaximum(100);
    progress.setValue(100);
    return result;
}

bool verifyArchive(ArchiveReader& reader, QString& fault)
{
    PieceDecoder decoder(reader);
    const bool generalV3 = reader.version == 3 && !reader.isTexture;
    unsigned char ddsHeader[kDdsHeaderCapacity];
    initDdsHeader(ddsHeader);
    for (uint32_t i = 0; i < reader.fileCount; ++i) {
        const FileRecord& record = reader.records[i];
        const QString name = reader.nameOf(i);
        auto report = [&](const QString& what) {
            fault = QStringLiteral("%1: %2").arg(name, what);
            return false;
        };
        if (!nameIsSafe(record)) return report(extractStatusDetail(ArchiveStatus::UnsafeName));
        if (reader.isTexture) {
            if (buildDdsHeader(ddsHeader, record) == 0)
                return report(QStringLiteral("unsupported texture format %1").arg(record.format));
            const ChunkInfo* chunks = reader.chunks(record);
            for (uint32_t c = 0; c < record.chunkCount; ++c) {
                const int status = decoder.decode({chunks[c].dataOffset, chunks[c].packedSize, chunks[c].unpackedSize}, false);
                if (status != ArchiveStatus::Complete)
                    return report(QStringLiteral("chunk %1: %2").arg(c).arg(extractStatusDetail(status)));
            }
        } else {
            const int status = decoder.decode({record.dataOffset, record.packedSize, record.unpackedSize}, generalV3);
            if (status != ArchiveStatus::Complete) return report(extractStatusDetail(status));
        }
    }
    fault.clear();
    return true;
}

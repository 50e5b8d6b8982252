#include "archive/archivereader.h"

#include <QFileInfo>
#include <QLocale>
#include <QStringList>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include <sys/mman.h>

namespace {

// Sequential access to the record table. The file is mapped when the system allows it, so a
// record costs no system call and no copy; otherwise it is read through one large buffer.
class RecordInput
{
public:
    RecordInput(QFile& file, uint64_t start, uint64_t fileSize)
        : file(file)
        , pos(start)
        , fileSize(fileSize)
    {
        if (ArchiveReader::mapFiles) mapped = file.map(0, qint64(fileSize));
        if (!mapped) {
            buffer.resize(1 << 20);
            file.seek(qint64(start));
        }
    }
    ~RecordInput()
    {
        if (mapped) file.unmap(mapped);
    }

    // Pointer to the next size bytes, or null when the file ends first.
    const unsigned char* take(size_t size)
    {
        if (size > fileSize - pos) return nullptr;
        pos += size;
        if (mapped) return mapped + pos - size;
        if (end - next < size) {
            // Keep the unread tail and refill behind it.
            memmove(buffer.data(), buffer.data() + next, end - next);
            end -= next;
            next = 0;
            const qint64 got = file.read(reinterpret_cast<char*>(buffer.data()) + end,
                                         qint64(buffer.size() - end));
            if (got > 0) end += size_t(got);
            if (end < size) return nullptr;
        }
        next += size;
        return buffer.data() + next - size;
    }

    // Copies size bytes at offset into out.
    bool copy(uint64_t offset, char* out, uint64_t size)
    {
        if (offset > fileSize || size > fileSize - offset) return false;
        if (mapped) {
            memcpy(out, mapped + offset, size);
            return true;
        }
        return file.seek(qint64(offset)) && file.read(out, qint64(size)) == qint64(size);
    }

private:
    QFile& file;
    uchar* mapped = nullptr;
    uint64_t pos;
    uint64_t fileSize;
    std::vector<unsigned char> buffer;
    size_t next = 0;
    size_t end = 0;
};

} // namespace

#ifndef __has_feature
#define __has_feature(x) 0
#endif

namespace {
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
constexpr size_t kHugePage = size_t(2) << 20;
constexpr size_t kMappedTable = size_t(1) << 20;
size_t hugePagesFor(size_t bytes)
{
    return (bytes + kHugePage - 1) & ~(kHugePage - 1);
}

// The last freed record and name tables, kept for the next open: opening archives again and
// again (the window, a benchmark) then reuses pages instead of taking and clearing new ones.
struct SpareTables
{
    static constexpr size_t kMaxBytes = size_t(32) << 20;
    std::mutex lock;
    void* data[2] = {};
    size_t length[2] = {};
};
SpareTables& spareTables()
{
    static SpareTables* spare = new SpareTables; // outlives every static reader
    return *spare;
}
} // namespace

void* allocateTable(size_t bytes) noexcept
{
    // Under AddressSanitizer the tables stay on the heap, where reads past their ends are seen.
    if (bytes < kMappedTable || kSanitized) return std::malloc(bytes ? bytes : 1);
    const size_t length = hugePagesFor(bytes);
    if (length < bytes || length + kHugePage < length) return nullptr;
    {
        SpareTables& spare = spareTables();
        std::lock_guard<std::mutex> hold(spare.lock);
        for (int k = 0; k < 2; ++k) {
            if (spare.data[k] && spare.length[k] == length) {
                void* reused = spare.data[k];
                spare.data[k] = nullptr;
                return reused;
            }
        }
    }
    char* const m = static_cast<char*>(::mmap(nullptr, length + kHugePage, PROT_READ | PROT_WRITE,
                                              MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (m == MAP_FAILED) return nullptr;
    // Keep the 2 MiB-aligned part, give back the slack on either side.
    char* const aligned
        = reinterpret_cast<char*>((uintptr_t(m) + kHugePage - 1) & ~uintptr_t(kHugePage - 1));
    if (aligned > m) ::munmap(m, size_t(aligned - m));
    if (m + length + kHugePage > aligned + length)
        ::munmap(aligned + length, size_t(m + length + kHugePage - (aligned + length)));
#ifdef MADV_HUGEPAGE
    (void)::madvise(aligned, length, MADV_HUGEPAGE); // refused where huge pages are off: fine
#endif
    return aligned;
}

void freeTable(void* data, size_t bytes) noexcept
{
    if (!data) return;
    if (bytes < kMappedTable || kSanitized) {
        std::free(data);
        return;
    }
    size_t length = hugePagesFor(bytes);
    if (length <= SpareTables::kMaxBytes) {
        SpareTables& spare = spareTables();
        std::lock_guard<std::mutex> hold(spare.lock);
        // The newest goes into slot 0; what was in slot 1 falls out and is unmapped below.
        std::swap(spare.data[0], spare.data[1]);
        std::swap(spare.length[0], spare.length[1]);
        std::swap(spare.data[0], data);
        std::swap(spare.length[0], length);
    }
    if (data) ::munmap(data, length);
}

bool ArchiveReader::mapFiles = true;

ArchiveReader::ArchiveReader() = default;

ArchiveReader::~ArchiveReader()
{
    close();
}

bool ArchiveReader::fail(OpenError error)
{
    lastError = error;
    file.close();
    records.clear();
    records.shrink_to_fit();
    chunkTable.clear();
    chunkTable.shrink_to_fit();
    nameTable.reset();
    nameTableSize = 0;
    bsaFolders.clear();
    bsaFolders.shrink_to_fit();
    return false;
}

bool ArchiveReader::open(const QString& path, Progress& progress)
{
    lastError = OpenError::None;
    file.setFileName(path);
    if (QFileInfo(path).isDir() || !file.open(QIODevice::ReadOnly)) {
        fileSize = 0;
        return fail(OpenError::CannotOpen);
    }
    fileSize = file.size();

    unsigned char head[36];
    if (file.read(reinterpret_cast<char*>(head), 24) != 24) return fail(OpenError::NotArchive);
    magic = ba2::readLE32(head);
    version = ba2::readLE32(head + 4);
    archiveType = ba2::readLE32(head + 8);
    fileCount = ba2::readLE32(head + 12);
    nameTableOffset = ba2::readLE64(head + 16);
    if (magic == bsa::kMagic) {
        const OpenError error = bsa::load(*this, progress);
        return error == OpenError::None || fail(error);
    }
    if (magic != ba2::kMagic) return fail(OpenError::NotArchive);
    const uint32_t headerSize = ba2::headerSizeFor(version);
    if (headerSize > 24) {
        const qint64 extra = qint64(headerSize - 24);
        if (file.read(reinterpret_cast<char*>(head + 24), extra) != extra)
            return fail(OpenError::NotArchive);
        headerExtra = ba2::readLE64(head + 24);
        if (version == 3) compressionCode = ba2::readLE32(head + 32);
    }
    if (archiveType == ba2::kTypeGeneral)
        isTexture = false;
    else if (archiveType == ba2::kTypeTexture)
        isTexture = true;
    else
        return fail(OpenError::UnknownType);
    if (fileCount == 0) return fail(OpenError::NoFiles);
    if (version == 3 && compressionCode != ba2::kCompressionLz4
        && compressionCode != ba2::kCompressionZlib)
        return fail(OpenError::UnsupportedVer3);

    // Every record takes at least its fixed size in the file; refuse a count the file cannot
    // hold before allocating anything for it.
    const uint64_t recordSpace = uint64_t(fileSize) - headerSize;
    const uint64_t minRecord = isTexture ? ba2::kTextureRecordSize : ba2::kGeneralRecordSize;
    if (uint64_t(fileSize) < headerSize || uint64_t(fileCount) * minRecord > recordSpace)
        return fail(OpenError::RecordsTruncated);

    // The file size bounds the count, but a sparse file can be far larger than the disk space
    // it takes; memory running out is a refusal, not an exception.
    records.clear();
    try {
        records.reserve(fileCount);
    } catch (const std::bad_alloc&) {
        return fail(OpenError::OutOfMemory);
    }
    progress.setMinimum(0);
    progress.setMaximum(int(std::min<uint32_t>(fileCount, INT32_MAX)));
    packedTotal = 0;
    unpackedTotal = 0;

    RecordInput in(file, headerSize, uint64_t(fileSize));
    for (uint32_t i = 0; i < fileCount; ++i) {
        progress.setValue(int(std::min<uint32_t>(i + 1, INT32_MAX)));
        progress.processEvents();
        records.emplace_back();
        FileRecord& r = records.back();
        if (!isTexture) {
            const unsigned char* raw = in.take(ba2::kGeneralRecordSize);
            if (!raw) return fail(OpenError::RecordsTruncated);
            const ba2::GeneralFileRecord g = ba2::decodeGeneralRecord(raw);
            r.nameHash = g.nameHash;
            r.extension = g.extension;
            r.directoryHash = g.directoryHash;
            r.recordFlags = g.recordFlags;
            r.dataOffset = g.dataOffset;
            r.packedSize = g.packedSize;
            r.unpackedSize = g.unpackedSize;
            if (r.packedSize != 0) {
                packedTotal += r.packedSize;
                unpackedTotal += r.unpackedSize;
            }
            continue;
        }
        const unsigned char* raw = in.take(ba2::kTextureRecordSize);
        if (!raw) return fail(OpenError::RecordsTruncated);
        const ba2::TextureFileRecord t = ba2::decodeTextureRecord(raw);
        r.nameHash = t.nameHash;
        r.extension = t.extension;
        r.directoryHash = t.directoryHash;
        r.reserved = t.reserved;
        r.chunkCount = t.chunkCount;
        r.chunkRecordSize = t.chunkRecordSize;
        r.height = t.height;
        r.width = t.width;
        r.mipCount = t.mipCount;
        r.format = t.format;
        r.textureFlags = t.textureFlags;
        r.firstChunk = uint32_t(chunkTable.size());
        if (r.chunkCount > ba2::kMaxChunks) return fail(OpenError::TooManyChunks);
        if (r.chunkCount == 0) continue;
        // Chunk records of another size would be taken apart at the wrong places.
        if (r.chunkRecordSize != ba2::kChunkRecordSize) return fail(OpenError::BadChunkRecordSize);
        raw = in.take(size_t(r.chunkCount) * ba2::kChunkRecordSize);
        if (!raw) return fail(OpenError::RecordsTruncated);
        for (uint32_t c = 0; c < r.chunkCount; ++c) {
            const ba2::ChunkRecord cr = ba2::decodeChunkRecord(raw + c * ba2::kChunkRecordSize);
            ChunkInfo info;
            info.dataOffset = cr.dataOffset;
            info.packedSize = cr.packedSize;
            info.unpackedSize = cr.unpackedSize;
            info.firstMip = uint8_t(cr.firstMip);
            info.lastMip = uint8_t(cr.lastMip);
            try {
                chunkTable.push_back(info);
            } catch (const std::bad_alloc&) {
                return fail(OpenError::OutOfMemory);
            }
            if (info.packedSize != 0) {
                packedTotal += info.packedSize;
                unpackedTotal += info.unpackedSize;
            }
        }
    }

    // Name table: from nameTableOffset to the end of the file. No entry can exceed
    // 2 + 65,535 bytes, so anything beyond fileCount such entries is never needed.
    if (nameTableOffset > uint64_t(fileSize)) return fail(OpenError::NameTableInvalid);
    nameTableSize
        = std::min<uint64_t>(uint64_t(fileSize) - nameTableOffset, uint64_t(fileCount) * 65537u);
    if (nameTableSize < uint64_t(fileCount) * 2) return fail(OpenError::NameTableInvalid);
    nameTable = allocateNameTable(nameTableSize + 1);
    if (!nameTable) return fail(OpenError::OutOfMemory);
    if (!in.copy(nameTableOffset, nameTable.get(), nameTableSize))
        return fail(OpenError::NameTableInvalid);
    nameTable[nameTableSize] = 0;

    uint64_t p = 0;
    unsigned char* table = reinterpret_cast<unsigned char*>(nameTable.get());
    for (uint32_t i = 0; i < fileCount; ++i) {
        if (p + 2 > nameTableSize) return fail(OpenError::NameTableInvalid);
        const uint16_t length = ba2::readLE16(table + p);
        if (p + 2 + length > nameTableSize) return fail(OpenError::NameTableInvalid);
        table[p] = 0;
        table[p + 1] = 0;
        records[i].nameEntryLength = length;
        records[i].name = nameTable.get() + p + 2;
        p += 2 + uint64_t(length);
    }
    table[p] = 0;
    // Separators written by other packers become '/'; memchr skips the common case quickly.
    char* const tableEnd = nameTable.get() + nameTableSize;
    for (char* b = nameTable.get();
         (b = static_cast<char*>(memchr(b, '\\', size_t(tableEnd - b)))) != nullptr;)
        *b++ = '/';
    return true;
}

bool ArchiveReader::close()
{
    file.close();
    fileSize = 0;
    records.clear();
    records.shrink_to_fit();
    chunkTable.clear();
    chunkTable.shrink_to_fit();
    nameTable.reset();
    nameTableSize = 0;
    bsaFolders.clear();
    bsaFolders.shrink_to_fit();
    return true;
}

QString ArchiveReader::errorText() const
{
    switch (lastError) {
    case OpenError::None: return QString();
    case OpenError::CannotOpen: return QStringLiteral("cannot open the file for reading");
    case OpenError::NotArchive: return QStringLiteral("not a BA2 archive (no \"BTDX\" header)");
    case OpenError::UnknownType:
        return QStringLiteral("unknown archive type (neither GNRL nor DX10)");
    case OpenError::NoFiles: return QStringLiteral("the archive holds no files");
    case OpenError::UnsupportedVer3:
        return QStringLiteral("This is Ver3-BA2 of a kind not yet supported.(code:%1)")
            .arg(compressionCode);
    case OpenError::TooManyChunks:
        return QStringLiteral("The maximum number of chunks that Zarnel can process is %1.")
            .arg(ba2::kMaxChunks);
    case OpenError::BadChunkRecordSize:
        return QStringLiteral("a texture's chunk records are not 24 bytes long");
    case OpenError::RecordsTruncated:
        return QStringLiteral("the record table runs past the end of the file");
    case OpenError::NameTableInvalid:
        return QStringLiteral("the name table is missing or runs past the end of the file");
    case OpenError::OutOfMemory:
        return QStringLiteral("not enough memory for the record or name table");
    case OpenError::UnsupportedBsa:
        return QStringLiteral("BSA version %1 is not supported (only 103, 104 and 105)")
            .arg(version);
    case OpenError::XboxBsa:
        return QStringLiteral("BSA archives made for the Xbox 360 are not supported");
    case OpenError::BsaWithoutNames:
        return QStringLiteral("the BSA archive does not store its folder and file names");
    case OpenError::BsaDirectoryInvalid:
        return QStringLiteral("the BSA folder and file tables do not agree with the header");
    }
    return QString();
}

QString ArchiveReader::errorAdvice() const
{
    if (lastError == OpenError::UnsupportedVer3)
        return QStringLiteral("Please report to the author.");
    return QString();
}

void splitPath(QString text, QString separator, QString& head, QString& tail)
{
    const QStringList parts
        = text.trimmed().split(separator, Qt::KeepEmptyParts, Qt::CaseSensitive);
    head.clear();
    for (int i = 0; i + 1 < parts.size(); ++i)
        head += parts[i] + separator;
    tail = parts.isEmpty() ? QString() : parts.last();
}

QString groupedNumber(qint64 value)
{
    static const QLocale english(QLocale::English, QLocale::UnitedStates);
    return english.toString(qlonglong(value));
}

QString archiveInfoLine1(const ArchiveReader& reader)
{
    return QStringLiteral("%1 Ver.%2 (%3 file%4)")
        .arg(reader.isBsa ? QStringLiteral("BSA") : QStringLiteral("BA2"))
        .arg(reader.version)
        .arg(groupedNumber(reader.fileCount))
        .arg(reader.fileCount == 1 ? QString() : QStringLiteral("s"));
}

QString archiveInfoLine2(const ArchiveReader& reader)
{
    if (reader.isBsa)
        return reader.version == bsa::kOblivion ? QStringLiteral("Format: Oblivion")
            : reader.version == bsa::kFallout3
            ? QStringLiteral("Format: Fallout 3, New Vegas, Skyrim")
            : QStringLiteral("Format: Skyrim Special Edition");
    return QStringLiteral("Format: ")
        + (reader.isTexture ? QStringLiteral("DDS(Texture)") : QStringLiteral("General"));
}

QString archiveInfoLine3(const ArchiveReader& reader)
{
    if (reader.packedTotal == 0) return QStringLiteral("Compression: Non");
    // The ratio is worked out in single precision, as the figure users compare against.
    const float quotient = float(reader.packedTotal) / float(reader.unpackedTotal);
    const float ratio = float(double(quotient) * 100.0);
    return QStringLiteral("Compression: ")
        + (reader.storedCodec() == StoredCodec::Zlib ? QStringLiteral("zlib")
                                                     : QStringLiteral("LZ4"))
        + QString::asprintf(" (%3.2f%%)", double(ratio));
}

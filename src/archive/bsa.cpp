#include "archive/bsa.h"

#include "archive/archivereader.h"
#include "archive/format.h"

#include <lz4frame.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace bsa {

namespace {

uint32_t rollingHash(const unsigned char* p, size_t length)
{
    uint32_t h = 0;
    for (size_t i = 0; i < length; ++i)
        h = h * 0x1003F + p[i];
    return h;
}

// The archive's bytes, from a mapping when the system allows one, else read on demand.
class Input
{
public:
    Input(QFile& file, uint64_t size)
        : file(file)
        , size(size)
    {
        if (ArchiveReader::mapFiles && size > 0) mapped = file.map(0, qint64(size));
    }
    ~Input()
    {
        if (mapped) file.unmap(mapped);
    }

    bool isMapped() const { return mapped != nullptr; }

    // length bytes at offset, or null when they are not all in the file.
    const unsigned char* at(uint64_t offset, uint64_t length)
    {
        if (offset > size || length > size - offset) return nullptr;
        if (mapped) return mapped + offset;
        if (length > scratch.size()) {
            try {
                scratch.resize(size_t(length));
            } catch (const std::bad_alloc&) {
                return nullptr;
            }
        }
        if (!file.seek(qint64(offset))
            || file.read(reinterpret_cast<char*>(scratch.data()), qint64(length)) != qint64(length))
            return nullptr;
        return scratch.data();
    }

private:
    QFile& file;
    uint64_t size;
    uchar* mapped = nullptr;
    std::vector<unsigned char> scratch;
};

struct DctxDeleter
{
    void operator()(LZ4F_dctx* c) const { LZ4F_freeDecompressionContext(c); }
};

// Marks a block that cannot be read: its offset lies past any file, so the decoder refuses it
// as data outside the archive.
constexpr uint64_t kUnreadable = ~uint64_t(0);

} // namespace

uint64_t nameHash(const char* name, size_t length, bool folder)
{
    std::string s(name, length);
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
        if (c == '/') c = '\\';
    }
    size_t stemLength = s.size();
    if (!folder) {
        const size_t dot = s.rfind('.');
        if (dot != std::string::npos) stemLength = dot;
    }
    const auto* stem = reinterpret_cast<const unsigned char*>(s.data());
    const unsigned char* ext = stem + stemLength;
    const size_t extLength = s.size() - stemLength;

    uint32_t low = 0;
    if (stemLength > 0) {
        low = stem[stemLength - 1] + (uint32_t(stemLength) << 16) + (uint32_t(stem[0]) << 24);
        if (stemLength > 2) low += uint32_t(stem[stemLength - 2]) << 8;
    }
    const std::string extension(reinterpret_cast<const char*>(ext), extLength);
    if (extension == ".kf")
        low += 0x80;
    else if (extension == ".nif")
        low += 0x8000;
    else if (extension == ".dds")
        low += 0x8080;
    else if (extension == ".wav")
        low += 0x80000000u;
    uint32_t high = stemLength > 3 ? rollingHash(stem + 1, stemLength - 3) : 0;
    high += rollingHash(ext, extLength);
    return uint64_t(low) | (uint64_t(high) << 32);
}

OpenError load(ArchiveReader& r, Progress& progress)
{
    const uint64_t fileSize = uint64_t(r.fileSize);
    Input in(r.file, fileSize);
    const unsigned char* h = in.at(0, kHeaderSize);
    if (!h) return OpenError::NotArchive;
    r.isBsa = true;
    r.isTexture = false;
    r.magic = ba2::readLE32(h);
    r.archiveType = 0;
    r.nameTableOffset = 0;
    r.version = ba2::readLE32(h + 4);
    const uint64_t folderStart = ba2::readLE32(h + 8);
    r.bsaFlags = ba2::readLE32(h + 12);
    const uint32_t folderCount = ba2::readLE32(h + 16);
    r.fileCount = ba2::readLE32(h + 20);
    const uint64_t folderNamesLength = ba2::readLE32(h + 24);
    const uint64_t fileNamesLength = ba2::readLE32(h + 28);
    if (r.version != kOblivion && r.version != kFallout3 && r.version != kSkyrimSpecial)
        return OpenError::UnsupportedBsa;
    if (r.bsaFlags & kXbox360) return OpenError::XboxBsa;
    if ((r.bsaFlags & (kFolderNames | kFileNames)) != (kFolderNames | kFileNames))
        return OpenError::BsaWithoutNames;
    if (r.fileCount == 0) return OpenError::NoFiles;

    // Folder records, folder blocks (length byte, name, file records) and the file names lie
    // back to back; their total follows from the header and must fit in the file before any
    // of it is trusted.
    const uint64_t folderRecordSize = r.version == kSkyrimSpecial ? 24 : 16;
    const uint64_t directorySize = folderCount * (folderRecordSize + 1) + folderNamesLength
        + uint64_t(r.fileCount) * 16 + fileNamesLength;
    if (folderStart < kHeaderSize || folderStart > fileSize
        || directorySize > fileSize - folderStart)
        return OpenError::RecordsTruncated;
    const unsigned char* dir = in.at(folderStart, directorySize);
    if (!dir) return OpenError::RecordsTruncated;
    // Read rather than mapped, the reads of file data below reuse the input's buffer: keep a
    // copy then.
    std::vector<unsigned char> directory;
    if (!in.isMapped()) {
        directory.assign(dir, dir + directorySize);
        dir = directory.data();
    }

    try {
        r.bsaFolders.resize(folderCount);
        r.records.resize(r.fileCount);
    } catch (const std::bad_alloc&) {
        return OpenError::OutOfMemory;
    }
    uint64_t files = 0;
    for (uint32_t i = 0; i < folderCount; ++i) {
        const unsigned char* f = dir + i * folderRecordSize;
        r.bsaFolders[i].hash = ba2::readLE64(f);
        r.bsaFolders[i].fileCount = ba2::readLE32(f + 8);
        r.bsaFolders[i].firstFile = uint32_t(std::min<uint64_t>(files, r.fileCount));
        files += r.bsaFolders[i].fileCount;
    }
    if (files != r.fileCount) return OpenError::BsaDirectoryInvalid;

    // Folder blocks: each name's length counts its terminator.
    uint64_t pos = folderCount * folderRecordSize;
    const uint64_t blocksEnd = directorySize - fileNamesLength;
    uint64_t pathBytes = 0; // of "folder/" prefixes over all files
    for (Folder& folder : r.bsaFolders) {
        if (pos >= blocksEnd) return OpenError::BsaDirectoryInvalid;
        const uint32_t length = dir[pos];
        if (length == 0 || pos + 1 + length > blocksEnd) return OpenError::BsaDirectoryInvalid;
        folder.name = QByteArray(reinterpret_cast<const char*>(dir + pos + 1), int(length - 1));
        pos += 1 + length;
        const uint64_t recordBytes = uint64_t(folder.fileCount) * 16;
        if (recordBytes > blocksEnd - pos) return OpenError::BsaDirectoryInvalid;
        for (uint32_t k = 0; k < folder.fileCount; ++k) {
            const unsigned char* p = dir + pos + 16 * k;
            FileRecord& rec = r.records[folder.firstFile + k];
            rec.bsaHash = ba2::readLE64(p);
            rec.storedSize = ba2::readLE32(p + 8); // whole field until the data is examined
            rec.dataOffset = ba2::readLE32(p + 12);
        }
        pos += recordBytes;
        const bool root = folder.name.isEmpty() || folder.name == ".";
        if (!root) pathBytes += uint64_t(folder.name.size() + 1) * folder.fileCount;
    }
    if (pos != blocksEnd) return OpenError::BsaDirectoryInvalid;

    // Paths: "folder/name" for every file, '\' turned into '/'.
    r.nameTableSize = pathBytes + fileNamesLength;
    r.nameTable = allocateNameTable(r.nameTableSize + 1);
    if (!r.nameTable) return OpenError::OutOfMemory;
    const char* names = reinterpret_cast<const char*>(dir + blocksEnd);
    const char* namesEnd = names + fileNamesLength;
    char* out = r.nameTable.get();
    for (const Folder& folder : r.bsaFolders) {
        const bool root = folder.name.isEmpty() || folder.name == ".";
        QByteArray prefix = folder.name;
        prefix.replace('\\', '/');
        for (uint32_t k = 0; k < folder.fileCount; ++k) {
            const char* end = static_cast<const char*>(memchr(names, 0, size_t(namesEnd - names)));
            if (!end) return OpenError::NameTableInvalid;
            const size_t nameLength = size_t(end - names);
            const size_t total = (root ? 0 : size_t(folder.name.size()) + 1) + nameLength;
            if (total > 0xFFFF) return OpenError::NameTableInvalid;
            FileRecord& rec = r.records[folder.firstFile + k];
            rec.name = out;
            rec.nameEntryLength = uint16_t(total);
            if (!root) {
                memcpy(out, prefix.constData(), size_t(prefix.size()));
                out += prefix.size();
                *out++ = '/';
            }
            memcpy(out, names, nameLength);
            out += nameLength;
            *out++ = 0;
            names = end + 1;
        }
    }
    // A bare file name with a '\\' in it is rare; memchr passes over the rest quickly.
    for (char* b = r.nameTable.get(); (b = static_cast<char*>(memchr(b, '\\', size_t(out - b))));)
        *b++ = '/';

    // Each file's block: after the embedded name (if any) and, for a compressed file, the
    // original size.
    const bool embedded = r.version != kOblivion && (r.bsaFlags & kEmbeddedNames);
    const bool compressedByDefault = r.bsaFlags & kCompressedByDefault;
    progress.setMinimum(0);
    progress.setMaximum(int(std::min<uint32_t>(r.fileCount, INT32_MAX)));
    r.packedTotal = 0;
    r.unpackedTotal = 0;
    for (uint32_t i = 0; i < r.fileCount; ++i) {
        progress.setValue(int(std::min<uint32_t>(i + 1, INT32_MAX)));
        progress.processEvents();
        FileRecord& rec = r.records[i];
        const uint32_t field = rec.storedSize;
        rec.storedSize = field & kSizeMask;
        rec.bsaCompressed = compressedByDefault != bool(field & kToggleCompression);
        uint64_t start = rec.dataOffset;
        uint64_t left = rec.storedSize;
        rec.dataOffset = kUnreadable;
        rec.packedSize = 0;
        rec.unpackedSize = 0;
        if (start > fileSize || left > fileSize - start) continue;
        if (embedded) {
            const unsigned char* length = in.at(start, 1);
            if (!length || left < 1u + *length) continue;
            rec.embeddedNameLength = uint16_t(1 + *length);
            start += rec.embeddedNameLength;
            left -= rec.embeddedNameLength;
        }
        if (!rec.bsaCompressed) {
            rec.dataOffset = start;
            rec.unpackedSize = uint32_t(left);
            continue;
        }
        const unsigned char* original = in.at(start, 4);
        if (!original || left < 4) continue;
        rec.unpackedSize = ba2::readLE32(original);
        rec.packedSize = uint32_t(left - 4);
        r.packedTotal += rec.packedSize;
        r.unpackedTotal += rec.unpackedSize;
        // A block of no bytes would be taken as stored; only an empty file may have one.
        if (rec.packedSize == 0 && rec.unpackedSize != 0) continue;
        rec.dataOffset = start + 4;
    }
    return OpenError::None;
}

QString hashFault(const ArchiveReader& r)
{
    const Folder* previous = nullptr;
    for (const Folder& folder : r.bsaFolders) {
        const QString folderName = QString::fromUtf8(folder.name).replace('\\', '/');
        if (folder.hash != nameHash(folder.name.constData(), size_t(folder.name.size()), true))
            return QStringLiteral("%1: folder hash does not match its name").arg(folderName);
        if (previous && folder.hash < previous->hash)
            return QStringLiteral("%1: folder out of hash order").arg(folderName);
        previous = &folder;
        for (uint32_t k = 0; k < folder.fileCount; ++k) {
            const FileRecord& rec = r.records[folder.firstFile + k];
            const char* slash = strrchr(rec.name, '/');
            const char* bare = slash ? slash + 1 : rec.name;
            if (rec.bsaHash != nameHash(bare, strlen(bare), false))
                return QStringLiteral("%1: hash does not match its name")
                    .arg(QString::fromUtf8(rec.name));
            if (k > 0 && rec.bsaHash < r.records[folder.firstFile + k - 1].bsaHash)
                return QStringLiteral("%1: out of hash order").arg(QString::fromUtf8(rec.name));
        }
    }
    return QString();
}

bool decompressLz4Frame(const char* stored, uint32_t packedSize, char* destination,
                        uint32_t unpackedSize)
{
    // One context per thread, kept: creating one costs more than decoding a small file.
    thread_local std::unique_ptr<LZ4F_dctx, DctxDeleter> context = [] {
        LZ4F_dctx* c = nullptr;
        if (LZ4F_isError(LZ4F_createDecompressionContext(&c, LZ4F_VERSION))) c = nullptr;
        return std::unique_ptr<LZ4F_dctx, DctxDeleter>(c);
    }();
    if (!context) return false;
    size_t in = 0, out = 0, hint = 1;
    while (hint != 0) {
        size_t src = packedSize - in, dst = unpackedSize - out;
        hint = LZ4F_decompress(context.get(), destination + out, &dst, stored + in, &src, nullptr);
        if (LZ4F_isError(hint) || (src == 0 && dst == 0)) break;
        in += src;
        out += dst;
    }
    const bool ok = hint == 0 && in == packedSize && out == unpackedSize;
    if (!ok) LZ4F_resetDecompressionContext(context.get());
    return ok;
}

} // namespace bsa

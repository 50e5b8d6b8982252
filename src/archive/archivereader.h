#pragma once
// One opened BA2 or BSA archive: header, records (with texture chunks) and names, loaded by
// open() and kept with the archive file open so the extractor can read the data through it.

#include "archive/bsa.h"
#include "archive/format.h"
#include "archive/progress.h"

#include <QFile>
#include <QString>

#include <cstdint>
#include <memory>
#include <new>
#include <vector>

// Memory for an archive's record and name tables. Blocks of 1 MiB and more are mapped on
// 2 MiB boundaries with transparent huge pages advised: filling the tables of a 100,000-file
// archive then takes a handful of page faults instead of thousands, which cost more than
// decoding the records. Null when the memory is not there.
void* allocateTable(size_t bytes) noexcept;
void freeTable(void* data, size_t bytes) noexcept;

template<class T>
struct TableAllocator
{
    using value_type = T;
    TableAllocator() = default;
    template<class U>
    TableAllocator(const TableAllocator<U>&)
    { }
    T* allocate(size_t n)
    {
        if (n > size_t(-1) / sizeof(T)) throw std::bad_alloc();
        if (void* p = allocateTable(n * sizeof(T))) return static_cast<T*>(p);
        throw std::bad_alloc();
    }
    void deallocate(T* p, size_t n) noexcept { freeTable(p, n * sizeof(T)); }
    template<class U>
    bool operator==(const TableAllocator<U>&) const
    {
        return true;
    }
    template<class U>
    bool operator!=(const TableAllocator<U>&) const
    {
        return false;
    }
};

// The name table's bytes, given back with the size they were taken with.
struct TableDeleter
{
    size_t bytes = 0;
    void operator()(char* p) const noexcept { freeTable(p, bytes); }
};
using NameTable = std::unique_ptr<char[], TableDeleter>;
inline NameTable allocateNameTable(size_t bytes)
{
    return NameTable(static_cast<char*>(allocateTable(bytes)), TableDeleter {bytes});
}

// One chunk of a texture as loaded (the low byte of each mip index is kept).
struct ChunkInfo
{
    uint64_t dataOffset = 0;
    uint32_t packedSize = 0;
    uint32_t unpackedSize = 0;
    uint8_t firstMip = 0;
    uint8_t lastMip = 0;
};

// One file of the archive as loaded. The general fields are valid in a general archive and in a
// BSA archive, the texture fields (and the chunks, through ArchiveReader::chunks) in a texture
// archive.
struct FileRecord
{
    uint32_t nameHash = 0;
    uint32_t extension = 0;
    uint32_t directoryHash = 0;
    // general archive
    uint32_t recordFlags = 0;
    uint64_t dataOffset = 0;
    uint32_t packedSize = 0;
    uint32_t unpackedSize = 0;
    // texture archive
    uint8_t reserved = 0;
    uint8_t chunkCount = 0;
    uint16_t chunkRecordSize = 0;
    uint16_t height = 0;
    uint16_t width = 0;
    uint8_t mipCount = 0;
    uint8_t format = 0;
    uint16_t textureFlags = 0;
    uint32_t firstChunk = 0; // index of this texture's first chunk in the reader's chunk table
    // BSA archive: the block (dataOffset...) excludes the embedded name and the size prefix
    uint64_t bsaHash = 0;
    uint32_t storedSize = 0;         // all the record's bytes: embedded name, size prefix, block
    uint16_t embeddedNameLength = 0; // with its length byte
    bool bsaCompressed = false;
    // name
    uint16_t nameEntryLength = 0;
    const char* name = nullptr; // NUL-terminated, '/' separators, UTF-8 by convention
};

// Why open() refused an archive (None after success).
enum class OpenError {
    None,
    CannotOpen,          // file missing, unreadable, or a directory
    NotArchive,          // too short for a header, or magic is neither "BTDX" nor "BSA\0"
    UnknownType,         // archiveType is neither "GNRL" nor "DX10"
    NoFiles,             // fileCount is 0
    UnsupportedVer3,     // version 3 with a compression code other than 0 or 3 (warning box)
    TooManyChunks,       // a texture with more than 16 chunks (warning box)
    BadChunkRecordSize,  // a texture whose chunk records are not 24 bytes
    RecordsTruncated,    // fileCount records cannot fit in the file, or a read came up short
    NameTableInvalid,    // name table offset outside the file, or names run past its end
    OutOfMemory,         // the records or names the file claims to hold do not fit in memory
    UnsupportedBsa,      // a BSA version other than 103, 104 and 105
    XboxBsa,             // a BSA made for the Xbox 360
    BsaWithoutNames,     // a BSA that stores no folder names or no file names
    BsaDirectoryInvalid, // folder and file tables that disagree with the header or each other
};

// How the compressed blocks of an archive are encoded.
enum class StoredCodec { Zlib, Lz4Block, Lz4Frame };

class ArchiveReader
{
public:
    ArchiveReader();
    ~ArchiveReader();
    ArchiveReader(const ArchiveReader&) = delete;
    ArchiveReader& operator=(const ArchiveReader&) = delete;

    // Loads the archive at path. Reports progress 1..fileCount (after setting the range) and
    // processes events once per record. Returns false on any failure; openError() and
    // errorText() then say why. Called once per reader.
    bool open(const QString& path, Progress& progress);

    // Closes the file and frees records and names; always true.
    bool close();

    OpenError openError() const { return lastError; }
    // Whether compressed blocks are LZ4 blocks (version 3 with code 3) rather than zlib streams.
    bool usesLz4() const
    {
        return !isBsa && version == 3 && compressionCode == ba2::kCompressionLz4;
    }
    StoredCodec storedCodec() const
    {
        if (isBsa)
            return version == bsa::kSkyrimSpecial ? StoredCodec::Lz4Frame : StoredCodec::Zlib;
        return usesLz4() ? StoredCodec::Lz4Block : StoredCodec::Zlib;
    }
    // Why open() failed, in one line (empty after success); the window shows it as the text of
    // its warning box, with errorAdvice() as the informative text.
    QString errorText() const;
    QString errorAdvice() const;

    // The chunks of texture record i (chunkCount of them).
    const ChunkInfo* chunks(const FileRecord& record) const
    {
        return chunkTable.data() + record.firstChunk;
    }
    const FileRecord& record(uint32_t i) const { return records[i]; }
    QString nameOf(uint32_t i) const { return QString::fromUtf8(records[i].name); }

    // Whether open() may map the archive instead of reading it (tests cover both paths).
    static bool mapFiles;

    QFile file;
    int64_t fileSize = 0;
    uint32_t magic = 0;
    uint32_t version = 0;
    uint32_t archiveType = 0;
    uint32_t fileCount = 0;
    uint64_t nameTableOffset = 0;
    uint64_t headerExtra = 0;
    uint32_t compressionCode = 0;
    std::vector<FileRecord, TableAllocator<FileRecord>> records;
    bool isTexture = false;
    int64_t packedTotal = 0;
    int64_t unpackedTotal = 0;
    uint64_t nameTableSize = 0;
    NameTable nameTable;
    // BSA archive
    bool isBsa = false;
    uint32_t bsaFlags = 0;
    std::vector<bsa::Folder> bsaFolders;

private:
    bool fail(OpenError error);
    std::vector<ChunkInfo> chunkTable;
    OpenError lastError = OpenError::None;
};

// Trims text, splits it at separator (keeping empty parts) and gives the head (every part but
// the last, each followed by the separator) and the tail (the last part).
void splitPath(QString text, QString separator, QString& head, QString& tail);

// The three information lines the window shows for an opened archive, e.g.
// "BA2 Ver.1 (12,345 files)", "Format: General", "Compression: zlib (48.37%)".
QString archiveInfoLine1(const ArchiveReader& reader);
QString archiveInfoLine2(const ArchiveReader& reader);
QString archiveInfoLine3(const ArchiveReader& reader);
// "%'d": a number with its thousands grouped by ','.
QString groupedNumber(qint64 value);

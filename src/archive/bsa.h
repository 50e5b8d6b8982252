#pragma once
// BSA archives of Oblivion (version 103), Fallout 3, New Vegas and Skyrim (104) and Skyrim
// Special Edition (105): the name hash the game looks files up by, loading an archive's folders
// and files into an ArchiveReader's records, and the LZ4 frames of version 105.

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

class ArchiveReader;
class Progress;
enum class OpenError;

namespace bsa {

constexpr uint32_t kMagic = 0x00415342; // "BSA\0"
constexpr uint32_t kHeaderSize = 36;
constexpr uint32_t kOblivion = 103;
constexpr uint32_t kFallout3 = 104; // also New Vegas and Skyrim
constexpr uint32_t kSkyrimSpecial = 105;

// Archive flags.
constexpr uint32_t kFolderNames = 0x1;
constexpr uint32_t kFileNames = 0x2;
constexpr uint32_t kCompressedByDefault = 0x4;
constexpr uint32_t kXbox360 = 0x40;
constexpr uint32_t kEmbeddedNames = 0x100; // versions 104 and 105 only

// A file record's size field: the low 30 bits are the stored size; this bit inverts the
// archive's default compression for the one file.
constexpr uint32_t kSizeMask = 0x3FFFFFFF;
constexpr uint32_t kToggleCompression = 0x40000000;

// The 64-bit hash of a name (lower-cased, '/' taken as '\'). A file is hashed by its bare name,
// split into stem and extension at the last '.'; a folder by its whole path, with no extension.
uint64_t nameHash(const char* name, size_t length, bool folder);

// One folder as loaded: its name as stored and the records of its files.
struct Folder
{
    uint64_t hash = 0;
    uint32_t firstFile = 0; // index into the reader's records
    uint32_t fileCount = 0;
    QByteArray name; // without length byte and terminator; '\' separators as stored
};

// Loads the archive open in reader.file (its magic already seen) into the reader: every file
// becomes a record whose dataOffset, packedSize and unpackedSize describe one block as in a
// general BA2 archive (packedSize 0: stored), named "folder/file". A file whose block cannot
// lie inside the archive gets a dataOffset past its end, so reading it fails as in a BA2
// archive. Progress runs 1..fileCount. Returns OpenError::None on success.
OpenError load(ArchiveReader& reader, Progress& progress);

// The first fault that would hide a file from the game: a folder or file hash that is not the
// hash of its name, or records out of ascending hash order. Empty when there is none.
QString hashFault(const ArchiveReader& reader);

// Decodes one LZ4 frame of packedSize bytes into exactly unpackedSize bytes at destination.
// False on a damaged frame, trailing bytes, or any other decoded length.
bool decompressLz4Frame(const char* stored, uint32_t packedSize, char* destination,
                        uint32_t unpackedSize);

} // namespace bsa

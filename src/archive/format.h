#pragma once
// On-disk layout of BA2 ("BTDX") archives and the name hash their records carry.
// Every integer is unsigned little-endian; offsets are absolute from the start of the file.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ba2 {

constexpr uint32_t kMagic = 0x58445442;       // "BTDX"
constexpr uint32_t kTypeGeneral = 0x4C524E47; // "GNRL"
constexpr uint32_t kTypeTexture = 0x30315844; // "DX10"
constexpr uint32_t kCompressionZlib = 0;      // version-3 compression codes we read
constexpr uint32_t kCompressionLz4 = 3;

constexpr uint32_t kGeneralRecordSize = 36;
constexpr uint32_t kTextureRecordSize = 24;
constexpr uint32_t kChunkRecordSize = 24;
constexpr uint32_t kMaxChunks = 16; // most chunk records a texture may carry
constexpr uint32_t kGeneralRecordFlags = 0x00100100;
constexpr uint32_t kSentinel = 0xBAADF00D;
constexpr uint16_t kWrittenTextureFlags = 0x0800;

// Size of ArchiveHeader for a version: 32 for 2, 36 for 3, 24 for every other value.
constexpr uint32_t headerSizeFor(uint32_t version)
{
    return version == 3 ? 36u : version == 2 ? 32u : 24u;
}

struct ArchiveHeader
{
    uint32_t magic = kMagic;
    uint32_t version = 1;
    uint32_t archiveType = kTypeGeneral;
    uint32_t fileCount = 0;
    uint64_t nameTableOffset = 0;
    uint64_t headerExtra = 0;     // versions 2 and 3
    uint32_t compressionCode = 0; // version 3
};

struct GeneralFileRecord
{
    uint32_t nameHash = 0;
    uint32_t extension = 0;
    uint32_t directoryHash = 0;
    uint32_t recordFlags = kGeneralRecordFlags;
    uint64_t dataOffset = 0;
    uint32_t packedSize = 0;
    uint32_t unpackedSize = 0;
    uint32_t sentinel = kSentinel;
};

struct TextureFileRecord
{
    uint32_t nameHash = 0;
    uint32_t extension = 0;
    uint32_t directoryHash = 0;
    uint8_t reserved = 0;
    uint8_t chunkCount = 0;
    uint16_t chunkRecordSize = kChunkRecordSize;
    uint16_t height = 0;
    uint16_t width = 0;
    uint8_t mipCount = 0;
    uint8_t format = 0;
    uint16_t textureFlags = kWrittenTextureFlags;
};

struct ChunkRecord
{
    uint64_t dataOffset = 0;
    uint32_t packedSize = 0;
    uint32_t unpackedSize = 0;
    uint16_t firstMip = 0;
    uint16_t lastMip = 0;
    uint32_t sentinel = kSentinel;
};

// Little-endian field access on raw bytes (the host may be of either order).
inline uint16_t readLE16(const unsigned char* p)
{
    return uint16_t(p[0] | (p[1] << 8));
}
inline uint32_t readLE32(const unsigned char* p)
{
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline uint64_t readLE64(const unsigned char* p)
{
    return uint64_t(readLE32(p)) | (uint64_t(readLE32(p + 4)) << 32);
}
inline void writeLE16(unsigned char* p, uint16_t v)
{
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
inline void writeLE32(unsigned char* p, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = uint8_t(v >> (8 * i));
}
inline void writeLE64(unsigned char* p, uint64_t v)
{
    for (int i = 0; i < 8; ++i)
        p[i] = uint8_t(v >> (8 * i));
}

// Serialise the structures exactly as they stand on disk. Each returns the bytes written.
uint32_t encodeHeader(const ArchiveHeader& h, unsigned char* out); // headerSizeFor(h.version)
void encodeGeneralRecord(const GeneralFileRecord& r, unsigned char out[kGeneralRecordSize]);
void encodeTextureRecord(const TextureFileRecord& r, unsigned char out[kTextureRecordSize]);
void encodeChunkRecord(const ChunkRecord& c, unsigned char out[kChunkRecordSize]);
GeneralFileRecord decodeGeneralRecord(const unsigned char in[kGeneralRecordSize]);
TextureFileRecord decodeTextureRecord(const unsigned char in[kTextureRecordSize]);
ChunkRecord decodeChunkRecord(const unsigned char in[kChunkRecordSize]);

} // namespace ba2

// The CRC-32 table (reflected, polynomial 0xEDB88320) that NameHash runs on.
struct NameHashTable
{
    uint32_t nameHashTable[256];
    bool nameHashReady = false;
    NameHashTable(); // builds the table and sets nameHashReady
};

// Name hash of a path: CRC-32 with start value 0 and no final inversion. In directory mode
// '/' is hashed as '\' and *componentCount receives 1 + the number of '/' (8-bit, wrapping).
// Returns 0 (and leaves componentCount alone) when the table is not ready.
uint32_t NameHash(const NameHashTable& table, const char* bytes, size_t length,
                  bool directoryMode = false, uint8_t* componentCount = nullptr);

// The process-wide table, built on first use.
const NameHashTable& defaultNameHashTable();

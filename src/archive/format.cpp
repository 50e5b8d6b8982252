#include "archive/format.h"

namespace ba2 {

uint32_t encodeHeader(const ArchiveHeader& h, unsigned char* out)
{
    writeLE32(out, h.magic);
    writeLE32(out + 4, h.version);
    writeLE32(out + 8, h.archiveType);
    writeLE32(out + 12, h.fileCount);
    writeLE64(out + 16, h.nameTableOffset);
    const uint32_t size = headerSizeFor(h.version);
    if (size >= 32) writeLE64(out + 24, h.headerExtra);
    if (size >= 36) writeLE32(out + 32, h.compressionCode);
    return size;
}

void encodeGeneralRecord(const GeneralFileRecord& r, unsigned char out[kGeneralRecordSize])
{
    writeLE32(out, r.nameHash);
    writeLE32(out + 4, r.extension);
    writeLE32(out + 8, r.directoryHash);
    writeLE32(out + 12, r.recordFlags);
    writeLE64(out + 16, r.dataOffset);
    writeLE32(out + 24, r.packedSize);
    writeLE32(out + 28, r.unpackedSize);
    writeLE32(out + 32, r.sentinel);
}

void encodeTextureRecord(const TextureFileRecord& r, unsigned char out[kTextureRecordSize])
{
    writeLE32(out, r.nameHash);
    writeLE32(out + 4, r.extension);
    writeLE32(out + 8, r.directoryHash);
    out[12] = r.reserved;
    out[13] = r.chunkCount;
    writeLE16(out + 14, r.chunkRecordSize);
    writeLE16(out + 16, r.height);
    writeLE16(out + 18, r.width);
    out[20] = r.mipCount;
    out[21] = r.format;
    writeLE16(out + 22, r.textureFlags);
}

void encodeChunkRecord(const ChunkRecord& c, unsigned char out[kChunkRecordSize])
{
    writeLE64(out, c.dataOffset);
    writeLE32(out + 8, c.packedSize);
    writeLE32(out + 12, c.unpackedSize);
    writeLE16(out + 16, c.firstMip);
    writeLE16(out + 18, c.lastMip);
    writeLE32(out + 20, c.sentinel);
}

GeneralFileRecord decodeGeneralRecord(const unsigned char in[kGeneralRecordSize])
{
    GeneralFileRecord r;
    r.nameHash = readLE32(in);
    r.extension = readLE32(in + 4);
    r.directoryHash = readLE32(in + 8);
    r.recordFlags = readLE32(in + 12);
    r.dataOffset = readLE64(in + 16);
    r.packedSize = readLE32(in + 24);
    r.unpackedSize = readLE32(in + 28);
    r.sentinel = readLE32(in + 32);
    return r;
}

TextureFileRecord decodeTextureRecord(const unsigned char in[kTextureRecordSize])
{
    TextureFileRecord r;
    r.nameHash = readLE32(in);
    r.extension = readLE32(in + 4);
    r.directoryHash = readLE32(in + 8);
    r.reserved = in[12];
    r.chunkCount = in[13];
    r.chunkRecordSize = readLE16(in + 14);
    r.height = readLE16(in + 16);
    r.width = readLE16(in + 18);
    r.mipCount = in[20];
    r.format = in[21];
    r.textureFlags = readLE16(in + 22);
    return r;
}

ChunkRecord decodeChunkRecord(const unsigned char in[kChunkRecordSize])
{
    ChunkRecord c;
    c.dataOffset = readLE64(in);
    c.packedSize = readLE32(in + 8);
    c.unpackedSize = readLE32(in + 12);
    c.firstMip = readLE16(in + 16);
    c.lastMip = readLE16(in + 18);
    c.sentinel = readLE32(in + 20);
    return c;
}

} // namespace ba2

NameHashTable::NameHashTable()
{
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int k = 0; k < 8; ++k)
            c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
        nameHashTable[i] = c;
    }
    nameHashReady = true;
}

uint32_t NameHash(const NameHashTable& table, const char* bytes, size_t length, bool directoryMode,
                  uint8_t* componentCount)
{
    if (!table.nameHashReady) return 0;
    uint32_t crc = 0;
    uint8_t components = 1;
    for (size_t i = 0; i < length; ++i) {
        uint8_t b = uint8_t(bytes[i]);
        if (directoryMode && b == '/') {
            b = '\\';
            ++components;
        }
        crc = (crc >> 8) ^ table.nameHashTable[(crc ^ b) & 0xFF];
    }
    if (directoryMode && componentCount) *componentCount = components;
    return crc;
}

const NameHashTable& defaultNameHashTable()
{
    static const NameHashTable table;
    return table;
}

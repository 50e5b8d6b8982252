#pragma once
// Reading a DDS file for a texture archive: its description and its mip chain cut into chunks.

#include "archive/status.h"

#include <cstdint>

// One block to be stored: a whole general file, or one chunk of a texture.
struct ChunkPlan
{
    uint32_t packedSize = 0; // 0 = stored; filled by the writer
    uint32_t unpackedSize = 0;
    uint32_t sourceOffset = 0;         // start of the block in the file as read
    const char* packedBytes = nullptr; // filled by the writer when packedSize != 0
    uint16_t firstMip = 0;
    uint16_t lastMip = 0;
    uint64_t dataOffset = 0; // filled by the writer
};

struct TextureLayout
{
    uint32_t height = 0;
    uint32_t width = 0;
    uint32_t mipCount = 0;
    uint8_t format = 0;     // DXGI code written into the record
    uint32_t dataStart = 0; // 128 or 148
    uint32_t dataSize = 0;  // bytes of pixel data: the mip chain, of each face for a cube map
    uint8_t chunkCount = 0; // 1..4; a cube map is always one chunk
    uint16_t textureFlags = 0x0800; // the record's flags: 0x0801 for a cube map
    ChunkPlan chunks[4];
};

// Analyses a DDS file held in memory: a 2-D texture, or a cube map with all six faces (legacy
// face bits or a DX10 cube of one element). DdsFileError: not a DDS file, one whose
// data is shorter than its header or mip chain says, absurd counts, or a texture a record cannot
// hold whole: a cube map missing faces, a texture array, a volume texture. Never reads outside
// [bytes, bytes + size).
LayoutStatus layoutTexture(const char* bytes, uint64_t size, TextureLayout& layout);

#include "creation/texturelayout.h"

#include "archive/dxgi.h"
#include "archive/format.h"

#include <algorithm>

namespace {

constexpr uint32_t fourCC(char a, char b, char c, char d)
{
    return uint32_t(uint8_t(a)) | (uint32_t(uint8_t(b)) << 8) | (uint32_t(uint8_t(c)) << 16)
        | (uint32_t(uint8_t(d)) << 24);
}

constexpr uint32_t kDdsMagic = fourCC('D', 'D', 'S', ' ');
constexpr uint32_t kDx10 = fourCC('D', 'X', '1', '0');
constexpr uint32_t kFlagRgb = 0x40;
constexpr uint32_t kFlagLuminance = 0x20000;
constexpr uint32_t kCaps2Cubemap = 0x200;
constexpr uint32_t kCaps2AllFaces = 0xFC00;
constexpr uint32_t kCaps2Volume = 0x200000;
constexpr uint32_t kDimensionTexture3D = 4;
constexpr uint32_t kMiscTextureCube = 0x4;
constexpr uint32_t kCubeFaces = 6;
constexpr uint16_t kCubeTextureFlags = 0x0801;

constexpr uint32_t kHeaderSize = 128;
constexpr uint32_t kDx10HeaderSize = 148;
constexpr uint32_t kMaxChunkCount = 4;
constexpr uint64_t kSingleMipChunkArea = 512 * 512;
constexpr uint32_t kMaxMipCount = 255;    // the record keeps 8 bits
constexpr uint32_t kMaxDimension = 65535; // and 16 bits per side

// The DXGI code of a legacy FourCC.
bool fromFourCC(uint32_t code, uint8_t& format)
{
    struct Row
    {
        uint32_t code;
        uint8_t format;
    };
    static const Row rows[] = {
        {fourCC('D', 'X', 'T', '1'), 71},
        {fourCC('D', 'X', 'T', '3'), 74},
        {fourCC('D', 'X', 'T', '5'), 77},
        {fourCC('B', 'C', '4', 'U'), 80},
        {fourCC('B', 'C', '5', 'U'), 83},
        {fourCC('B', 'C', '5', 'S'), 84},
        {36, 11},  // Direct3D 9 A16B16G16R16
        {113, 10}, // Direct3D 9 A16B16G16R16F
    };
    for (const Row& r : rows) {
        if (r.code == code) {
            format = r.format;
            return true;
        }
    }
    return false;
}

// The DXGI code of an uncompressed layout described by masks.
bool fromMasks(const unsigned char* h, uint8_t& format)
{
    const uint32_t flags = ba2::readLE32(h + 80);
    const uint32_t bits = ba2::readLE32(h + 88);
    const uint32_t r = ba2::readLE32(h + 92), g = ba2::readLE32(h + 96);
    const uint32_t b = ba2::readLE32(h + 100), a = ba2::readLE32(h + 104);
    if (bits == 8 && r == 0xFF && g == 0 && b == 0 && a == 0) {
        // Luminance is R8_UNORM; the RGB flag is how extraction describes R8_SNORM.
        if (flags & kFlagLuminance)
            format = 61;
        else if (flags & kFlagRgb)
            format = 63;
        else
            return false;
        return true;
    }
    if (!(flags & kFlagRgb) || bits != 32 || g != 0xFF00 || a != 0xFF000000u) return false;
    if (r == 0xFF && b == 0xFF0000) {
        format = 28;
        return true;
    }
    if (r == 0xFF0000 && b == 0xFF) {
        format = 87;
        return true;
    }
    return false;
}

// Bytes of one mip level. Block formats count whole 4x4 blocks, so sides that are not multiples
// of 4 round up, as the data of such levels really is laid out.
uint64_t levelSize(uint8_t format, uint32_t width, uint32_t height, uint32_t level)
{
    // Sides stop halving at 1; counts can run past 32 levels.
    const uint32_t w = level < 32 ? width >> level : 0, h = level < 32 ? height >> level : 0;
    return dxgiLevelSize(format, std::max(w, 1u), std::max(h, 1u));
}

} // namespace

LayoutStatus layoutTexture(const char* bytes, uint64_t size, TextureLayout& layout)
{
    const unsigned char* h = reinterpret_cast<const unsigned char*>(bytes);
    if (size < 4 || ba2::readLE32(h) != kDdsMagic) return LayoutStatus::DdsFileError;
    if (size < kHeaderSize) return LayoutStatus::DdsFileError;

    const uint32_t height = ba2::readLE32(h + 12);
    const uint32_t width = ba2::readLE32(h + 16);
    uint32_t mipCount = ba2::readLE32(h + 28);
    const uint32_t code = ba2::readLE32(h + 84);

    uint8_t format = 0;
    uint32_t dataStart = kHeaderSize;
    if (code == kDx10) {
        if (size < kDx10HeaderSize) return LayoutStatus::DdsFileError;
        dataStart = kDx10HeaderSize;
        // Any format whose levels have a size from width and height alone.
        const uint32_t dxgi = ba2::readLE32(h + 128);
        if (dxgi > 255 || dxgiFormat(dxgi).layout == DxgiLayout::Unsized)
            return LayoutStatus::UnsupportedFormat;
        format = uint8_t(dxgi);
    } else if (code == 0) {
        if (!fromMasks(h, format)) return LayoutStatus::UnsupportedFormat;
    } else if (!fromFourCC(code, format)) {
        return LayoutStatus::UnsupportedFormat;
    }

    if (width == 0 || height == 0 || width > kMaxDimension || height > kMaxDimension)
        return LayoutStatus::DdsFileError;
    // Writers that leave the count at 0 mean a single level.
    if (mipCount == 0) mipCount = 1;
    if (mipCount > kMaxMipCount) return LayoutStatus::DdsFileError;

    // A record holds one 2-D texture or one whole cube map; storing the first surface of
    // anything else would drop the rest without a word.
    const uint32_t caps2 = ba2::readLE32(h + 112);
    bool cube = (caps2 & kCaps2Cubemap) != 0;
    if (cube && (caps2 & kCaps2AllFaces) != kCaps2AllFaces) return LayoutStatus::DdsFileError;
    if (caps2 & kCaps2Volume) return LayoutStatus::DdsFileError;
    if (code == kDx10) {
        if (ba2::readLE32(h + 132) == kDimensionTexture3D || ba2::readLE32(h + 140) != 1)
            return LayoutStatus::DdsFileError;
        if (ba2::readLE32(h + 136) & kMiscTextureCube) cube = true;
    }

    uint64_t chain = 0;
    for (uint32_t m = 0; m < mipCount; ++m)
        chain += levelSize(format, width, height, m);
    // Cube faces follow one another, each with its whole mip chain.
    if (cube) chain *= kCubeFaces;
    // Offsets and sizes are kept in 32 bits; the chain must also lie within the file.
    if (dataStart + chain > 0xFFFFFFFFu || size < dataStart + chain)
        return LayoutStatus::DdsFileError;

    layout = TextureLayout();
    layout.height = height;
    layout.width = width;
    layout.mipCount = mipCount;
    layout.format = format;
    layout.dataStart = dataStart;
    layout.dataSize = uint32_t(chain);

    // A cube map is one chunk: the faces interleave the levels, so no level run is contiguous.
    if (mipCount == 1 || cube) {
        ChunkPlan& c = layout.chunks[0];
        c.sourceOffset = dataStart;
        c.unpackedSize = uint32_t(chain);
        c.lastMip = uint16_t(mipCount - 1);
        layout.chunkCount = 1;
        if (cube) layout.textureFlags = kCubeTextureFlags;
        return LayoutStatus::Ok;
    }

    // Levels of at least 512x512 pixels get a chunk each (three at most); the rest share the last.
    uint64_t area = uint64_t(width) * height;
    uint64_t remaining = chain;
    uint64_t start = dataStart;
    for (uint32_t k = 0; k < kMaxChunkCount; ++k) {
        ChunkPlan& c = layout.chunks[k];
        c.sourceOffset = uint32_t(start);
        c.firstMip = uint16_t(k);
        layout.chunkCount = uint8_t(k + 1);
        if (area < kSingleMipChunkArea || k + 1 == kMaxChunkCount) {
            c.unpackedSize = uint32_t(remaining);
            c.lastMip = uint16_t(mipCount - 1);
            break;
        }
        const uint64_t mipBytes = levelSize(format, width, height, k);
        c.unpackedSize = uint32_t(mipBytes);
        c.lastMip = uint16_t(k);
        start += mipBytes;
        remaining -= mipBytes;
        area >>= 2;
        if (remaining == 0) {
            c.lastMip = uint16_t(mipCount - 1);
            break;
        }
    }
    return LayoutStatus::Ok;
}

#include "archive/ddsheader.h"

#include "archive/archivereader.h"
#include "archive/dxgi.h"
#include "archive/format.h"

#include <cstring>

namespace {

constexpr uint32_t fourCC(const char (&c)[5])
{
    return uint32_t(uint8_t(c[0])) | (uint32_t(uint8_t(c[1])) << 8)
        | (uint32_t(uint8_t(c[2])) << 16) | (uint32_t(uint8_t(c[3])) << 24);
}

constexpr uint32_t kFourCC = 0x4;
constexpr uint32_t kRgb = 0x40;
constexpr uint32_t kRgbAlpha = 0x41;
constexpr uint32_t kLuminance = 0x20000;

constexpr uint32_t kPitchFlags = 0x100F;   // caps, height, width, pitch, pixel format
constexpr uint32_t kLinearFlags = 0x81007; // caps, height, width, pixel format, linear size
constexpr uint32_t kMipCountFlag = 0x20000;
constexpr uint32_t kCapsTexture = 0x1000;
constexpr uint32_t kCapsMipmapped = 0x401008; // complex | texture | mipmap
constexpr uint32_t kCapsComplex = 0x8;
constexpr uint32_t kCaps2CubeAllFaces = 0xFE00;
constexpr uint32_t kMiscTextureCube = 0x4;

enum SizeRule : uint8_t { Pitch, Linear };

struct FormatRow
{
    uint8_t code;
    uint32_t pixelFlags;
    uint32_t fourCC;
    uint32_t bitCount;
    uint32_t masks[4]; // red, green, blue, alpha
    SizeRule rule;
    uint8_t bytes; // per pixel (pitch) or per 4x4 block (linear)
    bool dx10;
};

const FormatRow kFormats[] = {
    {10, kFourCC, 113, 0, {0, 0, 0, 0}, Pitch, 8, false},
    {11, kFourCC, 36, 0, {0, 0, 0, 0}, Pitch, 8, false},
    {28, kRgbAlpha, 0, 32, {0x000000FF, 0x0000FF00, 0x00FF0000, 0xFF000000}, Pitch, 4, false},
    {29, kFourCC, fourCC("DX10"), 0, {0, 0, 0, 0}, Pitch, 4, true},
    {31, kFourCC, fourCC("DX10"), 0, {0, 0, 0, 0}, Pitch, 4, true},
    {61, kLuminance, 0, 8, {0x000000FF, 0, 0, 0}, Pitch, 1, false},
    {63, kRgb, 0, 8, {0x000000FF, 0, 0, 0}, Pitch, 1, false},
    {71, kFourCC, fourCC("DXT1"), 0, {0, 0, 0, 0}, Linear, 8, false},
    {72, kFourCC, fourCC("DX10"), 0, {0, 0, 0, 0}, Linear, 8, true},
    {74, kFourCC, fourCC("DXT3"), 0, {0, 0, 0, 0}, Linear, 16, false},
    {77, kFourCC, fourCC("DXT5"), 0, {0, 0, 0, 0}, Linear, 16, false},
    {78, kFourCC, fourCC("DX10"), 0, {0, 0, 0, 0}, Linear, 16, true},
    {80, kFourCC, fourCC("BC4U"), 0, {0, 0, 0, 0}, Linear, 8, false},
    {83, kFourCC, fourCC("BC5U"), 0, {0, 0, 0, 0}, Linear, 16, false},
    {84, kFourCC, fourCC("BC5S"), 0, {0, 0, 0, 0}, Linear, 16, false},
    {87, kRgbAlpha, 0, 32, {0x00FF0000, 0x0000FF00, 0x000000FF, 0xFF000000}, Pitch, 4, false},
    {95, kFourCC, fourCC("DX10"), 0, {0, 0, 0, 0}, Linear, 16, true},
    {98, kFourCC, fourCC("DX10"), 0, {0, 0, 0, 0}, Linear, 16, true},
    {99, kFourCC, fourCC("DX10"), 0, {0, 0, 0, 0}, Linear, 16, true},
};

const FormatRow* findFormat(uint8_t code)
{
    for (const FormatRow& row : kFormats)
        if (row.code == code) return &row;
    return nullptr;
}

// Any other format with a fixed size is described only by its DXGI code in the extension.
bool describedByCode(uint8_t code)
{
    return dxgiFormat(code).layout != DxgiLayout::Unsized;
}

} // namespace

void initDdsHeader(unsigned char header[kDdsHeaderCapacity])
{
    std::memset(header, 0, kDdsHeaderCapacity);
    ba2::writeLE32(header + 0, fourCC("DDS "));
    ba2::writeLE32(header + 4, 124);
    ba2::writeLE32(header + 76, 32);
}

bool ddsFormatSupported(uint8_t format)
{
    return findFormat(format) != nullptr || describedByCode(format);
}

int buildDdsHeader(unsigned char header[kDdsHeaderCapacity], const FileRecord& record)
{
    const FormatRow* row = findFormat(record.format);
    const DxgiFormat& dxgi = dxgiFormat(record.format);
    if (!row && dxgi.layout == DxgiLayout::Unsized) return 0;

    const uint32_t width = record.width;
    const uint32_t height = record.height;
    uint32_t flags;
    uint32_t pitchOrLinearSize;
    if (!row) {
        // Partial blocks and bytes count in full here, as DirectX-10-style readers expect.
        const bool block = dxgi.layout == DxgiLayout::Block;
        flags = block ? kLinearFlags : kPitchFlags;
        pitchOrLinearSize = uint32_t(block ? dxgiLevelSize(record.format, width, height)
                                           : dxgiRowPitch(record.format, width));
    } else if (row->rule == Pitch) {
        flags = kPitchFlags;
        pitchOrLinearSize = width * row->bytes;
    } else {
        // Whole blocks of the first level only, wrapping as the 32-bit field does.
        flags = kLinearFlags;
        pitchOrLinearSize = ((width * height) >> 4) * row->bytes;
    }
    if (record.mipCount != 0) flags |= kMipCountFlag;

    ba2::writeLE32(header + 8, flags);
    ba2::writeLE32(header + 12, height);
    ba2::writeLE32(header + 16, width);
    ba2::writeLE32(header + 20, pitchOrLinearSize);
    ba2::writeLE32(header + 24, 1);
    ba2::writeLE32(header + 28, record.mipCount);
    static const FormatRow byCode = {0, kFourCC, fourCC("DX10"), 0, {0, 0, 0, 0}, Pitch, 0, true};
    if (!row) row = &byCode;
    ba2::writeLE32(header + 80, row->pixelFlags);
    ba2::writeLE32(header + 84, row->fourCC);
    ba2::writeLE32(header + 88, row->bitCount);
    for (int i = 0; i < 4; ++i)
        ba2::writeLE32(header + 92 + 4 * i, row->masks[i]);
    // Readers take a cube map for one only when it is also marked as a complex surface.
    const bool cube = record.textureFlags & 1;
    uint32_t caps = record.mipCount > 1 ? kCapsMipmapped : kCapsTexture;
    if (cube) caps |= kCapsComplex;
    ba2::writeLE32(header + 108, caps);
    ba2::writeLE32(header + 112, cube ? kCaps2CubeAllFaces : 0);

    if (!row->dx10) return 128;
    ba2::writeLE32(header + 128, record.format);
    ba2::writeLE32(header + 132, 3);                           // texture 2D
    ba2::writeLE32(header + 136, cube ? kMiscTextureCube : 0); // six faces in one array slice
    ba2::writeLE32(header + 140, 1);                           // array size
    ba2::writeLE32(header + 144, 0);
    return 148;
}

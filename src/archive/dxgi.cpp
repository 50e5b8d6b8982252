#include "archive/dxgi.h"

#include <algorithm>
#include <array>

namespace {

struct Row
{
    uint8_t code;
    DxgiFormat format;
};

constexpr DxgiLayout P = DxgiLayout::Pixel;
constexpr DxgiLayout B = DxgiLayout::Block;
constexpr DxgiLayout U = DxgiLayout::Unsized;

// Microsoft's DXGI_FORMAT enumeration. Formats whose pixels come in pairs sharing one chroma
// sample (R8G8_B8G8, the 4:2:2 and 4:2:0 video layouts) and palettised video formats are kept
// unsized: a plain width x bits rule does not describe them.
const Row kRows[] = {
    {0, {"UNKNOWN", U, 0}},
    {1, {"R32G32B32A32_TYPELESS", P, 128}},
    {2, {"R32G32B32A32_FLOAT", P, 128}},
    {3, {"R32G32B32A32_UINT", P, 128}},
    {4, {"R32G32B32A32_SINT", P, 128}},
    {5, {"R32G32B32_TYPELESS", P, 96}},
    {6, {"R32G32B32_FLOAT", P, 96}},
    {7, {"R32G32B32_UINT", P, 96}},
    {8, {"R32G32B32_SINT", P, 96}},
    {9, {"R16G16B16A16_TYPELESS", P, 64}},
    {10, {"R16G16B16A16_FLOAT", P, 64}},
    {11, {"R16G16B16A16_UNORM", P, 64}},
    {12, {"R16G16B16A16_UINT", P, 64}},
    {13, {"R16G16B16A16_SNORM", P, 64}},
    {14, {"R16G16B16A16_SINT", P, 64}},
    {15, {"R32G32_TYPELESS", P, 64}},
    {16, {"R32G32_FLOAT", P, 64}},
    {17, {"R32G32_UINT", P, 64}},
    {18, {"R32G32_SINT", P, 64}},
    {19, {"R32G8X24_TYPELESS", P, 64}},
    {20, {"D32_FLOAT_S8X24_UINT", P, 64}},
    {21, {"R32_FLOAT_X8X24_TYPELESS", P, 64}},
    {22, {"X32_TYPELESS_G8X24_UINT", P, 64}},
    {23, {"R10G10B10A2_TYPELESS", P, 32}},
    {24, {"R10G10B10A2_UNORM", P, 32}},
    {25, {"R10G10B10A2_UINT", P, 32}},
    {26, {"R11G11B10_FLOAT", P, 32}},
    {27, {"R8G8B8A8_TYPELESS", P, 32}},
    {28, {"R8G8B8A8_UNORM", P, 32}},
    {29, {"R8G8B8A8_UNORM_SRGB", P, 32}},
    {30, {"R8G8B8A8_UINT", P, 32}},
    {31, {"R8G8B8A8_SNORM", P, 32}},
    {32, {"R8G8B8A8_SINT", P, 32}},
    {33, {"R16G16_TYPELESS", P, 32}},
    {34, {"R16G16_FLOAT", P, 32}},
    {35, {"R16G16_UNORM", P, 32}},
    {36, {"R16G16_UINT", P, 32}},
    {37, {"R16G16_SNORM", P, 32}},
    {38, {"R16G16_SINT", P, 32}},
    {39, {"R32_TYPELESS", P, 32}},
    {40, {"D32_FLOAT", P, 32}},
    {41, {"R32_FLOAT", P, 32}},
    {42, {"R32_UINT", P, 32}},
    {43, {"R32_SINT", P, 32}},
    {44, {"R24G8_TYPELESS", P, 32}},
    {45, {"D24_UNORM_S8_UINT", P, 32}},
    {46, {"R24_UNORM_X8_TYPELESS", P, 32}},
    {47, {"X24_TYPELESS_G8_UINT", P, 32}},
    {48, {"R8G8_TYPELESS", P, 16}},
    {49, {"R8G8_UNORM", P, 16}},
    {50, {"R8G8_UINT", P, 16}},
    {51, {"R8G8_SNORM", P, 16}},
    {52, {"R8G8_SINT", P, 16}},
    {53, {"R16_TYPELESS", P, 16}},
    {54, {"R16_FLOAT", P, 16}},
    {55, {"D16_UNORM", P, 16}},
    {56, {"R16_UNORM", P, 16}},
    {57, {"R16_UINT", P, 16}},
    {58, {"R16_SNORM", P, 16}},
    {59, {"R16_SINT", P, 16}},
    {60, {"R8_TYPELESS", P, 8}},
    {61, {"R8_UNORM", P, 8}},
    {62, {"R8_UINT", P, 8}},
    {63, {"R8_SNORM", P, 8}},
    {64, {"R8_SINT", P, 8}},
    {65, {"A8_UNORM", P, 8}},
    {66, {"R1_UNORM", P, 1}},
    {67, {"R9G9B9E5_SHAREDEXP", P, 32}},
    {68, {"R8G8_B8G8_UNORM", U, 0}},
    {69, {"G8R8_G8B8_UNORM", U, 0}},
    {70, {"BC1_TYPELESS", B, 8}},
    {71, {"BC1_UNORM", B, 8}},
    {72, {"BC1_UNORM_SRGB", B, 8}},
    {73, {"BC2_TYPELESS", B, 16}},
    {74, {"BC2_UNORM", B, 16}},
    {75, {"BC2_UNORM_SRGB", B, 16}},
    {76, {"BC3_TYPELESS", B, 16}},
    {77, {"BC3_UNORM", B, 16}},
    {78, {"BC3_UNORM_SRGB", B, 16}},
    {79, {"BC4_TYPELESS", B, 8}},
    {80, {"BC4_UNORM", B, 8}},
    {81, {"BC4_SNORM", B, 8}},
    {82, {"BC5_TYPELESS", B, 16}},
    {83, {"BC5_UNORM", B, 16}},
    {84, {"BC5_SNORM", B, 16}},
    {85, {"B5G6R5_UNORM", P, 16}},
    {86, {"B5G5R5A1_UNORM", P, 16}},
    {87, {"B8G8R8A8_UNORM", P, 32}},
    {88, {"B8G8R8X8_UNORM", P, 32}},
    {89, {"R10G10B10_XR_BIAS_A2_UNORM", P, 32}},
    {90, {"B8G8R8A8_TYPELESS", P, 32}},
    {91, {"B8G8R8A8_UNORM_SRGB", P, 32}},
    {92, {"B8G8R8X8_TYPELESS", P, 32}},
    {93, {"B8G8R8X8_UNORM_SRGB", P, 32}},
    {94, {"BC6H_TYPELESS", B, 16}},
    {95, {"BC6H_UF16", B, 16}},
    {96, {"BC6H_SF16", B, 16}},
    {97, {"BC7_TYPELESS", B, 16}},
    {98, {"BC7_UNORM", B, 16}},
    {99, {"BC7_UNORM_SRGB", B, 16}},
    {100, {"AYUV", U, 0}},
    {101, {"Y410", U, 0}},
    {102, {"Y416", U, 0}},
    {103, {"NV12", U, 0}},
    {104, {"P010", U, 0}},
    {105, {"P016", U, 0}},
    {106, {"420_OPAQUE", U, 0}},
    {107, {"YUY2", U, 0}},
    {108, {"Y210", U, 0}},
    {109, {"Y216", U, 0}},
    {110, {"NV11", U, 0}},
    {111, {"AI44", U, 0}},
    {112, {"IA44", U, 0}},
    {113, {"P8", U, 0}},
    {114, {"A8P8", U, 0}},
    {115, {"B4G4R4A4_UNORM", P, 16}},
    {130, {"P208", U, 0}},
    {131, {"V208", U, 0}},
    {132, {"V408", U, 0}},
    {189, {"SAMPLER_FEEDBACK_MIN_MIP_OPAQUE", U, 0}},
    {190, {"SAMPLER_FEEDBACK_MIP_REGION_USED_OPAQUE", U, 0}},
    {191, {"A4B4G4R4_UNORM", P, 16}},
};

const std::array<DxgiFormat, 256>& table()
{
    static const std::array<DxgiFormat, 256> formats = [] {
        std::array<DxgiFormat, 256> all;
        all.fill({nullptr, U, 0});
        for (const Row& row : kRows)
            all[row.code] = row.format;
        return all;
    }();
    return formats;
}

} // namespace

const DxgiFormat& dxgiFormat(uint32_t code)
{
    static const DxgiFormat unassigned {nullptr, U, 0};
    return code < 256 ? table()[code] : unassigned;
}

uint64_t dxgiRowPitch(uint32_t code, uint32_t width)
{
    const DxgiFormat& f = dxgiFormat(code);
    if (f.layout == DxgiLayout::Pixel) return (uint64_t(width) * f.size + 7) / 8;
    if (f.layout == DxgiLayout::Block)
        return std::max<uint64_t>(1, (uint64_t(width) + 3) / 4) * f.size;
    return 0;
}

uint64_t dxgiLevelSize(uint32_t code, uint32_t width, uint32_t height)
{
    const DxgiFormat& f = dxgiFormat(code);
    if (f.layout == DxgiLayout::Block)
        return dxgiRowPitch(code, width) * std::max<uint64_t>(1, (uint64_t(height) + 3) / 4);
    return dxgiRowPitch(code, width) * height;
}

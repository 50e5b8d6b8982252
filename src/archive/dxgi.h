#pragma once
// The DXGI pixel formats a texture record names by code, with the storage size of each.

#include <cstdint>

// How a format stores its pixels: a fixed number of bits per pixel, a fixed number of bytes
// per 4x4 block, or nothing we can size from width and height alone (unknown and unassigned
// codes, video formats with subsampled or separate planes, opaque formats).
enum class DxgiLayout : uint8_t { Unsized, Pixel, Block };

struct DxgiFormat
{
    const char* name; // without the DXGI_FORMAT_ prefix; null for an unassigned code
    DxgiLayout layout;
    uint8_t size; // bits per pixel (Pixel) or bytes per 4x4 block (Block); 0 when Unsized
};

// The description of a code; every value is valid (unassigned codes are Unsized, name null).
const DxgiFormat& dxgiFormat(uint32_t code);

// Bytes of one row of pixels (Pixel: width x bits, rounded up to whole bytes) or of one row of
// 4x4 blocks (Block: the blocks a width needs, at least one). 0 for an Unsized format.
uint64_t dxgiRowPitch(uint32_t code, uint32_t width);
// Bytes of one whole level of width x height pixels (blocks rounded up, at least one each way
// for a block format). 0 for an Unsized format.
uint64_t dxgiLevelSize(uint32_t code, uint32_t width, uint32_t height);

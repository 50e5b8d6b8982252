#pragma once
// DDS file header rebuilt from a texture record on extraction.

#include <cstdint>

struct FileRecord;

constexpr int kDdsHeaderCapacity = 148;

// Clears the array and sets the fields that never change (magic, sizes); once per extraction.
void initDdsHeader(unsigned char header[kDdsHeaderCapacity]);
// Fills the per-texture fields from the record. Returns the bytes to write (128, or 148 with
// the DX10 extension), or 0 when the record's format has no fixed size per pixel or per block.
int buildDdsHeader(unsigned char header[kDdsHeaderCapacity], const FileRecord& record);
// True when buildDdsHeader can describe the DXGI format code.
bool ddsFormatSupported(uint8_t format);

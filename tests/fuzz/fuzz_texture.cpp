// Arbitrary bytes as a DDS file: the analysis must stay inside the data and its chunks must
// tile exactly the mip chain it reports, ending at the last level; a cube map is one chunk of
// six equal faces.
#include "creation/texturelayout.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    TextureLayout layout;
    if (layoutTexture(reinterpret_cast<const char*>(data), size, layout) != LayoutStatus::Ok)
        return 0;
    if (layout.chunkCount < 1 || layout.chunkCount > 4) std::abort();
    uint64_t offset = layout.dataStart, total = 0;
    for (int i = 0; i < layout.chunkCount; ++i) {
        if (layout.chunks[i].sourceOffset != offset) std::abort();
        offset += layout.chunks[i].unpackedSize;
        total += layout.chunks[i].unpackedSize;
    }
    if (total != layout.dataSize || offset > size) std::abort();
    if (layout.chunks[layout.chunkCount - 1].lastMip + 1u != layout.mipCount) std::abort();
    if (layout.textureFlags != 0x0800
        && (layout.textureFlags != 0x0801 || layout.chunkCount != 1 || layout.dataSize % 6 != 0))
        std::abort();
    return 0;
}

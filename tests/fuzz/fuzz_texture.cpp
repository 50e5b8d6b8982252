// Arbitrary bytes as a DDS file: the analysis must stay inside the data and its chunks must
// tile exactly the mip chain it reports.
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
    return 0;
}

// Our large-table LZ4 compressor against the library's decoder: every input must come back.
#include "creation/codecs.h"

#include <lz4.h>

#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const char* src = reinterpret_cast<const char*>(data);
    std::vector<char> packed(lz4Bound(size));
    const int n = compressLz4Large(src, int(size), packed.data(), int(packed.size()));
    if (n <= 0 && size > 0) std::abort();
    if (size == 0) return 0;
    std::vector<char> back(size);
    if (LZ4_decompress_safe(packed.data(), back.data(), n, int(size)) != int(size)) std::abort();
    if (memcmp(back.data(), src, size) != 0) std::abort();
    // A destination one byte too small must fail cleanly, never overflow.
    std::vector<char> tight(size_t(n) - 1);
    if (compressLz4Large(src, int(size), tight.data(), int(tight.size())) > int(tight.size()))
        std::abort();
    return 0;
}

#include "creation/codecs.h"

#include <lz4.h>

#include <climits>
#include <cstring>

#ifdef ZARNEL_HAVE_LIBDEFLATE
#include <libdeflate.h>
#endif

QByteArray compressZlib(const char* source, uint32_t length, int level)
{
    if (length > uint32_t(INT_MAX)) return QByteArray();
    // Qt's framing is kept: the caller stores the array from offset 4 on.
    return qCompress(reinterpret_cast<const uchar*>(source), int(length), level);
}

#ifdef ZARNEL_HAVE_LIBDEFLATE

namespace {

// One decompressor per thread, made on first use and freed when the thread ends.
struct Inflater {
    libdeflate_decompressor* handle = libdeflate_alloc_decompressor();
    Inflater() = default;
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
    ~Inflater()
    {
        if (handle) libdeflate_free_decompressor(handle);
    }
};

}  // namespace

bool decompressZlib(const char* stored, uint32_t packedSize, char* destination, uint32_t unpackedSize)
{
    // Same verdicts as qUncompress behind a size prefix, without the extra copy and buffer.
    if (packedSize == 0) return false;
    thread_local Inflater inflater;
    if (!inflater.handle) return false;
    size_t produced = 0;
    const libdeflate_result r = libdeflate_zlib_decompress(inflater.handle, stored, packedSize, destination,
                                                           unpackedSize, &produced);
    return r == LIBDEFLATE_SUCCESS && produced == unpackedSize;
}

#else

bool decompressZlib(const char* stored, uint32_t packedSize, char* destination, uint32_t unpackedSize)
{
    if (packedSize == 0 || packedSize > uint32_t(INT_MAX) - 4) return false;
    QByteArray input(int(packedSize) + 4, Qt::Uninitialized);
    uchar* p = reinterpret_cast<uchar*>(input.data());
    p[0] = uchar(unpackedSize >> 24);
    p[1] = uchar(unpackedSize >> 16);
    p[2] = uchar(unpackedSize >> 8);
    p[3] = uchar(unpackedSize);
    std::memcpy(p + 4, stored, packedSize);
    const QByteArray out = qUncompress(p, input.size());
    // A null array is qUncompress's failure; an empty but valid stream gives a non-null one.
    if (out.isNull() || uint32_t(out.size()) != unpackedSize) return false;
    std::memcpy(destination, out.constData(), unpackedSize);
    return true;
}

#endif

int compressLz4(const char* source, int length, char* destination, int capacity)
{
    const int n = LZ4_compress_default(source, destination, length, capacity);
    return n > 0 ? n : 0;
}

bool decompressLz4(const char* stored, uint32_t packedSize, char* destination, uint32_t capacity,
                   uint32_t unpackedSize)
{
    if (packedSize > uint32_t(INT_MAX) || unpackedSize > capacity) return false;
    const int room = capacity > uint32_t(INT_MAX) ? INT_MAX : int(capacity);
    const int n = LZ4_decompress_safe(stored, destination, int(packedSize), room);
    return n >= 0 && uint32_t(n) == unpackedSize;
}

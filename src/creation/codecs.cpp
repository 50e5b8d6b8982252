#include "creation/codecs.h"

#include <lz4.h>
#include <zlib.h>

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

ZlibEngine effectiveZlibEngine(ZlibEngine engine, int level)
{
#ifdef ZARNEL_HAVE_LIBDEFLATE
    if (engine != ZlibEngine::Auto) return engine;
    // Measured on texture-like, mesh-like and incompressible data (bench/README.md): from level 2
    // on, libdeflate packs each as small or smaller and runs faster; at level 1 its greedy
    // matching loses about 7 points on mesh-like data, so zlib keeps that level.
    static const bool libdeflateWins[10]
        = {false, false, true, true, true, true, true, true, true, true};
    return level >= 0 && level <= 9 && libdeflateWins[level] ? ZlibEngine::Libdeflate
                                                             : ZlibEngine::Zlib;
#else
    (void)engine;
    (void)level;
    return ZlibEngine::Zlib;
#endif
}

ZlibCompressor::ZlibCompressor(int level, ZlibEngine engine)
    : level(level)
    , engine(effectiveZlibEngine(engine, level))
{ }

ZlibCompressor::~ZlibCompressor()
{
#ifdef ZARNEL_HAVE_LIBDEFLATE
    libdeflate_free_compressor(deflater);
#endif
}

int64_t ZlibCompressor::compress(const char* source, uint32_t length, char* destination,
                                 uint64_t capacity)
{
    if (level < 1 || level > 9 || length > uint32_t(INT_MAX) || capacity < bound(length)) return -1;
    if (length == 0) return 0;
#ifdef ZARNEL_HAVE_LIBDEFLATE
    if (engine == ZlibEngine::Libdeflate) {
        if (!deflater) deflater = libdeflate_alloc_compressor(level);
        if (!deflater) return -1;
        const size_t n
            = libdeflate_zlib_compress(deflater, source, length, destination, size_t(capacity));
        return n > 0 ? int64_t(n) : -1;
    }
#endif
    // qCompress is compress2 behind a size prefix; called directly it writes the very same
    // stream straight into the caller's buffer, without a second copy of the block.
    uLongf produced = uLongf(capacity);
    if (compress2(reinterpret_cast<Bytef*>(destination), &produced,
                  reinterpret_cast<const Bytef*>(source), uLong(length), level)
        != Z_OK)
        return -1;
    return int64_t(produced);
}

#ifdef ZARNEL_HAVE_LIBDEFLATE

namespace {

// One decompressor per thread, made on first use and freed when the thread ends.
struct Inflater
{
    libdeflate_decompressor* handle = libdeflate_alloc_decompressor();
    Inflater() = default;
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
    ~Inflater()
    {
        if (handle) libdeflate_free_decompressor(handle);
    }
};

} // namespace

bool decompressZlib(const char* stored, uint32_t packedSize, char* destination,
                    uint32_t unpackedSize)
{
    // Same verdicts as qUncompress behind a size prefix, without the extra copy and buffer.
    if (packedSize == 0) return false;
    thread_local Inflater inflater;
    if (!inflater.handle) return false;
    size_t produced = 0;
    const libdeflate_result r = libdeflate_zlib_decompress(inflater.handle, stored, packedSize,
                                                           destination, unpackedSize, &produced);
    return r == LIBDEFLATE_SUCCESS && produced == unpackedSize;
}

#else

bool decompressZlib(const char* stored, uint32_t packedSize, char* destination,
                    uint32_t unpackedSize)
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

#include "creation/codecs.h"

#include <lz4.h>
#include <zlib.h>

#include <libdeflate.h>

#include <climits>

QByteArray compressZlib(const char* source, uint32_t length, int level)
{
    if (length > uint32_t(INT_MAX)) return QByteArray();
    // Qt's framing is kept: the caller stores the array from offset 4 on.
    return qCompress(reinterpret_cast<const uchar*>(source), int(length), level);
}

ZlibEngine effectiveZlibEngine(ZlibEngine engine, int level)
{
    if (engine != ZlibEngine::Auto) return engine;
    // Measured on texture-like, mesh-like and incompressible data (bench/README.md): from level 2
    // on, libdeflate packed each of those as small or smaller and ran faster; at level 1 its
    // greedy matching lost about 7 points on mesh-like data, so zlib keeps that level.
    static const bool libdeflateWins[10]
        = {false, false, true, true, true, true, true, true, true, true};
    return level >= 0 && level <= 9 && libdeflateWins[level] ? ZlibEngine::Libdeflate
                                                             : ZlibEngine::Zlib;
}

ZlibCompressor::ZlibCompressor(int level, ZlibEngine engine)
    : level(level)
    , engine(effectiveZlibEngine(engine, level))
{ }

ZlibCompressor::~ZlibCompressor()
{
    libdeflate_free_compressor(deflater);
}

int64_t ZlibCompressor::compress(const char* source, uint32_t length, char* destination,
                                 uint64_t capacity)
{
    if (level < 1 || level > 9 || length > uint32_t(INT_MAX) || capacity < bound(length)) return -1;
    if (length == 0) return 0;
    if (engine == ZlibEngine::Libdeflate) {
        if (!deflater) deflater = libdeflate_alloc_compressor(level);
        if (!deflater) return -1;
        const size_t n
            = libdeflate_zlib_compress(deflater, source, length, destination, size_t(capacity));
        return n > 0 ? int64_t(n) : -1;
    }
    // qCompress is compress2 behind a size prefix; called directly it writes the very same
    // stream straight into the caller's buffer, without a second copy of the block.
    uLongf produced = uLongf(capacity);
    if (compress2(reinterpret_cast<Bytef*>(destination), &produced,
                  reinterpret_cast<const Bytef*>(source), uLong(length), level)
        != Z_OK)
        return -1;
    return int64_t(produced);
}

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

QString codecLibraryVersions()
{
    // libdeflate tells its version only at compile time; the other two say which library is
    // actually loaded.
    return QStringLiteral("zlib %1, libdeflate %2, lz4 %3")
        .arg(QLatin1String(zlibVersion()), QLatin1String(LIBDEFLATE_VERSION_STRING),
             QLatin1String(LZ4_versionString()));
}

#include "creation/codecs.h"

#include "testutil.h"

#include <QtEndian>
#include <QtTest>

#include <lz4.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

Q_DECLARE_METATYPE(ZlibEngine)

namespace {

// Deterministic generator for the test inputs.
uint32_t nextRandom(uint64_t& s)
{
    s ^= s << 13;
    s ^= s >> 7;
    s ^= s << 17;
    return uint32_t(s >> 16);
}
uint32_t below(uint64_t& s, uint32_t n)
{
    return nextRandom(s) % n;
}

// Literal runs, byte runs and copies from near and far back (some beyond LZ4's 64 KiB window).
QByteArray mixedBytes(int size, uint64_t seed)
{
    uint64_t r = seed * 0x9E3779B97F4A7C15ull + 1;
    QByteArray out;
    out.reserve(size);
    while (out.size() < size) {
        const uint32_t kind = below(r, 10);
        if (kind < 4 || out.size() < 16) {
            for (int n = 1 + int(below(r, 120)); n > 0; --n)
                out.append(char(nextRandom(r)));
        } else if (kind < 5) {
            out.append(QByteArray(4 + int(below(r, 600)), char(nextRandom(r))));
        } else {
            const int back
                = 1 + int(below(r, uint32_t(std::min(out.size(), kind < 8 ? 4000 : 120000))));
            for (int n = 4 + int(below(r, kind == 9 ? 3000 : 60)); n > 0; --n)
                out.append(out[out.size() - back]);
        }
    }
    out.truncate(size);
    return out;
}

// Random bytes in which the bytes the lz4 compressor hashes at 10 (four, or five from 65,547 bytes
// on) recur at 50, and those at 30 get the same table index but for its lowest bit in a 2^28-entry
// table (2^29 two-byte): a table that large keeps the first and finds the match, one a quarter the
// size not.
QByteArray collidingInput(bool wide)
{
    QByteArray in = testutil::patternBytes(wide ? 70000 : 1000, 57, false);
    const uint64_t mask = wide ? (uint64_t(1) << 40) - 1 : 0xFFFFFFFFu;
    const uint64_t prime = wide ? 889523592379ull : 2654435761u;
    uint64_t inverse = prime; // Newton's iteration: each step doubles the bits that are right
    for (int i = 0; i < 6; ++i)
        inverse *= 2 - prime * inverse;
    const uint64_t product = 0x5A3C96E1F4ull & mask;
    const uint64_t a = (product * inverse) & mask,
                   b = ((product ^ (wide ? 1u << 12 : 1u << 3)) * inverse) & mask;
    for (int i = 0; i < (wide ? 5 : 4); ++i) {
        in[10 + i] = in[50 + i] = char(a >> (8 * i));
        in[30 + i] = char(b >> (8 * i));
    }
    return in;
}

QByteArray libraryLz4(const QByteArray& in, int capacity = -1)
{
    if (capacity < 0) capacity = LZ4_compressBound(in.size());
    QByteArray out(capacity + 1, '\0');
    out.truncate(LZ4_compress_default(in.constData(), out.data(), in.size(), capacity));
    return out;
}

QByteArray libraryDecode(const QByteArray& block, int size)
{
    QByteArray out(size + 1, '\0'); // one spare byte so an overlong block shows
    const int n = LZ4_decompress_safe(block.constData(), out.data(), block.size(), out.size());
    return n < 0 ? QByteArray("<corrupt>") : out.left(n);
}

QByteArray viaMemoryUsage(const QByteArray& in, int memoryUsage, int capacity = -1)
{
    if (capacity < 0) capacity = int(lz4Bound(uint64_t(in.size())));
    QByteArray out(std::max(capacity, 1), '\0');
    out.truncate(
        compressLz4WithMemoryUsage(in.constData(), in.size(), out.data(), capacity, memoryUsage));
    return out;
}

QByteArray viaLarge(const QByteArray& in)
{
    QByteArray out(int(lz4Bound(uint64_t(in.size()))), '\0');
    out.truncate(compressLz4Large(in.constData(), in.size(), out.data(), out.size()));
    return out;
}

// The lz4 fast block compressor (acceleration 1) written out plainly over a real, fully cleared
// hash table: 2^(memoryUsage - 1) two-byte entries below 65,547 input bytes, else 2^(memoryUsage -
// 2) four-byte ones. Serves as the yardstick for the sparse-table compressor.
QByteArray referenceLz4(const QByteArray& input, int memoryUsage)
{
    const uint8_t* in = reinterpret_cast<const uint8_t*>(input.constData());
    const size_t n = size_t(input.size());
    const bool small = n < 65547;
    const int bits = small ? memoryUsage - 1 : memoryUsage - 2;
    // calloc's pages read as zero without being written first: a cleared table at little cost.
    std::unique_ptr<void, void (*)(void*)> table(std::calloc(size_t(1) << bits, small ? 2 : 4),
                                                 std::free);
    if (!table) return QByteArray("<no memory>");
    uint16_t* const narrow = static_cast<uint16_t*>(table.get());
    uint32_t* const wide = static_cast<uint32_t*>(table.get());
    const auto le32 = [in](size_t p) {
        return qFromLittleEndian<quint32>(in + p);
    };
    const auto hash = [&](size_t p) -> uint32_t {
        if (small) return (le32(p) * 2654435761u) >> (32 - bits);
        const uint64_t five = uint64_t(le32(p)) | (uint64_t(in[p + 4]) << 32);
        return uint32_t(((five * 889523592379ull) & ((uint64_t(1) << 40) - 1)) >> (40 - bits));
    };
    const auto get = [&](size_t p) -> size_t {
        return small ? narrow[hash(p)] : wide[hash(p)];
    };
    const auto put = [&](size_t p) {
        if (small)
            narrow[hash(p)] = uint16_t(p);
        else
            wide[hash(p)] = uint32_t(p);
    };
    const auto usable = [&](size_t cand, size_t p) {
        return (small || p - cand <= 65535) && le32(cand) == le32(p);
    };
    QByteArray out;
    const auto count = [&out](size_t v) {
        for (; v >= 255; v -= 255)
            out.append(char(255));
        out.append(char(v));
    };
    const auto literals = [&](size_t from, size_t to, size_t matchNibble) {
        out.append(char((std::min<size_t>(to - from, 15) << 4) | matchNibble));
        if (to - from >= 15) count(to - from - 15);
        out.append(input.mid(int(from), int(to - from)));
    };
    size_t anchor = 0;
    const auto finish = [&] {
        literals(anchor, n, 0);
        return out;
    };
    if (n < 13) return finish();
    const size_t searchEnd = n - 11, matchEnd = n - 5;
    put(0);
    for (size_t q = 1;; ++q) {
        size_t cand = 0;
        for (size_t step = 1, attempts = 64;;) {
            cand = get(q);
            const size_t next = q + step;
            step = attempts++ >> 6;
            if (next > searchEnd) return finish();
            put(q);
            if (usable(cand, q)) break;
            q = next;
        }
        for (; q > anchor && cand > 0 && in[q - 1] == in[cand - 1]; --q)
            --cand;
        do {
            size_t length = 4;
            while (q + length < matchEnd && in[q + length] == in[cand + length])
                ++length;
            literals(anchor, q, std::min<size_t>(length - 4, 15));
            out.append(char(q - cand));
            out.append(char((q - cand) >> 8));
            if (length >= 19) count(length - 19);
            anchor = q += length;
            if (q >= searchEnd) return finish();
            put(q - 2);
            cand = get(q);
            put(q);
        } while (usable(cand, q));
    }
}

// qUncompress warns on every corrupt stream it is fed; those lines are expected here.
QtMessageHandler previousHandler = nullptr;
void quietUncompress(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (!message.startsWith(QLatin1String("qUncompress"))) previousHandler(type, context, message);
}

// What qUncompress makes of a stored stream and its recorded size: the block, or null.
QByteArray qtVerdict(const QByteArray& stream, uint32_t unpackedSize)
{
    QByteArray framed(4, '\0');
    qToBigEndian<quint32>(unpackedSize, framed.data());
    const QByteArray out = qUncompress(framed + stream);
    return uint32_t(out.size()) == unpackedSize && !out.isEmpty() ? out : QByteArray();
}

QByteArray ourVerdict(const QByteArray& stream, uint32_t unpackedSize)
{
    QByteArray out(int(unpackedSize), '\x5A');
    const bool ok
        = decompressZlib(stream.constData(), uint32_t(stream.size()), out.data(), unpackedSize);
    return ok ? out : QByteArray();
}

} // namespace

class TestCodecs : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { previousHandler = qInstallMessageHandler(quietUncompress); }
    void cleanupTestCase() { qInstallMessageHandler(previousHandler); }

    void zlibCompress_data();
    void zlibCompress();
    void zlibCompressorRefuses();
    void zlibDecompress_data();
    void zlibDecompress();
    void zlibDecompressMutations();

    void lz4Blocks_data();
    void lz4Blocks();
    void lz4LargeMatchesFullTable();
    void lz4Refuses();
};

void TestCodecs::zlibCompress_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<int>("level");
    QTest::addColumn<ZlibEngine>("engine");
    QTest::newRow("one byte") << QByteArray("x") << 6 << ZlibEngine::Auto;
    QTest::newRow("text level 1") << testutil::patternBytes(50000, 1) << 1
                                  << ZlibEngine::Libdeflate;
    QTest::newRow("text level 9") << testutil::patternBytes(50000, 1) << 9 << ZlibEngine::Zlib;
    QTest::newRow("random level 6")
        << testutil::patternBytes(70000, 2, false) << 6 << ZlibEngine::Libdeflate;
    QTest::newRow("mixed level 6") << mixedBytes(300000, 3) << 6 << ZlibEngine::Zlib;
    QTest::newRow("mixed level 3 auto") << mixedBytes(300000, 4) << 3 << ZlibEngine::Auto;
}

void TestCodecs::zlibCompress()
{
    QFETCH(QByteArray, input);
    QFETCH(int, level);
    QFETCH(ZlibEngine, engine);
    const uint32_t size = uint32_t(input.size());
    const QByteArray framed = compressZlib(input.constData(), size, level);
    QCOMPARE(qFromBigEndian<quint32>(framed.constData()), size);
    const QByteArray stored = framed.mid(4);

    // The block compressor: with the zlib engine exactly qCompress's stream; libdeflate's stream
    // is another one, which qUncompress behind its size prefix and our decoder both take.
    QByteArray stream(int(ZlibCompressor::bound(size)), '\0');
    const int64_t n = ZlibCompressor(level, engine)
                          .compress(input.constData(), size, stream.data(), stream.size());
    QVERIFY(n > 0);
    stream.truncate(int(n));
    QCOMPARE(qtVerdict(stream, size), input);
    QCOMPARE(ourVerdict(stream, size), input);
    if (effectiveZlibEngine(engine, level) == ZlibEngine::Zlib)
        QCOMPARE(stream, stored);
    else if (input.size() >= 50000)
        QVERIFY(stream != stored);
}

void TestCodecs::zlibCompressorRefuses()
{
    // An empty block is stored: the bare 4-byte prefix, a 0-byte stream from either engine.
    QCOMPARE(compressZlib("", 0, 6), QByteArray(4, '\0'));
    char room[2048];
    for (ZlibEngine engine : {ZlibEngine::Auto, ZlibEngine::Zlib, ZlibEngine::Libdeflate}) {
        QCOMPARE(ZlibCompressor(6, engine).compress("", 0, room, sizeof room), int64_t(0));
        QCOMPARE(ZlibCompressor(0, engine).compress("abc", 3, room, sizeof room), int64_t(-1));
        QCOMPARE(ZlibCompressor(10, engine).compress("abc", 3, room, sizeof room), int64_t(-1));
        QCOMPARE(ZlibCompressor(6, engine).compress("abc", 3, room, ZlibCompressor::bound(3) - 1),
                 int64_t(-1));
    }
}

void TestCodecs::zlibDecompress_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<uint>("unpackedSize");
    QTest::addColumn<bool>("good");
    const QByteArray data = mixedBytes(40000, 7);
    const QByteArray s = testutil::zlibStream(data, 6);
    const uint n = uint(data.size());
    const auto changed = [&s](int at, int to) {
        return QByteArray(s).replace(at, 1, QByteArray(1, char(to)));
    };
    QByteArray storedBlock("\x78\x01\x01\x05\x00\xFA\xFF"
                           "hello\0\0\0\0",
                           16); // one stored block, by hand
    qToBigEndian<quint32>(quint32(adler32(1, reinterpret_cast<const Bytef*>("hello"), 5)),
                          storedBlock.data() + 12);

    QTest::newRow("valid") << s << n << true;
    QTest::newRow("valid hand-made stored block") << storedBlock << 5u << true;
    QTest::newRow("trailing bytes after the stream") << s + QByteArray("tail") << n << true;
    QTest::newRow("empty block") << testutil::zlibStream(QByteArray(), 6) << 0u << true;
    QTest::newRow("one byte for an empty block") << testutil::zlibStream("a", 6) << 0u << false;
    QTest::newRow("garbage for an empty block")
        << QByteArray("\x01\x02\x03\x04\x05") << 0u << false;
    QTest::newRow("cut by one byte") << s.left(s.size() - 1) << n << false;
    QTest::newRow("size one larger") << s << n + 1 << false;
    QTest::newRow("size one smaller") << s << n - 1 << false;
    QTest::newRow("wrong checksum") << changed(s.size() - 1, s.at(s.size() - 1) ^ 1) << n << false;
    QTest::newRow("dictionary required")
        << changed(1, 0xBB) << n << false; // 0x78BB: valid check bits
    QTest::newRow("raw deflate without header") << s.mid(2, s.size() - 6) << n << false;
}

void TestCodecs::zlibDecompress()
{
    // Verdicts and output as qUncompress gives them (it refuses every empty block, so not there).
    QFETCH(QByteArray, stream);
    QFETCH(uint, unpackedSize);
    QFETCH(bool, good);
    const QByteArray ours = ourVerdict(stream, unpackedSize);
    QCOMPARE(!ours.isNull(), good);
    if (unpackedSize > 0) QCOMPARE(ours, qtVerdict(stream, unpackedSize));
}

void TestCodecs::zlibDecompressMutations()
{
    // Corrupt a valid stream in many ways; every verdict and every output must match Qt's.
    const QByteArray data = mixedBytes(6000, 11);
    const QByteArray stream = testutil::zlibStream(data, 9);
    uint64_t r = 12;
    int accepted = 0;
    for (int i = 0; i < 1500; ++i) {
        QByteArray s = stream;
        for (int e = int(below(r, 3)); e >= 0; --e) {
            const int at = int(below(r, uint32_t(s.size())));
            s[at] = char(i % 4 == 0 ? s.at(at) ^ (1 << below(r, 8)) : char(nextRandom(r)));
        }
        if (i % 5 == 0) s.truncate(int(below(r, uint32_t(s.size()))) + 1);
        const uint32_t size = uint32_t(data.size()) + (i % 7 == 0 ? below(r, 5) - 2 : 0);
        const QByteArray qt = qtVerdict(s, size);
        QCOMPARE(ourVerdict(s, size), qt);
        accepted += !qt.isNull();
    }
    QVERIFY(accepted > 0 && accepted < 1500);
}

void TestCodecs::lz4Blocks_data()
{
    QTest::addColumn<QByteArray>("input");
    for (int n : {0, 1, 2, 4, 5, 11, 12, 13, 14, 20, 40, 1000})
        QTest::addRow("short %d", n)
            << (n % 2 ? QByteArray(n, 'z') : mixedBytes(n, uint64_t(n) + 100));
    for (int n : {65535, 65536, 65537, 65546, 65547, 65548})
        QTest::addRow("boundary %d", n) << mixedBytes(n, n);
    QTest::newRow("text") << testutil::patternBytes(300000, 31);
    QTest::newRow("random") << testutil::patternBytes(300000, 32, false);
    QTest::newRow("zeros") << QByteArray(1 << 20, '\0');
    QTest::newRow("mixed 3 MiB") << mixedBytes(3 << 20, 33);
    // Sizes spread from a few bytes to a few hundred KB, several kinds of content.
    uint64_t r = 91;
    for (int i = 0; i < 100; ++i) {
        const int size = int(below(r, 1u << (4 + below(r, 15))));
        const uint32_t kind = below(r, 4), seed = nextRandom(r);
        QTest::addRow("spread %d", i)
            << (kind == 0       ? mixedBytes(size, seed)
                    : kind == 3 ? QByteArray(size, char(seed))
                                : testutil::patternBytes(size, seed, kind == 1));
    }
}

void TestCodecs::lz4Blocks()
{
    // With the library's own table size the compressor must give the library's blocks byte for
    // byte, at every capacity too (below the worst case both give up on the same margins): this
    // pins down the matcher that compressLz4Large runs.
    QFETCH(QByteArray, input);
    const QByteArray lib = libraryLz4(input);
    QCOMPARE(viaMemoryUsage(input, 14), lib);
    QVector<int> capacities = {0, 1, 2, lib.size() / 2};
    for (int d = -12; d <= 12; ++d)
        capacities << lib.size() + d;
    for (int capacity : capacities)
        if (capacity >= 0)
            QCOMPARE(viaMemoryUsage(input, 14, capacity), libraryLz4(input, capacity));

    // The large table's blocks decode back exactly, and only to the recorded size, into room for
    // it.
    const QByteArray large = viaLarge(input);
    QVERIFY(!large.isEmpty() && uint64_t(large.size()) <= lz4Bound(uint64_t(input.size())));
    QCOMPARE(libraryDecode(large, input.size()), input);
    const uint32_t size = uint32_t(input.size());
    QByteArray back(input.size() + 1, '\0');
    const auto decodes = [&](const QByteArray& block, uint32_t capacity, uint32_t unpacked) {
        return decompressLz4(block.constData(), uint32_t(block.size()), back.data(), capacity,
                             unpacked);
    };
    QVERIFY(decodes(large, size, size));
    QCOMPARE(back.left(input.size()), input);
    QVERIFY(!decodes(large, size + 1, size + 1));
    QVERIFY(!decodes(large, size, size + 1));
    QVERIFY(size == 0 || (!decodes(large, size, size - 1) && !decodes(large, size - 1, size - 1)));
    QVERIFY(!decodes(large.left(large.size() - 1), size, size));
}

void TestCodecs::lz4LargeMatchesFullTable()
{
    const QVector<QByteArray> inputs = {
        collidingInput(false), // 16-bit entries
        mixedBytes(30000, 52),
        mixedBytes(65546, 53),               // largest input on 16-bit entries
        collidingInput(true),                // 32-bit entries
        mixedBytes(65547, 54),               // smallest on 32-bit entries
        mixedBytes(400000, 55),              // copies from beyond 64 KiB
        testutil::patternBytes(1 << 20, 56), // many repeated hashes
    };
    // The yardstick is trusted first: at the library's table size it yields the library's blocks,
    // and the colliding inputs tell a table of 2^28 entries from one of 2^26.
    for (const QByteArray& in : inputs)
        QCOMPARE(referenceLz4(in, 14), libraryLz4(in));
    for (bool wide : {false, true})
        QVERIFY(referenceLz4(collidingInput(wide), 28) != referenceLz4(collidingInput(wide), 30));
    // Middle sizes, where many of these inputs overflow the sparse map and are redone on a real
    // table; then the real 2^28-entry (or 2^29 two-byte) table, which the sparse one must match.
    for (int memoryUsage : {18, 22, 30}) {
        for (const QByteArray& in : inputs) {
            const QByteArray expected = referenceLz4(in, memoryUsage);
            QCOMPARE(memoryUsage == 30 ? viaLarge(in) : viaMemoryUsage(in, memoryUsage), expected);
            QCOMPARE(libraryDecode(expected, in.size()), in);
        }
    }
}

void TestCodecs::lz4Refuses()
{
    // Lengths beyond the block limit (or negative) and tables outside 2^8..2^28 entries are refused
    // before the input is touched.
    char out[64];
    QCOMPARE(compressLz4Large("abc", 0x7E000001, out, sizeof out), 0);
    QCOMPARE(compressLz4Large("abc", -1, out, sizeof out), 0);
    QCOMPARE(compressLz4WithMemoryUsage("abc", 3, out, sizeof out, 31), 0);
    QCOMPARE(compressLz4WithMemoryUsage("abc", 3, out, sizeof out, 9), 0);
}

QTEST_GUILESS_MAIN(TestCodecs)
#include "tst_codecs.moc"

#include "creation/codecs.h"

#include "testutil.h"

#include <QtTest>

#include <lz4.h>
#include <zlib.h>

#include <algorithm>
#include <vector>

Q_DECLARE_METATYPE(ZlibEngine)

namespace {

// Deterministic generator for the test inputs.
struct Rng {
    uint64_t s;
    explicit Rng(uint64_t seed) : s(seed * 0x9E3779B97F4A7C15ull + 1) {}
    uint32_t next()
    {
        s ^= s << 13;
        s ^= s >> 7;
        s ^= s << 17;
        return uint32_t(s >> 16);
    }
    uint32_t below(uint32_t n) { return next() % n; }
};

// Literal runs, byte runs and copies from near and far back (some beyond LZ4's 64 KiB window).
QByteArray mixedBytes(int size, uint64_t seed)
{
    Rng r(seed);
    QByteArray out;
    out.reserve(size);
    while (out.size() < size) {
        const uint32_t kind = r.below(10);
        if (kind < 4 || out.size() < 16) {
            const int n = 1 + int(r.below(120));
            for (int i = 0; i < n; ++i) out.append(char(r.next()));
        } else if (kind < 5) {
            out.append(QByteArray(4 + int(r.below(600)), char(r.next())));
        } else {
            const int back = 1 + int(r.below(uint32_t(std::min(out.size(), kind < 8 ? 4000 : 120000))));
            const int n = 4 + int(r.below(kind == 9 ? 3000 : 60));
            for (int i = 0; i < n; ++i) out.append(out[out.size() - back]);
        }
    }
    out.truncate(size);
    return out;
}

QByteArray libraryLz4(const QByteArray& in)
{
    QByteArray out(LZ4_compressBound(in.size()), '\0');
    const int n = LZ4_compress_default(in.constData(), out.data(), in.size(), out.size());
    out.truncate(n);
    return out;
}

QByteArray libraryDecode(const QByteArray& block, int size)
{
    QByteArray out(size + 1, '\0');  // one spare byte so an overlong block shows
    const int n = LZ4_decompress_safe(block.constData(), out.data(), block.size(), out.size());
    if (n < 0) return QByteArray("<corrupt>");
    out.truncate(n);
    return out;
}

QByteArray viaMemoryUsage(const QByteArray& in, int memoryUsage, int capacity = -1)
{
    if (capacity < 0) capacity = int(lz4Bound(uint64_t(in.size())));
    QByteArray out(std::max(capacity, 1), '\0');
    const int n = compressLz4WithMemoryUsage(in.constData(), in.size(), out.data(), capacity, memoryUsage);
    out.truncate(n);
    return out;
}

QByteArray viaLarge(const QByteArray& in)
{
    QByteArray out(int(lz4Bound(uint64_t(in.size()))), '\0');
    const int n = compressLz4Large(in.constData(), in.size(), out.data(), out.size());
    out.truncate(n);
    return out;
}

inline uint32_t le32(const uint8_t* p)
{
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}

// The lz4 fast block compressor (acceleration 1) written out plainly over a real, fully cleared
// hash table of 2^(memoryUsage - 2) four-byte entries, or 2^(memoryUsage - 1) two-byte entries
// below 65,547 input bytes. Serves as the yardstick for the sparse-table compressor.
class ReferenceLz4 {
public:
    explicit ReferenceLz4(int memoryUsage) : memoryUsage_(memoryUsage) {}

    QByteArray compress(const QByteArray& input)
    {
        in_ = reinterpret_cast<const uint8_t*>(input.constData());
        n_ = size_t(input.size());
        out_.clear();
        if (n_ == 0) return QByteArray(1, '\0');
        small_ = n_ < 65547;
        bits_ = small_ ? memoryUsage_ - 1 : memoryUsage_ - 2;
        if (small_) {
            narrow_.resize(size_t(1) << bits_);
            std::fill(narrow_.begin(), narrow_.end(), uint16_t(0));
        } else {
            wide_.resize(size_t(1) << bits_);
            std::fill(wide_.begin(), wide_.end(), 0u);
        }
        run();
        return QByteArray(reinterpret_cast<const char*>(out_.data()), int(out_.size()));
    }

private:
    uint32_t hash(size_t pos) const
    {
        if (small_) return (le32(in_ + pos) * 2654435761u) >> (32 - bits_);
        const uint64_t five = uint64_t(le32(in_ + pos)) | (uint64_t(in_[pos + 4]) << 32);
        return uint32_t(((five * 889523592379ull) & ((uint64_t(1) << 40) - 1)) >> (40 - bits_));
    }
    uint32_t get(uint32_t h) const { return small_ ? narrow_[h] : wide_[h]; }
    void put(uint32_t h, size_t pos)
    {
        if (small_) narrow_[h] = uint16_t(pos);
        else wide_[h] = uint32_t(pos);
    }
    bool usable(size_t candidate, size_t pos) const
    {
        if (!small_ && pos - candidate > 65535) return false;
        return le32(in_ + candidate) == le32(in_ + pos);
    }
    void putCount(size_t v)
    {
        while (v >= 255) {
            out_.push_back(255);
            v -= 255;
        }
        out_.push_back(uint8_t(v));
    }
    void sequence(size_t from, size_t to, size_t offset, size_t matchLength)
    {
        const size_t lit = to - from;
        const size_t ml = matchLength - 4;
        out_.push_back(uint8_t((std::min<size_t>(lit, 15) << 4) | std::min<size_t>(ml, 15)));
        if (lit >= 15) putCount(lit - 15);
        out_.insert(out_.end(), in_ + from, in_ + to);
        out_.push_back(uint8_t(offset & 0xFF));
        out_.push_back(uint8_t(offset >> 8));
        if (ml >= 15) putCount(ml - 15);
    }
    void finish(size_t anchor)
    {
        const size_t lit = n_ - anchor;
        out_.push_back(uint8_t(std::min<size_t>(lit, 15) << 4));
        if (lit >= 15) putCount(lit - 15);
        out_.insert(out_.end(), in_ + anchor, in_ + n_);
    }
    void run()
    {
        size_t anchor = 0;
        if (n_ < 13) return finish(0);
        const size_t searchEnd = n_ - 11;
        const size_t matchEnd = n_ - 5;
        put(hash(0), 0);
        size_t p = 1;
        for (;;) {
            size_t q = p, cand = 0, step = 1, attempts = 64;
            uint32_t h = hash(q);
            for (;;) {
                cand = get(h);
                const size_t next = q + step;
                step = attempts++ >> 6;
                if (next > searchEnd) return finish(anchor);
                const uint32_t nextHash = hash(next);
                put(h, q);
                if (usable(cand, q)) break;
                q = next;
                h = nextHash;
            }
            while (q > anchor && cand > 0 && in_[q - 1] == in_[cand - 1]) {
                --q;
                --cand;
            }
            size_t literalsFrom = anchor;
            for (;;) {
                size_t length = 4;
                while (q + length < matchEnd && in_[q + length] == in_[cand + length]) ++length;
                sequence(literalsFrom, q, q - cand, length);
                q += length;
                anchor = literalsFrom = q;
                if (q >= searchEnd) return finish(anchor);
                put(hash(q - 2), q - 2);
                h = hash(q);
                cand = get(h);
                put(h, q);
                if (!usable(cand, q)) break;
            }
            p = q + 1;
        }
    }

    int memoryUsage_;
    const uint8_t* in_ = nullptr;
    size_t n_ = 0;
    bool small_ = true;
    int bits_ = 0;
    std::vector<uint16_t> narrow_;
    std::vector<uint32_t> wide_;
    std::vector<uint8_t> out_;
};

// qUncompress warns on every corrupt stream it is fed; those lines are expected here.
QtMessageHandler previousHandler = nullptr;
void quietUncompress(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (message.startsWith(QLatin1String("qUncompress"))) return;
    previousHandler(type, context, message);
}

// What qUncompress makes of a stored stream and its recorded size: the block, or null.
QByteArray qtVerdict(const QByteArray& stream, uint32_t unpackedSize)
{
    QByteArray framed(4, '\0');
    framed[0] = char(unpackedSize >> 24);
    framed[1] = char(unpackedSize >> 16);
    framed[2] = char(unpackedSize >> 8);
    framed[3] = char(unpackedSize);
    framed += stream;
    const QByteArray out = qUncompress(framed);
    return uint32_t(out.size()) == unpackedSize && !out.isEmpty() ? out : QByteArray();
}

QByteArray ourVerdict(const QByteArray& stream, uint32_t unpackedSize)
{
    QByteArray out(int(unpackedSize), '\x5A');
    return decompressZlib(stream.constData(), uint32_t(stream.size()), out.data(), unpackedSize) ? out
                                                                                                  : QByteArray();
}

}  // namespace

class TestCodecs : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { previousHandler = qInstallMessageHandler(quietUncompress); }
    void cleanupTestCase() { qInstallMessageHandler(previousHandler); }

    void zlibCompress_data();
    void zlibCompress();
    void zlibDecompressAgreesWithQt_data();
    void zlibDecompressAgreesWithQt();
    void zlibDecompressMutations();
    void zlibEmptyBlock();

    void lz4DecompressRefuses_data();
    void lz4DecompressRefuses();

    void lz4LargeRoundTrip_data();
    void lz4LargeRoundTrip();
    void lz4MatchesLibraryAtDefaultTable_data();
    void lz4MatchesLibraryAtDefaultTable();
    void lz4CapacityAgreesWithLibrary();
    void lz4AgreesWithLibraryOnManyInputs();
    void lz4LargeMatchesFullTable();
    void lz4LargeTooSmallOrTooLarge();
    void lz4LargeFindsMoreOnRepetitiveData();
};

void TestCodecs::zlibCompress_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<int>("level");
    QTest::addColumn<ZlibEngine>("engine");
    QTest::newRow("one byte") << QByteArray("x") << 6 << ZlibEngine::Auto;
    QTest::newRow("text level 1") << testutil::patternBytes(50000, 1) << 1 << ZlibEngine::Libdeflate;
    QTest::newRow("text level 9") << testutil::patternBytes(50000, 1) << 9 << ZlibEngine::Zlib;
    QTest::newRow("random level 6") << testutil::patternBytes(70000, 2, false) << 6 << ZlibEngine::Libdeflate;
    QTest::newRow("mixed level 6") << mixedBytes(300000, 3) << 6 << ZlibEngine::Zlib;
    QTest::newRow("mixed level 6 libdeflate") << mixedBytes(300000, 3) << 6 << ZlibEngine::Libdeflate;
    QTest::newRow("mixed level 3 auto") << mixedBytes(300000, 4) << 3 << ZlibEngine::Auto;
}

void TestCodecs::zlibCompress()
{
    QFETCH(QByteArray, input);
    QFETCH(int, level);
    QFETCH(ZlibEngine, engine);
    const QByteArray framed = compressZlib(input.constData(), uint32_t(input.size()), level);
    QVERIFY(framed.size() > 4);
    const uint8_t* f = reinterpret_cast<const uint8_t*>(framed.constData());
    QCOMPARE((uint32_t(f[0]) << 24) | (uint32_t(f[1]) << 16) | (uint32_t(f[2]) << 8) | f[3], uint32_t(input.size()));
    // The stored part is a plain RFC 1950 stream: zlib itself inflates it.
    QCOMPARE(f[4] & 0x0F, 8);
    QCOMPARE(((f[4] << 8) | f[5]) % 31, 0);
    QByteArray plain(input.size(), '\0');
    uLongf plainSize = uLongf(plain.size());
    QCOMPARE(uncompress(reinterpret_cast<Bytef*>(plain.data()), &plainSize, f + 4, uLong(framed.size() - 4)), Z_OK);
    QCOMPARE(plain, input);
    QByteArray back(input.size(), '\0');
    QVERIFY(decompressZlib(framed.constData() + 4, uint32_t(framed.size() - 4), back.data(), uint32_t(input.size())));
    QCOMPARE(back, input);

    // The block compressor: with the zlib engine exactly qCompress's stream; libdeflate's stream
    // is another one, which qUncompress behind its size prefix and our decoder both take.
    ZlibCompressor compressor(level, engine);
    QByteArray stream(int(ZlibCompressor::bound(uint64_t(input.size()))), '\0');
    const int64_t n = compressor.compress(input.constData(), uint32_t(input.size()), stream.data(),
                                          uint64_t(stream.size()));
    QVERIFY(n > 0);
    stream.truncate(int(n));
    QCOMPARE(((uint8_t(stream[0]) << 8) | uint8_t(stream[1])) % 31, 0);
    QCOMPARE(qtVerdict(stream, uint32_t(input.size())), input);
    QCOMPARE(ourVerdict(stream, uint32_t(input.size())), input);
    const ZlibEngine used = effectiveZlibEngine(engine, level);
    if (used == ZlibEngine::Zlib) QCOMPARE(stream, framed.mid(4));
    else if (input.size() >= 50000) QVERIFY(stream != framed.mid(4));
}

void TestCodecs::zlibDecompressAgreesWithQt_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<uint>("unpackedSize");
    QTest::addColumn<bool>("good");
    const QByteArray data = mixedBytes(40000, 7);
    const QByteArray s = testutil::zlibStream(data, 6);
    const uint n = uint(data.size());
    QByteArray badAdler = s;
    badAdler[badAdler.size() - 1] = char(badAdler.at(badAdler.size() - 1) ^ 1);
    QByteArray badHeader = s;
    badHeader[1] = char(badHeader.at(1) ^ 0x20);  // preset-dictionary bit, check bits now wrong too
    QByteArray dictionary = s;
    dictionary[1] = char(0xBB);                   // 0x78BB: valid check bits, dictionary required
    QByteArray storedBlock;                       // hand-made stream: one stored block "hello"
    storedBlock.append("\x78\x01\x01\x05\x00\xFA\xFF" "hello", 12);
    const uint32_t ad = uint32_t(adler32(1, reinterpret_cast<const Bytef*>("hello"), 5));
    for (int i = 3; i >= 0; --i) storedBlock.append(char(ad >> (8 * i)));

    QTest::newRow("valid") << s << n << true;
    QTest::newRow("valid hand-made stored block") << storedBlock << 5u << true;
    QTest::newRow("trailing bytes after the stream") << s + QByteArray("tail") << n << true;
    QTest::newRow("cut by one byte") << s.left(s.size() - 1) << n << false;
    QTest::newRow("cut before the checksum") << s.left(s.size() - 4) << n << false;
    QTest::newRow("cut to half") << s.left(s.size() / 2) << n << false;
    QTest::newRow("header only") << s.left(2) << n << false;
    QTest::newRow("one byte") << s.left(1) << n << false;
    QTest::newRow("size one larger") << s << n + 1 << false;
    QTest::newRow("size much larger") << s << n * 3 << false;
    QTest::newRow("size one smaller") << s << n - 1 << false;
    QTest::newRow("size much smaller") << s << 100u << false;
    QTest::newRow("wrong checksum") << badAdler << n << false;
    QTest::newRow("broken header") << badHeader << n << false;
    QTest::newRow("dictionary required") << dictionary << n << false;
    QTest::newRow("garbage") << testutil::patternBytes(3000, 9, false) << 5000u << false;
    QTest::newRow("raw deflate without header") << s.mid(2, s.size() - 6) << n << false;
}

void TestCodecs::zlibDecompressAgreesWithQt()
{
    QFETCH(QByteArray, stream);
    QFETCH(uint, unpackedSize);
    QFETCH(bool, good);
    const QByteArray qt = qtVerdict(stream, unpackedSize);
    const QByteArray ours = ourVerdict(stream, unpackedSize);
    QCOMPARE(!qt.isNull(), good);
    QCOMPARE(ours, qt);
}

void TestCodecs::zlibDecompressMutations()
{
    // Corrupt a valid stream in many ways; every verdict and every output must match Qt's.
    const QByteArray data = mixedBytes(6000, 11);
    const QByteArray stream = testutil::zlibStream(data, 9);
    Rng r(12);
    int accepted = 0;
    for (int i = 0; i < 1500; ++i) {
        QByteArray s = stream;
        const int edits = 1 + int(r.below(3));
        for (int e = 0; e < edits; ++e) {
            const int at = int(r.below(uint32_t(s.size())));
            s[at] = char(i % 4 == 0 ? s.at(at) ^ (1 << r.below(8)) : char(r.next()));
        }
        if (i % 5 == 0) s.truncate(int(r.below(uint32_t(s.size()))) + 1);
        const uint32_t size = i % 7 == 0 ? uint32_t(data.size()) + r.below(5) - 2 : uint32_t(data.size());
        const QByteArray qt = qtVerdict(s, size);
        QCOMPARE(ourVerdict(s, size), qt);
        accepted += !qt.isNull();
    }
    QVERIFY(accepted < 1500);
}

void TestCodecs::zlibEmptyBlock()
{
    // An empty block compresses to the bare 4-byte prefix: nothing to store.
    const QByteArray framed = compressZlib("", 0, 6);
    QCOMPARE(framed, QByteArray(4, '\0'));
    // The block compressor says the same with either engine, and refuses what it cannot do.
    char room[2048];
    for (ZlibEngine engine : {ZlibEngine::Auto, ZlibEngine::Zlib, ZlibEngine::Libdeflate}) {
        QCOMPARE(ZlibCompressor(6, engine).compress("", 0, room, sizeof room), int64_t(0));
        QCOMPARE(ZlibCompressor(0, engine).compress("abc", 3, room, sizeof room), int64_t(-1));
        QCOMPARE(ZlibCompressor(10, engine).compress("abc", 3, room, sizeof room), int64_t(-1));
        QCOMPARE(ZlibCompressor(6, engine).compress("abc", 3, room, ZlibCompressor::bound(3) - 1), int64_t(-1));
    }
    // A real stream of nothing decodes to exactly nothing; garbage does not.
    const QByteArray empty = testutil::zlibStream(QByteArray(), 6);
    char sink = 'q';
    QVERIFY(decompressZlib(empty.constData(), uint32_t(empty.size()), &sink, 0));
    QVERIFY(!decompressZlib("\x01\x02\x03\x04\x05", 5, &sink, 0));
    const QByteArray one = testutil::zlibStream(QByteArray("a"), 6);
    QVERIFY(!decompressZlib(one.constData(), uint32_t(one.size()), &sink, 0));
    QCOMPARE(sink, 'q');
}

void TestCodecs::lz4DecompressRefuses_data()
{
    QTest::addColumn<QByteArray>("block");
    QTest::addColumn<uint>("capacity");
    QTest::addColumn<uint>("unpackedSize");
    const QByteArray data = mixedBytes(20000, 8);
    const QByteArray b = libraryLz4(data);
    const uint n = uint(data.size());
    QTest::newRow("recorded size too large") << b << n + 100 << n + 1;
    QTest::newRow("recorded size too small") << b << n << n - 1;
    QTest::newRow("destination too small") << b << n - 1 << n - 1;
    QTest::newRow("recorded size beyond destination") << b << n << n + 1;
    QTest::newRow("cut short") << b.left(b.size() - 3) << n << n;
    QTest::newRow("garbage") << testutil::patternBytes(500, 1, false) << n << n;
}

void TestCodecs::lz4DecompressRefuses()
{
    QFETCH(QByteArray, block);
    QFETCH(uint, capacity);
    QFETCH(uint, unpackedSize);
    std::vector<char> out(capacity + 16);
    QVERIFY(!decompressLz4(block.constData(), uint32_t(block.size()), out.data(), capacity, unpackedSize));
}

void TestCodecs::lz4LargeRoundTrip_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::newRow("empty") << QByteArray();
    for (int n = 1; n <= 20; ++n)
        QTest::addRow("tiny %d", n) << (n % 2 ? QByteArray(n, 'z') : testutil::patternBytes(n, uint32_t(n), false));
    for (int n : {65535, 65536, 65537, 65546, 65547})
        QTest::addRow("boundary %d", n) << mixedBytes(n, uint64_t(n));
    QTest::newRow("compressible") << testutil::patternBytes(200000, 21);
    QTest::newRow("incompressible") << testutil::patternBytes(200000, 22, false);
    QTest::newRow("zeros") << QByteArray(1 << 20, '\0');
    QTest::newRow("mixed 5 MiB") << mixedBytes(5 << 20, 23);
}

void TestCodecs::lz4LargeRoundTrip()
{
    QFETCH(QByteArray, input);
    const QByteArray block = viaLarge(input);
    QVERIFY(!block.isEmpty());
    QVERIFY(uint64_t(block.size()) <= lz4Bound(uint64_t(input.size())));
    QCOMPARE(libraryDecode(block, input.size()), input);
    QByteArray back(input.size(), '\0');
    QVERIFY(decompressLz4(block.constData(), uint32_t(block.size()), back.data(), uint32_t(back.size()),
                          uint32_t(input.size())));
}

void TestCodecs::lz4MatchesLibraryAtDefaultTable_data()
{
    QTest::addColumn<QByteArray>("input");
    for (int n : {0, 1, 5, 12, 13, 14, 40, 1000})
        QTest::addRow("mixed %d", n) << mixedBytes(n, uint64_t(n) + 100);
    for (int n : {65535, 65536, 65546, 65547, 65548})
        QTest::addRow("boundary %d", n) << mixedBytes(n, uint64_t(n));
    QTest::newRow("text") << testutil::patternBytes(300000, 31);
    QTest::newRow("random") << testutil::patternBytes(300000, 32, false);
    QTest::newRow("one byte repeated") << QByteArray(400000, 'k');
    QTest::newRow("mixed 3 MiB") << mixedBytes(3 << 20, 33);
}

void TestCodecs::lz4MatchesLibraryAtDefaultTable()
{
    // Built with the library's own table size, the compressor must reproduce the library's
    // blocks byte for byte: this pins down the matcher that compressLz4Large runs.
    QFETCH(QByteArray, input);
    QCOMPARE(viaMemoryUsage(input, 14), libraryLz4(input));
}

void TestCodecs::lz4CapacityAgreesWithLibrary()
{
    // Below the worst-case bound the library gives up on fixed margins; so must we, at the
    // same capacities, and succeed with the same bytes otherwise.
    const QVector<QByteArray> inputs = {mixedBytes(300, 41), mixedBytes(9000, 42),
                                        testutil::patternBytes(3000, 43, false), mixedBytes(80000, 44)};
    for (const QByteArray& in : inputs) {
        const QByteArray full = libraryLz4(in);
        QVector<int> capacities = {0, 1, 2, full.size() / 2};
        for (int d = -12; d <= 12; ++d) capacities << full.size() + d;
        for (int cap : capacities) {
            if (cap < 0) continue;
            QByteArray lib(cap + 1, '\0');
            const int libN = LZ4_compress_default(in.constData(), lib.data(), in.size(), cap);
            lib.truncate(libN);
            QCOMPARE(viaMemoryUsage(in, 14, cap), lib);
        }
    }
}

void TestCodecs::lz4AgreesWithLibraryOnManyInputs()
{
    // Sizes spread from a few bytes to a few hundred KB, several kinds of content, and now and
    // then a destination just around the block's size.
    Rng r(91);
    for (int i = 0; i < 300; ++i) {
        const int size = int(r.below(1u << (4 + r.below(15))));
        QByteArray in;
        switch (r.below(4)) {
        case 0: in = mixedBytes(size, r.next()); break;
        case 1: in = testutil::patternBytes(size, r.next(), true); break;
        case 2: in = testutil::patternBytes(size, r.next(), false); break;
        default: in = QByteArray(size, char(r.next())); break;
        }
        const QByteArray lib = libraryLz4(in);
        QCOMPARE(viaMemoryUsage(in, 14), lib);
        if (i % 3 == 0) {
            const int cap = std::max(0, lib.size() + int(r.below(17)) - 8);
            QByteArray limited(cap + 1, '\0');
            const int n = LZ4_compress_default(in.constData(), limited.data(), in.size(), cap);
            limited.truncate(n);
            QCOMPARE(viaMemoryUsage(in, 14, cap), limited);
        }
    }
}

void TestCodecs::lz4LargeMatchesFullTable()
{
    // The yardstick is trusted first: at the library's table size it yields the library's blocks.
    const QVector<QByteArray> inputs = {
        mixedBytes(1000, 51),                 // 16-bit entries
        mixedBytes(30000, 52),
        mixedBytes(65546, 53),                // largest input on 16-bit entries
        mixedBytes(65547, 54),                // smallest on 32-bit entries
        mixedBytes(400000, 55),               // copies from beyond 64 KiB
        testutil::patternBytes(1 << 20, 56),  // many repeated hashes
    };
    {
        ReferenceLz4 small(14);
        for (const QByteArray& in : inputs) QCOMPARE(small.compress(in), libraryLz4(in));
    }
    // Middle sizes, where many of these inputs overflow the sparse map and are redone on a real
    // table.
    for (int memoryUsage : {18, 22}) {
        ReferenceLz4 reference(memoryUsage);
        for (const QByteArray& in : inputs) QCOMPARE(viaMemoryUsage(in, memoryUsage), reference.compress(in));
    }
    // With the real 2^28-entry (or 2^29 two-byte) table, the sparse one must agree exactly.
    ReferenceLz4 full(30);
    for (const QByteArray& in : inputs) {
        const QByteArray expected = full.compress(in);
        QCOMPARE(viaLarge(in), expected);
        QCOMPARE(libraryDecode(expected, in.size()), in);
    }
}

void TestCodecs::lz4LargeTooSmallOrTooLarge()
{
    const QByteArray random = testutil::patternBytes(50000, 61, false);
    QByteArray out(60000, '\0');
    QCOMPARE(compressLz4Large(random.constData(), random.size(), out.data(), 0), 0);
    QCOMPARE(compressLz4Large(random.constData(), random.size(), out.data(), random.size() / 2), 0);
    QCOMPARE(compressLz4Large(random.constData(), random.size(), out.data(), random.size()), 0);
    QVERIFY(compressLz4Large(random.constData(), random.size(), out.data(), out.size()) > random.size());
    const QByteArray tiny("abc");
    QCOMPARE(compressLz4Large(tiny.constData(), tiny.size(), out.data(), 3), 0);
    QCOMPARE(compressLz4Large(tiny.constData(), tiny.size(), out.data(), 4), 4);
    // Lengths beyond the block limit (or negative) are refused before the input is touched.
    QCOMPARE(compressLz4Large(random.constData(), 0x7E000001, out.data(), out.size()), 0);
    QCOMPARE(compressLz4Large(random.constData(), -1, out.data(), out.size()), 0);
    QCOMPARE(compressLz4WithMemoryUsage(tiny.constData(), tiny.size(), out.data(), out.size(), 31), 0);
}

void TestCodecs::lz4LargeFindsMoreOnRepetitiveData()
{
    // 1 MiB of words drawn from 3,000 random 6-byte words: each word recurs within about 18 KB,
    // long after a 4,096-entry table has forgotten it, but not the large table.
    const QByteArray vocabulary = testutil::patternBytes(3000 * 6, 81, false);
    QByteArray words;
    Rng r(82);
    while (words.size() < (1 << 20)) words += vocabulary.mid(int(r.below(3000)) * 6, 6);
    const QVector<QByteArray> inputs = {words, testutil::patternBytes(2 << 20, 72), mixedBytes(2 << 20, 73)};
    for (const QByteArray& in : inputs) {
        QByteArray small(int(lz4Bound(uint64_t(in.size()))), '\0');
        const int smallN = compressLz4(in.constData(), in.size(), small.data(), small.size());
        const QByteArray large = viaLarge(in);
        QVERIFY(smallN > 0);
        QVERIFY2(large.size() <= smallN, qPrintable(QString("%1 > %2").arg(large.size()).arg(smallN)));
        QCOMPARE(libraryDecode(large, in.size()), in);
    }
    QByteArray small(int(lz4Bound(uint64_t(words.size()))), '\0');
    const int smallN = compressLz4(words.constData(), words.size(), small.data(), small.size());
    QVERIFY(viaLarge(words).size() * 4 < smallN * 3);
}

QTEST_GUILESS_MAIN(TestCodecs)
#include "tst_codecs.moc"

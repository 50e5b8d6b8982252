#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "archive/status.h"
#include "creation/assistance.h"
#include "creation/gather.h"
#include "creation/writer.h"

#include "testutil.h"

#include <QtTest>

Q_DECLARE_METATYPE(ZlibEngine)

#include <csignal>
#include <lz4.h>
#include <sys/resource.h>
#include <unistd.h>
#include <zlib.h>

namespace {

// Records the writer's progress calls; cancels at the n-th poll (0: never).
class RecordingProgress : public Progress {
public:
    explicit RecordingProgress(int cancelAtPoll = 0) : cancelAt(cancelAtPoll) {}
    void setMinimum(int v) override { minimum = v; }
    void setMaximum(int v) override { maximum = v; }
    void setValue(int v) override { values << v; }
    bool wasCanceled() override { return cancelAt > 0 && ++polls >= cancelAt; }
    int cancelAt;
    int polls = 0;
    int minimum = -1, maximum = -1;
    QList<int> values;
};

uint32_t refHash(const QByteArray& bytes)
{
    return ~uint32_t(crc32(0xFFFFFFFFul, reinterpret_cast<const Bytef*>(bytes.constData()), uInt(bytes.size())));
}

void put32(QByteArray& b, uint32_t v)
{
    for (int i = 0; i < 4; ++i) b.append(char(v >> (8 * i)));
}
void put64(QByteArray& b, uint64_t v)
{
    for (int i = 0; i < 8; ++i) b.append(char(v >> (8 * i)));
}
uint16_t get16(const QByteArray& b, qint64 at) { return uint16_t(uint8_t(b[int(at)]) | uint8_t(b[int(at) + 1]) << 8); }
uint32_t get32(const QByteArray& b, qint64 at) { return uint32_t(get16(b, at)) | uint32_t(get16(b, at + 2)) << 16; }
uint64_t get64(const QByteArray& b, qint64 at) { return uint64_t(get32(b, at)) | uint64_t(get32(b, at + 4)) << 32; }

// A DDS file: DXT1 (8-byte blocks) or, with dx10, BC7 (16-byte blocks) behind the extended header.
QByteArray makeDds(uint32_t width, uint32_t height, uint32_t mips, uint32_t seed, bool dx10 = false,
                   const char* fourCC = nullptr)
{
    QByteArray h;
    h += "DDS ";
    put32(h, 124);
    put32(h, 0x000A1007);
    put32(h, height);
    put32(h, width);
    put32(h, 0);
    put32(h, 0);
    put32(h, mips);
    h += QByteArray(44, '\0');
    put32(h, 32);
    put32(h, 0x4);
    h += fourCC ? QByteArray(fourCC, 4) : dx10 ? QByteArray("DX10") : QByteArray("DXT1");
    h += QByteArray(20, '\0');
    put32(h, 0x1000);
    h += QByteArray(16, '\0');
    if (dx10) {
        put32(h, 98);
        put32(h, 3);
        put32(h, 0);
        put32(h, 1);
        put32(h, 0);
    }
    const uint32_t block = dx10 ? 16 : 8;
    uint64_t size = 0;
    for (uint32_t m = 0, w = width, hh = height; m < mips; ++m) {
        size += std::max<uint64_t>(uint64_t(w) * hh, 16) / 16 * block;
        if (w > 4) w /= 2;
        if (hh > 4) hh /= 2;
    }
    return h + testutil::patternBytes(int(size), seed);
}

struct ParsedChunk {
    uint64_t offset;
    uint32_t packed, unpacked;
    uint16_t firstMip, lastMip;
};

struct ParsedFile {
    uint32_t nameHash, extension, directoryHash;
    uint64_t offset = 0;
    uint32_t packed = 0, unpacked = 0;
    uint16_t height = 0, width = 0;
    uint8_t mips = 0, format = 0, chunkCount = 0;
    QVector<ParsedChunk> chunks;
    QByteArray name;
};

struct Parsed {
    bool ok = false;
    uint32_t version = 0, fileCount = 0, headerSize = 0;
    bool texture = false;
    uint64_t nameTableOffset = 0, headerExtra = 0;
    uint32_t compressionCode = 0;
    QVector<ParsedFile> files;
};

// Reads an archive with its own offsets, checking every fixed field the writer promises.
Parsed parse(const QByteArray& a)
{
    Parsed p;
    if (a.size() < 24 || a.left(4) != "BTDX") return p;
    p.version = get32(a, 4);
    p.texture = a.mid(8, 4) == "DX10";
    if (!p.texture && a.mid(8, 4) != "GNRL") return p;
    p.fileCount = get32(a, 12);
    p.nameTableOffset = get64(a, 16);
    p.headerSize = p.version == 3 ? 36 : p.version == 2 ? 32 : 24;
    if (p.headerSize >= 32) p.headerExtra = get64(a, 24);
    if (p.headerSize >= 36) p.compressionCode = get32(a, 32);
    qint64 at = p.headerSize;
    for (uint32_t i = 0; i < p.fileCount; ++i) {
        ParsedFile f;
        if (at + 36 > a.size()) return p;
        f.nameHash = get32(a, at);
        f.extension = get32(a, at + 4);
        f.directoryHash = get32(a, at + 8);
        if (!p.texture) {
            if (get32(a, at + 12) != 0x00100100 || get32(a, at + 32) != 0xBAADF00D) return p;
            f.offset = get64(a, at + 16);
            f.packed = get32(a, at + 24);
            f.unpacked = get32(a, at + 28);
            at += 36;
        } else {
            if (a[int(at + 12)] != 0 || get16(a, at + 14) != 24 || get16(a, at + 22) != 0x0800) return p;
            f.chunkCount = uint8_t(a[int(at + 13)]);
            f.height = get16(a, at + 16);
            f.width = get16(a, at + 18);
            f.mips = uint8_t(a[int(at + 20)]);
            f.format = uint8_t(a[int(at + 21)]);
            at += 24;
            for (int k = 0; k < f.chunkCount; ++k, at += 24) {
                if (at + 24 > a.size() || get32(a, at + 20) != 0xBAADF00D) return p;
                f.chunks << ParsedChunk{get64(a, at), get32(a, at + 8), get32(a, at + 12), get16(a, at + 16),
                                        get16(a, at + 18)};
            }
        }
        p.files << f;
    }
    at = qint64(p.nameTableOffset);
    for (ParsedFile& f : p.files) {
        if (at + 2 > a.size()) return p;
        const int n = get16(a, at);
        f.name = a.mid(int(at + 2), n);
        at += 2 + n;
    }
    p.ok = at == a.size();
    return p;
}

QByteArray decode(const QByteArray& a, uint64_t offset, uint32_t packed, uint32_t unpacked, bool lz4)
{
    if (packed == 0) return a.mid(int(offset), int(unpacked));
    QByteArray out(int(unpacked), '\0');
    if (lz4) {
        const int n = LZ4_decompress_safe(a.constData() + offset, out.data(), int(packed), int(unpacked));
        return n == int(unpacked) ? out : QByteArray("<lz4 failure>");
    }
    uLongf len = unpacked;
    const int rc = uncompress(reinterpret_cast<Bytef*>(out.data()), &len,
                              reinterpret_cast<const Bytef*>(a.constData() + offset), packed);
    return rc == Z_OK && len == unpacked ? out : QByteArray("<zlib failure>");
}

SourceList gather(const QStringList& paths)
{
    SourceList list;
    GatherState state;
    state.sources = &list;
    state.table = &defaultNameHashTable();
    gatherPaths(state, paths, nullptr);
    return list;
}

}  // namespace

class TestWriter : public QObject {
    Q_OBJECT
private slots:
    void init();
    void generalByteLayout();
    void headerPerVersion_data();
    void headerPerVersion();
    void generalRoundTrip_data();
    void generalRoundTrip();
    void twoTexturesLayout();
    void matchesCreationKitArchives();
    void textureRoundTrip_data();
    void textureRoundTrip();
    void readsBack_data();
    void readsBack();
    void rebuildsRealArchives_data();
    void rebuildsRealArchives();
    void progressAndCancel_data();
    void progressAndCancel();
    void failures_data();
    void failures();
    void emptyList();
    void existingTargetAndLeftovers();
    void fileSystemFailures_data();
    void fileSystemFailures();
    void tooLarge_data();
    void tooLarge();
    void commandLine_data();
    void commandLine();
    void commandLineHelp();

private:
    QTemporaryDir tmp;
    QString dir;
    bool noTemporaries(const QString& target) const { return !QFileInfo::exists(target + ".Zarneler"); }
};

void TestWriter::init()
{
    QVERIFY(tmp.isValid());
    dir = tmp.path() + "/" + QTest::currentTestFunction() + "_" +
          QString(QTest::currentDataTag()).replace(QRegularExpression("[^A-Za-z0-9]"), "_");
    QVERIFY(QDir().mkpath(dir));
}

void TestWriter::generalByteLayout()
{
    QVERIFY(testutil::writeFile(dir + "/Data/textures/A.dds", "texture!"));
    QVERIFY(testutil::writeFile(dir + "/Data/readme.txt", "read me\n"));
    SourceList sources = gather({dir + "/Data"});
    RecordingProgress progress;
    const QString target = dir + "/out.ba2";
    QCOMPARE(writeArchive(sources, target, false, 1, 0, 1, progress).status, 1);

    QByteArray expected("BTDX");
    put32(expected, 1);
    expected += "GNRL";
    put32(expected, 2);
    put64(expected, 24 + 2 * 36 + 8 + 8);
    const struct {
        const char* stem;
        const char* ext;
        const char* dir;
        uint64_t offset;
    } rec[] = {{"readme", "txt", "data", 96}, {"a", "dds", "data\\textures", 104}};
    for (const auto& r : rec) {
        put32(expected, refHash(r.stem));
        expected += QByteArray(r.ext) + '\0';
        put32(expected, refHash(r.dir));
        put32(expected, 0x00100100);
        put64(expected, r.offset);
        put32(expected, 0);
        put32(expected, 8);
        put32(expected, 0xBAADF00D);
    }
    expected += "read me\ntexture!";
    expected += QByteArray("\x0f\x00", 2) + "data/readme.txt";
    expected += QByteArray("\x13\x00", 2) + "data/textures/a.dds";
    QCOMPARE(testutil::readFile(target), expected);
    QVERIFY(noTemporaries(target));
}

void TestWriter::headerPerVersion_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("headerSize");
    QTest::addColumn<qulonglong>("extra");
    QTest::addColumn<uint>("code");
    QTest::newRow("1") << 1 << 24 << 0ull << 0u;
    QTest::newRow("2") << 2 << 32 << 1ull << 0u;
    QTest::newRow("3") << 3 << 36 << 1ull << 3u;
    QTest::newRow("0") << 0 << 24 << 0ull << 0u;
    QTest::newRow("7") << 7 << 24 << 0ull << 0u;
}

void TestWriter::headerPerVersion()
{
    QFETCH(int, version);
    QFETCH(int, headerSize);
    QFETCH(qulonglong, extra);
    QFETCH(uint, code);
    const QByteArray content = testutil::patternBytes(3000, 7);
    QVERIFY(testutil::writeFile(dir + "/Data/a.txt", content));
    QVERIFY(testutil::writeFile(dir + "/Data/b.txt", content));
    SourceList sources = gather({dir + "/Data"});
    RecordingProgress progress;
    QCOMPARE(writeArchive(sources, dir + "/out.ba2", false, version, 5, 1, progress).status, 1);
    const QByteArray a = testutil::readFile(dir + "/out.ba2");
    QCOMPARE(get32(a, 4), uint32_t(version));
    const Parsed p = parse(a);
    QVERIFY(p.ok);
    QCOMPARE(int(p.headerSize), headerSize);
    QCOMPARE(p.headerExtra, extra);
    QCOMPARE(p.compressionCode, code);
    QCOMPARE(p.files[0].offset, uint64_t(headerSize + 2 * 36));  // records sit right behind the header
    const bool compressed = version >= 1 && version <= 3;
    QCOMPARE(p.files[0].packed != 0, compressed);
    QCOMPARE(decode(a, p.files[1].offset, p.files[1].packed, 3000, version == 3), content);
}

void TestWriter::generalRoundTrip_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("zlib");
    QTest::addColumn<int>("lz4");
    QTest::addColumn<bool>("compressed");
    QTest::newRow("v1 stored") << 1 << 0 << 1 << false;
    QTest::newRow("v1 zlib 1") << 1 << 1 << 0 << true;
    QTest::newRow("v1 zlib 9") << 1 << 9 << 0 << true;
    QTest::newRow("v2 zlib 6") << 2 << 6 << 0 << true;
    QTest::newRow("v2 stored") << 2 << 0 << 2 << false;
    QTest::newRow("v3 lz4 default") << 3 << 0 << 1 << true;
    QTest::newRow("v3 lz4 large table") << 3 << 9 << 2 << true;
    QTest::newRow("v3 stored") << 3 << 6 << 0 << false;
    QTest::newRow("v0 stored") << 0 << 6 << 1 << false;
}

void TestWriter::generalRoundTrip()
{
    QFETCH(int, version);
    QFETCH(int, zlib);
    QFETCH(int, lz4);
    QFETCH(bool, compressed);
    const QMap<QString, QByteArray> files{{"Data/text.txt", testutil::patternBytes(20000, 1)},
                                          {"Data/noise.bin", testutil::patternBytes(3000, 2, false)},
                                          {"Data/empty.txt", QByteArray()},
                                          {"Data/Sub/Deep/x.nif", testutil::patternBytes(777, 3)},
                                          {"Loose.TXT", "loose file"}};
    for (auto it = files.begin(); it != files.end(); ++it) QVERIFY(testutil::writeFile(dir + "/" + it.key(), *it));
    SourceList sources = gather({dir + "/Data", dir + "/Loose.TXT"});
    QCOMPARE(int(sources.size()), files.size());
    RecordingProgress progress;
    const QString target = dir + "/out.ba2";
    const WriteResult r = writeArchive(sources, target, false, version, zlib, lz4, progress);
    QCOMPARE(r.status, 1);
    QVERIFY(r.failedFile.isEmpty());
    QVERIFY(noTemporaries(target));

    const QByteArray a = testutil::readFile(target);
    const Parsed p = parse(a);
    QVERIFY(p.ok);
    QCOMPARE(int(p.fileCount), files.size());
    uint64_t cursor = p.headerSize + 36u * p.fileCount;
    QByteArray storedConcatenation;
    for (int i = 0; i < p.files.size(); ++i) {
        const ParsedFile& f = p.files[i];
        const SourceEntry& e = sources[size_t(i)];
        QCOMPARE(f.name, e.relativePathBytes());
        QCOMPARE(f.nameHash, e.nameHash);
        QCOMPARE(f.extension, e.extension);
        QCOMPARE(f.directoryHash, e.directoryHash);
        const QByteArray source = testutil::readFile(e.sourceFile);
        QCOMPARE(f.unpacked, uint32_t(source.size()));
        QCOMPARE(f.offset, cursor);  // data follows in record order, without gaps
        // Every non-empty file goes through the codec, even when it grows.
        QCOMPARE(f.packed != 0, compressed && (source.size() > 0 || version == 3));
        if (f.packed && version != 3) QCOMPARE(uint8_t(a[int(f.offset)]) & 0x0F, 8);  // RFC 1950 header
        QCOMPARE(decode(a, f.offset, f.packed, f.unpacked, version == 3), source);
        cursor += f.packed ? f.packed : f.unpacked;
        storedConcatenation += source;
    }
    QCOMPARE(p.nameTableOffset, cursor);
    if (!compressed)
        QCOMPARE(a.mid(int(p.headerSize + 36u * p.fileCount), storedConcatenation.size()), storedConcatenation);
}

void TestWriter::twoTexturesLayout()
{
    const QByteArray big = makeDds(1024, 1024, 11, 1);   // chunks: mip 0, mip 1, mips 2-10
    const QByteArray small = makeDds(256, 256, 9, 2);    // one chunk
    QVERIFY(testutil::writeFile(dir + "/Tex/a.dds", big));
    QVERIFY(testutil::writeFile(dir + "/Tex/b.dds", small));
    SourceList sources = gather({dir + "/Tex"});
    RecordingProgress progress;
    const QString target = dir + "/out.ba2";
    QCOMPARE(writeArchive(sources, target, true, 1, 0, 1, progress).status, 1);
    const QByteArray a = testutil::readFile(target);

    QCOMPARE(a.mid(8, 4), QByteArray("DX10"));
    QCOMPARE(uint8_t(a[24 + 13]), uint8_t(3));   // first record at 24 with three chunks
    QCOMPARE(uint8_t(a[120 + 13]), uint8_t(1));  // second at 120 with one
    QCOMPARE(sources[0].chunkTablePosition, 48ull);
    QCOMPARE(int(sources[0].chunkCount), 3);
    QCOMPARE(sources[1].chunkTablePosition, 144ull);
    QCOMPARE(int(sources[1].chunkCount), 1);

    const uint64_t base = 168;
    const uint32_t sizes[] = {524288, 131072, 43704};
    const uint16_t mips[][2] = {{0, 0}, {1, 1}, {2, 10}};
    uint64_t offset = base;
    for (int k = 0; k < 3; ++k) {
        const qint64 rec = 48 + 24 * k;
        QCOMPARE(get64(a, rec), offset);
        QCOMPARE(get32(a, rec + 8), 0u);
        QCOMPARE(get32(a, rec + 12), sizes[k]);
        QCOMPARE(get16(a, rec + 16), mips[k][0]);
        QCOMPARE(get16(a, rec + 18), mips[k][1]);
        QCOMPARE(get32(a, rec + 20), 0xBAADF00Du);
        offset += sizes[k];
    }
    QCOMPARE(get64(a, 144), base + 699064);
    QCOMPARE(get32(a, 144 + 12), 43704u);
    QCOMPARE(get16(a, 144 + 18), uint16_t(8));
    // Record values of the first texture: height, width, mip count, DXGI BC1.
    QCOMPARE(get16(a, 24 + 16), uint16_t(1024));
    QCOMPARE(get16(a, 24 + 18), uint16_t(1024));
    QCOMPARE(uint8_t(a[24 + 20]), uint8_t(11));
    QCOMPARE(uint8_t(a[24 + 21]), uint8_t(71));
    QCOMPARE(get32(a, 24 + 4), 0x00736464u);
    // Data: the pixel bytes of both files, in order, then the names.
    QCOMPARE(a.mid(int(base), 699064), big.mid(128));
    QCOMPARE(a.mid(int(base + 699064), 43704), small.mid(128));
    const uint64_t names = base + 699064 + 43704;
    QCOMPARE(get64(a, 16), names);
    QCOMPARE(a.mid(int(names)), QByteArray("\x09\x00tex/a.dds\x09\x00tex/b.dds", 22));
}

// Archives made by the game's Creation Kit from a folder dev/git/testing-plugins: rebuilt from
// the same files, ours must carry the very same records. The kit keeps the names' case and
// writes '\\' between folders; ours are lower case with '/'.
void TestWriter::matchesCreationKitArchives()
{
    const QByteArray kitMain = testutil::readFile(testutil::samplesDir() + "/Blank - Main.ba2");
    const QByteArray kitTextures = testutil::readFile(testutil::samplesDir() + "/Blank - Textures.ba2");
    const QByteArray dds = testutil::readFile(testutil::samplesDir() + "/Blank.dds");
    if (kitMain.isEmpty() || kitTextures.isEmpty() || dds.isEmpty()) QSKIP("real sample archives not available");

    // General, stored: the kit's file holds LICENSE.txt uncompressed right behind its record.
    QCOMPARE(get32(kitMain, 24 + 24), 0u);
    const QByteArray license = kitMain.mid(int(get64(kitMain, 24 + 16)), int(get32(kitMain, 24 + 28)));
    QCOMPARE(license.size(), 1101);
    QVERIFY(testutil::writeFile(dir + "/Dev/git/testing-plugins/LICENSE.txt", license));
    QVERIFY(testutil::writeFile(dir + "/Dev/git/testing-plugins/Blank.dds", dds));
    RecordingProgress progress;
    // Both files, named from the Dev folder down: blank.dds sorts first.
    SourceList general = gather({dir + "/Dev"});
    QCOMPARE(int(general.size()), 2);
    SourceList textures = general;
    general.entries.erase(general.entries.begin());
    textures.entries.pop_back();
    QCOMPARE(writeArchive(general, dir + "/main.ba2", false, 1, 0, 1, progress).status, 1);
    QByteArray expected = kitMain;
    const int nameAt = int(get64(kitMain, 16)) + 2;
    expected.replace(nameAt, expected.size() - nameAt, expected.mid(nameAt).toLower().replace('\\', '/'));
    QCOMPARE(testutil::readFile(dir + "/main.ba2"), expected);

    // Texture: the same record and chunk split; the chunks hold the kit's pixels.
    QCOMPARE(writeArchive(textures, dir + "/textures.ba2", true, 1, 0, 1, progress).status, 1);
    const QByteArray ours = testutil::readFile(dir + "/textures.ba2");
    QCOMPARE(ours.left(16), kitTextures.left(16));
    QCOMPARE(ours.mid(24, 24), kitTextures.mid(24, 24));
    const int chunks = uint8_t(kitTextures[24 + 13]);
    QCOMPARE(chunks, 2);
    for (int k = 0; k < chunks; ++k) {
        const int rec = 48 + 24 * k;
        QCOMPARE(ours.mid(rec + 16, 8), kitTextures.mid(rec + 16, 8));  // mips, sentinel
        const QByteArray kitChunk =
            decode(kitTextures, get64(kitTextures, rec), get32(kitTextures, rec + 8), get32(kitTextures, rec + 12), false);
        const QByteArray ourChunk = decode(ours, get64(ours, rec), get32(ours, rec + 8), get32(ours, rec + 12), false);
        // 800 x 600 has levels whose sides are not multiples of 4; how the tail of the chain is
        // measured for them may differ from the kit's, so the last chunk need only be its start.
        if (k + 1 < chunks) QCOMPARE(ourChunk, kitChunk);
        else QVERIFY(!ourChunk.isEmpty() && kitChunk.startsWith(ourChunk));
    }
    const Parsed p = parse(ours);
    QVERIFY(p.ok);
    QCOMPARE(p.files[0].name, QByteArray("dev/git/testing-plugins/blank.dds"));
}

void TestWriter::textureRoundTrip_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("zlib");
    QTest::addColumn<int>("lz4");
    QTest::newRow("v1 zlib") << 1 << 6 << 0;
    QTest::newRow("v2 zlib") << 2 << 1 << 0;
    QTest::newRow("v3 lz4") << 3 << 0 << 1;
    QTest::newRow("v3 stored") << 3 << 1 << 0;
}

void TestWriter::textureRoundTrip()
{
    QFETCH(int, version);
    QFETCH(int, zlib);
    QFETCH(int, lz4);
    const QMap<QString, QByteArray> files{{"Textures/big.dds", makeDds(1024, 512, 10, 5)},
                                          {"Textures/bc7.dds", makeDds(512, 512, 10, 6, true)},
                                          {"Textures/one.dds", makeDds(2048, 64, 1, 7)},
                                          {"Textures/sub/tiny.dds", makeDds(4, 4, 3, 8, true)}};
    for (auto it = files.begin(); it != files.end(); ++it) QVERIFY(testutil::writeFile(dir + "/" + it.key(), *it));
    SourceList sources = gather({dir + "/Textures"});
    RecordingProgress progress;
    const QString target = dir + "/out.ba2";
    QCOMPARE(writeArchive(sources, target, true, version, zlib, lz4, progress).status, 1);
    const QByteArray a = testutil::readFile(target);
    const Parsed p = parse(a);
    QVERIFY(p.ok);
    QVERIFY(p.texture);
    uint64_t cursor = p.headerSize;
    for (const ParsedFile& f : p.files) cursor += 24u * (1u + f.chunkCount);
    const bool compressed = version == 3 ? lz4 != 0 : zlib != 0;
    for (int i = 0; i < p.files.size(); ++i) {
        const ParsedFile& f = p.files[i];
        const QByteArray dds = testutil::readFile(sources[size_t(i)].sourceFile);
        QCOMPARE(uint32_t(f.width), get32(dds, 16));
        QCOMPARE(uint32_t(f.height), get32(dds, 12));
        QCOMPARE(uint32_t(f.mips), get32(dds, 28));
        QCOMPARE(int(f.format), dds.mid(84, 4) == "DX10" ? 98 : 71);
        QByteArray pixels;
        for (const ParsedChunk& c : f.chunks) {
            QCOMPARE(c.offset, cursor);
            QCOMPARE(c.packed != 0, compressed);
            pixels += decode(a, c.offset, c.packed, c.unpacked, version == 3);
            cursor += c.packed ? c.packed : c.unpacked;
        }
        QCOMPARE(f.chunks.last().lastMip, uint16_t(f.mips - 1));
        QCOMPARE(pixels, dds.mid(dds.mid(84, 4) == "DX10" ? 148 : 128));
    }
    QCOMPARE(p.nameTableOffset, cursor);
}

void TestWriter::readsBack_data()
{
    QTest::addColumn<bool>("texture");
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("zlib");
    QTest::addColumn<int>("lz4");
    QTest::addColumn<ZlibEngine>("engine");
    QTest::newRow("general v1 zlib") << false << 1 << 6 << 0 << ZlibEngine::Auto;
    QTest::newRow("general v2 zlib engine") << false << 2 << 1 << 0 << ZlibEngine::Zlib;
    QTest::newRow("general v1 libdeflate 9") << false << 1 << 9 << 0 << ZlibEngine::Libdeflate;
    QTest::newRow("general v2 stored") << false << 2 << 0 << 0 << ZlibEngine::Auto;
    QTest::newRow("texture v1 zlib") << true << 1 << 1 << 0 << ZlibEngine::Auto;
    QTest::newRow("texture v1 zlib engine") << true << 1 << 6 << 0 << ZlibEngine::Zlib;
    QTest::newRow("texture v2 stored") << true << 2 << 0 << 0 << ZlibEngine::Auto;
    QTest::newRow("texture v3 lz4") << true << 3 << 0 << 1 << ZlibEngine::Auto;
    QTest::newRow("texture v3 lz4 large table") << true << 3 << 0 << 2 << ZlibEngine::Auto;
}

// What the writer makes, the program's own reader opens, verifies and extracts unchanged; worker
// threads make the very same bytes.
void TestWriter::readsBack()
{
    QFETCH(bool, texture);
    QFETCH(int, version);
    QFETCH(int, zlib);
    QFETCH(int, lz4);
    QFETCH(ZlibEngine, engine);
    // More files than the worker window holds, so its slots are reused.
    for (int i = 0; i < 9; ++i) {
        const QString name = dir + QStringLiteral("/Data/Set/f%1.").arg(i) + (texture ? "dds" : "bin");
        QVERIFY(testutil::writeFile(name, texture ? makeDds(32u << (i % 4), 64, 3, uint32_t(10 + i), i % 2)
                                                  : testutil::patternBytes(1000 * i, uint32_t(10 + i), i % 3)));
    }
    if (texture) {
        QVERIFY(testutil::writeFile(dir + "/Data/Textures/A.dds", makeDds(1024, 1024, 11, 1)));
        QVERIFY(testutil::writeFile(dir + "/Data/Textures/Sub/b_c.dds", makeDds(256, 128, 8, 2, true)));
        QVERIFY(testutil::writeFile(dir + "/Data/z.dds", makeDds(16, 16, 1, 3)));
    } else {
        QVERIFY(testutil::writeFile(dir + "/Data/Meshes/A.nif", testutil::patternBytes(70000, 1)));
        QVERIFY(testutil::writeFile(dir + "/Data/Sound/noise.wav", testutil::patternBytes(5000, 2, false)));
        QVERIFY(testutil::writeFile(dir + "/Data/empty.txt", QByteArray()));
    }
    SourceList sources = gather({dir + "/Data"});
    RecordingProgress progress;
    QCOMPARE(writeArchive(sources, dir + "/out.ba2", texture, version, zlib, lz4, progress, 1, engine).status, 1);
    SourceList again = gather({dir + "/Data"});
    RecordingProgress threaded;
    QCOMPARE(writeArchive(again, dir + "/par.ba2", texture, version, zlib, lz4, threaded, 3, engine).status, 1);
    const QByteArray a = testutil::readFile(dir + "/out.ba2");
    QCOMPARE(testutil::readFile(dir + "/par.ba2"), a);
    QCOMPARE(threaded.values, progress.values);
    if (!texture && zlib) {
        // Plain zlib inflates either engine's streams; the zlib engine's are qCompress's own.
        const Parsed p = parse(a);
        QVERIFY(p.ok);
        for (int i = 0; i < p.files.size(); ++i) {
            const ParsedFile& f = p.files[i];
            const QByteArray source = testutil::readFile(sources[size_t(i)].sourceFile);
            QCOMPARE(decode(a, f.offset, f.packed, f.unpacked, false), source);
            if (engine == ZlibEngine::Zlib && f.packed)
                QCOMPARE(a.mid(int(f.offset), int(f.packed)),
                         compressZlib(source.constData(), uint32_t(source.size()), zlib).mid(4));
        }
    }

    ArchiveReader reader;
    NullProgress quiet;
    QVERIFY2(reader.open(dir + "/out.ba2", quiet), qPrintable(reader.errorText()));
    QCOMPARE(reader.isTexture, texture);
    QCOMPARE(int(reader.version), version);
    QCOMPARE(size_t(reader.fileCount), sources.size());
    QString fault;
    QVERIFY2(verifyArchive(reader, fault), qPrintable(fault));
    QVERIFY(QDir().mkpath(dir + "/x"));
    QCOMPARE(extractArchive(reader, dir + "/x/", quiet).status, 1);
    for (uint32_t i = 0; i < reader.fileCount; ++i) {
        const SourceEntry& e = sources[i];
        QCOMPARE(reader.nameOf(i).toUtf8(), e.relativePathBytes());
        const QByteArray original = testutil::readFile(e.sourceFile);
        const QByteArray extracted = testutil::readFile(dir + "/x/" + reader.nameOf(i));
        if (!texture) {
            QCOMPARE(extracted, original);
            continue;
        }
        // The header is rebuilt from the record; the pixels come back as they were.
        const int start = original.mid(84, 4) == "DX10" ? 148 : 128;
        QCOMPARE(extracted.mid(start), original.mid(start));
        QCOMPARE(extracted.mid(12, 8), original.mid(12, 8));  // height, width
    }
}

static QMap<QString, QByteArray> filesUnder(const QString& folder)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files.insert(path.mid(folder.size() + 1).toLower(), testutil::readFile(path));
    }
    return files;
}

void TestWriter::rebuildsRealArchives_data()
{
    QTest::addColumn<QString>("sample");
    for (const QString& name : QDir(testutil::samplesDir()).entryList({"*.ba2"}, QDir::Files))
        QTest::newRow(qPrintable(name)) << name;
}

// The files of an archive made by someone else, extracted and dropped back in with the
// assistance's settings, give an archive that extracts to the very same files.
void TestWriter::rebuildsRealArchives()
{
    QFETCH(QString, sample);
    ArchiveReader original;
    NullProgress quiet;
    QVERIFY(original.open(testutil::samplesDir() + "/" + sample, quiet));
    QVERIFY(QDir().mkpath(dir + "/x") && QDir().mkpath(dir + "/y"));
    QCOMPARE(extractArchive(original, dir + "/x/", quiet).status, 1);

    QStringList drops;
    for (const QString& entry : QDir(dir + "/x").entryList(QDir::AllEntries | QDir::NoDotAndDotDot))
        drops << dir + "/x/" + entry;
    SourceList sources = gather(drops);
    QCOMPARE(size_t(sources.size()), size_t(original.fileCount));
    const CreationSettings s = assessSources(sources, true, CreationSettings()).settings;
    RecordingProgress progress;
    QCOMPARE(writeArchive(sources, dir + "/re.ba2", s.archiveFormat == 1, s.archiveVersion, s.zlibLevel, s.lz4Mode,
                          progress)
                 .status,
             1);
    ArchiveReader rebuilt;
    QVERIFY(rebuilt.open(dir + "/re.ba2", quiet));
    QCOMPARE(rebuilt.isTexture, original.isTexture);
    QCOMPARE(extractArchive(rebuilt, dir + "/y/", quiet).status, 1);
    QCOMPARE(filesUnder(dir + "/y"), filesUnder(dir + "/x"));
}

void TestWriter::progressAndCancel_data()
{
    QTest::addColumn<int>("cancelAtPoll");
    QTest::addColumn<int>("status");
    QTest::addColumn<QList<int>>("values");
    QTest::addColumn<int>("maximum");
    QTest::newRow("no cancel") << 0 << 1 << QList<int>{0, 0, 1, 2, 100} << 100;
    QTest::newRow("cancel at the first file") << 1 << 0 << QList<int>{0, 0} << 3;
    QTest::newRow("cancel at the last file") << 3 << 0 << QList<int>{0, 0, 1, 2} << 3;
}

void TestWriter::progressAndCancel()
{
    QFETCH(int, cancelAtPoll);
    QFETCH(int, status);
    QFETCH(QList<int>, values);
    QFETCH(int, maximum);
    for (const char* f : {"/D/a.txt", "/D/b.txt", "/D/c.txt"}) QVERIFY(testutil::writeFile(dir + f, f));
    SourceList sources = gather({dir + "/D"});
    const QString target = dir + "/out.ba2";
    // Worker threads run ahead, but the steps and the cancel points stay the caller's.
    for (int jobs : {1, 3}) {
        QFile::remove(target);
        RecordingProgress progress(cancelAtPoll);
        QCOMPARE(writeArchive(sources, target, false, 2, 1, 1, progress, jobs).status, status);
        QCOMPARE(progress.minimum, 0);
        QCOMPARE(progress.maximum, maximum);
        QCOMPARE(progress.values, values);
        QCOMPARE(QFileInfo::exists(target), status == 1);
        QVERIFY(noTemporaries(target));
        QCOMPARE(QDir(dir).entryList(QDir::Files), status == 1 ? QStringList{"out.ba2"} : QStringList{});
    }
}

void TestWriter::failures_data()
{
    QTest::addColumn<bool>("texture");
    QTest::addColumn<QString>("failing");  // the source expected in failedFile
    QTest::addColumn<int>("status");
    QTest::newRow("source vanished") << false << "D/b.dds" << -2;
    QTest::newRow("texture source vanished") << true << "D/b.dds" << -2;
    QTest::newRow("source is a folder") << false << "D/b.dds" << -2;
    QTest::newRow("not a dds") << true << "D/b.dds" << -9;
    QTest::newRow("first not a dds") << true << "D/a.dds" << -9;
    QTest::newRow("unsupported format") << true << "D/b.dds" << -10;
    // Workers may meet the later failure first; the earlier file's is the one reported.
    QTest::newRow("two failures") << true << "D/b.dds" << -2;
}

void TestWriter::failures()
{
    QFETCH(bool, texture);
    QFETCH(QString, failing);
    QFETCH(int, status);
    const QString tag = QTest::currentDataTag();
    QVERIFY(testutil::writeFile(dir + "/D/a.dds", tag == "first not a dds" ? QByteArray("text") : makeDds(64, 64, 7, 1)));
    QVERIFY(testutil::writeFile(dir + "/D/b.dds", makeDds(64, 64, 7, 2)));
    QVERIFY(testutil::writeFile(dir + "/D/c.dds", makeDds(64, 64, 7, 3)));
    SourceList sources = gather({dir + "/D"});
    QCOMPARE(int(sources.size()), 3);
    const QString b = dir + "/D/b.dds";
    if (tag.contains("vanished") || tag == "two failures") QVERIFY(QFile::remove(b));
    if (tag == "two failures") QVERIFY(testutil::writeFile(dir + "/D/c.dds", "text"));
    if (tag == "source is a folder") QVERIFY(QFile::remove(b) && QDir().mkpath(b));
    if (tag == "not a dds") QVERIFY(testutil::writeFile(b, QByteArray(200, 'x')));
    if (tag == "unsupported format") QVERIFY(testutil::writeFile(b, makeDds(64, 64, 7, 2, false, "ATI2")));
    QVERIFY(testutil::writeFile(dir + "/out.ba2", "previous archive"));

    for (int jobs : {1, 3}) {
        RecordingProgress progress;
        const WriteResult r = writeArchive(sources, dir + "/out.ba2", texture, 1, 1, 1, progress, jobs);
        QCOMPARE(r.status, status);
        QCOMPARE(r.failedFile, dir + "/" + failing);
        QCOMPARE(testutil::readFile(dir + "/out.ba2"), QByteArray("previous archive"));
        QVERIFY(noTemporaries(dir + "/out.ba2"));
    }
}

void TestWriter::emptyList()
{
    SourceList none;
    RecordingProgress progress;
    const QString target = dir + "/out.ba2";
    QCOMPARE(writeArchive(none, target, false, 1, 1, 1, progress).status, -1);
    QVERIFY(progress.values.isEmpty());
    QVERIFY(QDir(dir).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).isEmpty());
}

void TestWriter::existingTargetAndLeftovers()
{
    QVERIFY(testutil::writeFile(dir + "/D/a.txt", "alpha"));
    SourceList sources = gather({dir + "/D"});
    const QString target = dir + "/out.ba2";
    QVERIFY(testutil::writeFile(target, QByteArray(100000, 'o')));
    QVERIFY(testutil::writeFile(target + ".Zarneler", QByteArray(50000, 'l')));
    RecordingProgress progress;
    QCOMPARE(writeArchive(sources, target, false, 1, 0, 1, progress).status, 1);
    const QByteArray a = testutil::readFile(target);
    const Parsed p = parse(a);
    QVERIFY(p.ok);  // nothing of the old target or the leftover survives
    QCOMPARE(a.size(), 24 + 36 + 5 + 2 + 7);
    QVERIFY(noTemporaries(target));
}

void TestWriter::fileSystemFailures_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("failing");  // failedFile, relative to out.ba2's path
    // A folder under the temporary name can be neither removed nor opened as a file.
    QTest::newRow("temporary name taken by a folder") << -2 << ".Zarneler";
    QTest::newRow("target is a folder") << -3 << "";
    // A file-size limit makes the kernel refuse writes, for root as well.
    QTest::newRow("write refused") << -3 << ".Zarneler";
    QTest::newRow("read-only folder") << -2 << ".Zarneler";
}

void TestWriter::fileSystemFailures()
{
    QFETCH(int, status);
    QFETCH(QString, failing);
    const QString tag = QTest::currentDataTag();
    if (tag == "read-only folder" && ::geteuid() == 0) QSKIP("permissions do not bind root");
    QVERIFY(testutil::writeFile(dir + "/D/a.bin", testutil::patternBytes(200000, 9)));
    SourceList sources = gather({dir + "/D"});
    const QString out = dir + "/out";
    const QString target = out + "/out.ba2";
    QVERIFY(QDir().mkpath(out));
    if (tag == "temporary name taken by a folder") QVERIFY(testutil::writeFile(target + ".Zarneler/keep", "k"));
    if (tag == "target is a folder") QVERIFY(testutil::writeFile(target + "/keep", "k"));
    if (tag == "read-only folder") QVERIFY(QFile::setPermissions(out, QFile::ReadOwner | QFile::ExeOwner));
    struct rlimit old;
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &old), 0);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    if (tag == "write refused") {
        struct rlimit limited = old;
        limited.rlim_cur = 65536;
        QCOMPARE(setrlimit(RLIMIT_FSIZE, &limited), 0);
    }
    RecordingProgress progress;
    const WriteResult r = writeArchive(sources, target, false, 1, 0, 1, progress);
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, oldHandler);
    QFile::setPermissions(out, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    QCOMPARE(r.status, status);
    QCOMPARE(r.failedFile, target + failing);
    // Only what the test put there remains.
    QStringList left;
    QDirIterator it(out, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) left << it.next().mid(out.size() + 1);
    QCOMPARE(left, tag.contains("folder") && tag != "read-only folder"
                       ? QStringList{QFileInfo(target).fileName() + failing + "/keep"}
                       : QStringList{});
}

void TestWriter::tooLarge_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("zlib");
    QTest::addColumn<int>("lz4");
    QTest::newRow("4 GiB stored") << (qint64(1) << 32) << 1 << 0 << 0;
    QTest::newRow("over the zlib limit") << qint64(0x7E000001) << 2 << 6 << 0;
    QTest::newRow("over the lz4 limit") << qint64(0x7E000001) << 3 << 0 << 1;
}

void TestWriter::tooLarge()
{
    QFETCH(qint64, size);
    QFETCH(int, version);
    QFETCH(int, zlib);
    QFETCH(int, lz4);
    QVERIFY(testutil::writeFile(dir + "/D/a.txt", "small first"));
    {
        QFile big(dir + "/D/b.bin");  // sparse: no disk space, and never read
        QVERIFY(big.open(QIODevice::WriteOnly));
        QVERIFY(big.resize(size));
    }
    SourceList sources = gather({dir + "/D"});
    RecordingProgress progress;
    const WriteResult r = writeArchive(sources, dir + "/out.ba2", false, version, zlib, lz4, progress);
    QCOMPARE(r.status, int(ArchiveStatus::TooLarge));
    QCOMPARE(r.failedFile, dir + "/D/b.bin");
    QCOMPARE(saveOutcomeText(r.status), QStringLiteral("Save Archive Error.\n File Too Large."));
    QVERIFY(!QFileInfo::exists(dir + "/out.ba2"));
    QVERIFY(noTemporaries(dir + "/out.ba2"));
}

void TestWriter::commandLine_data()
{
    QTest::addColumn<QStringList>("files");  // under dir/In
    QTest::addColumn<QStringList>("args");   // after "create"; @ stands for dir
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("stdoutText");
    QTest::addColumn<QString>("header");     // type, version, packed or not: "DX10 3 packed"
    const QStringList dds{"Tex/a.dds", "Tex/b.dds"};
    const QStringList mixed{"Mix/a.dds", "Mix/b.txt"};
    const QStringList sounds{"Snd/a.wav", "Snd/b.txt"};
    const QStringList out{"-o", "@/out.ba2"};
    QTest::newRow("all textures, assisted") << dds << out + QStringList{"@/In/Tex"} << 0 << "Complete.\n"
                                            << "DX10 3 packed";
    QTest::newRow("mixed, assisted") << mixed << out + QStringList{"@/In/Mix"} << 0 << "Complete.\n"
                                     << "GNRL 2 packed";
    QTest::newRow("sounds, assisted") << sounds << out + QStringList{"@/In/Snd"} << 0 << "Complete.\n"
                                      << "GNRL 2 stored";
    QTest::newRow("textures as general") << dds << QStringList{"--format", "general", "-o", "@/out.ba2", "@/In/Tex"}
                                         << 0 << "Complete.\n" << "GNRL 2 packed";
    QTest::newRow("explicit settings") << sounds << QStringList{"--version=1", "--zlib", "9", "-o", "@/out.ba2",
                                                                "@/In/Snd"}
                                       << 0 << "Complete.\n" << "GNRL 1 packed";
    QTest::newRow("zlib engine, two jobs") << sounds << QStringList{"--jobs", "2", "--zlib-engine", "zlib", "--zlib=6",
                                                                    "-o", "@/out.ba2", "@/In/Snd"}
                                           << 0 << "Complete.\n" << "GNRL 2 packed";
    QTest::newRow("bad engine") << sounds << QStringList{"--zlib-engine", "zstd", "-o", "@/out.ba2", "@/In/Snd"} << 2
                                << "" << "";
    QTest::newRow("texture of text") << mixed << QStringList{"--format", "texture", "-o", "@/out.ba2", "@/In/Mix"}
                                     << 1 << "DDS File Error.\n" << "";
    QTest::newRow("version 3 general") << mixed << QStringList{"--version", "3", "-o", "@/out.ba2", "@/In/Mix"} << 2
                                       << "" << "";
    QTest::newRow("bad level") << mixed << QStringList{"--zlib", "10", "-o", "@/out.ba2", "@/In/Mix"} << 2 << ""
                               << "";
    QTest::newRow("no output") << mixed << QStringList{"@/In/Mix"} << 2 << "" << "";
    QTest::newRow("no input") << mixed << out << 2 << "" << "";
    QTest::newRow("missing input") << mixed << out + QStringList{"@/In/Nothing"} << 1 << "" << "";
    QTest::newRow("empty folder") << QStringList{} << out + QStringList{"@/In"} << 1 << "" << "";
}

void TestWriter::commandLine()
{
    QFETCH(QStringList, files);
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(QString, stdoutText);
    QFETCH(QString, header);
    QVERIFY(QDir().mkpath(dir + "/In"));
    for (const QString& f : files)
        QVERIFY(testutil::writeFile(dir + "/In/" + f, f.endsWith(".dds") ? makeDds(64, 64, 7, 1) : QByteArray(500, 'x')));
    for (QString& a : args) a.replace('@', dir);
    QProcess cli;
    cli.start(QStringLiteral(ZARNEL_CLI_PATH), QStringList{"create"} + args);
    QVERIFY(cli.waitForFinished(60000));
    QCOMPARE(cli.exitCode(), exitCode);
    QCOMPARE(QString::fromUtf8(cli.readAllStandardOutput()), stdoutText);
    const QByteArray err = cli.readAllStandardError();
    QCOMPARE(err.isEmpty(), exitCode == 0);
    QCOMPARE(QFileInfo::exists(dir + "/out.ba2"), !header.isEmpty());
    QVERIFY(noTemporaries(dir + "/out.ba2"));
    if (header.isEmpty()) return;
    const QByteArray a = testutil::readFile(dir + "/out.ba2");
    const Parsed p = parse(a);
    QVERIFY(p.ok);
    const bool packed = p.texture ? p.files[0].chunks[0].packed != 0 : p.files[0].packed != 0;
    QCOMPARE(QStringLiteral("%1 %2 %3").arg(QString::fromLatin1(a.mid(8, 4))).arg(p.version).arg(packed ? "packed" : "stored"),
             header);
}

void TestWriter::commandLineHelp()
{
    QProcess cli;
    cli.start(QStringLiteral(ZARNEL_CLI_PATH), {"create", "--help"});
    QVERIFY(cli.waitForFinished(60000));
    QCOMPARE(cli.exitCode(), 0);
    QVERIFY(cli.readAllStandardOutput().startsWith("Usage: zarnel-cli create [OPTIONS] -o ARCHIVE PATH..."));
}

QTEST_GUILESS_MAIN(TestWriter)
#include "tst_writer.moc"

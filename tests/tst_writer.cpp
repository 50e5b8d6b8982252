#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "archive/status.h"
#include "creation/assistance.h"
#include "creation/converter.h"
#include "creation/gather.h"
#include "creation/writer.h"

#include "testutil.h"

#include <QtTest>

#include <csignal>
#include <lz4.h>
#include <sys/resource.h>
#include <unistd.h>
#include <zlib.h>

Q_DECLARE_METATYPE(ZlibEngine)

using namespace testutil;

namespace {

QByteArray le(uint64_t v, int bytes)
{
    QByteArray b;
    for (int i = 0; i < bytes; ++i)
        b.append(char(v >> (8 * i)));
    return b;
}

uint64_t getLE(const QByteArray& b, int at, int bytes)
{
    uint64_t v = 0;
    for (int i = bytes - 1; i >= 0; --i)
        v = v << 8 | uint8_t(b[at + i]);
    return v;
}

// At its first poll, rewrites a texture as a larger one with three chunks.
class ChangingProgress : public RecordingProgress
{
public:
    explicit ChangingProgress(const QString& file)
        : file(file)
    { }
    bool wasCanceled() override
    {
        if (!file.isEmpty()) testutil::writeFile(file, blockDds(1024, 1024, 11, 3));
        file.clear();
        return false;
    }
    QString file;
};

// Gathers every entry of folder, as a drop of all of them does.
SourceList gatherIn(const QString& folder)
{
    QStringList paths;
    for (const QString& entry : QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot))
        paths << folder + "/" + entry;
    SourceList list;
    GatherState state;
    state.sources = &list;
    state.table = &defaultNameHashTable();
    gatherPaths(state, paths, nullptr);
    return list;
}

QMap<QString, QByteArray> filesUnder(const QString& folder)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files.insert(path.mid(folder.size() + 1).toLower(), testutil::readFile(path));
    }
    return files;
}

// Every record's fields but where its data lies, in record order: name (lower case: ours are),
// hashes (unless told not to), and a texture's fields and chunk split, or a file's size.
QStringList recordFields(const ArchiveReader& reader, bool hashes = true)
{
    QStringList records;
    for (uint32_t i = 0; i < reader.fileCount; ++i) {
        const FileRecord& r = reader.record(i);
        QVector<uint> v {r.extension, r.unpackedSize};
        if (hashes) v << r.nameHash << r.directoryHash;
        if (reader.isTexture)
            v << r.format << r.width << r.height << r.mipCount << r.textureFlags << r.chunkCount;
        for (int k = 0; reader.isTexture && k < r.chunkCount; ++k)
            v << reader.chunks(r)[k].firstMip << reader.chunks(r)[k].lastMip
              << reader.chunks(r)[k].unpackedSize;
        QString line = reader.nameOf(i).toLower();
        for (uint x : v)
            line += ' ' + QString::number(x);
        records << line;
    }
    return records;
}

// Writes the archive with one thread and again with three: worker threads may change nothing,
// not the bytes and not the progress steps.
bool writeBoth(SourceList& sources, const QString& target, bool texture, int version, int zlib,
               int lz4, ZlibEngine engine)
{
    SourceList again = sources;
    RecordingProgress one, three;
    return writeArchive(sources, target, texture, version, zlib, lz4, one, 1, engine).status
        == SaveStatus::Complete
        && writeArchive(again, target + ".par", texture, version, zlib, lz4, three, 3, engine)
               .status
        == SaveStatus::Complete
        && testutil::readFile(target) == testutil::readFile(target + ".par")
        && one.values == three.values && !QFileInfo::exists(target + ".Zarneler");
}

// The bytes a zlib stream inflates to when they are size bytes long; "<failure>" else.
QByteArray inflate(const QByteArray& stream, int size)
{
    QByteArray out(size, '\0');
    uLongf length = uLongf(size);
    const int rc
        = uncompress(reinterpret_cast<Bytef*>(out.data()), &length,
                     reinterpret_cast<const Bytef*>(stream.constData()), uLong(stream.size()));
    return rc == Z_OK && length == uLongf(size) ? out : QByteArray("<failure>");
}

// Whether the block of packed bytes at offset (0: stored) holds data as the settings store it.
// Every non-empty block goes through the codec, even when it grows. LZ4 blocks must decode with
// the library and be its default compressor's (mode 1) or the large-table one's (mode 2); the
// zlib engine's streams are zlib's own; libdeflate's need only inflate to data.
bool holds(const QByteArray& a, uint64_t offset, uint32_t packed, const QByteArray& data,
           int version, int zlib, int lz4, ZlibEngine engine)
{
    const QByteArray block = a.mid(int(offset), int(packed ? packed : uint32_t(data.size())));
    if (version == 3 && lz4) {
        QByteArray large(int(lz4Bound(uint64_t(data.size()))), '\0'), out(data.size(), '\0');
        large.resize(compressLz4Large(data.constData(), data.size(), large.data(), large.size()));
        const int n = LZ4_decompress_safe(block.constData(), out.data(), block.size(), out.size());
        return packed && n == data.size() && out == data
            && block == (lz4 == 1 ? testutil::lz4Block(data) : large);
    }
    if (version < 1 || version > 2 || zlib == 0 || data.isEmpty()) return !packed && block == data;
    if (engine == ZlibEngine::Zlib) return block == testutil::zlibStream(data, zlib);
    return packed && inflate(block, data.size()) == data;
}

// Every file's data by name, decoded with zlib and lz4 directly; or, unless decode is set, its
// blocks as stored, each behind its packed size.
QMap<QString, QByteArray> blocksOf(const QString& path, bool decode)
{
    ArchiveReader reader;
    NullProgress quiet;
    const QByteArray a = testutil::readFile(path);
    QMap<QString, QByteArray> files;
    for (uint32_t i = 0, ok = reader.open(path, quiet); ok && i < reader.fileCount; ++i) {
        const FileRecord& r = reader.record(i);
        QVector<ChunkInfo> blocks {{r.dataOffset, r.packedSize, r.unpackedSize, 0, 0}};
        if (reader.isTexture)
            blocks = QVector<ChunkInfo>(reader.chunks(r), reader.chunks(r) + r.chunkCount);
        QByteArray& data = files[reader.nameOf(i)];
        for (const ChunkInfo& c : blocks) {
            const QByteArray stored
                = a.mid(int(c.dataOffset), int(c.packedSize ? c.packedSize : c.unpackedSize));
            QByteArray out(int(c.unpackedSize), '\0');
            if (!decode)
                data += le(c.packedSize, 4) + stored;
            else if (!c.packedSize)
                data += stored;
            else if (reader.version != 3)
                data += inflate(stored, out.size());
            else if (LZ4_decompress_safe(stored.constData(), out.data(), stored.size(), out.size())
                     == out.size())
                data += out;
        }
    }
    return files;
}

} // namespace

class TestWriter : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void byteLayout_data();
    void byteLayout();
    void roundTrip_data();
    void roundTrip();
    void matchesCreationKitArchives();
    void rebuildsRealArchives_data();
    void rebuildsRealArchives();
    void progressAndCancel_data();
    void progressAndCancel();
    void failures_data();
    void failures();
    void convert_data();
    void convert();

private:
    QTemporaryDir tmp;
    QString dir;
};

void TestWriter::init()
{
    QVERIFY(tmp.isValid());
    dir = tmp.path() + "/" + QTest::currentTestFunction() + "_"
        + QString(QTest::currentDataTag()).replace(QRegularExpression("[^A-Za-z0-9]"), "_");
    QVERIFY(QDir().mkpath(dir));
}

void TestWriter::byteLayout_data()
{
    QTest::addColumn<bool>("texture");
    QTest::addColumn<QStringList>("names"); // under dir/in
    QTest::addColumn<QByteArrayList>("contents");
    QTest::addColumn<QByteArray>("expected");

    QByteArray g = "BTDX" + le(1, 4) + "GNRL" + le(2, 4) + le(24 + 2 * 36 + 8 + 8, 8);
    const struct
    {
        const char *stem, *ext, *folder;
        uint64_t offset;
    } records[] = {{"readme", "txt", "data", 96}, {"a", "dds", "data\\textures", 104}};
    for (const auto& r : records) {
        g += le(referenceNameHash(r.stem), 4) + QByteArray(r.ext, 4)
            + le(referenceNameHash(r.folder), 4) + le(0x00100100, 4);
        g += le(r.offset, 8) + le(0, 4) + le(8, 4) + le(0xBAADF00D, 4);
    }
    g += "read me\ntexture!" + le(15, 2) + "data/readme.txt" + le(19, 2) + "data/textures/a.dds";
    QTest::newRow("general") << false << QStringList {"Data/textures/A.dds", "Data/readme.txt"}
                             << QByteArrayList {"texture!", "read me\n"} << g;

    // a: 1024 x 1024 in three chunks (mip 0, mip 1, mips 2-10); b: 256 x 256 in one.
    const QByteArray big = blockDds(1024, 1024, 11, 1), small = blockDds(256, 256, 9, 2);
    QByteArray t = "BTDX" + le(1, 4) + "DX10" + le(2, 4) + le(168 + 699064 + 43704, 8);
    const auto chunk = [](uint64_t offset, uint32_t size, int first, int last) {
        return le(offset, 8) + le(0, 4) + le(size, 4) + le(uint64_t(first), 2)
            + le(uint64_t(last), 2) + le(0xBAADF00D, 4);
    };
    t += le(referenceNameHash("a"), 4) + QByteArray("dds", 4) + le(referenceNameHash("tex"), 4)
        + QByteArray("\0\x03", 2) + le(24, 2);
    t += le(1024, 2) + le(1024, 2) + "\x0b\x47" + le(0x0800, 2);
    t += chunk(168, 524288, 0, 0) + chunk(168 + 524288, 131072, 1, 1)
        + chunk(168 + 655360, 43704, 2, 10);
    t += le(referenceNameHash("b"), 4) + QByteArray("dds", 4) + le(referenceNameHash("tex"), 4)
        + QByteArray("\0\x01", 2) + le(24, 2);
    t += le(256, 2) + le(256, 2) + "\x09\x47" + le(0x0800, 2) + chunk(168 + 699064, 43704, 0, 8);
    t += big.mid(128) + small.mid(128) + QByteArray("\x09\x00tex/a.dds\x09\x00tex/b.dds", 22);
    QTest::newRow("texture") << true << QStringList {"Tex/a.dds", "Tex/b.dds"}
                             << QByteArrayList {big, small} << t;
}

// The whole archive, byte for byte; an old target and a leftover temporary file leave no trace.
void TestWriter::byteLayout()
{
    QFETCH(bool, texture);
    QFETCH(QStringList, names);
    QFETCH(QByteArrayList, contents);
    QFETCH(QByteArray, expected);
    for (int i = 0; i < names.size(); ++i)
        QVERIFY(testutil::writeFile(dir + "/in/" + names[i], contents[i]));
    SourceList sources = gatherIn(dir + "/in");
    const QString target = dir + "/out.ba2";
    QVERIFY(testutil::writeFile(target, QByteArray(1000000, 'o')));
    // The leftover is a file, or a link planted to make the writer overwrite another file.
    const QString victim = dir + "/keep/victim";
    QVERIFY(testutil::writeFile(victim, "victim"));
    QVERIFY(texture ? QFile::link(victim, target + ".Zarneler")
                    : testutil::writeFile(target + ".Zarneler", QByteArray(900000, 'l')));
    RecordingProgress progress;
    QCOMPARE(int(writeArchive(sources, target, texture, 1, 0, 1, progress).status), 1);
    QCOMPARE(testutil::readFile(target), expected);
    QCOMPARE(QDir(dir).entryList(QDir::Files), QStringList {"out.ba2"});
    QVERIFY(!QFileInfo(target).isSymLink() && testutil::readFile(victim) == "victim");
}

void TestWriter::roundTrip_data()
{
    QTest::addColumn<bool>("texture");
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("zlib");
    QTest::addColumn<int>("lz4");
    QTest::addColumn<ZlibEngine>("engine");
    QTest::addColumn<QByteArray>("headerTail"); // the header behind its first 24 bytes
    const QByteArray v2 = le(1, 8), v3 = le(1, 8) + le(3, 4);
    const ZlibEngine a = ZlibEngine::Auto, zlib = ZlibEngine::Zlib;
    QTest::newRow("general v1 stored") << false << 1 << 0 << 1 << a << QByteArray();
    QTest::newRow("general v1 zlib 1") << false << 1 << 1 << 0 << a << QByteArray();
    QTest::newRow("general v1 libdeflate 9")
        << false << 1 << 9 << 0 << ZlibEngine::Libdeflate << QByteArray();
    QTest::newRow("general v2 zlib engine 6") << false << 2 << 6 << 0 << zlib << v2;
    QTest::newRow("general v2 stored") << false << 2 << 0 << 2 << a << v2;
    QTest::newRow("general v3 lz4") << false << 3 << 0 << 1 << a << v3;
    QTest::newRow("general v3 lz4 large table") << false << 3 << 9 << 2 << a << v3;
    QTest::newRow("general v3 stored") << false << 3 << 6 << 0 << a << v3;
    QTest::newRow("general v0 stored") << false << 0 << 6 << 1 << a << QByteArray();
    QTest::newRow("general v7 stored") << false << 7 << 6 << 1 << a << QByteArray();
    QTest::newRow("texture v1 zlib 6") << true << 1 << 6 << 0 << a << QByteArray();
    QTest::newRow("texture v1 zlib engine 9") << true << 1 << 9 << 0 << zlib << QByteArray();
    QTest::newRow("texture v2 stored") << true << 2 << 0 << 0 << a << v2;
    QTest::newRow("texture v3 lz4") << true << 3 << 0 << 1 << a << v3;
    QTest::newRow("texture v3 lz4 large table") << true << 3 << 0 << 2 << a << v3;
    QTest::newRow("texture v3 stored") << true << 3 << 1 << 0 << a << v3;
}

// Checks every record and block against the sources, reads the archive back with the program's
// reader and extracts it: what went in comes out.
void TestWriter::roundTrip()
{
    QFETCH(bool, texture);
    QFETCH(int, version);
    QFETCH(int, zlib);
    QFETCH(int, lz4);
    QFETCH(ZlibEngine, engine);
    QFETCH(QByteArray, headerTail);
    QMap<QString, QByteArray> files = texture
        ? QMap<QString, QByteArray> {{"Data/Textures/big.dds", blockDds(2048, 2048, 12, 5)},
                                     {"Data/Textures/wide.dds", blockDds(1024, 512, 10, 6)},
                                     {"Data/Textures/bc7.dds", blockDds(512, 512, 10, 7, true)},
                                     {"Data/Textures/Sub/tiny.dds", blockDds(4, 4, 3, 8, true)},
                                     {"Data/Textures/cube.dds",
                                      blockDds(512, 512, 10, 10, false, nullptr, DdsShape::Cube)},
                                     {"Data/Textures/cubedx10.dds",
                                      blockDds(64, 64, 1, 11, true, nullptr, DdsShape::Cube)},
                                     {"Loose.DDS", blockDds(2048, 64, 1, 9)}}
        : QMap<QString, QByteArray> {{"Data/text.txt", testutil::patternBytes(20000, 1)},
                                     {"Data/noise.bin", testutil::patternBytes(3000, 2, false)},
                                     {"Data/empty.txt", QByteArray()},
                                     {"Data/Sub/Deep/x.nif", testutil::patternBytes(777, 3)},
                                     {"Loose.TXT", "loose file"}};
    // More files than the three workers' window holds, so that its slots and buffers are reused.
    for (uint32_t i = 0; i < 30; ++i) {
        files[QStringLiteral("Data/Set/f%1.").arg(i) + (texture ? "dds" : "bin")] = texture
            ? blockDds(32u << (i % 4), 64, 3, i, i % 2)
            : testutil::patternBytes(int(100 * i), i, i % 3);
    }
    for (auto it = files.begin(); it != files.end(); ++it)
        QVERIFY(testutil::writeFile(dir + "/in/" + it.key(), *it));
    SourceList sources = gatherIn(dir + "/in");
    QCOMPARE(int(sources.size()), files.size());
    const QString target = dir + "/out.ba2";
    QVERIFY(writeBoth(sources, target, texture, version, zlib, lz4, engine));
    const QByteArray a = testutil::readFile(target);
    QCOMPARE(a.left(16),
             "BTDX" + le(uint64_t(version), 4) + (texture ? "DX10" : "GNRL")
                 + le(sources.size(), 4));
    QCOMPARE(a.mid(24, headerTail.size()), headerTail);

    ArchiveReader reader;
    NullProgress quiet;
    QVERIFY2(reader.open(target, quiet), qPrintable(reader.errorText()));
    uint64_t position = 24 + uint64_t(headerTail.size()), cursor = position, nameBytes = 0;
    for (uint32_t i = 0; i < reader.fileCount; ++i)
        cursor += texture ? 24 * (1 + reader.record(i).chunkCount) : 36;
    for (uint32_t i = 0; i < reader.fileCount; ++i) {
        const FileRecord& r = reader.record(i);
        const SourceEntry& e = sources[i];
        QCOMPARE(reader.nameOf(i).toUtf8(), e.relativePathBytes());
        QCOMPARE(QVector<uint32_t>({r.nameHash, r.extension, r.directoryHash}),
                 QVector<uint32_t>({e.nameHash, e.extension, e.directoryHash}));
        nameBytes += 2 + e.relativePathBytes().size();
        const QByteArray source = testutil::readFile(e.sourceFile);
        if (!texture) {
            QCOMPARE(r.dataOffset, cursor); // data follows in record order, without gaps
            QCOMPARE(r.unpackedSize, uint32_t(source.size()));
            QVERIFY(holds(a, r.dataOffset, r.packedSize, source, version, zlib, lz4, engine));
            cursor += r.packedSize ? r.packedSize : r.unpackedSize;
            continue;
        }
        QCOMPARE(e.chunkTablePosition, position += 24);
        QCOMPARE(e.chunkCount, r.chunkCount);
        position += 24 * r.chunkCount;
        const bool dx10 = source.mid(84, 4) == "DX10";
        QCOMPARE(le(r.height, 4) + le(r.width, 4), source.mid(12, 8));
        QCOMPARE(le(r.mipCount, 4), source.mid(28, 4));
        QCOMPARE(int(r.format), dx10 ? 98 : 71);
        // Levels of 512 x 512 pixels and more get a chunk each, up to three; the rest share one.
        // A cube map is one chunk of all faces.
        const bool cube = e.relativePathBytes().contains("cube");
        QCOMPARE(int(r.textureFlags), cube ? 0x0801 : 0x0800);
        int chunks = 1;
        for (uint64_t area = uint64_t(r.width) * r.height;
             !cube && chunks < 4 && chunks < r.mipCount && area >= 512 * 512;)
            ++chunks, area /= 4;
        QCOMPARE(int(r.chunkCount), chunks);
        const QByteArray pixels = source.mid(dx10 ? 148 : 128);
        int from = 0;
        for (int k = 0; k < r.chunkCount; ++k) {
            const ChunkInfo& c = reader.chunks(r)[k];
            QCOMPARE(c.dataOffset, cursor);
            QCOMPARE(qMakePair(int(c.firstMip), int(c.lastMip)),
                     qMakePair(k, k + 1 < chunks ? k : r.mipCount - 1));
            const QByteArray data = pixels.mid(from, int(c.unpackedSize));
            QVERIFY(holds(a, c.dataOffset, c.packedSize, data, version, zlib, lz4, engine));
            from += data.size();
            cursor += c.packedSize ? c.packedSize : c.unpackedSize;
        }
        QCOMPARE(from, pixels.size());
    }
    QCOMPARE(reader.nameTableOffset, cursor);
    QCOMPARE(uint64_t(a.size()), cursor + nameBytes);

    // The program's own decoders agree.
    QString fault;
    QVERIFY2(verifyArchive(reader, fault), qPrintable(fault));
}

// Archives made by the game's Creation Kit from a folder dev/git/testing-plugins: rebuilt from
// the same files, ours must carry the very same records. The kit keeps the names' case and
// writes '\\' between folders; ours are lower case with '/'.
void TestWriter::matchesCreationKitArchives()
{
    SKIP_WITHOUT_SAMPLES();
    const QByteArray kitMain = testutil::readFile(testutil::samplesDir() + "/Blank - Main.ba2");
    const QByteArray kitTextures
        = testutil::readFile(testutil::samplesDir() + "/Blank - Textures.ba2");
    const QByteArray dds = testutil::readFile(testutil::samplesDir() + "/Blank.dds");
    if (kitMain.isEmpty() || kitTextures.isEmpty() || dds.isEmpty())
        QSKIP("real sample archives not available");

    // General, stored: the kit's file holds LICENSE.txt uncompressed right behind its record.
    QCOMPARE(getLE(kitMain, 24 + 24, 4), 0u);
    const QByteArray license
        = kitMain.mid(int(getLE(kitMain, 24 + 16, 8)), int(getLE(kitMain, 24 + 28, 4)));
    QCOMPARE(license.size(), 1101);
    QVERIFY(testutil::writeFile(dir + "/in/Dev/git/testing-plugins/LICENSE.txt", license));
    QVERIFY(testutil::writeFile(dir + "/in/Dev/git/testing-plugins/Blank.dds", dds));
    RecordingProgress progress;
    // Both files, named from the Dev folder down: blank.dds sorts first.
    SourceList general = gatherIn(dir + "/in");
    QCOMPARE(int(general.size()), 2);
    SourceList textures = general;
    general.entries.erase(general.entries.begin());
    textures.entries.pop_back();
    QCOMPARE(int(writeArchive(general, dir + "/main.ba2", false, 1, 0, 1, progress).status), 1);
    QByteArray expected = kitMain;
    const int nameAt = int(getLE(kitMain, 16, 8)) + 2;
    expected.replace(nameAt, expected.size() - nameAt,
                     expected.mid(nameAt).toLower().replace('\\', '/'));
    QCOMPARE(testutil::readFile(dir + "/main.ba2"), expected);

    // Texture: the same record and chunk split; the chunks hold the kit's pixels.
    QCOMPARE(int(writeArchive(textures, dir + "/textures.ba2", true, 1, 0, 1, progress).status), 1);
    const QByteArray ours = testutil::readFile(dir + "/textures.ba2");
    QCOMPARE(ours.left(16) + ours.mid(24, 24), kitTextures.left(16) + kitTextures.mid(24, 24));
    QCOMPARE(int(kitTextures[24 + 13]), 2);
    for (int k = 0; k < 2; ++k) {
        const int rec = 48 + 24 * k;
        // Unpacked size, mip range and sentinel as the kit's (800 x 600 has levels whose sides are
        // not multiples of 4, counted in whole blocks); stored, as asked.
        QCOMPARE(ours.mid(rec + 12, 12) + ours.mid(rec + 8, 4),
                 kitTextures.mid(rec + 12, 12) + le(0, 4));
        const int kitAt = int(getLE(kitTextures, rec, 8)),
                  kitPacked = int(getLE(kitTextures, rec + 8, 4));
        const QByteArray kitChunk
            = inflate(kitTextures.mid(kitAt, kitPacked), int(getLE(kitTextures, rec + 12, 4)));
        QCOMPARE(ours.mid(int(getLE(ours, rec, 8)), int(getLE(ours, rec + 12, 4))), kitChunk);
    }
    QCOMPARE(ours.mid(int(getLE(ours, 16, 8))), le(33, 2) + "dev/git/testing-plugins/blank.dds");
}

void TestWriter::rebuildsRealArchives_data()
{
    QTest::addColumn<QString>("sample");
    if (!QFileInfo(testutil::samplesDir()).isDir()) QTest::newRow("no samples") << QString();
    for (const QString& name : QDir(testutil::samplesDir()).entryList({"*.ba2"}, QDir::Files))
        QTest::newRow(qPrintable(name)) << name;
    QTest::newRow("cube maps and formats by code") << QString();
}

// The files of an archive made by someone else, extracted and dropped back in with the
// assistance's settings, give an archive that extracts to the very same files.
void TestWriter::rebuildsRealArchives()
{
    SKIP_WITHOUT_SAMPLES();
    QFETCH(QString, sample);
    ArchiveReader original;
    NullProgress quiet;
    const bool built = sample.isEmpty();
    if (built) {
        // Cube maps (a DXT1 and a BC7 one) and formats outside the FourCCs: 128 and 16 bits per
        // pixel, BC6H blocks; each level list as the writer cuts it.
        testutil::Ba2Builder b;
        b.texture = true;
        const auto add
            = [&b](const char* name, int side, int mips, int format, int bytes, bool cube) {
                  b.addTexture(name, uint16_t(side), uint16_t(side / (format == 49 ? 2 : 1)),
                               uint8_t(mips), uint8_t(format),
                               {testutil::patternBytes(cube ? 6 * bytes : bytes, uint32_t(bytes))},
                               testutil::Pack::Zlib)
                      .textureFlags
                      = cube ? 0x0801 : 0x0800;
              };
        add("textures/sky.dds", 16, 5, 71, 184, true);
        add("textures/sky7.dds", 8, 4, 98, 112, true);
        add("textures/float.dds", 8, 4, 2, 1360, false);
        add("textures/rg.dds", 16, 1, 49, 256, false);
        add("textures/hdr.dds", 16, 5, 96, 368, false);
        sample = dir + "/built.ba2";
        QVERIFY(testutil::writeFile(sample, b.build()));
    }
    QVERIFY(original.open(
        QFileInfo(sample).isAbsolute() ? sample : testutil::samplesDir() + "/" + sample, quiet));
    QVERIFY(QDir().mkpath(dir + "/x") && QDir().mkpath(dir + "/y"));
    QCOMPARE(int(extractArchive(original, dir + "/x/", quiet).status), 1);
    SourceList sources = gatherIn(dir + "/x");
    QCOMPARE(size_t(sources.size()), size_t(original.fileCount));
    const CreationSettings s = assessSources(sources, true, CreationSettings()).settings;
    RecordingProgress progress;
    const QString rebuiltPath = dir + "/re.ba2";
    const WriteResult r = writeArchive(sources, rebuiltPath, s.archiveFormat == 1, s.archiveVersion,
                                       s.zlibLevel, s.lz4Mode, progress);
    QCOMPARE(int(r.status), 1);
    ArchiveReader rebuilt;
    QVERIFY(rebuilt.open(rebuiltPath, quiet));
    QCOMPARE(rebuilt.isTexture, original.isTexture);
    QCOMPARE(int(extractArchive(rebuilt, dir + "/y/", quiet).status), 1);
    QCOMPARE(filesUnder(dir + "/y"), filesUnder(dir + "/x"));
    // The built archive's hashes are placeholders.
    QStringList rebuiltRecords = recordFields(rebuilt, !built),
                originalRecords = recordFields(original, !built);
    rebuiltRecords.sort();
    originalRecords.sort();
    QCOMPARE(rebuiltRecords, originalRecords);
}

void TestWriter::progressAndCancel_data()
{
    QTest::addColumn<int>("files");
    QTest::addColumn<int>("cancelAtPoll");
    QTest::addColumn<int>("status");
    QTest::addColumn<QVector<int>>("values");
    QTest::addColumn<int>("maximum");
    QTest::newRow("no cancel") << 3 << 0 << 1 << QVector<int> {0, 0, 1, 2, 100} << 100;
    QTest::newRow("cancel at the first file") << 3 << 1 << 0 << QVector<int> {0, 0} << 3;
    QTest::newRow("cancel at the last file") << 3 << 3 << 0 << QVector<int> {0, 0, 1, 2} << 3;
    QTest::newRow("nothing to write")
        << 0 << 0 << -1 << QVector<int> {} << -1; // silently, without a step
}

void TestWriter::progressAndCancel()
{
    QFETCH(int, files);
    QFETCH(int, cancelAtPoll);
    QFETCH(int, status);
    QFETCH(QVector<int>, values);
    QFETCH(int, maximum);
    for (int i = 0; i < files; ++i)
        QVERIFY(testutil::writeFile(dir + QStringLiteral("/in/D/%1.txt").arg(i), "text"));
    QVERIFY(QDir().mkpath(dir + "/in"));
    SourceList sources = gatherIn(dir + "/in");
    const QString target = dir + "/out.ba2";
    // Worker threads run ahead, but the steps and the cancel points stay the caller's.
    for (int jobs : {1, 3}) {
        QFile::remove(target);
        RecordingProgress progress(cancelAtPoll);
        QCOMPARE(int(writeArchive(sources, target, false, 2, 1, 1, progress, jobs).status), status);
        QCOMPARE(QList<int>({progress.minimum, progress.maximum}),
                 QList<int>({files ? 0 : -1, maximum}));
        QCOMPARE(progress.values, values);
        QCOMPARE(QDir(dir).entryList(QDir::Files),
                 status == 1 ? QStringList {"out.ba2"} : QStringList {});
    }
}

void TestWriter::failures_data()
{
    QTest::addColumn<bool>("texture");
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("zlib");
    QTest::addColumn<int>("lz4");
    QTest::addColumn<QString>("failing"); // failedFile, under dir
    QTest::addColumn<int>("status");
    QTest::newRow("source vanished") << false << 1 << 1 << 0 << "in/D/b.dds" << -2;
    QTest::newRow("texture source vanished") << true << 1 << 1 << 0 << "in/D/b.dds" << -2;
    QTest::newRow("source is a folder") << false << 1 << 1 << 0 << "in/D/b.dds" << -2;
    QTest::newRow("not a dds") << true << 1 << 1 << 0 << "in/D/b.dds" << -9;
    QTest::newRow("first not a dds") << true << 1 << 1 << 0 << "in/D/a.dds" << -9;
    QTest::newRow("unsupported format") << true << 1 << 1 << 0 << "in/D/b.dds" << -10;
    QTest::newRow("cube of five faces") << true << 1 << 1 << 0 << "in/D/b.dds" << -9;
    QTest::newRow("texture array") << true << 3 << 0 << 1 << "in/D/b.dds" << -9;
    // Workers may meet the later failure first; the earlier file's is the one reported.
    QTest::newRow("two failures") << true << 1 << 1 << 0 << "in/D/b.dds" << -2;
    // Rewritten after the chunk count was taken and before it is read again: one chunk, then three.
    QTest::newRow("texture changed meanwhile") << true << 1 << 1 << 0 << "in/D/b.dds" << -4;
    // Sparse files: no disk space, and never read.
    QTest::newRow("4 GiB stored") << false << 1 << 0 << 0 << "in/D/b.dds" << -8;
    QTest::newRow("4 GiB zlib") << false << 2 << 6 << 0 << "in/D/b.dds" << -8;
    QTest::newRow("over the lz4 limit") << false << 3 << 0 << 1 << "in/D/b.dds" << -8;
    // A folder under the temporary name can be neither removed nor opened as a file.
    QTest::newRow("temporary name taken by a folder")
        << false << 1 << 0 << 0 << "out/out.ba2.Zarneler" << -2;
    QTest::newRow("target is a folder") << false << 1 << 0 << 0 << "out/out.ba2" << -3;
    // A file-size limit makes the kernel refuse writes, for root as well.
    QTest::newRow("write refused") << false << 1 << 0 << 0 << "out/out.ba2.Zarneler" << -3;
    QTest::newRow("read-only folder") << false << 1 << 0 << 0 << "out/out.ba2.Zarneler" << -2;
}

// A failed run reports the status and the file concerned, and leaves the output folder as it
// found it: an existing archive untouched, no temporary file.
void TestWriter::failures()
{
    QFETCH(bool, texture);
    QFETCH(int, version);
    QFETCH(int, zlib);
    QFETCH(int, lz4);
    QFETCH(QString, failing);
    QFETCH(int, status);
    const QString tag = QTest::currentDataTag();
    if (tag == "read-only folder" && ::geteuid() == 0) QSKIP("permissions do not bind root");
    const QString b = dir + "/in/D/b.dds", target = dir + "/out/out.ba2";
    for (const char* name : {"/in/D/a.dds", "/in/D/b.dds", "/in/D/c.dds"})
        QVERIFY(testutil::writeFile(dir + name, blockDds(64, 64, 7, 1)));
    if (tag == "first not a dds") QVERIFY(testutil::writeFile(dir + "/in/D/a.dds", "text"));
    if (tag == "two failures") QVERIFY(testutil::writeFile(dir + "/in/D/c.dds", "text"));
    SourceList sources = gatherIn(dir + "/in");
    QCOMPARE(int(sources.size()), 3);
    if (tag.contains("vanished") || tag == "two failures" || tag == "source is a folder")
        QVERIFY(QFile::remove(b));
    if (tag == "source is a folder") QVERIFY(QDir().mkpath(b));
    if (tag == "not a dds") QVERIFY(testutil::writeFile(b, QByteArray(200, 'x')));
    if (tag == "unsupported format")
        QVERIFY(testutil::writeFile(b, blockDds(64, 64, 7, 2, false, "ATI2")));
    if (tag == "cube of five faces")
        QVERIFY(
            testutil::writeFile(b, blockDds(64, 64, 7, 2, false, nullptr, DdsShape::FiveFaces)));
    if (tag == "texture array")
        QVERIFY(testutil::writeFile(b, blockDds(64, 64, 7, 2, true, nullptr, DdsShape::Array)));
    if (status == int(SaveStatus::TooLarge)) {
        QFile big(b);
        QVERIFY(big.open(QIODevice::WriteOnly)
                && big.resize(tag.startsWith("4 GiB") ? qint64(1) << 32 : 0x7E000001));
    }
    QVERIFY(testutil::writeFile(tag == "target is a folder" ? target + "/keep" : target,
                                "previous archive"));
    if (tag.startsWith("temporary")) QVERIFY(testutil::writeFile(target + ".Zarneler/keep", "k"));
    const QMap<QString, QByteArray> before = filesUnder(dir + "/out");
    if (tag == "read-only folder")
        QVERIFY(QFile::setPermissions(dir + "/out", QFile::ReadOwner | QFile::ExeOwner));

    for (int jobs : {1, 3}) {
        if (tag.endsWith("meanwhile")) QVERIFY(testutil::writeFile(b, blockDds(64, 64, 7, 1)));
        struct rlimit old;
        QCOMPARE(getrlimit(RLIMIT_FSIZE, &old), 0);
        const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limited = old;
        limited.rlim_cur = 4096;
        if (tag == "write refused") QCOMPARE(setrlimit(RLIMIT_FSIZE, &limited), 0);
        ChangingProgress progress(tag.endsWith("meanwhile") ? b : QString());
        const WriteResult r = writeArchive(sources, target, texture, version, zlib, lz4, progress,
                                           tag.endsWith("meanwhile") ? 1 : jobs);
        setrlimit(RLIMIT_FSIZE, &old);
        std::signal(SIGXFSZ, oldHandler);
        QCOMPARE(int(r.status), status);
        QCOMPARE(r.failedFile, dir + "/" + failing);
        QCOMPARE(filesUnder(dir + "/out"), before);
    }
    QFile::setPermissions(dir + "/out", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    if (status == int(SaveStatus::TooLarge))
        QCOMPARE(outcomeText(SaveStatus(status)),
                 QStringLiteral("Save Archive Error.\n File Too Large."));
}

void TestWriter::convert_data()
{
    QTest::addColumn<bool>("texture");
    // version of the input; 8: a version-1 archive relabelled; 30: a version-3 archive of zlib
    // blocks (compression code 0), made from a version-2 one
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("fromLevel"); // its zlib level or LZ4 mode
    QTest::addColumn<int>("to");        // 0: keep the version
    QTest::addColumn<int>("zlib");      // -1: not given
    QTest::addColumn<int>("lz4");
    // copy: the input with another version field; kept: every block stored as in the input;
    // created: what creation makes of the same files with the target's settings; else a failure
    // (status, and whether the input's).
    QTest::addColumn<QString>("expect");
    QTest::addColumn<int>("status");
    for (bool t : {false, true}) {
        const QString k = t ? "texture " : "general ";
        QTest::newRow(qPrintable(k + "1 to 7")) << t << 1 << 6 << 7 << -1 << -1 << "copy" << 1;
        QTest::newRow(qPrintable(k + "8 to 1")) << t << 8 << 6 << 1 << -1 << -1 << "copy" << 1;
        QTest::newRow(qPrintable(k + "3 as it is")) << t << 3 << 1 << 0 << -1 << -1 << "copy" << 1;
        QTest::newRow(qPrintable(k + "1 to 2")) << t << 1 << 6 << 2 << -1 << -1 << "kept" << 1;
        QTest::newRow(qPrintable(k + "2 to 7")) << t << 2 << 9 << 7 << -1 << -1 << "kept" << 1;
        QTest::newRow(qPrintable(k + "2 to 3")) << t << 2 << 6 << 3 << -1 << -1 << "created" << 1;
        QTest::newRow(qPrintable(k + "3 to 1")) << t << 3 << 1 << 1 << -1 << -1 << "created" << 1;
        QTest::newRow(qPrintable(k + "1 zlib 9")) << t << 1 << 6 << 0 << 9 << -1 << "created" << 1;
        QTest::newRow(qPrintable(k + "1 to 2 stored"))
            << t << 1 << 6 << 2 << 0 << -1 << "created" << 1;
        QTest::newRow(qPrintable(k + "stored 1 to 3"))
            << t << 1 << 0 << 3 << -1 << -1 << "created" << 1;
        QTest::newRow(qPrintable(k + "3 lz4 0")) << t << 3 << 1 << 0 << -1 << 0 << "created" << 1;
    }
    QTest::newRow("general 3 zlib to 1") << false << 30 << 6 << 1 << -1 << -1 << "kept" << 1;
    QTest::newRow("in place") << true << 1 << 6 << 3 << -1 << 1 << "created" << 1;
    QTest::newRow("damaged block") << false << 1 << 6 << 3 << -1 << -1 << "read" << -6;
    QTest::newRow("data past the end") << false << 1 << 6 << 7 << -1 << -1 << "read" << -4;
    QTest::newRow("unwritable target") << false << 1 << 6 << 3 << -1 << -1 << "write" << -2;
    QTest::newRow("cancelled") << true << 1 << 6 << 3 << -1 << -1 << "write" << 0;
}

// The converted archive holds the same records and data, stored as the rules say; a failure
// leaves the input and an existing target as they were and nothing else behind.
void TestWriter::convert()
{
    QFETCH(bool, texture);
    QFETCH(int, from);
    QFETCH(int, fromLevel);
    QFETCH(int, to);
    QFETCH(int, zlib);
    QFETCH(int, lz4);
    QFETCH(QString, expect);
    QFETCH(int, status);
    const QString tag = QTest::currentDataTag();
    QMap<QString, QByteArray> files;
    for (uint32_t i = 0; i < 12; ++i)
        files[QStringLiteral("Data/Set/f%1.dds").arg(i)] = texture
            ? blockDds(16u << (i % 7), 64, 3 + i % 4, i, i % 2, nullptr,
                       i == 5 ? DdsShape::Cube : DdsShape::Flat)
            : testutil::patternBytes(int(3000 * i + 1), i, i % 3);
    for (auto it = files.begin(); it != files.end(); ++it)
        QVERIFY(testutil::writeFile(dir + "/in/" + it.key(), *it));
    SourceList sources = gatherIn(dir + "/in");
    QVERIFY(QDir().mkpath(dir + "/out"));
    RecordingProgress progress, converting(tag == "cancelled" ? 2 : 0);
    const QString input = dir + "/in.ba2",
                  target = tag == "in place" ? input : dir + "/out/out.ba2";
    const int made = from == 8 ? 1 : from == 30 ? 2 : from;
    QCOMPARE(
        int(writeArchive(sources, input, texture, made, fromLevel, fromLevel, progress).status), 1);
    QByteArray original = testutil::readFile(input);
    if (from == 8) original[4] = 8;
    if (from == 30) { // code 0 after the header; names and every block 4 bytes further on
        original[4] = 3;
        original.insert(32, QByteArray(4, '\0'));
        original.replace(16, 8, le(getLE(original, 16, 8) + 4, 8));
        for (int i = 0; i < 12; ++i)
            original.replace(36 + 36 * i + 16, 8, le(getLE(original, 36 + 36 * i + 16, 8) + 4, 8));
    }
    if (tag == "damaged block")
        original.replace(int(getLE(original, 24 + 36 + 16, 8)) + 2, 20, QByteArray(20, '\xff'));
    if (tag == "data past the end") original.replace(24 + 36 + 16, 8, le(original.size() - 10, 8));
    QVERIFY(testutil::writeFile(input, original));
    if (status != 1) QVERIFY(testutil::writeFile(target, "previous archive"));
    const QMap<QString, QByteArray> before = filesUnder(dir);

    ConvertSettings settings;
    settings.version = to;
    settings.zlibLevel = zlib;
    settings.lz4Mode = lz4;
    QByteArray converted;
    for (int jobs : {1, 3}) {
        if (tag == "in place") QVERIFY(testutil::writeFile(input, original));
        ArchiveReader reader;
        QVERIFY(reader.open(input, progress));
        settings.jobs = jobs;
        const ConvertResult r = convertArchive(
            reader, tag == "unwritable target" ? dir + "/no/x.ba2" : target, settings, converting);
        QCOMPARE(int(r.status), status);
        QCOMPARE(r.reading, expect == "read");
        if (status != 1) {
            QCOMPARE(filesUnder(dir), before);
            continue;
        }
        QVERIFY(converted.isEmpty() || testutil::readFile(target) == converted);
        converted = testutil::readFile(target);
    }
    if (status != 1) return;
    QStringList left = before.keys() << "out/out.ba2";
    left.removeDuplicates();
    left.sort();
    QCOMPARE(filesUnder(dir).keys(), tag == "in place" ? before.keys() : left);

    ArchiveReader in, out;
    QVERIFY(in.open(input, progress) && out.open(target, progress));
    QCOMPARE(recordFields(out), recordFields(in));
    const int version = to ? to : from == 30 ? 3 : from;
    QCOMPARE(out.version, uint32_t(version));
    QCOMPARE(out.compressionCode, version == 3 ? 3u : 0u);
    const QMap<QString, QByteArray> data = blocksOf(target, true);
    for (auto it = files.begin(); it != files.end(); ++it)
        QCOMPARE(data.value(it.key().toLower()),
                 texture ? it->mid(it->mid(84, 4) == "DX10" ? 148 : 128) : *it);
    if (expect == "copy") QCOMPARE(converted, original.left(4) + le(version, 4) + original.mid(8));
    if (expect == "kept") QCOMPARE(blocksOf(target, false), blocksOf(input, false));
    if (expect == "created") {
        int level = version == 3 ? lz4 : zlib;
        if (level < 0) level = fromLevel ? 1 : 0;
        QCOMPARE(
            int(writeArchive(sources, dir + "/made.ba2", texture, version, level, level, progress)
                    .status),
            1);
        QCOMPARE(converted, testutil::readFile(dir + "/made.ba2"));
    }
}

QTEST_GUILESS_MAIN(TestWriter)
#include "tst_writer.moc"

#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "testutil.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <numeric>

using namespace testutil;

Q_DECLARE_METATYPE(Ba2Builder)

namespace {

QByteArray patched(QByteArray bytes, int offset, uint32_t value, int width = 4)
{
    for (int i = 0; i < width; ++i)
        bytes[offset + i] = char((value >> (8 * i)) & 0xFF);
    return bytes;
}

Ba2Builder archive(uint32_t version, bool texture)
{
    Ba2Builder b;
    b.version = version;
    b.texture = texture;
    return b;
}

} // namespace

class TestReader : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QVERIFY(dir.isValid()); }
    void loads_data();
    void loads();
    void refusals_data();
    void refusals();
    void splitPathExamples_data();
    void splitPathExamples();
    void infoLines_data();
    void infoLines();
    void realSamples_data();
    void realSamples();
    void bsaDamage_data();
    void bsaDamage();

private:
    QString write(const QByteArray& bytes)
    {
        writeFile(dir.filePath("case.ba2"), bytes);
        return dir.filePath("case.ba2");
    }
    QTemporaryDir dir;
};

void TestReader::loads_data()
{
    QTest::addColumn<Ba2Builder>("b");
    // 7 and 8 are read with the 24-byte header; 30 stands for version 3 with zlib (code 0).
    for (uint32_t version : {1u, 2u, 3u, 7u, 8u, 30u}) {
        Ba2Builder g = archive(version == 30 ? 3 : version, false);
        g.compressionCode = version == 30 ? 0 : 3;
        const Pack pack = version == 3 ? Pack::Lz4 : Pack::Zlib;
        g.addGeneral("textures\\armor\\plate.dds", patternBytes(300, version), pack);
        g.addGeneral("", "");
        g.addGeneral("meshes/x.nif", "stored bytes");
        g.addGeneral("b.bin", patternBytes(90, 9), pack);
        g.trailingNameBytes = "TRAIL";
        QTest::addRow("general v%u", version) << g;
    }
    // Chunks hold distinct data; the last chunk's mips run past its first one.
    Ba2Builder t = archive(1, true);
    for (int chunks : {1, 0, 16, 2}) {
        QVector<QByteArray> data;
        for (int i = 0; i < chunks; ++i)
            data.append(patternBytes(64 + i, uint32_t(chunks + i)));
        t.addTexture("t/" + QByteArray::number(chunks), 512, 256, uint8_t(chunks + 3), 98, data,
                     Pack::Zlib)
            .textureFlags
            = 0x0801;
    }
    QTest::newRow("texture v1, 0 to 16 chunks") << t;
    Ba2Builder t3 = archive(3, true);
    t3.addTexture("a.dds", 16, 8, 5, 71, {patternBytes(128, 5), patternBytes(32, 6)}, Pack::Lz4);
    t3.addTexture("b.dds", 4, 4, 1, 87, {QByteArray(8, 'q')}, Pack::Stored);
    QTest::newRow("texture v3, lz4 and stored") << t3;
    // Record tables over 1 MiB make the unmapped path refill its buffer in mid-record.
    Ba2Builder big = archive(1, false), bigTextures = archive(1, true);
    for (int i = 0; i < 40000; ++i)
        big.addGeneral("g/" + QByteArray::number(i), patternBytes(i % 7, uint32_t(i)));
    for (int i = 0; i < 12000; ++i)
        bigTextures.addTexture(
            "t/" + QByteArray::number(i), 4, 4, 3, 71,
            {patternBytes(1, uint32_t(i)), QByteArray(2, 'b'), patternBytes(i % 5, uint32_t(i))});
    QTest::newRow("40,000 general records") << big;
    QTest::newRow("12,000 textures") << bigTextures;
}

void TestReader::loads()
{
    QFETCH(Ba2Builder, b);
    const QByteArray bytes = b.build();
    const int n = b.entries.size();
    ArchiveReader r;
    RecordingProgress progress;
    QVERIFY2(r.open(write(bytes), progress), qPrintable(r.errorText()));
    QCOMPARE(r.version, b.version);
    QCOMPARE(r.isTexture, b.texture);
    QCOMPARE(r.fileCount, uint32_t(n));
    QCOMPARE(r.headerExtra, b.version == 2 || b.version == 3 ? b.headerExtra : 0);
    QCOMPARE(progress.maximum, n);
    QCOMPARE(progress.eventPasses, n);
    QVector<int> steps(n);
    std::iota(steps.begin(), steps.end(), 1);
    QCOMPARE(progress.values, steps);
    // Each piece's offset must lead to its own stored bytes; compressed pieces add up to the
    // totals.
    int64_t packed = 0, unpacked = 0;
    for (int i = 0; i < n; ++i) {
        const TestEntry& e = b.entries[i];
        const FileRecord& f = r.records[uint32_t(i)];
        QCOMPARE(QByteArray(f.name), QByteArray(e.name).replace('\\', '/'));
        QCOMPARE(int(f.nameEntryLength), e.name.size());
        if (!b.texture) {
            QCOMPARE(bytes.mid(int(f.dataOffset), e.stored.size()), e.stored);
            QCOMPARE((QVector<uint32_t> {f.packedSize, f.unpackedSize, f.recordFlags}),
                     (QVector<uint32_t> {e.packedSize, e.unpackedSize, 0x00100100}));
            if (e.packedSize) packed += e.packedSize, unpacked += e.unpackedSize;
            continue;
        }
        QCOMPARE((QVector<uint32_t> {f.chunkCount, f.width, f.height, f.mipCount, f.format,
                                     f.textureFlags}),
                 (QVector<uint32_t> {uint(e.chunks.size()), e.width, e.height, e.mipCount, e.format,
                                     e.textureFlags}));
        for (int c = 0; c < e.chunks.size(); ++c) {
            const ChunkInfo& k = r.chunks(f)[c];
            const TestChunk& x = e.chunks[c];
            QCOMPARE(bytes.mid(int(k.dataOffset), x.stored.size()), x.stored);
            QCOMPARE((QVector<uint32_t> {k.packedSize, k.unpackedSize, k.firstMip, k.lastMip}),
                     (QVector<uint32_t> {x.packedSize, x.unpackedSize, x.firstMip, x.lastMip}));
            if (x.packedSize) packed += x.packedSize, unpacked += x.unpackedSize;
        }
    }
    QCOMPARE(r.packedTotal, packed);
    QCOMPARE(r.unpackedTotal, unpacked);
    // Bytes after the last name stay in the table.
    QCOMPARE(r.nameTableSize, uint64_t(bytes.size()) - r.nameTableOffset);
    QVERIFY(r.close());
    QVERIFY(r.records.empty() && !r.nameTable && !r.file.isOpen() && r.fileSize == 0);
}

void TestReader::refusals_data()
{
    QTest::addColumn<QByteArray>("bytes"); // null: open the folder itself
    QTest::addColumn<int>("error");
    Ba2Builder ok;
    ok.addGeneral("a.txt", "abc");
    const QByteArray good = ok.build();
    const int names = good.size() - 7; // the one name entry: length field and "a.txt"
    QTest::newRow("missing") << QByteArray("") << int(OpenError::CannotOpen);
    QTest::newRow("folder") << QByteArray() << int(OpenError::CannotOpen);
    QTest::newRow("short header") << good.left(23) << int(OpenError::NotArchive);
    QTest::newRow("magic") << QByteArray(good).replace(0, 4, "BTDY") << int(OpenError::NotArchive);
    QTest::newRow("type") << QByteArray(good).replace(8, 4, "GNRX") << int(OpenError::UnknownType);
    QTest::newRow("no files") << patched(good, 12, 0) << int(OpenError::NoFiles);
    QTest::newRow("count beyond file")
        << patched(good, 12, 0xFFFFFFFF) << int(OpenError::RecordsTruncated);
    QTest::newRow("count one too many") << patched(good, 12, 2) << int(OpenError::RecordsTruncated);
    QTest::newRow("names past end")
        << patched(good, 16, uint32_t(good.size() + 1)) << int(OpenError::NameTableInvalid);
    QTest::newRow("names at end") << patched(good, 16, uint32_t(good.size()))
                                  << int(OpenError::NameTableInvalid);
    QTest::newRow("name one byte too long")
        << patched(good, names, 6, 2) << int(OpenError::NameTableInvalid);

    Ba2Builder v3 = archive(3, true);
    v3.compressionCode = 0;
    v3.addTexture("a.dds", 4, 4, 1, 71, {QByteArray(8, 'x')});
    for (uint32_t code : {1u, 2u, 4u}) {
        v3.compressionCode = code;
        QTest::addRow("v3 code %u", code) << v3.build() << int(OpenError::UnsupportedVer3);
    }
    v3.compressionCode = 3;
    for (int size : {0, 23, 25}) {
        v3.entries[0].chunkRecordSize = uint16_t(size);
        QTest::addRow("chunk record %d", size) << v3.build() << int(OpenError::BadChunkRecordSize);
    }
    // The chunk count byte of a one-chunk texture (v1: at 24 + 13) raised.
    Ba2Builder t = archive(1, true);
    t.addTexture("a.dds", 4, 4, 1, 71, {QByteArray(8, 'x')});
    QTest::newRow("17 chunks") << patched(t.build(), 37, 17, 1) << int(OpenError::TooManyChunks);
    QTest::newRow("255 chunks") << patched(t.build(), 37, 255, 1) << int(OpenError::TooManyChunks);
    QTest::newRow("chunks past the end")
        << patched(t.build(), 37, 16, 1) << int(OpenError::RecordsTruncated);
}

void TestReader::refusals()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, error);
    const QString path = bytes.isNull() ? dir.path()
        : bytes.isEmpty()               ? dir.filePath("missing.ba2")
                                        : write(bytes);
    ArchiveReader r;
    NullProgress none;
    QVERIFY(!r.open(path, none));
    QCOMPARE(int(r.openError()), error);
    QVERIFY(!r.file.isOpen());
    QVERIFY(!r.errorText().isEmpty());
    if (error == int(OpenError::TooManyChunks)) QVERIFY(r.errorText().contains("16"));
}

void TestReader::splitPathExamples_data()
{
    QTest::addColumn<QString>("parts"); // text, head and tail, split at '|'
    QTest::newRow("deep") << "textures/a/b.dds|textures/a/|b.dds";
    QTest::newRow("bare") << "b.dds||b.dds";
    QTest::newRow("folder") << "textures/a/|textures/a/|";
    QTest::newRow("trimmed") << " \ntextures/b.dds\n|textures/|b.dds";
    QTest::newRow("empty parts kept") << "a//b|a//|b";
}

void TestReader::splitPathExamples()
{
    QFETCH(QString, parts);
    QString head = "stale", tail = "stale";
    splitPath(parts.section('|', 0, 0), "/", head, tail);
    QCOMPARE(head + '|' + tail, parts.section('|', 1));
}

void TestReader::infoLines_data()
{
    QTest::addColumn<QVector<qint64>>(
        "fields"); // version, texture, file count, packed and unpacked total[, code]
    QTest::addColumn<QString>("lines");
    QTest::newRow("one file, stored")
        << QVector<qint64> {2, 0, 1, 0, 0} << "BA2 Ver.2 (1 file)|Format: General|Compression: Non";
    QTest::newRow("packed total decides") // a stored total of its own does not make it compressed
        << QVector<qint64> {1, 0, 3, 0, 700}
        << "BA2 Ver.1 (3 files)|Format: General|Compression: Non";
    QTest::newRow("grouped count")
        << QVector<qint64> {1, 0, 12345, 4837, 10000}
        << "BA2 Ver.1 (12,345 files)|Format: General|Compression: zlib (48.37%)";
    QTest::newRow("lz4 small ratio")
        << QVector<qint64> {3, 1, 2, 1, 1000}
        << "BA2 Ver.3 (2 files)|Format: DDS(Texture)|Compression: LZ4 (0.10%)";
    QTest::newRow("version 3, zlib")
        << QVector<qint64> {3, 0, 2, 1, 3, 0}
        << "BA2 Ver.3 (2 files)|Format: General|Compression: zlib (33.33%)";
    QTest::newRow("expanded") << QVector<qint64> {
        1, 1, 1234567, 2469,
        1000} << "BA2 Ver.1 (1,234,567 files)|Format: DDS(Texture)|Compression: zlib (246.90%)";
}

void TestReader::infoLines()
{
    QFETCH(QVector<qint64>, fields);
    ArchiveReader r;
    r.version = uint32_t(fields[0]);
    r.isTexture = fields[1];
    r.fileCount = uint32_t(fields[2]);
    r.packedTotal = fields[3];
    r.unpackedTotal = fields[4];
    r.compressionCode = uint32_t(fields.value(5, 3));
    QTEST(QStringList({archiveInfoLine1(r), archiveInfoLine2(r), archiveInfoLine3(r)}).join('|'),
          "lines");
}

void TestReader::realSamples_data()
{
    // Version, texture, file count and a name known from where each sample came from.
    const QHash<QString, QStringList> known {
        {"Blank - Main.ba2", {"1", "0", "1", "LICENSE.txt"}},
        {"Blank - Textures.ba2", {"1", "1", "1", ""}},
        {"Immersive HUD - Main.ba2", {"1", "0", "16", ""}},
        {"LooksMenu - Main.ba2", {"1", "0", "5", ""}},
        {"Unofficial Fallout 4 Patch - Textures.ba2", {"1", "1", "1", ""}},
        {"Venworks-EncountersOverhaul - Main.ba2", {"2", "0", "34", ""}},
        {"LazyPanda - Main.ba2", {"2", "0", "15", ""}},
    };
    QTest::addColumn<QString>("file");
    QTest::addColumn<QStringList>("expected");
    if (!QFileInfo(samplesDir()).isDir()) {
        QTest::newRow("no samples") << QString() << QStringList();
        return;
    }
    const QStringList all = QDir(samplesDir()).entryList({"*.ba2"}, QDir::Files);
    QCOMPARE(all.size(), known.size()); // a new sample needs its row here
    for (const QString& file : all)
        QTest::newRow(qPrintable(file)) << file << known.value(file);
}

void TestReader::realSamples()
{
    SKIP_WITHOUT_SAMPLES();
    QFETCH(QString, file);
    QFETCH(QStringList, expected);
    QCOMPARE(expected.size(), 4);
    const QString path = samplesDir() + "/" + file;
    ArchiveReader r;
    NullProgress none;
    QVERIFY2(r.open(path, none), qPrintable(r.errorText()));
    QCOMPARE((QStringList {QString::number(r.version), QString::number(r.isTexture),
                           QString::number(r.fileCount)}),
             expected.mid(0, 3));
    QStringList names;
    for (uint32_t i = 0; i < r.fileCount; ++i)
        names << r.nameOf(i);
    QVERIFY(!names.contains(QString()) && names.filter(QStringLiteral("\\")).isEmpty());
    if (!expected[3].isEmpty()) QCOMPARE(names[0].section('/', -1), expected[3]);
}

// Where a name's hash stands in an archive: the start of its record.
static int recordOf(const QByteArray& bytes, const QByteArray& name, bool folder)
{
    const quint64 hash = bsa::nameHash(name.constData(), size_t(name.size()), folder);
    return bytes.indexOf(QByteArray(reinterpret_cast<const char*>(&hash), 8));
}

void TestReader::bsaDamage_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("error");     // -1: opens
    QTest::addColumn<QString>("fault"); // of verify; empty: sound
    BsaBuilder b;
    b.folders = {{"meshes", {{"a.nif", patternBytes(900, 1), true}, {"b.txt", "bee"}}},
                 {"textures", {{"c.dds", "dds bytes"}}}};
    const QByteArray good = b.build();
    const int a = recordOf(good, "a.nif", false), c = recordOf(good, "c.dds", false);
    const int meshes = recordOf(good, "meshes", true);
    const auto opens = [](const char* tag, const QByteArray& bytes, const QString& fault) {
        QTest::newRow(tag) << bytes << -1 << fault;
    };
    const auto refused = [](const char* tag, const QByteArray& bytes, OpenError error) {
        QTest::newRow(tag) << bytes << int(error) << QString();
    };
    opens("sound", good, "");
    refused("header cut", good.left(30), OpenError::NotArchive);
    refused("version 106", patched(good, 4, 106), OpenError::UnsupportedBsa);
    refused("Xbox 360", patched(good, 12, 0x43), OpenError::XboxBsa);
    refused("no file names", patched(good, 12, 0x1), OpenError::BsaWithoutNames);
    refused("no files", patched(good, 20, 0), OpenError::NoFiles);
    refused("folders beyond the file", patched(good, 16, 0xFFFFFFFF), OpenError::RecordsTruncated);
    refused("directory cut", good.left(100), OpenError::RecordsTruncated);
    refused("one file more than the folders hold", patched(good, 20, 4),
            OpenError::BsaDirectoryInvalid);
    refused("folder name runs past its block", patched(good, 68, 255, 1),
            OpenError::BsaDirectoryInvalid);
    refused("file names too short", patched(good, 28, 14), OpenError::NameTableInvalid);
    opens("data past the end", patched(good, c + 12, uint32_t(good.size())),
          "textures/c.dds: File Read Error.");
    opens("stored size past the end", patched(good, c + 8, 0x3FFFFFFF),
          "textures/c.dds: File Read Error.");
    opens("original size wrong",
          patched(good, qFromLittleEndian<qint32>(good.constData() + a + 12), 901),
          "meshes/a.nif: Decompress(zlib) Error.");
    opens("compressed file without its size", patched(good, a + 8, 0x40000003),
          "meshes/a.nif: File Read Error.");
    opens("wrong file hash", patched(good, a + 2, 0x77, 1),
          "meshes/a.nif: hash does not match its name");
    opens("wrong folder hash", patched(good, meshes + 5, 0x77, 1),
          "meshes: folder hash does not match its name");
    b.keepOrder = true; // the hash of a.nif is the lower one
    std::swap(b.folders[0].second[0], b.folders[0].second[1]);
    opens("files out of order", b.build(), "meshes/a.nif: out of hash order");
    std::swap(b.folders[0].second[0], b.folders[0].second[1]);
    std::swap(b.folders[0], b.folders[1]);
    opens("folders out of order", b.build(), "meshes: folder out of hash order");
}

void TestReader::bsaDamage()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, error);
    ArchiveReader r;
    NullProgress none;
    QCOMPARE(r.open(write(bytes), none), error == -1);
    QCOMPARE(int(r.openError()), error == -1 ? int(OpenError::None) : error);
    QString fault;
    const bool sound = error != -1 || verifyArchive(r, fault, 1);
    QCOMPARE(sound, fault.isEmpty());
    QTEST(fault, "fault");
}

int main(int argc, char** argv)
{
    // Every case runs twice: through a mapping of the file and through plain reads.
    int failures = 0;
    for (bool map : {true, false}) {
        ArchiveReader::mapFiles = map;
        TestReader test;
        failures += QTest::qExec(&test, argc, argv);
    }
    return failures;
}
#include "tst_reader.moc"

#include "archive/archivereader.h"
#include "testutil.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace testutil;

namespace {

class RecordingProgress : public Progress {
public:
    void setMaximum(int m) override { maximum = m; }
    void setValue(int v) override { values.append(v); }
    void processEvents() override { ++events; }
    int maximum = -1;
    QVector<int> values;
    int events = 0;
};

struct CliRun {
    int exitCode;
    QString out;
    QString err;
};

CliRun runCli(const QStringList& args)
{
    QProcess p;
    p.start(QStringLiteral(ZARNEL_CLI_PATH), args);
    p.waitForFinished(60000);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

QByteArray setLE32(QByteArray bytes, int offset, uint32_t value)
{
    for (int i = 0; i < 4; ++i) bytes[offset + i] = char((value >> (8 * i)) & 0xFF);
    return bytes;
}

}  // namespace

class TestReader : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { QVERIFY(dir.isValid()); }
    void versions_data();
    void versions();
    void textureChunks_data();
    void textureChunks();
    void names();
    void totals();
    void refusals_data();
    void refusals();
    void notArchives();
    void closeKeepsCounts();
    void tablesLargerThanReadBuffer();
    void splitPathExamples_data();
    void splitPathExamples();
    void infoLines_data();
    void infoLines();
    void realSamples_data();
    void realSamples();
    void cliInfoAndList();
    void cliExitCodes_data();
    void cliExitCodes();

private:
    QString write(const QString& name, const QByteArray& bytes)
    {
        const QString path = dir.filePath(name);
        writeFile(path, bytes);
        return path;
    }
    QTemporaryDir dir;
};

void TestReader::versions_data()
{
    QTest::addColumn<uint>("version");
    QTest::addColumn<uint>("recordStart");
    QTest::newRow("v1") << 1u << 24u;
    QTest::newRow("v2") << 2u << 32u;
    QTest::newRow("v3") << 3u << 36u;
    QTest::newRow("v7 reads a 24-byte header") << 7u << 24u;
}

void TestReader::versions()
{
    QFETCH(uint, version);
    QFETCH(uint, recordStart);
    Ba2Builder b;
    b.version = version;
    b.addGeneral("a/one.txt", "hello");
    b.addGeneral("two.bin", patternBytes(300, 3), Pack::Zlib);
    const QString path = write(QStringLiteral("v%1.ba2").arg(version), b.build());
    ArchiveReader r;
    RecordingProgress progress;
    QVERIFY(r.open(path, progress));
    QCOMPARE(r.version, uint32_t(version));
    QCOMPARE(r.fileCount, 2u);
    QVERIFY(!r.isTexture);
    // The first file's data follows the two 36-byte records directly.
    QCOMPARE(r.records[0].dataOffset, uint64_t(recordStart + 2 * 36));
    QCOMPARE(r.records[0].unpackedSize, 5u);
    QCOMPARE(r.records[0].recordFlags, 0x00100100u);
    QCOMPARE(r.records[1].dataOffset, uint64_t(recordStart + 2 * 36 + 5));
    QCOMPARE(r.records[1].unpackedSize, 300u);
    QCOMPARE(r.headerExtra, version == 2 || version == 3 ? 1ull : 0ull);
    QCOMPARE(progress.maximum, 2);
    QCOMPARE(progress.values, QVector<int>({1, 2}));
    QCOMPARE(progress.events, 2);
    QVERIFY(r.file.isOpen());
}

void TestReader::textureChunks_data()
{
    QTest::addColumn<int>("chunks");
    QTest::addColumn<bool>("opens");
    QTest::newRow("none") << 0 << true;
    QTest::newRow("one") << 1 << true;
    QTest::newRow("sixteen") << 16 << true;
    QTest::newRow("seventeen") << 17 << false;
}

void TestReader::textureChunks()
{
    QFETCH(int, chunks);
    QFETCH(bool, opens);
    Ba2Builder b;
    b.texture = true;
    b.addTexture("t/first.dds", 4, 4, 1, 71, {QByteArray(8, 'x')}, Pack::Zlib);
    QVector<QByteArray> data;
    for (int i = 0; i < chunks; ++i) data.append(patternBytes(64 + i, uint32_t(i)));
    TestEntry& e = b.addTexture("t/second.dds", 512, 256, uint8_t(chunks), 98, data, Pack::Zlib);
    e.textureFlags = 0x0801;
    const QString path = write(QStringLiteral("tex%1.ba2").arg(chunks), b.build());
    ArchiveReader r;
    NullProgress none;
    QCOMPARE(r.open(path, none), opens);
    if (!opens) {
        QCOMPARE(r.openError(), OpenError::TooManyChunks);
        QVERIFY(r.errorText().contains("16"));
        return;
    }
    QVERIFY(r.isTexture);
    const FileRecord& t = r.records[1];
    QCOMPARE(int(t.chunkCount), chunks);
    QCOMPARE(t.width, uint16_t(512));
    QCOMPARE(t.height, uint16_t(256));
    QCOMPARE(t.format, uint8_t(98));
    QCOMPARE(t.textureFlags, uint16_t(0x0801));
    // Data starts after the header, the first texture (24 + one chunk record) and this one.
    const uint64_t dataStart = 24 + 48 + 24 * uint64_t(1 + chunks);
    const uint64_t firstChunkSize = uint64_t(zlibStream(QByteArray(8, 'x')).size());
    if (chunks > 0) {
        QCOMPARE(r.chunks(t)[0].dataOffset, dataStart + firstChunkSize);
        QCOMPARE(r.chunks(t)[chunks - 1].unpackedSize, uint32_t(64 + chunks - 1));
        QCOMPARE(int(r.chunks(t)[chunks - 1].lastMip), chunks - 1);
    }
}

void TestReader::names()
{
    Ba2Builder b;
    b.addGeneral("textures\\armor\\plate.dds", "1");
    b.addGeneral("", "");
    b.addGeneral("meshes/x.nif", "22");
    b.trailingNameBytes = "TRAIL";
    const QString path = write("names.ba2", b.build());
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(path, none));
    QCOMPARE(QByteArray(r.records[0].name), QByteArray("textures/armor/plate.dds"));
    QCOMPARE(QByteArray(r.records[1].name), QByteArray(""));
    QCOMPARE(QByteArray(r.records[2].name), QByteArray("meshes/x.nif"));
    QCOMPARE(r.records[0].nameEntryLength, uint16_t(24));
    QCOMPARE(r.records[1].nameEntryLength, uint16_t(0));
    // Trailing bytes stay behind the last name, which is still ended.
    QCOMPARE(r.nameTableSize, uint64_t(2 + 24 + 2 + 2 + 12 + 5));
    // The last name is ended over the first trailing byte; the rest stays.
    QCOMPARE(r.records[2].name[12], '\0');
    QCOMPARE(QByteArray(r.records[2].name + 13, 4), QByteArray("RAIL"));
}

void TestReader::totals()
{
    Ba2Builder g;
    g.addGeneral("stored.txt", patternBytes(100, 1));
    TestEntry& c = g.addGeneral("c.bin", patternBytes(1000, 2), Pack::Zlib);
    const uint32_t packed = c.packedSize;
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(write("totals.ba2", g.build()), none));
    QCOMPARE(r.packedTotal, int64_t(packed));
    QCOMPARE(r.unpackedTotal, int64_t(1000));

    Ba2Builder s;
    s.addGeneral("a", "abc");
    ArchiveReader stored;
    QVERIFY(stored.open(write("stored.ba2", s.build()), none));
    QCOMPARE(stored.packedTotal, int64_t(0));
    QCOMPARE(stored.unpackedTotal, int64_t(0));

    // Textures count chunks: two compressed chunks of one texture, one stored chunk ignored.
    Ba2Builder t;
    t.texture = true;
    t.version = 3;
    TestEntry& e = t.addTexture("a.dds", 16, 16, 2, 71, {patternBytes(128, 5), patternBytes(32, 6)}, Pack::Lz4);
    const int64_t expectPacked = e.chunks[0].packedSize + e.chunks[1].packedSize;
    t.addTexture("b.dds", 4, 4, 1, 71, {QByteArray(8, 'q')}, Pack::Stored);
    ArchiveReader tr;
    QVERIFY(tr.open(write("ttotals.ba2", t.build()), none));
    QCOMPARE(tr.packedTotal, expectPacked);
    QCOMPARE(tr.unpackedTotal, int64_t(160));
}

void TestReader::refusals_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("error");
    Ba2Builder ok;
    ok.addGeneral("a.txt", "abc");
    const QByteArray good = ok.build();

    QTest::newRow("magic") << QByteArray(good).replace(0, 4, "BTDY") << int(OpenError::NotArchive);
    QTest::newRow("type") << QByteArray(good).replace(8, 4, "GNRX") << int(OpenError::UnknownType);
    QTest::newRow("no files") << setLE32(good, 12, 0) << int(OpenError::NoFiles);
    QTest::newRow("count beyond file") << setLE32(good, 12, 0xFFFFFFFF) << int(OpenError::RecordsTruncated);
    QTest::newRow("count one too many") << setLE32(good, 12, 2) << int(OpenError::RecordsTruncated);
    QTest::newRow("name table past end") << setLE32(good, 16, uint32_t(good.size() + 1)) << int(OpenError::NameTableInvalid);
    QTest::newRow("name table at end") << setLE32(good, 16, uint32_t(good.size())) << int(OpenError::NameTableInvalid);
    QByteArray longName = good;
    longName[good.size() - 7] = char(0x40);  // length field claims 64 bytes, only 5 exist
    QTest::newRow("name runs past table") << longName << int(OpenError::NameTableInvalid);

    Ba2Builder v3;
    v3.version = 3;
    v3.texture = true;
    v3.compressionCode = 0;
    v3.addTexture("a.dds", 4, 4, 1, 71, {QByteArray(8, 'x')});
    QTest::newRow("v3 code 0") << v3.build() << int(OpenError::UnsupportedVer3);
    v3.compressionCode = 3;
    v3.entries[0].chunkRecordSize = 23;
    QTest::newRow("chunk record 23") << v3.build() << int(OpenError::BadChunkRecordSize);
    v3.entries[0].chunkRecordSize = 25;
    QTest::newRow("chunk record 25") << v3.build() << int(OpenError::BadChunkRecordSize);
    QTest::newRow("empty") << QByteArray() << int(OpenError::NotArchive);
    QTest::newRow("short header") << good.left(20) << int(OpenError::NotArchive);
    QTest::newRow("text") << QByteArray("just some text that is long enough to hold a header") << int(OpenError::NotArchive);
}

void TestReader::refusals()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, error);
    ArchiveReader r;
    NullProgress none;
    QVERIFY(!r.open(write("refused.ba2", bytes), none));
    QCOMPARE(int(r.openError()), error);
    QVERIFY(!r.file.isOpen());
    QVERIFY(!r.errorText().isEmpty());
}

void TestReader::notArchives()
{
    ArchiveReader missing;
    NullProgress none;
    QVERIFY(!missing.open(dir.filePath("does-not-exist.ba2"), none));
    QCOMPARE(missing.openError(), OpenError::CannotOpen);
    QCOMPARE(missing.fileSize, int64_t(0));
    ArchiveReader folder;
    QVERIFY(!folder.open(dir.path(), none));
    QCOMPARE(folder.openError(), OpenError::CannotOpen);
}

void TestReader::tablesLargerThanReadBuffer()
{
    // Record tables over 1 MiB make the unmapped path refill its buffer mid-record.
    Ba2Builder g;
    for (int i = 0; i < 40000; ++i) g.addGeneral("g/" + QByteArray::number(i), QByteArray(i % 3, 'x'));
    Ba2Builder t;
    t.texture = true;
    for (int i = 0; i < 12000; ++i)
        t.addTexture("t/" + QByteArray::number(i), 4, 4, 3, 71, {QByteArray(1, 'a'), QByteArray(2, 'b'), QByteArray(i % 5, 'c')});
    NullProgress none;
    ArchiveReader gr, tr;
    QVERIFY(gr.open(write("bigg.ba2", g.build()), none));
    QVERIFY(tr.open(write("bigt.ba2", t.build()), none));
    for (uint32_t i = 0; i < 40000; i += 997) {
        QCOMPARE(gr.nameOf(i), QStringLiteral("g/%1").arg(i));
        QCOMPARE(gr.records[i].unpackedSize, uint32_t(i % 3));
    }
    for (uint32_t i = 0; i < 12000; i += 331) {
        QCOMPARE(tr.nameOf(i), QStringLiteral("t/%1").arg(i));
        QCOMPARE(tr.chunks(tr.records[i])[2].unpackedSize, uint32_t(i % 5));
        QCOMPARE(int(tr.chunks(tr.records[i])[2].lastMip), 2);
    }
}

void TestReader::closeKeepsCounts()
{
    Ba2Builder b;
    b.addGeneral("a", "1");
    b.addGeneral("b", "2");
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(write("close.ba2", b.build()), none));
    QVERIFY(r.close());
    QCOMPARE(r.fileCount, 2u);
    QCOMPARE(r.fileSize, int64_t(0));
    QVERIFY(r.records.empty());
    QVERIFY(!r.nameTable);
    QVERIFY(!r.file.isOpen());
}

void TestReader::splitPathExamples_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("head");
    QTest::addColumn<QString>("tail");
    QTest::newRow("deep") << "textures/a/b.dds" << "textures/a/" << "b.dds";
    QTest::newRow("bare") << "b.dds" << "" << "b.dds";
    QTest::newRow("folder") << "textures/a/" << "textures/a/" << "";
    QTest::newRow("trimmed") << " \ntextures/b.dds\n" << "textures/" << "b.dds";
    QTest::newRow("empty parts kept") << "a//b" << "a//" << "b";
}

void TestReader::splitPathExamples()
{
    QFETCH(QString, text);
    QFETCH(QString, head);
    QFETCH(QString, tail);
    QString h = "stale", t = "stale";
    splitPath(text, "/", h, t);
    QCOMPARE(h, head);
    QCOMPARE(t, tail);
}

void TestReader::infoLines_data()
{
    QTest::addColumn<uint>("version");
    QTest::addColumn<int>("files");
    QTest::addColumn<uint>("packed");
    QTest::addColumn<uint>("unpacked");
    QTest::addColumn<QString>("line1");
    QTest::addColumn<QString>("line3");
    QTest::newRow("one file, stored") << 2u << 1 << 0u << 10u << "BA2 Ver.2 (1 file)" << "Compression: Non";
    QTest::newRow("grouped count") << 1u << 12345 << 4837u << 10000u << "BA2 Ver.1 (12,345 files)"
                                   << "Compression: zlib (48.37%)";
    QTest::newRow("lz4 small ratio") << 3u << 2 << 1u << 1000u << "BA2 Ver.3 (2 files)" << "Compression: LZ4 (0.10%)";
    QTest::newRow("expanded") << 1u << 3 << 2469u << 1000u << "BA2 Ver.1 (3 files)" << "Compression: zlib (246.90%)";
}

void TestReader::infoLines()
{
    QFETCH(uint, version);
    QFETCH(int, files);
    QFETCH(uint, packed);
    QFETCH(uint, unpacked);
    QFETCH(QString, line1);
    QFETCH(QString, line3);
    Ba2Builder b;
    b.version = version;
    b.texture = version == 3;
    for (int i = 0; i < files; ++i) {
        if (b.texture) b.addTexture(QByteArray::number(i), 4, 4, 1, 71, {QByteArray(8, 'x')});
        else b.addGeneral(QByteArray::number(i), "x");
    }
    // Only the first item is compressed; sizes are set directly, their data is never decoded.
    if (packed) {
        if (b.texture) {
            b.entries[0].chunks[0].packedSize = packed;
            b.entries[0].chunks[0].unpackedSize = unpacked;
        } else {
            b.entries[0].packedSize = packed;
            b.entries[0].unpackedSize = unpacked;
        }
    }
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(write("info.ba2", b.build()), none));
    QCOMPARE(archiveInfoLine1(r), line1);
    QCOMPARE(archiveInfoLine2(r), b.texture ? QString("Format: DDS(Texture)") : QString("Format: General"));
    QCOMPARE(archiveInfoLine3(r), line3);
}

void TestReader::realSamples_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<uint>("version");
    QTest::addColumn<bool>("texture");
    QTest::addColumn<uint>("files");
    QTest::addColumn<QString>("firstName");
    QTest::newRow("blank main") << "Blank - Main.ba2" << 1u << false << 1u << "LICENSE.txt";
    QTest::newRow("blank textures") << "Blank - Textures.ba2" << 1u << true << 1u << "";
    QTest::newRow("immersive hud") << "Immersive HUD - Main.ba2" << 1u << false << 16u << "";
    QTest::newRow("looksmenu") << "LooksMenu - Main.ba2" << 1u << false << 5u << "";
    QTest::newRow("ufo4p textures") << "Unofficial Fallout 4 Patch - Textures.ba2" << 1u << true << 1u << "";
    QTest::newRow("venworks") << "Venworks-EncountersOverhaul - Main.ba2" << 2u << false << 34u << "";
    QTest::newRow("lazypanda") << "LazyPanda - Main.ba2" << 2u << false << 15u << "";
}

void TestReader::realSamples()
{
    QFETCH(QString, file);
    QFETCH(uint, version);
    QFETCH(bool, texture);
    QFETCH(uint, files);
    QFETCH(QString, firstName);
    ArchiveReader r;
    NullProgress none;
    QVERIFY2(r.open(samplesDir() + "/" + file, none), qPrintable(r.errorText()));
    QCOMPARE(r.version, uint32_t(version));
    QCOMPARE(r.isTexture, texture);
    QCOMPARE(r.fileCount, uint32_t(files));
    if (!firstName.isEmpty()) QCOMPARE(r.nameOf(0).section('/', -1), firstName);
    for (uint32_t i = 0; i < r.fileCount; ++i) {
        QVERIFY(!r.nameOf(i).isEmpty());
        QVERIFY(!r.nameOf(i).contains('\\'));
    }
}

void TestReader::cliInfoAndList()
{
    const QString looks = samplesDir() + "/LooksMenu - Main.ba2";
    const CliRun info = runCli({"info", looks});
    QCOMPARE(info.exitCode, 0);
    const QStringList lines = info.out.split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines[0], QString("BA2 Ver.1 (5 files)"));
    QCOMPARE(lines[1], QString("Format: General"));
    QVERIFY(lines[2].startsWith("Compression: zlib ("));

    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(looks, none));
    const CliRun list = runCli({"list", looks});
    QCOMPARE(list.exitCode, 0);
    QStringList expected;
    for (uint32_t i = 0; i < r.fileCount; ++i) expected << r.nameOf(i);
    QCOMPARE(list.out, expected.join('\n') + '\n');
}

void TestReader::cliExitCodes_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("stderrHas");
    QTest::newRow("no command") << QStringList() << 2 << "missing command";
    QTest::newRow("unknown command") << QStringList{"frobnicate"} << 2 << "unknown command";
    QTest::newRow("info without archive") << QStringList{"info"} << 2 << "exactly one";
    QTest::newRow("not an archive") << QStringList{"info", QStringLiteral(ZARNEL_CLI_PATH)} << 1 << "not a BA2";
    QTest::newRow("missing file") << QStringList{"list", "/nonexistent/x.ba2"} << 1 << "cannot open";
    QTest::newRow("help") << QStringList{"--help"} << 0 << "";
    QTest::newRow("version") << QStringList{"--version"} << 0 << "";
}

void TestReader::cliExitCodes()
{
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(QString, stderrHas);
    const CliRun run = runCli(args);
    QCOMPARE(run.exitCode, exitCode);
    if (!stderrHas.isEmpty()) QVERIFY2(run.err.contains(stderrHas), qPrintable(run.err));
    if (args == QStringList{"--version"}) QCOMPARE(run.out, QString("zarnel-cli " ZARNEL_VERSION "\n"));
    if (args == QStringList{"--help"}) QVERIFY(run.out.startsWith("Usage: zarnel-cli"));
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

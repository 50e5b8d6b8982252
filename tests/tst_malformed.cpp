// Systematic damage to small valid archives of every kind, pushed through open, verify and
// extraction: each case must end in a defined failure or a correct result, stay within a fixed
// memory bound, and never write outside the target folder.

#include "archive/archivereader.h"
#include "archive/bsa.h"
#include "archive/extractor.h"
#include "archive/status.h"
#include "testutil.h"

#include <QDirIterator>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/resource.h>

using namespace testutil;

Q_DECLARE_METATYPE(Ba2Builder)

namespace {

struct Field
{
    int offset, width;
    const char* what;
};

// Every field the reader takes from the header and from every record, by its place in the archive.
QVector<Field> fieldsOf(const Ba2Builder& b)
{
    const int header = b.version == 3 ? 36 : b.version == 2 ? 32 : 24;
    QVector<Field> fields {{4, 4, "version"},      {8, 4, "type"},
                           {12, 4, "fileCount"},   {16, 8, "nameTableOffset"},
                           {24, 8, "headerExtra"}, {32, 4, "compressionCode"}};
    fields.resize(header == 24 ? 4 : header == 32 ? 5 : 6);
    static const QVector<Field> general {{0, 4, "nameHash"},
                                         {12, 4, "flags"},
                                         {16, 8, "dataOffset"},
                                         {24, 4, "packedSize"},
                                         {28, 4, "unpackedSize"}};
    static const QVector<Field> texture {
        {13, 1, "chunkCount"}, {14, 2, "chunkRecordSize"}, {16, 2, "height"},      {18, 2, "width"},
        {20, 1, "mipCount"},   {21, 1, "format"},          {22, 2, "textureFlags"}};
    static const QVector<Field> chunk {{0, 8, "chunk dataOffset"},
                                       {8, 4, "chunk packedSize"},
                                       {12, 4, "chunk unpackedSize"},
                                       {16, 2, "firstMip"},
                                       {18, 2, "lastMip"}};
    int pos = header;
    const auto add = [&](const QVector<Field>& record, int size) {
        for (const Field& f : record)
            fields.append({pos + f.offset, f.width, f.what});
        pos += size;
    };
    for (const TestEntry& e : b.entries) {
        add(b.texture ? texture : general, b.texture ? 24 : 36);
        for (int c = 0; c < e.chunks.size(); ++c)
            add(chunk, 24);
    }
    return fields;
}

long maxResidentKiB()
{
    rusage u;
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

} // namespace

class TestMalformed : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QVERIFY(work.isValid()); }
    void sweep_data();
    void sweep();
    void bsaSweep();
    void hostileNames_data();
    void hostileNames();
    void cleanupTestCase();

private:
    // Runs one archive through open, verify and extraction and checks the outcome is coherent;
    // status is the extraction's, or -1 when the archive was refused.
    void check(const QByteArray& bytes, const QString& label);
    QTemporaryDir work;
    int status = -1, cases = 0, opened = 0;
};

void TestMalformed::check(const QByteArray& bytes, const QString& label)
{
    ++cases;
    status = -1;
    const QString sandbox = work.filePath("sandbox"), target = sandbox + "/inner/target/",
                  path = sandbox + "/case.ba2";
    QVERIFY(writeFile(path, bytes));
    ArchiveReader reader;
    NullProgress none;
    if (!reader.open(path, none)) {
        QVERIFY2(reader.openError() != OpenError::None, qPrintable(label));
        return;
    }
    ++opened;
    QDir(sandbox + "/inner").removeRecursively();
    QDir().mkpath(target);
    QString fault;
    const bool sound = verifyArchive(reader, fault, 2);
    status = int(extractArchive(reader, target, none, 2).status);
    using S = ArchiveStatus;
    static const QSet<int> allowed {
        int(S::Complete),  int(S::FileOpenError), int(S::FileReadError),     int(S::Lz4Error),
        int(S::ZlibError), int(S::UnsafeName),    int(S::UnsupportedFormat), int(S::OutOfMemory)};
    QVERIFY2(allowed.contains(status),
             qPrintable(QStringLiteral("%1: status %2").arg(label).arg(status)));
    // Verify and extraction decode the same pieces, so they agree.
    // Hashes matter to the game only: such an archive still extracts.
    if (status == int(S::Complete))
        QVERIFY2(sound || (reader.isBsa && !bsa::hashFault(reader).isEmpty()),
                 qPrintable(label + ": " + fault));
    if (sound)
        QVERIFY2(status == int(S::Complete) || status == int(S::FileOpenError), qPrintable(label));
    // The command line lists whatever opened, and diff fails cleanly where verification does.
    const CliRun listed = runCli({"list", "--long", path}), compared = runCli({"diff", path, path});
    QVERIFY2(listed.exitCode == 0 && listed.out.count('\n') == int(reader.fileCount),
             qPrintable(label + ": " + listed.err));
    QVERIFY2(compared.exitCode == (sound ? 0 : 2) && compared.out.isEmpty()
                 && compared.err.isEmpty() == sound,
             qPrintable(label + ": " + compared.err));
    QDirIterator it(sandbox, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString p = it.next();
        QVERIFY2(p == path || p == sandbox + "/inner" || p + "/" == target || p.startsWith(target),
                 qPrintable(label + ": wrote " + p));
    }
}

void TestMalformed::sweep_data()
{
    QTest::addColumn<Ba2Builder>("b");
    Ba2Builder g1, g2, g3, g30, t3, t30, t1, t16;
    g1.addGeneral("meshes/a.nif", patternBytes(3000, 1), Pack::Zlib);
    g1.addGeneral("b.txt", "plain text", Pack::Stored);
    g2.version = 2;
    g2.addGeneral("x/y/z.bin", patternBytes(500, 2), Pack::Stored);
    g2.addGeneral("c.bin", patternBytes(700, 3), Pack::Zlib);
    g3.version = g30.version = t30.version = t3.version = 3;
    g30.compressionCode = t30.compressionCode = 0;
    g3.addGeneral("a.bin", patternBytes(900, 9), Pack::Lz4);
    g30.addGeneral("a.bin", patternBytes(900, 9), Pack::Zlib);
    g3.addGeneral("b.txt", "plain", Pack::Stored);
    g30.addGeneral("b.txt", "plain", Pack::Stored);
    t30.texture = true;
    t30.addTexture("f.dds", 4, 4, 1, 2, {patternBytes(256, 10)}, Pack::Zlib).textureFlags = 0x801;
    t30.addTexture("b.dds", 8, 4, 1, 81, {patternBytes(16, 11)}, Pack::Zlib);
    t3.texture = t1.texture = t16.texture = true;
    t3.addTexture("textures/a.dds", 16, 16, 3, 71, {patternBytes(128, 4), patternBytes(40, 5)},
                  Pack::Lz4);
    t3.addTexture("textures/b.dds", 4, 4, 1, 98, {patternBytes(16, 6)}, Pack::Lz4);
    t1.addTexture("t.dds", 8, 8, 2, 87, {patternBytes(256, 7), patternBytes(64, 8)}, Pack::Zlib);
    t1.addTexture("no chunks.dds", 4, 4, 1, 71, {});
    QVector<QByteArray> chunks;
    for (int i = 0; i < 16; ++i)
        chunks.append(patternBytes(20, uint32_t(i)));
    t16.addTexture("t.dds", 64, 64, 16, 71, chunks,
                   Pack::Zlib); // the most chunks a texture may have
    QTest::newRow("general v1 zlib") << g1;
    QTest::newRow("general v2 stored") << g2;
    QTest::newRow("general v3 lz4") << g3;
    QTest::newRow("general v3 zlib") << g30;
    QTest::newRow("texture v3 lz4") << t3;
    QTest::newRow("texture v3 zlib, formats by code") << t30;
    QTest::newRow("texture v1 zlib") << t1;
    QTest::newRow("texture v1, 16 chunks") << t16;
}

void TestMalformed::sweep()
{
    QFETCH(Ba2Builder, b);
    const QByteArray good = b.build();
    check(good, "unchanged");
    QCOMPARE(status, int(ArchiveStatus::Complete));
    // Every field at 0, all ones and the file size +-1; then every truncation.
    for (const Field& f : fieldsOf(b)) {
        const uint64_t ones = f.width == 8 ? ~0ull : (1ull << (8 * f.width)) - 1;
        for (uint64_t value :
             {uint64_t(0), ones, uint64_t(good.size()) + 1, uint64_t(good.size()) - 1}) {
            QByteArray bytes = good;
            for (int i = 0; i < f.width; ++i)
                bytes[f.offset + i] = char((value >> (8 * i)) & 0xFF);
            check(bytes, QStringLiteral("%1@%2=%3").arg(f.what).arg(f.offset).arg(value));
        }
    }
    for (int cut = 0; cut < good.size(); ++cut)
        check(good.left(cut), QStringLiteral("cut at %1").arg(cut));
}

// Every byte of the header and directory at 0, 0xFF and one more, then every truncation.
void TestMalformed::bsaSweep()
{
    for (uint32_t version : {103u, 104u, 105u}) {
        BsaBuilder b;
        b.version = version;
        b.flags = 0x107;
        b.folders = {{"a\\b", {{"x.nif", patternBytes(300, 1)}, {"y.txt", "plain", true}}},
                     {".", {{"z.dds", patternBytes(100, 2)}}}};
        const QByteArray good = b.build();
        check(good, "unchanged");
        QCOMPARE(status, int(ArchiveStatus::Complete));
        const int directoryEnd = good.indexOf("z.dds") + 6;
        for (int at = 0; at < directoryEnd; ++at)
            for (int delta : {0, 0xFF, 1}) {
                QByteArray bytes = good;
                bytes[at] = char(delta == 1 ? bytes[at] + 1 : delta);
                check(bytes, QStringLiteral("%1: byte %2 = %3").arg(version).arg(at).arg(delta));
            }
        for (int cut = 0; cut < good.size(); ++cut)
            check(good.left(cut), QStringLiteral("%1: cut at %2").arg(version).arg(cut));
    }
}

void TestMalformed::hostileNames_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("status");
    QTest::newRow("dot dot") << QByteArray("../x") << int(ArchiveStatus::UnsafeName);
    QTest::newRow("deep dot dot") << QByteArray("a/b/../../../x") << int(ArchiveStatus::UnsafeName);
    QTest::newRow("absolute") << QByteArray("/etc/x") << int(ArchiveStatus::UnsafeName);
    QTest::newRow("drive") << QByteArray("C:\\x") << int(ArchiveStatus::UnsafeName);
    QTest::newRow("nul") << QByteArray("a\0b", 3) << int(ArchiveStatus::UnsafeName);
    QTest::newRow("invalid utf-8") << QByteArray("bad\xff\xfe.txt") << int(ArchiveStatus::Complete);
    QTest::newRow("dot only") << QByteArray("./x") << int(ArchiveStatus::Complete);
    QTest::newRow("dots in name") << QByteArray("a..b/..c") << int(ArchiveStatus::Complete);
    QTest::newRow("empty") << QByteArray("") << int(ArchiveStatus::FileOpenError);
}

void TestMalformed::hostileNames()
{
    QFETCH(QByteArray, name);
    Ba2Builder b;
    b.addGeneral("first.txt", "1");
    b.addGeneral(name, "second");
    b.addGeneral("first.txt", "duplicate name, written again");
    check(b.build(), QTest::currentDataTag());
    QTEST(status, "status");
    // A single worker decides the same; a name written twice ends with the later data.
    ArchiveReader r;
    NullProgress none;
    QTemporaryDir out;
    QVERIFY(r.open(work.filePath("sandbox/case.ba2"), none));
    QTEST(int(extractArchive(r, out.path() + "/", none).status), "status");
    if (status == int(ArchiveStatus::Complete))
        QCOMPARE(readFile(out.filePath("first.txt")), QByteArray("duplicate name, written again"));
}

void TestMalformed::cleanupTestCase()
{
    qInfo("%d damaged archives checked, %d of them opened; peak resident memory %ld KiB", cases,
          opened, maxResidentKiB());
    // Nothing a few-hundred-byte file says may make us reserve more than this.
    QVERIFY(maxResidentKiB() < 768 * 1024);
}

QTEST_GUILESS_MAIN(TestMalformed)
#include "tst_malformed.moc"

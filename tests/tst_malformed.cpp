// Systematic damage to small valid archives of every kind, pushed through open, verify and
// extraction: each case must end in a defined failure or a correct result, stay within a fixed
// memory bound, and never write outside the target folder.

#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "archive/status.h"
#include "testutil.h"

#include <QDirIterator>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/resource.h>

using namespace testutil;

namespace {

struct Field {
    int offset;
    int width;
    const char* what;
};

void setField(QByteArray& bytes, const Field& f, uint64_t value)
{
    for (int i = 0; i < f.width && f.offset + i < bytes.size(); ++i) bytes[f.offset + i] = char((value >> (8 * i)) & 0xFF);
}

struct Base {
    const char* name;
    Ba2Builder builder;
};

QVector<Base> bases()
{
    QVector<Base> out;
    {
        Base b{"general v1 zlib", {}};
        b.builder.addGeneral("meshes/a.nif", patternBytes(3000, 1), Pack::Zlib);
        b.builder.addGeneral("b.txt", "plain text", Pack::Stored);
        out.append(b);
    }
    {
        Base b{"general v2 stored", {}};
        b.builder.version = 2;
        b.builder.addGeneral("x/y/z.bin", patternBytes(500, 2), Pack::Stored);
        b.builder.addGeneral("c.bin", patternBytes(700, 3), Pack::Zlib);
        out.append(b);
    }
    {
        Base b{"texture v3 lz4", {}};
        b.builder.version = 3;
        b.builder.texture = true;
        b.builder.addTexture("textures/a.dds", 16, 16, 3, 71, {patternBytes(128, 4), patternBytes(40, 5)}, Pack::Lz4);
        b.builder.addTexture("textures/b.dds", 4, 4, 1, 98, {patternBytes(16, 6)}, Pack::Lz4);
        out.append(b);
    }
    {
        Base b{"texture v1 zlib", {}};
        b.builder.texture = true;
        b.builder.addTexture("t.dds", 8, 8, 2, 87, {patternBytes(256, 7), patternBytes(64, 8)}, Pack::Zlib);
        out.append(b);
    }
    return out;
}

// Every field of the header and of every record, by its place in the built archive.
QVector<Field> fieldsOf(const Ba2Builder& b)
{
    QVector<Field> fields{{4, 4, "version"}, {8, 4, "type"}, {12, 4, "fileCount"}, {16, 8, "nameTableOffset"}};
    const int header = b.version == 3 ? 36 : b.version == 2 ? 32 : 24;
    if (header >= 32) fields.append({24, 8, "headerExtra"});
    if (header >= 36) fields.append({32, 4, "compressionCode"});
    int pos = header;
    for (const TestEntry& e : b.entries) {
        if (!b.texture) {
            for (const Field& f : {Field{0, 4, "nameHash"}, Field{12, 4, "flags"}, Field{16, 8, "dataOffset"},
                                   Field{24, 4, "packedSize"}, Field{28, 4, "unpackedSize"}})
                fields.append({pos + f.offset, f.width, f.what});
            pos += 36;
            continue;
        }
        for (const Field& f : {Field{13, 1, "chunkCount"}, Field{14, 2, "chunkRecordSize"}, Field{16, 2, "height"},
                               Field{18, 2, "width"}, Field{20, 1, "mipCount"}, Field{21, 1, "format"},
                               Field{22, 2, "textureFlags"}})
            fields.append({pos + f.offset, f.width, f.what});
        pos += 24;
        for (int c = 0; c < e.chunks.size(); ++c) {
            for (const Field& f : {Field{0, 8, "chunk dataOffset"}, Field{8, 4, "chunk packedSize"},
                                   Field{12, 4, "chunk unpackedSize"}, Field{16, 2, "firstMip"}, Field{18, 2, "lastMip"}})
                fields.append({pos + f.offset, f.width, f.what});
            pos += 24;
        }
    }
    return fields;
}

long maxResidentKiB()
{
    rusage u;
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

}  // namespace

class TestMalformed : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void fieldMutations();
    void truncations();
    void chunkCounts_data();
    void chunkCounts();
    void hostileNames_data();
    void hostileNames();
    void cleanupTestCase();

private:
    // Runs one archive through open, verify and extraction and checks the outcome is coherent.
    void check(const QByteArray& bytes, const QString& label);
    QTemporaryDir work;
    int cases = 0;
    int opened = 0;
};

void TestMalformed::initTestCase() { QVERIFY(work.isValid()); }

void TestMalformed::check(const QByteArray& bytes, const QString& label)
{
    ++cases;
    const QString sandbox = work.filePath("sandbox");
    const QString target = sandbox + "/inner/target/";
    const QString path = sandbox + "/case.ba2";
    QFile::remove(path);  // a fresh file: rewriting one in place makes ext4 flush it each time
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
    const ExtractResult result = extractArchive(reader, target, none, 2);
    static const QSet<int> allowed{ArchiveStatus::Complete,     ArchiveStatus::FileOpenError,
                                   ArchiveStatus::FileReadError, ArchiveStatus::Lz4Error,
                                   ArchiveStatus::ZlibError,     ArchiveStatus::UnsafeName,
                                   ArchiveStatus::DdsOrVer3General, ArchiveStatus::UnsupportedFormat};
    QVERIFY2(allowed.contains(result.status), qPrintable(QStringLiteral("%1: status %2").arg(label).arg(result.status)));
    // Verify and extraction decode the same pieces, so they agree.
    if (result.status == ArchiveStatus::Complete) QVERIFY2(sound, qPrintable(label + ": " + fault));
    if (sound) QVERIFY2(result.status == ArchiveStatus::Complete || result.status == ArchiveStatus::FileOpenError,
                        qPrintable(label));
    QDirIterator it(sandbox, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString p = it.next();
        QVERIFY2(p == path || p == sandbox + "/inner" || p + "/" == target || p.startsWith(target),
                 qPrintable(label + ": wrote " + p));
    }
}

void TestMalformed::fieldMutations()
{
    for (const Base& base : bases()) {
        const QByteArray good = base.builder.build();
        check(good, QString(base.name) + " unchanged");
        for (const Field& f : fieldsOf(base.builder)) {
            const uint64_t ones = f.width == 8 ? ~0ull : (1ull << (8 * f.width)) - 1;
            for (uint64_t value : {uint64_t(0), ones, uint64_t(good.size()) + 1, uint64_t(good.size()) - 1}) {
                QByteArray bytes = good;
                setField(bytes, f, value);
                check(bytes, QStringLiteral("%1 %2@%3=%4").arg(base.name, f.what).arg(f.offset).arg(value));
            }
        }
    }
}

void TestMalformed::truncations()
{
    for (const Base& base : bases()) {
        const QByteArray good = base.builder.build();
        for (int cut = 0; cut < good.size(); ++cut)
            check(good.left(cut), QStringLiteral("%1 cut at %2").arg(base.name).arg(cut));
    }
}

void TestMalformed::chunkCounts_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("recordSize");
    QTest::addColumn<bool>("opens");
    QTest::newRow("0 chunks") << 0 << 24 << true;
    QTest::newRow("16 chunks") << 16 << 24 << true;
    QTest::newRow("17 chunks") << 17 << 24 << false;
    QTest::newRow("255 chunks") << 255 << 24 << false;
    QTest::newRow("record size 0") << 2 << 0 << false;
    QTest::newRow("record size 23") << 2 << 23 << false;
    QTest::newRow("record size 25") << 2 << 25 << false;
}

void TestMalformed::chunkCounts()
{
    QFETCH(int, count);
    QFETCH(int, recordSize);
    QFETCH(bool, opens);
    Ba2Builder b;
    b.texture = true;
    QVector<QByteArray> chunks;
    for (int i = 0; i < count; ++i) chunks.append(patternBytes(20, uint32_t(i)));
    TestEntry& e = b.addTexture("t.dds", 64, 64, uint8_t(count), 71, chunks, Pack::Zlib);
    e.chunkRecordSize = uint16_t(recordSize);
    const QByteArray bytes = b.build();
    const QString path = work.filePath("count.ba2");
    QVERIFY(writeFile(path, bytes));
    ArchiveReader r;
    NullProgress none;
    QCOMPARE(r.open(path, none), opens);
    check(bytes, QTest::currentDataTag());
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
    QFETCH(int, status);
    Ba2Builder b;
    b.addGeneral("first.txt", "1");
    b.addGeneral(name, "second");
    b.addGeneral("first.txt", "duplicate name, written again");
    const QByteArray bytes = b.build();
    check(bytes, QTest::currentDataTag());
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(work.filePath("sandbox/case.ba2"), none));  // written by check()
    QTemporaryDir out;
    QCOMPARE(extractArchive(r, out.path(), none).status, status);
    if (status == ArchiveStatus::Complete)
        QCOMPARE(readFile(out.path() + "/first.txt"), QByteArray("duplicate name, written again"));
}

void TestMalformed::cleanupTestCase()
{
    qInfo("%d damaged archives checked, %d of them opened; peak resident memory %ld KiB", cases, opened,
          maxResidentKiB());
    // Nothing a few-hundred-byte file says may make us reserve more than this.
    QVERIFY(maxResidentKiB() < 768 * 1024);
}

QTEST_GUILESS_MAIN(TestMalformed)
#include "tst_malformed.moc"

#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "archive/status.h"
#include "testutil.h"

#include <QTemporaryDir>
#include <QtTest>

#include <xxhash.h>

using namespace testutil;

class TestExtractor : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        work.reset(new QTemporaryDir);
        QVERIFY(work->isValid());
    }
    void generalRoundTrip_data();
    void generalRoundTrip();
    void textureArchive_data();
    void textureArchive();
    void failures_data();
    void failures();
    void cancelLeavesEarlierFiles();
    void escapingNamesRefused_data();
    void escapingNamesRefused();
    void overwritesAndDeepFolders();
    void outcomeTexts_data();
    void outcomeTexts();
    void realSamples_data();
    void realSamples();
    void blankTexturePixels();
    void parallelMatchesOneThread_data();
    void parallelMatchesOneThread();
    void bsaRoundTrip_data();
    void bsaRoundTrip();

private:
    QString archive(const Ba2Builder& b, const QString& name = "a.ba2")
    {
        return archive(b.build(), name);
    }
    QString archive(const QByteArray& bytes, const QString& name)
    {
        const QString path = work->filePath(name);
        writeFile(path, bytes);
        return path;
    }
    QString target()
    {
        const QString path = work->filePath("out");
        QDir().mkpath(path);
        return path + "/";
    }
    QScopedPointer<QTemporaryDir> work;
};

void TestExtractor::generalRoundTrip_data()
{
    QTest::addColumn<uint>("version");
    QTest::addColumn<int>("pack");
    QTest::addColumn<uint>("code"); // version 3 only
    QTest::newRow("v1 zlib") << 1u << int(Pack::Zlib) << 3u;
    QTest::newRow("v1 stored") << 1u << int(Pack::Stored) << 3u;
    QTest::newRow("v2 zlib") << 2u << int(Pack::Zlib) << 3u;
    QTest::newRow("v2 stored") << 2u << int(Pack::Stored) << 3u;
    QTest::newRow("v3 stored general") << 3u << int(Pack::Stored) << 3u;
    QTest::newRow("v3 lz4 general") << 3u << int(Pack::Lz4) << 3u;
    QTest::newRow("v3 zlib general") << 3u << int(Pack::Zlib) << 0u;
    QTest::newRow("v8 zlib") << 8u << int(Pack::Zlib) << 3u;
}

void TestExtractor::generalRoundTrip()
{
    QFETCH(uint, version);
    QFETCH(int, pack);
    QFETCH(uint, code);
    Ba2Builder b;
    b.version = version;
    b.compressionCode = code;
    QMap<QString, QByteArray> files {{"meshes/a/b/c.nif", patternBytes(70000, 1)},
                                     {"scripts/x.pex", patternBytes(3000, 2, false)},
                                     {"root.txt", QByteArray("root file")},
                                     {"empty.dat", QByteArray()}};
    for (auto it = files.begin(); it != files.end(); ++it)
        b.addGeneral(it.key().toUtf8(), it.value(), Pack(pack));
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(archive(b), none));
    RecordingProgress progress;
    const ExtractResult result = extractArchive(r, target(), progress);
    QCOMPARE(int(result.status), int(ArchiveStatus::Complete));
    QCOMPARE(fileList(work->filePath("out")), QStringList(files.keys()));
    for (auto it = files.begin(); it != files.end(); ++it)
        QCOMPARE(readFile(target() + it.key()), it.value());
    // One step per file before it, then 100 of 100 once complete.
    QCOMPARE(progress.values, QVector<int>({0, 1, 2, 3, 100}));
    QCOMPARE(progress.maximum, 100);
    QString fault;
    QVERIFY2(verifyArchive(r, fault), qPrintable(fault));
}

void TestExtractor::textureArchive_data()
{
    QTest::addColumn<uint>("version");
    QTest::addColumn<int>("pack");
    QTest::addColumn<uint>("code"); // version 3 only
    QTest::newRow("v3 lz4") << 3u << int(Pack::Lz4) << 3u;
    QTest::newRow("v3 zlib") << 3u << int(Pack::Zlib) << 0u;
    QTest::newRow("v1 zlib") << 1u << int(Pack::Zlib) << 3u;
    QTest::newRow("v2 stored") << 2u << int(Pack::Stored) << 3u;
}

void TestExtractor::textureArchive()
{
    QFETCH(uint, version);
    QFETCH(int, pack);
    QFETCH(uint, code);
    Ba2Builder b;
    b.version = version;
    b.compressionCode = code;
    b.texture = true;
    const QByteArray c0 = patternBytes(1048576, 7), c1 = patternBytes(262144, 8),
                     c2 = patternBytes(87408, 9);
    b.addTexture("textures/big.dds", 1024, 1024, 11, 98, {c0, c1, c2}, Pack(pack));
    const QByteArray small = patternBytes(16384, 10);
    b.addTexture("textures/small.dds", 256, 128, 1, 71, {small}, Pack(pack));
    b.addTexture("textures/none.dds", 4, 4, 1, 71, {}, Pack(pack));
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(archive(b), none));
    const ExtractResult result = extractArchive(r, target(), none);
    QCOMPARE(int(result.status), int(ArchiveStatus::Complete));
    const QByteArray big = readFile(target() + "textures/big.dds");
    QCOMPARE(big.size(), 148 + c0.size() + c1.size() + c2.size());
    QCOMPARE(big.left(4), QByteArray("DDS "));
    QCOMPARE(big.mid(84, 4), QByteArray("DX10"));
    QCOMPARE(big.mid(148), c0 + c1 + c2);
    const QByteArray bc1 = readFile(target() + "textures/small.dds");
    QCOMPARE(bc1.size(), 128 + small.size());
    QCOMPARE(bc1.mid(84, 4), QByteArray("DXT1"));
    QCOMPARE(bc1.mid(128), small);
    // A texture with no chunks is its header alone.
    QCOMPARE(readFile(target() + "textures/none.dds").size(), 128);
}

void TestExtractor::failures_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("leftFiles"); // name=size after the failure

    {
        Ba2Builder b;
        b.version = 3;
        b.addGeneral("stored.txt", "fine");
        TestEntry& e = b.addGeneral("packed.bin", patternBytes(100, 1), Pack::Lz4);
        e.unpackedSize += 1;
        QTest::newRow("v3 general lz4 wrong size") << b.build() << int(ArchiveStatus::Lz4Error)
                                                   << QStringList {"packed.bin=0", "stored.txt=4"};
        e.unpackedSize = uint32_t(e.stored.size()) * 255 + 17; // beyond any LZ4 expansion
        QTest::newRow("v3 general lz4 expands too far")
            << b.build() << int(ArchiveStatus::Lz4Error)
            << QStringList {"packed.bin=0", "stored.txt=4"};
        b.compressionCode = 0;
        QTest::newRow("v3 code 0, lz4 data") << b.build() << int(ArchiveStatus::ZlibError)
                                             << QStringList {"packed.bin=0", "stored.txt=4"};
    }
    for (int format : {0, 68, 103, 116}) { // no size per pixel or block
        Ba2Builder b;
        b.texture = true;
        b.addTexture("video.dds", 4, 4, 1, uint8_t(format), {QByteArray(256, 'f')});
        QTest::addRow("texture format %d", format)
            << b.build() << int(ArchiveStatus::UnsupportedFormat) << QStringList {"video.dds=0"};
    }
    {
        Ba2Builder b;
        TestEntry& e = b.addGeneral("z.bin", patternBytes(5000, 3), Pack::Zlib);
        e.stored[e.stored.size() / 2] = char(e.stored[e.stored.size() / 2] ^ 0x55);
        e.stored[e.stored.size() / 2 + 1] = char(e.stored[e.stored.size() / 2 + 1] ^ 0x55);
        QTest::newRow("corrupt zlib")
            << b.build() << int(ArchiveStatus::ZlibError) << QStringList {"z.bin=0"};
    }
    {
        Ba2Builder b;
        TestEntry& e = b.addGeneral("z.bin", patternBytes(5000, 3), Pack::Zlib);
        e.unpackedSize += 1;
        QTest::newRow("zlib size too large")
            << b.build() << int(ArchiveStatus::ZlibError) << QStringList {"z.bin=0"};
        e.unpackedSize -= 2;
        QTest::newRow("zlib size too small")
            << b.build() << int(ArchiveStatus::ZlibError) << QStringList {"z.bin=0"};
    }
    {
        Ba2Builder b;
        b.version = 3;
        b.texture = true;
        TestEntry& e = b.addTexture("t.dds", 8, 8, 1, 71,
                                    {patternBytes(32, 4), patternBytes(64, 5)}, Pack::Lz4);
        e.chunks[1].unpackedSize = 63;
        QTest::newRow("lz4 wrong size")
            << b.build() << int(ArchiveStatus::Lz4Error) << QStringList {"t.dds=160"};
    }
    {
        Ba2Builder b;
        b.addGeneral("ok.txt", "ok");
        TestEntry& e = b.addGeneral("huge.bin", "tiny");
        e.unpackedSize = 0x7FFFFFFF; // stored data said to run far past the end of the file
        QTest::newRow("stored past end") << b.build() << int(ArchiveStatus::FileReadError)
                                         << QStringList {"huge.bin=0", "ok.txt=2"};
    }
    {
        Ba2Builder b;
        TestEntry& e = b.addGeneral("bomb.bin", patternBytes(100, 6), Pack::Zlib);
        e.unpackedSize = 0xFFFFFFF0; // a size no stream of this length can produce
        QTest::newRow("zlib claims 4 GiB")
            << b.build() << int(ArchiveStatus::ZlibError) << QStringList {"bomb.bin=0"};
    }
    {
        // Blocks this large are decoded in windows: a wrong size is still found, and what went
        // out of the block before is taken back.
        Ba2Builder b;
        TestEntry& e = b.addGeneral("w.bin", QByteArray(40 << 20, 'w'), Pack::Zlib);
        e.unpackedSize += 1;
        QTest::newRow("windowed zlib, size too large")
            << b.build() << int(ArchiveStatus::ZlibError) << QStringList {"w.bin=0"};
        e.unpackedSize -= 2;
        QTest::newRow("windowed zlib, size too small")
            << b.build() << int(ArchiveStatus::ZlibError) << QStringList {"w.bin=0"};
        e.unpackedSize += 1;
        e.stored.chop(e.stored.size() / 2);
        e.packedSize = uint32_t(e.stored.size());
        QTest::newRow("windowed zlib, stream cut short")
            << b.build() << int(ArchiveStatus::ZlibError) << QStringList {"w.bin=0"};
    }
}

void TestExtractor::failures()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, status);
    QFETCH(QStringList, leftFiles);
    const QString path = work->filePath("bad.ba2");
    writeFile(path, bytes);
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(path, none));
    const ExtractResult result = extractArchive(r, target(), none);
    QCOMPARE(int(result.status), status);
    QVERIFY(!result.failedName.isEmpty());
    QStringList left;
    for (const QString& f : fileList(work->filePath("out")))
        left << QStringLiteral("%1=%2").arg(f).arg(QFileInfo(target() + f).size());
    QCOMPARE(left, leftFiles);
    QString fault;
    QVERIFY(!verifyArchive(r, fault));
    QVERIFY(fault.startsWith(result.failedName + ": "));
}

void TestExtractor::cancelLeavesEarlierFiles()
{
    Ba2Builder b;
    for (int i = 0; i < 5; ++i)
        b.addGeneral(QByteArray("f") + QByteArray::number(i), "data", Pack::Zlib);
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(archive(b), none));
    RecordingProgress cancelAtThree(0, 3);
    QCOMPARE(int(extractArchive(r, target(), cancelAtThree).status), int(ArchiveStatus::Aborted));
    QCOMPARE(fileList(work->filePath("out")), QStringList({"f0", "f1", "f2"}));
    RecordingProgress cancelFirst(0, 0);
    QTemporaryDir other;
    QCOMPARE(int(extractArchive(r, other.path(), cancelFirst).status), int(ArchiveStatus::Aborted));
    QVERIFY(fileList(other.path()).isEmpty());
    // The reader stays loaded: a second run completes.
    QCOMPARE(int(extractArchive(r, other.path(), none).status), int(ArchiveStatus::Complete));
    QCOMPARE(fileList(other.path()).size(), 5);
}

void TestExtractor::escapingNamesRefused_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("parent") << QByteArray("../escape.txt");
    QTest::newRow("inner parent") << QByteArray("a/../../escape.txt");
    QTest::newRow("backslash parent") << QByteArray("a\\..\\..\\escape.txt");
    QTest::newRow("absolute") << QByteArray("/tmp/escape.txt");
    QTest::newRow("drive") << QByteArray("c:/escape.txt");
    QTest::newRow("nul inside") << QByteArray("ok.txt\0/../../escape.txt", 25);
}

void TestExtractor::escapingNamesRefused()
{
    QFETCH(QByteArray, name);
    Ba2Builder b;
    b.addGeneral("first.txt", "1");
    b.addGeneral(name, "escaped");
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(archive(b), none));
    const QString out = work->filePath("deep/er/out");
    QDir().mkpath(out);
    const ExtractResult result = extractArchive(r, out, none);
    QCOMPARE(int(result.status), int(ArchiveStatus::UnsafeName));
    QCOMPARE(outcomeText(result.status), QString("Extract All Error.\n Unsafe File Name."));
    // Only the safe first file exists anywhere in the work area besides the archive.
    QStringList all = fileList(work->path());
    all.removeAll("a.ba2");
    QCOMPARE(all, QStringList {"deep/er/out/first.txt"});
    QVERIFY(!QFile::exists("/tmp/escape.txt")
            || QFileInfo("/tmp/escape.txt").lastModified().secsTo(QDateTime::currentDateTime())
                > 60);
}

void TestExtractor::overwritesAndDeepFolders()
{
    Ba2Builder b;
    b.addGeneral("textures/armor/a/b.dds", "new content", Pack::Zlib);
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(archive(b), none));
    writeFile(target() + "textures/armor/a/b.dds", QByteArray(1000, 'o'));
    QCOMPARE(int(extractArchive(r, target(), none).status), int(ArchiveStatus::Complete));
    QCOMPARE(readFile(target() + "textures/armor/a/b.dds"), QByteArray("new content"));

    // A root-level name whose file cannot be opened fails at once (here: a folder is in the way).
    Ba2Builder root;
    root.addGeneral("blocked", "x");
    ArchiveReader rr;
    QVERIFY(rr.open(archive(root, "root.ba2"), none));
    QDir().mkpath(target() + "blocked");
    QCOMPARE(int(extractArchive(rr, target(), none).status), int(ArchiveStatus::FileOpenError));
    // A missing target folder.
    QCOMPARE(int(extractArchive(rr, work->filePath("missing/"), none).status),
             int(ArchiveStatus::SystemError));
}

void TestExtractor::outcomeTexts_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("text");
    QTest::newRow("complete") << 1 << "Complete.";
    QTest::newRow("aborted") << 0 << "Aborted.";
    QTest::newRow("system") << -1 << "Extract All Error.\n System Error.";
    QTest::newRow("open") << -2 << "Extract All Error.\n File Open Error.";
    QTest::newRow("write") << -3 << "Extract All Error.\n File Write Error.";
    QTest::newRow("lz4") << -5 << "Extract All Error.\n Decompress(LZ4) Error.";
    QTest::newRow("zlib") << -6 << "Extract All Error.\n Decompress(zlib) Error.";
    QTest::newRow("format") << -10 << "Extract All Error.\n ";
    QTest::newRow("memory") << -11 << "Extract All Error.\n Out Of Memory.";
}

void TestExtractor::outcomeTexts()
{
    QFETCH(int, status);
    QFETCH(QString, text);
    QCOMPARE(outcomeText(ArchiveStatus(status)), text);
}

void TestExtractor::bsaRoundTrip_data()
{
    QTest::addColumn<uint>("version");
    QTest::addColumn<uint>("flags");
    QTest::addColumn<bool>("toggle");     // plate.nif's compression bit
    QTest::addColumn<QByteArray>("root"); // the name of the folder for files at the root
    QTest::newRow("103 stored") << 103u << 0x3u << false << QByteArray(".");
    QTest::newRow("103 zlib, embedded-name bit ignored") << 103u << 0x107u << true << QByteArray();
    QTest::newRow("104 zlib, embedded names") << 104u << 0x107u << false << QByteArray(".");
    QTest::newRow("104 stored, one compressed") << 104u << 0x3u << true << QByteArray();
    QTest::newRow("105 lz4, embedded names") << 105u << 0x107u << true << QByteArray(".");
    QTest::newRow("105 stored, embedded names") << 105u << 0x103u << false << QByteArray();
}

void TestExtractor::bsaRoundTrip()
{
    QFETCH(uint, version);
    QFETCH(uint, flags);
    QFETCH(bool, toggle);
    QFETCH(QByteArray, root);
    BsaBuilder b;
    b.version = version;
    b.flags = flags;
    b.folders = {
        {"meshes\\Armor",
         {{"plate.nif", patternBytes(3000, 1), toggle}, {"b.NIF", patternBytes(100000, 2, false)}}},
        {root, {{"root.txt", "root file"}}},
        {"sound\\fx", {{"empty.wav", ""}, {"x.kf", patternBytes(500, 3)}}}};
    QMap<QString, QByteArray> files;
    qint64 packed = 0, unpacked = 0;
    for (const auto& folder : b.folders)
        for (const BsaFile& f : folder.second) {
            QString dir = root == folder.first ? "" : QString(folder.first) + "/";
            files[dir.replace('\\', '/') + f.name] = f.data;
            if (bool(flags & 4) == f.toggle) continue;
            packed += (version == 105 ? lz4Frame(f.data) : zlibStream(f.data)).size();
            unpacked += f.data.size();
        }
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(archive(b.build(), "a.bsa"), none));
    const QString codec = version == 105 ? "LZ4" : "zlib";
    QCOMPARE(QStringList({archiveInfoLine1(r), archiveInfoLine2(r), archiveInfoLine3(r)}),
             QStringList(
                 {QString("BSA Ver.%1 (5 files)").arg(version),
                  version == 103       ? "Format: Oblivion"
                      : version == 104 ? "Format: Fallout 3, New Vegas, Skyrim"
                                       : "Format: Skyrim Special Edition",
                  packed ? QString::asprintf("Compression: %s (%3.2f%%)", qPrintable(codec),
                                             double(float(float(packed) / float(unpacked) * 100.0)))
                         : "Compression: Non"}));
    QStringList names;
    for (uint32_t i = 0; i < r.fileCount; ++i)
        names << r.nameOf(i);
    names.sort();
    QCOMPARE(names, QStringList(files.keys()));
    QString fault;
    QVERIFY2(verifyArchive(r, fault, 2), qPrintable(fault));
    for (int jobs : {1, 2}) {
        QTemporaryDir out;
        QCOMPARE(extractArchive(r, out.path(), none, jobs).status, ArchiveStatus::Complete);
        QCOMPARE(fileList(out.path()), QStringList(files.keys()));
        for (auto it = files.begin(); it != files.end(); ++it)
            QCOMPARE(readFile(out.filePath(it.key())), it.value());
    }
}

void TestExtractor::realSamples_data()
{
    QTest::addColumn<QString>("file");
    if (!QFileInfo(samplesDir()).isDir()) QTest::newRow("no samples") << QString();
    for (const QString& f : QDir(samplesDir()).entryList({"*.ba2"}, QDir::Files, QDir::Name))
        QTest::newRow(qPrintable(f)) << f;
}

void TestExtractor::realSamples()
{
    SKIP_WITHOUT_SAMPLES();
    QFETCH(QString, file);
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(samplesDir() + "/" + file, none));
    QString fault;
    QVERIFY2(verifyArchive(r, fault), qPrintable(fault));
    QCOMPARE(int(extractArchive(r, target(), none).status), int(ArchiveStatus::Complete));
    QStringList names;
    for (uint32_t i = 0; i < r.fileCount; ++i)
        names << r.nameOf(i);
    names.sort();
    QCOMPARE(fileList(work->filePath("out")), names);
    if (file == "Blank - Main.ba2") {
        const QByteArray license = readFile(target() + names[0]);
        QCOMPARE(license.size(), 1101);
        QVERIFY(license.contains("\r\n"));
    }
}

void TestExtractor::blankTexturePixels()
{
    SKIP_WITHOUT_SAMPLES();
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(samplesDir() + "/Blank - Textures.ba2", none));
    QCOMPARE(int(extractArchive(r, target(), none).status), int(ArchiveStatus::Complete));
    const QByteArray source = readFile(samplesDir() + "/Blank.dds");
    const QByteArray ours = readFile(target() + r.nameOf(0));
    const int sourceHeader = source.mid(84, 4) == "DX10" ? 148 : 128;
    const int ourHeader = ours.mid(84, 4) == "DX10" ? 148 : 128;
    QVERIFY(source.size() > sourceHeader);
    QCOMPARE(ours.mid(ourHeader), source.mid(sourceHeader, ours.size() - ourHeader));
    QCOMPARE(ours.size() - ourHeader, source.size() - sourceHeader);
    // The rebuilt header describes the same picture.
    QCOMPARE(ours.mid(12, 8), source.mid(12, 8));
}

void TestExtractor::parallelMatchesOneThread_data()
{
    QTest::addColumn<bool>("texture");
    QTest::addColumn<int>("breakAt");      // file whose data is corrupted, -1 for none
    QTest::addColumn<int>("cancelAt");     // file before which Cancel is seen, -1 for none
    QTest::addColumn<bool>("earlierTree"); // the target already holds every name, with other bytes
    QTest::addColumn<int>("renameAt");     // file given newName instead of its own, -1 for none
    QTest::addColumn<QByteArray>("newName");
    QTest::addColumn<int>("every"); // extracts only every n-th file when > 1
    QTest::newRow("general clean") << false << -1 << -1 << false << -1 << QByteArray() << 1;
    QTest::newRow("general every third, failure midway")
        << false << 36 << -1 << false << -1 << QByteArray() << 3;
    QTest::newRow("texture every fourth, cancel midway")
        << true << -1 << 9 << false << -1 << QByteArray() << 4;
    QTest::newRow("texture every second") << true << -1 << -1 << false << -1 << QByteArray() << 2;
    QTest::newRow("general failure midway")
        << false << 37 << -1 << false << -1 << QByteArray() << 1;
    QTest::newRow("general failure at the start")
        << false << 1 << -1 << false << -1 << QByteArray() << 1;
    QTest::newRow("general cancel midway") << false << -1 << 23 << false << -1 << QByteArray() << 1;
    QTest::newRow("texture clean") << true << -1 << -1 << false << -1 << QByteArray() << 1;
    QTest::newRow("texture failure midway") << true << 11 << -1 << false << -1 << QByteArray() << 1;
    QTest::newRow("texture cancel midway") << true << -1 << 40 << false << -1 << QByteArray() << 1;
    // Files that exist are only overwritten once everything before them went in.
    QTest::newRow("general failure over an earlier tree")
        << false << 37 << -1 << true << -1 << QByteArray() << 1;
    QTest::newRow("texture failure over an earlier tree")
        << true << 11 << -1 << true << -1 << QByteArray() << 1;
    QTest::newRow("general clean over an earlier tree")
        << false << -1 << -1 << true << -1 << QByteArray() << 1;
    // The later of two files with one name wins, as it does when written in order.
    QTest::newRow("a name used twice")
        << false << -1 << -1 << false << 50 << QByteArray("dir3/f10") << 1;
    QTest::newRow("a name used twice, failure between")
        << false << 31 << -1 << false << 50 << QByteArray("dir3/f10") << 1;
    // A file where an earlier file made a folder stops at that file.
    QTest::newRow("a file named like a folder")
        << false << -1 << -1 << false << 20 << QByteArray("dir6") << 1;
    QTest::newRow("a folder named like a file")
        << true << -1 << -1 << false << 20 << QByteArray("dir6/f6.dds/x.dds") << 1;
    // Refused when its turn to be opened comes, while the files before it are open, not written.
    QTest::newRow("an unsafe name amid open files")
        << false << -1 << -1 << false << 33 << QByteArray("../up") << 1;
}

void TestExtractor::parallelMatchesOneThread()
{
    QFETCH(bool, texture);
    QFETCH(int, breakAt);
    QFETCH(int, cancelAt);
    QFETCH(bool, earlierTree);
    QFETCH(int, renameAt);
    QFETCH(QByteArray, newName);
    QFETCH(int, every);
    Ba2Builder b;
    b.texture = texture;
    b.version = texture ? 3 : 2;
    for (int i = 0; i < 60; ++i) {
        QByteArray name = "dir" + QByteArray::number(i % 7) + "/f" + QByteArray::number(i);
        if (i == renameAt) name = newName.endsWith(".dds") ? newName.chopped(4) : newName;
        if (texture) {
            // Blocks big enough that decoding goes to the worker threads.
            TestEntry& e = b.addTexture(name + ".dds", 64, 64, 3, 71,
                                        {patternBytes(20000 + i, uint32_t(i), false),
                                         patternBytes(17000, uint32_t(i) + 100, false)},
                                        Pack::Lz4);
            if (i == breakAt) e.chunks[0].unpackedSize += 3; // the part after it decodes well
        } else {
            TestEntry& e = b.addGeneral(name, patternBytes(17000 + 97 * i, uint32_t(i), false),
                                        i % 10 ? Pack::Zlib : Pack::Stored);
            if (i == breakAt)
                e.stored[e.stored.size() - 2] = char(e.stored[e.stored.size() - 2] ^ 0x20);
        }
    }
    ArchiveReader r;
    NullProgress none;
    QVERIFY(r.open(archive(b), none));
    std::vector<uint32_t> selection;
    for (uint32_t i = 0; i < r.fileCount; i += uint32_t(every))
        selection.push_back(i);
    QMap<QString, QByteArray> trees[2];
    ExtractResult results[2];
    for (int run = 0; run < 2; ++run) {
        QTemporaryDir out;
        for (uint32_t i = 0; earlierTree && i < r.fileCount; ++i) {
            QVERIFY(QDir().mkpath(QFileInfo(out.filePath(r.nameOf(i))).path()));
            QVERIFY(writeFile(out.filePath(r.nameOf(i)), "earlier " + r.nameOf(i).toUtf8()));
        }
        RecordingProgress progress(0, cancelAt);
        results[run] = extractArchive(r, out.path(), progress, run == 0 ? 1 : 3,
                                      every > 1 ? &selection : nullptr);
        trees[run] = treeContents(out.path());
        const bool complete = results[run].status == ArchiveStatus::Complete;
        QCOMPARE(progress.maximum, complete ? 100 : int(selection.size()));
    }
    QCOMPARE(results[1].status, results[0].status);
    QCOMPARE(results[1].failedName, results[0].failedName);
    QCOMPARE(trees[1].keys(), trees[0].keys());
    QCOMPARE(trees[1], trees[0]);
    const int expected = breakAt >= 0
        ? int(texture ? ArchiveStatus::Lz4Error : ArchiveStatus::ZlibError)
        : cancelAt >= 0              ? int(ArchiveStatus::Aborted)
        : newName.startsWith("dir6") ? int(ArchiveStatus::FileOpenError)
        : newName.startsWith("..")   ? int(ArchiveStatus::UnsafeName)
                                     : int(ArchiveStatus::Complete);
    QCOMPARE(int(results[0].status), expected);
    QString fault1, fault3;
    std::vector<Digest> digests1, digests3;
    QCOMPARE(verifyArchive(r, fault3, 3, &digests3), verifyArchive(r, fault1, 1, &digests1));
    QCOMPARE(fault3, fault1);
    if (results[0].status != ArchiveStatus::Complete || renameAt >= 0) return;
    QCOMPARE(digests3, digests1);
    for (uint32_t i : selection) {
        const QByteArray bytes = trees[0].take(r.nameOf(i));
        XXH128_canonical_t sum; // the library's one-shot digest, against our streamed one
        XXH128_canonicalFromHash(&sum, XXH3_128bits(bytes.constData(), size_t(bytes.size())));
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(digests1[i].data()), 16),
                 QByteArray(reinterpret_cast<const char*>(sum.digest), 16));
    }
    for (const QString& left : trees[0].keys())
        QVERIFY2(left.endsWith('/'), qPrintable(left)); // only the selected files were written
}

int main(int argc, char** argv)
{
    // Every case runs twice: decoding from a mapping of the archive and from plain reads.
    int failures = 0;
    for (bool map : {true, false}) {
        ArchiveReader::mapFiles = map;
        TestExtractor test;
        failures += QTest::qExec(&test, argc, argv);
    }
    return failures;
}
#include "tst_extractor.moc"

// zarnel-cli as scripts see it: arguments in; exit status, stdout and stderr out. Each row is a
// short script of steps separated by " ; ", words separated by spaces, "@" the work folder.
// Steps starting with '#' run here: "#tree DIR" prints each file below DIR with its size,
// "#head FILE" an archive's type, version and whether its first block is packed.

#include "testutil.h"

#include <QtTest>

#include <libdeflate.h>
#include <lz4.h>
#include <zlib.h>

using namespace testutil;

namespace {

uint32_t le32(const QByteArray& b, int at)
{
    return qFromLittleEndian<quint32>(b.constData() + at);
}

// What a step that runs here prints.
QString internalStep(const QStringList& words)
{
    QString out;
    if (words[0] == "#tree") {
        for (const QString& f : fileList(words[1]))
            out += QStringLiteral("%1 %2\n").arg(f).arg(QFileInfo(words[1] + "/" + f).size());
    } else if (words[0] == "#head") {
        // The first record's packed size: behind the header, in the file record or first chunk.
        const QByteArray a = readFile(words[1]);
        const uint32_t version = le32(a, 4);
        const int at = (version == 3       ? 36
                            : version == 2 ? 32
                                           : 24)
            + 24 + (a.mid(8, 4) == "DX10" ? 8 : 0);
        out = QStringLiteral("%1 %2 %3\n")
                  .arg(QString(a.mid(8, 4)))
                  .arg(version)
                  .arg(le32(a, at) ? "packed" : "stored");
    }
    return out;
}

} // namespace

class TestCli : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init()
    {
        QVERIFY(QDir(work.filePath("out")).removeRecursively()
                && QDir().mkpath(work.filePath("out")));
    }
    void commands_data();
    void commands();

private:
    QTemporaryDir work;
};

void TestCli::initTestCase()
{
    QVERIFY(work.isValid());
    const QString dir = work.path();
    Ba2Builder g1;
    g1.addGeneral("meshes/Armor/Plate.nif", patternBytes(3000, 1), Pack::Zlib);
    g1.addGeneral("meshes/armor/helmet.nif", patternBytes(2000, 2), Pack::Zlib);
    g1.addGeneral("scripts/quest.pex", patternBytes(700, 3), Pack::Zlib);
    g1.addGeneral("readme.txt", "read me\n");
    QVERIFY(writeFile(dir + "/g1.ba2", g1.build()));
    // The same files stored in version 2; another set with changes; textures twice over.
    Ba2Builder g2 = g1, g3;
    g2.version = 2;
    for (TestEntry& e : g2.entries)
        if (e.packedSize)
            e = Ba2Builder().addGeneral(
                e.name, patternBytes(int(e.unpackedSize), uint32_t(&e - g2.entries.data() + 1)));
    g3.addGeneral("MESHES\\ARMOR\\PLATE.NIF", patternBytes(3000, 1));
    g3.addGeneral("meshes/armor/helmet.nif", patternBytes(2000, 9), Pack::Zlib);
    g3.addGeneral("readme.txt", "read me\n", Pack::Zlib);
    g3.addGeneral("sound/new.wav", "new");
    QVERIFY(writeFile(dir + "/g2.ba2", g2.build()) && writeFile(dir + "/g3.ba2", g3.build()));
    for (int version : {1, 2, 3}) {
        Ba2Builder t;
        t.texture = true;
        t.version = uint32_t(version);
        const Pack pack = version == 3 ? Pack::Lz4 : Pack::Stored;
        t.addTexture("textures/a.dds", 64, 64, 3, 98,
                     {patternBytes(4096, 4), patternBytes(1280, 5)}, pack);
        t.addTexture("textures/sky/Sky.dds", 16, 16, 1, 71, {patternBytes(768, 6)}, pack)
            .textureFlags
            = 0x0801;
        if (version == 1) // a format without a name: listed, but never extracted
            t.addTexture("textures/odd.dds", 8, 8, 1, 200, {patternBytes(64, 7)}, pack);
        QVERIFY(writeFile(dir + QStringLiteral("/t%1.ba2").arg(version), t.build()));
    }
    Ba2Builder accents;
    accents.addGeneral("Données/Été.txt", "été");
    accents.addGeneral("Données/ete.txt", "ete");
    QVERIFY(writeFile(dir + "/accents.ba2", accents.build()));
    Ba2Builder unsafe;
    unsafe.addGeneral("ok.txt", "ok");
    unsafe.addGeneral("../evil.txt", "evil");
    QVERIFY(writeFile(dir + "/unsafe.ba2", unsafe.build()));
    Ba2Builder bad;
    bad.addGeneral("broken.bin", patternBytes(400, 1), Pack::Zlib).unpackedSize = 399;
    QVERIFY(writeFile(dir + "/bad.ba2", bad.build()));
    QVERIFY(writeFile(dir + "/notes.txt", "not an archive"));
    // Sources for create: textures, a mix, sounds and an empty folder.
    for (const QByteArray f :
         {"Tex/a.dds", "Tex/b.dds", "Mix/a.dds", "Mix/b.txt", "Snd/a.wav", "Snd/b.txt"}) {
        const QByteArray content
            = f.endsWith(".dds") ? blockDds(64, 64, 7, 1) : QByteArray(500, 'x');
        QVERIFY(writeFile(dir + "/In/" + f, content));
    }
    QVERIFY(QDir().mkpath(dir + "/In/Empty"));
}

void TestCli::commands_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("status"); // of each step
    QTest::addColumn<QString>("out");    // all of stdout; "..." at the end: the start of it
    QTest::addColumn<QString>("err");    // all of stderr
    const QString tryHelp = "Try 'zarnel-cli --help' for more information.\n";
    const QString tryCreate = "Try 'zarnel-cli create --help' for more information.\n";
    const QString g1Names
        = "meshes/Armor/Plate.nif\nmeshes/armor/helmet.nif\nscripts/quest.pex\nreadme.txt\n";
    const QString g1Tree = "meshes/Armor/Plate.nif 3000\nmeshes/armor/helmet.nif 2000\nreadme.txt "
                           "8\nscripts/quest.pex 700\n";
    auto row = [](const char* tag, const QString& script, const QString& status, const QString& out,
                  const QString& err = QString()) {
        QTest::newRow(tag) << script << status << out << err;
    };
    // The dispatcher
    row("no command", "", "2", "", "zarnel-cli: missing command\n" + tryHelp);
    row("unknown command", "frobnicate", "2", "",
        "zarnel-cli: unknown command 'frobnicate'\n" + tryHelp);
    row("help", "--help", "0",
        "Usage: zarnel-cli COMMAND [ARGS]\n\nCommands:\n  info ARCHIVE  ...");
    row("help beside an unknown word", "frobnicate -h", "0",
        "Usage: zarnel-cli COMMAND [ARGS]\n...");
    row("command help", "info --help", "0", "Usage: zarnel-cli info ARCHIVE\n\n...");
    row("version", "--version", "0",
        QStringLiteral("zarnel-cli " ZARNEL_VERSION "\ncodecs: zlib %1, libdeflate %2, lz4 %3\n")
            .arg(zlibVersion(), LIBDEFLATE_VERSION_STRING, LZ4_versionString()));
    row("bad jobs", "--jobs 0 list @/g1.ba2", "2", "",
        "zarnel-cli: --jobs needs a number from 1 to 256\n" + tryHelp);
    // info, list, verify, extract
    row("info", "info @/g1.ba2", "0", "BA2 Ver.1 (4 files)\nFormat: General\nCompression: zlib...");
    row("info without archive", "info", "2", "",
        "zarnel-cli: info takes exactly one ARCHIVE\n" + tryHelp);
    row("not an archive", "info @/notes.txt", "1", "",
        "zarnel-cli: @/notes.txt: not a BA2 archive (no \"BTDX\" header)\n");
    row("missing file", "list @/none.ba2", "1", "",
        "zarnel-cli: @/none.ba2: cannot open the file for reading\n");
    row("list", "list @/g1.ba2", "0", g1Names);
    row("verify", "verify @/g1.ba2", "0", "OK\n");
    row("extract", "extract @/g1.ba2 @/out ; #tree @/out", "0 0", "Complete.\n" + g1Tree);
    row("extract, three jobs", "-j 3 extract @/g1.ba2 @/out ; #tree @/out", "0 0",
        "Complete.\n" + g1Tree);
    row("extract into a missing folder", "extract @/g1.ba2 @/nope", "1", "System Error.\n",
        "zarnel-cli: @/nope: no such folder\n");
    row("extract without folder", "extract @/g1.ba2", "2", "",
        "zarnel-cli: extract takes ARCHIVE and DIR\n" + tryHelp);
    row("verify damaged", "verify @/bad.ba2", "1", "broken.bin: Decompress(zlib) Error.\n");
    row("extract damaged", "extract @/bad.ba2 @/out", "1", "Decompress(zlib) Error.\n",
        "zarnel-cli: failed at: broken.bin\n");
    // create: what the archive's first bytes say it is
    const QString made = "Complete.\n";
    row("create textures, assisted", "create -o @/out/a.ba2 @/In/Tex ; #head @/out/a.ba2", "0 0",
        made + "DX10 3 packed\n");
    row("create mixed, assisted", "create -o @/out/a.ba2 @/In/Mix ; #head @/out/a.ba2", "0 0",
        made + "GNRL 2 packed\n");
    row("create sounds, assisted", "create -o @/out/a.ba2 @/In/Snd ; #head @/out/a.ba2", "0 0",
        made + "GNRL 2 stored\n");
    row("create textures as general",
        "create --format general -o @/out/a.ba2 @/In/Tex ; #head @/out/a.ba2", "0 0",
        made + "GNRL 2 packed\n");
    row("create, explicit settings",
        "create --version=1 --zlib 9 -o @/out/a.ba2 @/In/Snd ; #head @/out/a.ba2", "0 0",
        made + "GNRL 1 packed\n");
    row("create, zlib engine, two jobs",
        "create --jobs 2 --zlib-engine zlib --zlib=6 -o @/out/a.ba2 @/In/Snd ; #head @/out/a.ba2",
        "0 0", made + "GNRL 2 packed\n");
    row("create, bad engine", "create --zlib-engine zstd -o @/out/a.ba2 @/In/Snd", "2", "",
        "zarnel-cli create: --zlib-engine takes auto, zlib or libdeflate, not 'zstd'\n"
            + tryCreate);
    row("create texture of text", "create --format texture -o @/out/a.ba2 @/In/Mix ; #tree @/out",
        "1 0", "DDS File Error.\n", "zarnel-cli create: failed at: @/In/Mix/b.txt\n");
    row("create version 3 general", "create --version 3 -o @/out/a.ba2 @/In/Mix", "2", "",
        "zarnel-cli create: version 3 holds textures only, and these files make a general archive "
        "(--format texture forces it)\n"
            + tryCreate);
    row("create, bad level", "create --zlib 10 -o @/out/a.ba2 @/In/Mix", "2", "",
        "zarnel-cli create: --zlib takes 0 to 9, not '10'\n" + tryCreate);
    row("create, no output", "create @/In/Mix", "2", "",
        "zarnel-cli create: no archive named (-o ARCHIVE)\n" + tryCreate);
    row("create, no input", "create -o @/out/a.ba2", "2", "",
        "zarnel-cli create: no folder or file to archive\n" + tryCreate);
    row("create, missing input", "create -o @/out/a.ba2 @/In/Nothing", "1", "",
        "zarnel-cli create: @/In/Nothing: no such file or folder\n");
    row("create, empty folder", "create -o @/out/a.ba2 @/In/Empty ; #tree @/out", "1 0", "",
        "zarnel-cli create: no files found to archive\n");
    // list --long: SIZE, PACKED, KIND, NAME; a texture's size counts its DDS header
    const auto packed = [](int size, uint32_t seed) {
        return QString::number(zlibStream(patternBytes(size, seed)).size());
    };
    row("list --long, general", "list --long @/g1.ba2", "0",
        "3000\t" + packed(3000, 1) + "\t-\tmeshes/Armor/Plate.nif\n2000\t" + packed(2000, 2)
            + "\t-\tmeshes/armor/helmet.nif\n700\t" + packed(700, 3)
            + "\t-\tscripts/quest.pex\n8\t8\t-\treadme.txt\n");
    row("list -l, textures", "list -l @/t1.ba2", "0",
        "5524\t5376\tBC7_UNORM 64x64 mips:3 chunks:2\ttextures/a.dds\n"
        "896\t768\tBC1_UNORM 16x16 mips:1 chunks:1 cube\ttextures/sky/Sky.dds\n"
        "64\t64\tformat:200 8x8 mips:1 chunks:1\ttextures/odd.dds\n");
    row("list --long, pattern", "list @/t3.ba2 --long sky.DDS", "0",
        "896\t" + QString::number(lz4Block(patternBytes(768, 6)).size())
            + "\tBC1_UNORM 16x16 mips:1 chunks:1 cube\ttextures/sky/Sky.dds\n");
    // Patterns
    row("pattern: last component", "list @/g1.ba2 *.nif", "0",
        "meshes/Armor/Plate.nif\nmeshes/armor/helmet.nif\n");
    row("pattern: ?", "list @/g1.ba2 ?eadme.txt", "0", "readme.txt\n");
    row("pattern: class, any case", "list @/g1.ba2 [hp]*.nif", "0",
        "meshes/Armor/Plate.nif\nmeshes/armor/helmet.nif\n");
    row("pattern: negated class", "list @/g1.ba2 [!h]*.nif", "0", "meshes/Armor/Plate.nif\n");
    row("pattern: a folder", "list @/g1.ba2 meshes/**", "0",
        "meshes/Armor/Plate.nif\nmeshes/armor/helmet.nif\n");
    row("pattern: any depth", "list @/g1.ba2 **/QUEST.pex", "0", "scripts/quest.pex\n");
    row("pattern: one file", "list @/g1.ba2 MESHES/armor/plate.NIF", "0",
        "meshes/Armor/Plate.nif\n");
    row("pattern: beyond ASCII, any case", "list @/accents.ba2 DONNÉES/ÉT[ÉE].*", "0",
        "Données/Été.txt\n");
    row("pattern: * stays in its folder", "list @/g1.ba2 meshes/*", "1", "",
        "zarnel-cli: no stored name matches\n");
    row("patterns: several, record order", "list @/g1.ba2 readme.txt *.pex", "0",
        "scripts/quest.pex\nreadme.txt\n");
    row("extract by pattern", "extract @/g1.ba2 @/out meshes/** ; #tree @/out", "0 0",
        "Complete.\nmeshes/Armor/Plate.nif 3000\nmeshes/armor/helmet.nif 2000\n");
    row("extract, no match", "extract @/g1.ba2 @/out zzz ; #tree @/out", "1 0", "",
        "zarnel-cli: no stored name matches\n");
    row("extract by pattern, unsafe name", "extract @/unsafe.ba2 @/out *.txt ; #tree @/out", "1 0",
        "Unsafe File Name.\nok.txt 2\n", "zarnel-cli: failed at: ../evil.txt\n");
    // diff
    row("diff: same files, other version and compression",
        "diff @/g1.ba2 @/g2.ba2 ; diff @/t2.ba2 @/t3.ba2", "0 0", "");
    row("diff: removed, added, changed; case and separators ignored", "diff @/g1.ba2 @/g3.ba2", "1",
        "M meshes/armor/helmet.nif\n- scripts/quest.pex\n+ sound/new.wav\n");
    row("diff: damaged archive", "diff @/g1.ba2 @/bad.ba2", "2", "",
        "zarnel-cli: @/bad.ba2: broken.bin: Decompress(zlib) Error.\n");
    row("diff: not an archive", "diff @/notes.txt @/g1.ba2", "2", "",
        "zarnel-cli: @/notes.txt: not a BA2 archive (no \"BTDX\" header)\n");
    row("diff: one archive", "diff @/g1.ba2", "2", "",
        "zarnel-cli: diff takes ARCHIVE1 and ARCHIVE2\n" + tryHelp);
    row("create help", "create -o @/out/a.ba2 --help", "0",
        "Usage: zarnel-cli create [OPTIONS] -o ARCHIVE PATH...\n...");
    // convert: the same names behind another header; failures leave nothing behind
    const QString tryConvert = "Try 'zarnel-cli convert --help' for more information.\n";
    row("convert to 3",
        "convert --version 3 -o @/out/c.ba2 @/g1.ba2 ; #head @/out/c.ba2 ; "
        "list @/out/c.ba2",
        "0 0 0", made + "GNRL 3 packed\n" + g1Names);
    row("convert in place, stored",
        "convert --version 7 -o @/out/c.ba2 @/g1.ba2 ; "
        "convert -j 2 --zlib 0 -o @/out/c.ba2 @/out/c.ba2 ; #head @/out/c.ba2 ; #tree @/out",
        // 24 + 4 x 36 header and records, 5,708 bytes of files, 8 + 72 of names
        "0 0 0 0", made + made + "GNRL 7 stored\nc.ba2 5956\n");
    row("convert damaged", "convert --version 3 -o @/out/c.ba2 @/bad.ba2 ; #tree @/out", "1 0",
        "Decompress(zlib) Error.\n", "zarnel-cli convert: failed at: broken.bin\n");
    row("convert not an archive", "convert -o @/out/c.ba2 @/notes.txt ; #tree @/out", "1 0",
        "not a BA2 archive (no \"BTDX\" header)\n",
        "zarnel-cli: @/notes.txt: not a BA2 archive (no \"BTDX\" header)\n");
    row("convert, zlib for version 3", "convert --version 3 --zlib 1 -o @/out/c.ba2 @/g1.ba2", "2",
        "",
        "zarnel-cli convert: a version-3 archive holds LZ4 blocks: --lz4 sets their mode, "
        "not --zlib\n"
            + tryConvert);
    row("convert, bad version", "convert --version 4 -o @/out/c.ba2 @/g1.ba2", "2", "",
        "zarnel-cli convert: --version takes 1, 2, 3, 7 or 8, not '4'\n" + tryConvert);
    row("convert help", "convert --help", "0",
        "Usage: zarnel-cli convert [OPTIONS] -o OUT ARCHIVE\n...");
}

void TestCli::commands()
{
    QFETCH(QString, script);
    QFETCH(QString, out);
    QFETCH(QString, err);
    QStringList status;
    QString gotOut, gotErr;
    for (const QString& step : script.split(" ; ")) {
        QStringList words = step.split(' ', Qt::SkipEmptyParts);
        for (QString& w : words)
            w.replace('@', work.path());
        if (!words.isEmpty() && words[0].startsWith('#')) {
            gotOut += internalStep(words);
            status << "0";
            continue;
        }
        const CliRun run = runCli(words);
        status << QString::number(run.exitCode);
        gotOut += run.out;
        gotErr += run.err;
    }
    gotOut.replace(work.path(), "@");
    gotErr.replace(work.path(), "@");
    if (out.endsWith("..."))
        QVERIFY2(gotOut.startsWith(out.chopped(3)), qPrintable(gotOut));
    else
        QCOMPARE(gotOut, out);
    QCOMPARE(gotErr, err);
    QTEST(status.join(' '), "status");
}

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"

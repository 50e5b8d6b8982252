#include "creation/assistance.h"

#include <QtTest>

namespace {

const QString kDdsText = QStringLiteral(
    "* assistance * 'DDS format' selected, because all DDS files. and, Ver.3 BA2 can be created.");
const QString kMixedText =
    QStringLiteral("* Assistance * some files are not DDS, they cannot be archived in texture format.");
const QString kRecommendedText = QStringLiteral("* assistance * This is the recommended settings.");
const QString kNoCompressionText = QStringLiteral(
    "* assistance * 'No compression' selected, because some files do not work when compressed.(");

SourceList listOf(const QStringList& names)
{
    SourceList list;
    int n = 0;
    for (const QString& name : names) {
        // Distinct folders keep equal names apart.
        const QByteArray path = "/mods/data/f" + QByteArray::number(n++) + "/" + name.toLocal8Bit();
        std::optional<SourceEntry> e = makeSourceEntry(path, 6, defaultNameHashTable());
        if (e) list.append(std::move(*e));
    }
    return list;
}

}  // namespace

class TestAssistance : public QObject {
    Q_OBJECT
private slots:
    void rules_data();
    void rules();
    void groupedCount();
};

void TestAssistance::rules_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<bool>("assist");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("changed");
    QTest::addColumn<int>("format");   // expected settings
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("zlib");
    QTest::addColumn<int>("lz4");
    QTest::addColumn<bool>("ver3");
    QTest::addColumn<bool>("allCompressible");

    // Settings before every row: texture, version 1, zlib 5, LZ4 mode 2 — so every change shows.
    const QStringList dds{"a.dds", "b.dds"};
    QTest::newRow("all dds") << dds << true << "2 files " + kDdsText << true << 1 << 3 << 1 << 1 << true << true;
    QTest::newRow("all dds, assist off") << dds << false << "2 files " << false << 1 << 1 << 5 << 2 << true << true;
    QTest::newRow("one dds") << QStringList{"a.dds"} << true << "1 file " + kDdsText << true << 1 << 3 << 1 << 1
                             << true << true;
    QTest::newRow("dds and text") << QStringList{"a.dds", "b.txt"} << true << "2 files " + kMixedText << true << 0
                                  << 2 << 1 << 2 << false << true;
    QTest::newRow("dds and wem") << QStringList{"a.dds", "b.wem"} << true << "2 files " + kMixedText << true << 0
                                 << 2 << 0 << 2 << false << false;
    QTest::newRow("dds and pex") << QStringList{"a.dds", "s.pex"} << true << "2 files " + kMixedText << true << 0
                                 << 2 << 0 << 2 << false << false;
    QTest::newRow("mixed, assist off") << QStringList{"a.dds", "b.txt", "c.nif"} << false << "3 files " + kMixedText
                                       << false << 1 << 1 << 5 << 2 << false << true;
    QTest::newRow("no dds, compressible") << QStringList{"m.nif", "t.txt", "noext"} << true
                                          << "3 files " + kRecommendedText << true << 0 << 2 << 1 << 2 << false
                                          << true;
    QTest::newRow("no dds, assist off") << QStringList{"m.nif"} << false << "1 file " << false << 1 << 1 << 5 << 2
                                        << false << true;
    QTest::newRow("empty list") << QStringList{} << true << "0 file " + kRecommendedText << true << 0 << 2 << 1 << 2
                                << false << true;
    QTest::newRow("every sound kind") << QStringList{"a.wav", "b.xwm", "c.fuz", "d.wem", "e.txt"} << true
                                      << "5 files " + kNoCompressionText + ".wem.fuz.xwm.wav.swf)" << true << 0 << 2
                                      << 0 << 2 << false << false;
    QTest::newRow("fuz and wav") << QStringList{"v.fuz", "w.wav"} << true
                                 << "2 files " + kNoCompressionText + ".fuz.wav.swf)" << true << 0 << 2 << 0 << 2
                                 << false << false;
    QTest::newRow("wem only") << QStringList{"v.wem"} << true << "1 file " + kNoCompressionText + ".wem)" << true
                              << 0 << 2 << 0 << 2 << false << false;
    QTest::newRow("swf only") << QStringList{"ui.swf"} << true << "1 file " + kNoCompressionText + ")" << true << 0
                              << 2 << 0 << 2 << false << false;
    QTest::newRow("pex and swf") << QStringList{"s.pex", "ui.swf"} << true << "2 files " + kNoCompressionText + ")"
                                 << true << 0 << 2 << 0 << 2 << false << false;
    QTest::newRow("sounds, assist off") << QStringList{"v.wem"} << false << "1 file " << false << 1 << 1 << 5 << 2
                                        << false << false;
    // Only whole three-letter codes count: these are not textures.
    QTest::newRow("dds lookalikes") << QStringList{"a.ddsx", "b.dd", "dds", "c.dds.bak"} << true
                                    << "4 files " + kRecommendedText << true << 0 << 2 << 1 << 2 << false << true;
    QTest::newRow("dds with lookalike") << QStringList{"a.dds", "b.ddsx"} << true << "2 files " + kMixedText
                                        << true << 0 << 2 << 1 << 2 << false << true;
    QTest::newRow("wave lookalike") << QStringList{"a.wave", "b.we"} << true << "2 files " + kRecommendedText << true
                                    << 0 << 2 << 1 << 2 << false << true;
}

void TestAssistance::rules()
{
    QFETCH(QStringList, names);
    QFETCH(bool, assist);
    QFETCH(QString, message);
    QFETCH(bool, changed);
    QFETCH(int, format);
    QFETCH(int, version);
    QFETCH(int, zlib);
    QFETCH(int, lz4);
    QFETCH(bool, ver3);
    QFETCH(bool, allCompressible);

    const SourceList list = listOf(names);
    QCOMPARE(int(list.size()), names.size());
    CreationSettings current;
    current.archiveFormat = 1;
    current.archiveVersion = 1;
    current.zlibLevel = 5;
    current.lz4Mode = 2;
    const AssistanceResult r = assessSources(list, assist, current);
    QCOMPARE(r.message, message);
    QCOMPARE(r.settingsChanged, changed);
    QCOMPARE(r.settings.archiveFormat, format);
    QCOMPARE(r.settings.archiveVersion, version);
    QCOMPARE(r.settings.zlibLevel, zlib);
    QCOMPARE(r.settings.lz4Mode, lz4);
    QCOMPARE(r.ver3Enabled, ver3);
    QCOMPARE(r.allDds, ver3);
    QCOMPARE(r.allCompressible, allCompressible);
}

void TestAssistance::groupedCount()
{
    QStringList names;
    for (int i = 0; i < 1234; ++i) names << QStringLiteral("f%1.txt").arg(i);
    const AssistanceResult r = assessSources(listOf(names), false, CreationSettings());
    QCOMPARE(r.message, QStringLiteral("1,234 files "));
    QCOMPARE(r.settingsChanged, false);
}

QTEST_APPLESS_MAIN(TestAssistance)
#include "tst_assistance.moc"

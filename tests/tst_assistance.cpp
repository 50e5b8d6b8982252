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
};

void TestAssistance::rules_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<bool>("assist");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QVector<int>>("settings");  // format, version, zlib level, LZ4 mode afterwards
    QTest::addColumn<bool>("allDds");
    QTest::addColumn<bool>("allCompressible");
    // Settings before every row: texture, version 1, zlib 5, LZ4 mode 2, so every change shows.
    const QVector<int> kept{1, 1, 5, 2}, general{0, 2, 1, 2}, stored{0, 2, 0, 2};
    const QStringList dds{"a.dds", "b.dds"};
    QTest::newRow("all dds") << dds << true << "2 files " + kDdsText << QVector<int>{1, 3, 1, 1} << true << true;
    QTest::newRow("all dds, assist off") << dds << false << "2 files " << kept << true << true;
    QTest::newRow("dds and text") << QStringList{"a.dds", "b.txt"} << true << "2 files " + kMixedText << general << false << true;
    QTest::newRow("dds and wem") << QStringList{"a.dds", "b.wem"} << true << "2 files " + kMixedText << stored << false << false;
    QTest::newRow("dds and pex") << QStringList{"a.dds", "s.pex"} << true << "2 files " + kMixedText << stored << false << false;
    QTest::newRow("mixed, assist off") << QStringList{"a.dds", "b.txt", "c.nif"} << false << "3 files " + kMixedText << kept << false << true;
    QTest::newRow("no dds, compressible") << QStringList{"m.nif", "t.txt", "noext"} << true << "3 files " + kRecommendedText << general << false << true;
    QTest::newRow("no dds, assist off") << QStringList{"m.nif"} << false << "1 file " << kept << false << true;
    QTest::newRow("empty list") << QStringList{} << true << "0 file " + kRecommendedText << general << false << true;
    QTest::newRow("every sound kind") << QStringList{"a.wav", "b.xwm", "c.fuz", "d.wem", "e.txt"} << true << "5 files " + kNoCompressionText + ".wem.fuz.xwm.wav.swf)" << stored << false << false;
    QTest::newRow("fuz and wav") << QStringList{"v.fuz", "w.wav"} << true << "2 files " + kNoCompressionText + ".fuz.wav.swf)" << stored << false << false;
    QTest::newRow("swf only") << QStringList{"ui.swf"} << true << "1 file " + kNoCompressionText + ")" << stored << false << false;
    QTest::newRow("sounds, assist off") << QStringList{"v.xwm"} << false << "1 file " << kept << false << false;
    QStringList many;
    for (int i = 0; i < 1234; ++i) many << QStringLiteral("f%1.txt").arg(i);
    QTest::newRow("thousands grouped") << many << false << "1,234 files " << kept << false << true;
    // Only whole three-letter codes count: these are not textures.
    QTest::newRow("dds lookalikes") << QStringList{"a.ddsx", "b.dd", "dds", "c.dds.bak"} << true << "4 files " + kRecommendedText << general << false << true;
}

void TestAssistance::rules()
{
    QFETCH(QStringList, names);
    QFETCH(bool, assist);
    QFETCH(QVector<int>, settings);
    QFETCH(bool, allDds);
    const SourceList list = listOf(names);
    QCOMPARE(int(list.size()), names.size());
    CreationSettings current;
    current.archiveFormat = 1;
    current.archiveVersion = 1;
    current.zlibLevel = 5;
    current.lz4Mode = 2;
    const AssistanceResult r = assessSources(list, assist, current);
    QTEST(r.message, "message");
    QCOMPARE(r.settingsChanged, assist);  // every rule chooses settings when assisting
    const CreationSettings& s = r.settings;
    QCOMPARE((QVector<int>{s.archiveFormat, s.archiveVersion, s.zlibLevel, s.lz4Mode}), settings);
    QCOMPARE(r.ver3Enabled, allDds);
    QCOMPARE(r.allDds, allDds);
    QTEST(r.allCompressible, "allCompressible");
}

QTEST_APPLESS_MAIN(TestAssistance)
#include "tst_assistance.moc"

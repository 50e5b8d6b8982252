#include "creation/assistance.h"

#include <QtTest>

namespace {

const QString kDds
    = "* assistance * 'DDS format' selected, because all DDS files. and, Ver.3 BA2 can be created.";
const QString kMixed
    = "* Assistance * some files are not DDS, they cannot be archived in texture format.";
const QString kRecommended = "* assistance * This is the recommended settings.";
const QString kStored
    = "* assistance * 'No compression' selected, because some files do not work when compressed.(";

} // namespace

class TestAssistance : public QObject
{
    Q_OBJECT
private slots:
    void rules_data();
    void rules();
};

void TestAssistance::rules_data()
{
    QTest::addColumn<QString>("names"); // space-separated
    QTest::addColumn<bool>("assist");
    QTest::addColumn<QString>("message");
    // Format, version, zlib level and LZ4 mode afterwards, then all-DDS and all-compressible.
    QTest::addColumn<QVector<int>>("outcome");
    // Settings before every row: texture, version 1, zlib 5, LZ4 mode 2, so every change shows.
    const QVector<int> keptDds {1, 1, 5, 2, 1, 1}, kept {1, 1, 5, 2, 0, 1},
        keptSounds {1, 1, 5, 2, 0, 0};
    const QVector<int> general {0, 2, 1, 2, 0, 1}, stored {0, 2, 0, 2, 0, 0};
    QTest::newRow("all dds") << "a.dds b.dds" << true << "2 files " + kDds
                             << QVector<int> {1, 3, 1, 1, 1, 1};
    QTest::newRow("all dds, assist off") << "a.dds b.dds" << false << "2 files " << keptDds;
    QTest::newRow("dds and text") << "a.dds b.txt" << true << "2 files " + kMixed << general;
    QTest::newRow("dds and wem") << "a.dds b.wem" << true << "2 files " + kMixed << stored;
    QTest::newRow("dds and pex") << "a.dds s.pex" << true << "2 files " + kMixed << stored;
    QTest::newRow("mixed, assist off")
        << "a.dds b.txt c.nif" << false << "3 files " + kMixed << kept;
    QTest::newRow("no dds, compressible")
        << "m.nif t.txt noext" << true << "3 files " + kRecommended << general;
    QTest::newRow("no dds, assist off") << "m.nif" << false << "1 file " << kept;
    QTest::newRow("empty list") << "" << true << "0 file " + kRecommended << general;
    QTest::newRow("every sound kind") << "a.wav b.xwm c.fuz d.wem e.txt" << true
                                      << "5 files " + kStored + ".wem.fuz.xwm.wav.swf)" << stored;
    QTest::newRow("fuz and wav") << "v.fuz w.wav" << true << "2 files " + kStored + ".fuz.wav.swf)"
                                 << stored;
    QTest::newRow("swf only") << "ui.swf" << true << "1 file " + kStored + ")" << stored;
    QTest::newRow("sounds, assist off") << "v.xwm" << false << "1 file " << keptSounds;
    QStringList many;
    for (int i = 0; i < 1234; ++i)
        many << QStringLiteral("f%1.txt").arg(i);
    QTest::newRow("thousands grouped") << many.join(' ') << false << "1,234 files " << kept;
    // Only whole three-letter codes count: these are not textures.
    QTest::newRow("dds lookalikes")
        << "a.ddsx b.dd dds c.dds.bak" << true << "4 files " + kRecommended << general;
}

void TestAssistance::rules()
{
    QFETCH(QString, names);
    QFETCH(bool, assist);
    SourceList list;
    int n = 0;
    for (const QString& name : names.split(' ', Qt::SkipEmptyParts)) {
        // Distinct folders keep equal names apart.
        const QByteArray path = "/mods/data/f" + QByteArray::number(n++) + "/" + name.toLocal8Bit();
        list.append(*makeSourceEntry(path, 6, defaultNameHashTable()));
    }
    const AssistanceResult r = assessSources(list, assist, CreationSettings {1, 1, 5, 2});
    QTEST(r.message, "message");
    QCOMPARE(r.settingsChanged, assist); // every rule chooses settings when assisting
    QCOMPARE(r.ver3Enabled, r.allDds);
    const CreationSettings& s = r.settings;
    QTEST((QVector<int> {s.archiveFormat, s.archiveVersion, s.zlibLevel, s.lz4Mode, r.allDds,
                         r.allCompressible}),
          "outcome");
}

QTEST_APPLESS_MAIN(TestAssistance)
#include "tst_assistance.moc"

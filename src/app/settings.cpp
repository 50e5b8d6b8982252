// Zarnel.ini: read once at start-up with range checks, rewritten whole after every change.

#include "app/mainwindow.h"

#include <QFileInfo>
#include <QSettings>
#include <QStringList>

#include <cstdint>

namespace {

// Keys are matched regardless of case (older files spell the zlib key "ZlibCompressionLevel"),
// but Qt's INI backend on Linux matches exactly, so look for any spelling ourselves.
QString findKey(const QStringList& keys, const QString& name)
{
    if (keys.contains(name)) return name;
    const QString lower = name.toLower();
    for (const QString& key : keys) {
        if (key.toLower() == lower) return key;
    }
    return name;
}

int readInt(const QSettings& settings, const QStringList& keys, const QString& name)
{
    return settings.value(findKey(keys, name), 0).toInt();
}

QString readText(const QSettings& settings, const QStringList& keys, const QString& name)
{
    return settings.value(findKey(keys, name), QString()).toString();
}

// Writes one key and drops other spellings of it so the file holds it once.
void writeValue(QSettings& settings, const QStringList& keys, const QString& name,
                const QVariant& value)
{
    const QString lower = name.toLower();
    for (const QString& key : keys) {
        if (key != name && key.toLower() == lower) settings.remove(key);
    }
    settings.setValue(name, value);
}

// The file's values are compared as unsigned 32-bit numbers, so a negative one counts as too big.
bool above(int32_t value, uint32_t limit)
{
    return static_cast<uint32_t>(value) > limit;
}

} // namespace

void MainWindow::loadSettings()
{
    if (!QFileInfo::exists(iniFileName)) {
        archiveFormat = 0;
        archiveVersion = 1;
        zlibLevel = 1;
        lz4Mode = 1;
        createAssistance = 1;
        extractAllDir.clear();
        openArchiveDir.clear();
        createArchiveDir.clear();
        dropFileDir.clear();
        saveStringTable = 1;
        maxChunkCount = 4;
        singleMipChunkAreaWidth = 512;
        singleMipChunkAreaHeight = 512;
        listView = 1;
        theme = 1;
        saveSettings();
        return;
    }

    const QSettings settings(iniFileName, QSettings::IniFormat);
    const QStringList keys = settings.allKeys();
    bool changed = false;
    auto check = [&changed](int32_t& member, bool bad, int32_t replacement) {
        if (bad) {
            member = replacement;
            changed = true;
        }
    };

    archiveFormat = readInt(settings, keys, QStringLiteral("Format"));
    archiveVersion = readInt(settings, keys, QStringLiteral("Version"));
    zlibLevel = readInt(settings, keys, QStringLiteral("ZlibCompressionLevel"));
    check(zlibLevel, above(zlibLevel, 9), 1);
    lz4Mode = readInt(settings, keys, QStringLiteral("LZ4CompressionLevel"));
    check(lz4Mode, above(lz4Mode, 2), 1);
    createAssistance = readInt(settings, keys, QStringLiteral("CreateAssistance"));
    check(createAssistance, above(createAssistance, 1), 0);
    extractAllDir = readText(settings, keys, QStringLiteral("ExtractAllDir"));
    openArchiveDir = readText(settings, keys, QStringLiteral("OpenArchiveDir"));
    createArchiveDir = readText(settings, keys, QStringLiteral("CreateArchiveDir"));
    dropFileDir = readText(settings, keys, QStringLiteral("DropFileDir"));
    saveStringTable = readInt(settings, keys, QStringLiteral("SaveStringTable"));
    check(saveStringTable, saveStringTable != 1, 0);
    maxChunkCount = readInt(settings, keys, QStringLiteral("MaxChunkCount"));
    check(maxChunkCount, maxChunkCount != 4, 4);
    singleMipChunkAreaWidth = readInt(settings, keys, QStringLiteral("SingleMipChunkAreaWidth"));
    check(singleMipChunkAreaWidth, singleMipChunkAreaWidth != 512, 512);
    singleMipChunkAreaHeight = readInt(settings, keys, QStringLiteral("SingleMipChunkAreaHeight"));
    check(singleMipChunkAreaHeight, singleMipChunkAreaHeight != 512, 512);
    listView = readInt(settings, keys, QStringLiteral("ListView"));
    check(listView, above(listView, 2), 1);
    theme = readInt(settings, keys, QStringLiteral("Theme"));
    check(theme, above(theme, 1), 1);

    if (changed) saveSettings();
}

void MainWindow::saveSettings()
{
    QSettings settings(iniFileName, QSettings::IniFormat);
    const QStringList keys = settings.allKeys();
    writeValue(settings, keys, QStringLiteral("Format"), archiveFormat);
    writeValue(settings, keys, QStringLiteral("Version"), archiveVersion);
    writeValue(settings, keys, QStringLiteral("zlibCompressionLevel"), zlibLevel);
    writeValue(settings, keys, QStringLiteral("LZ4CompressionLevel"), lz4Mode);
    writeValue(settings, keys, QStringLiteral("CreateAssistance"), createAssistance);
    writeValue(settings, keys, QStringLiteral("ExtractAllDir"), extractAllDir);
    writeValue(settings, keys, QStringLiteral("OpenArchiveDir"), openArchiveDir);
    writeValue(settings, keys, QStringLiteral("CreateArchiveDir"), createArchiveDir);
    writeValue(settings, keys, QStringLiteral("DropFileDir"), dropFileDir);
    writeValue(settings, keys, QStringLiteral("SaveStringTable"), saveStringTable);
    writeValue(settings, keys, QStringLiteral("MaxChunkCount"), maxChunkCount);
    writeValue(settings, keys, QStringLiteral("SingleMipChunkAreaWidth"), singleMipChunkAreaWidth);
    writeValue(settings, keys, QStringLiteral("SingleMipChunkAreaHeight"),
               singleMipChunkAreaHeight);
    writeValue(settings, keys, QStringLiteral("ListView"), listView);
    writeValue(settings, keys, QStringLiteral("Theme"), theme);
    settings.sync();
}

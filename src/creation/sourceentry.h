#pragma once
// One gathered source file, the duplicate test, and the order files are written in.

#include "archive/format.h"

#include <QByteArray>
#include <QSet>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

struct SourceEntry
{
    QByteArray path; // whole lower-cased path, local 8-bit, '/' separators
    uint32_t pathLength = 0;
    uint32_t dirStart = 0;  // start of the relative directory part (== nameStart when none)
    uint32_t dirLength = 0; // its length without the trailing '/'; 0 when none
    uint32_t nameStart = 0; // after the last '/'
    uint32_t nameLength = 0;
    uint32_t extStart = 0; // after the last '.' of the name (== nameStart when none)
    uint32_t extLength = 0;
    uint32_t relStart = 0; // start of the archive-relative path
    uint32_t depth = 0;    // number of '/' in the relative path
    uint32_t nameHash = 0;
    uint32_t extension = 0; // first four extension bytes, little-endian, zero-padded
    uint32_t directoryHash = 0;
    QByteArray sortKey;              // relative path with '_' replaced by '|'
    uint64_t chunkTablePosition = 0; // writer scratch
    uint8_t chunkCount = 0;          // writer scratch
    QString sourceFile;              // the real (case-preserving) path used to open the file

    const char* relativePath() const { return path.constData() + relStart; }
    uint32_t relativeLength() const { return pathLength - relStart; }
    QByteArray relativePathBytes() const { return path.mid(int(relStart)); }
};

// Builds an entry from a lower-cased path in the local 8-bit encoding. rootPrefix is the
// position where the archive-relative path starts (0: the bare file name). Returns nothing
// for a path without a '/' or with an empty file name, for a rootPrefix past the start of the
// file name, or when the relative path is too long for a name-table entry (over 65,535 bytes).
std::optional<SourceEntry> makeSourceEntry(const QByteArray& pathBytes, uint32_t rootPrefix,
                                           const NameHashTable& table);

bool sourceEntryLess(const SourceEntry& a, const SourceEntry& b);

// The gathered files plus an index of their relative paths, so the duplicate test is a hash
// lookup rather than a walk over every entry.
class SourceList
{
public:
    bool containsSource(const QString& key) const; // key: archive-relative path
    // The same test on the local 8-bit bytes of the relative path.
    bool containsRelativePath(const QByteArray& relativePath) const;
    void append(SourceEntry entry);
    void sortSources();
    void releaseSources();
    bool isEmpty() const { return entries.empty(); }
    size_t size() const { return entries.size(); }
    SourceEntry& operator[](size_t i) { return entries[i]; }
    const SourceEntry& operator[](size_t i) const { return entries[i]; }
    std::vector<SourceEntry>::iterator begin() { return entries.begin(); }
    std::vector<SourceEntry>::iterator end() { return entries.end(); }
    std::vector<SourceEntry>::const_iterator begin() const { return entries.begin(); }
    std::vector<SourceEntry>::const_iterator end() const { return entries.end(); }

    std::vector<SourceEntry> entries;

private:
    QSet<QByteArray> keys;
};

#include "creation/sourceentry.h"

#include <algorithm>
#include <cstring>

namespace {

// A name-table entry stores its length in 16 bits.
constexpr uint32_t kMaxRelativeLength = 0xFFFF;

} // namespace

std::optional<SourceEntry> makeSourceEntry(const QByteArray& pathBytes, uint32_t rootPrefix,
                                           const NameHashTable& table)
{
    const char* p = pathBytes.constData();
    const uint32_t length = uint32_t(pathBytes.size());

    // The last '/' starts the file name. Position 0 counts as well: on Linux a file directly
    // in the file-system root ("/x.dds") is a real file, not a path without a folder.
    int slash = -1;
    for (int i = int(length) - 1; i >= 0; --i) {
        if (p[i] == '/') {
            slash = i;
            break;
        }
    }
    if (slash < 0 || uint32_t(slash) == length - 1) return std::nullopt;

    SourceEntry e;
    e.path = pathBytes;
    e.pathLength = length;
    e.nameStart = uint32_t(slash) + 1;
    e.nameLength = length - e.nameStart;

    // A prefix can only end at or before the file name; anything else is a caller error.
    if (rootPrefix > e.nameStart) return std::nullopt;

    e.extStart = e.nameStart;
    for (uint32_t i = length; i-- > e.nameStart;) {
        if (p[i] == '.') {
            e.extStart = i + 1;
            e.extLength = length - e.extStart;
            break;
        }
    }
    for (uint32_t i = 0; i < 4 && i < e.extLength; ++i)
        e.extension |= uint32_t(uint8_t(p[e.extStart + i])) << (8 * i);

    const bool hasDot = e.extStart != e.nameStart;
    const uint32_t stemLength = hasDot ? e.nameLength - e.extLength - 1 : e.nameLength;
    e.nameHash = NameHash(table, p + e.nameStart, stemLength);

    if (rootPrefix == 0 || rootPrefix == e.nameStart) {
        e.relStart = e.dirStart = e.nameStart;
        e.dirLength = 0;
        e.depth = 0;
        e.directoryHash = 0;
    } else {
        e.relStart = e.dirStart = rootPrefix;
        e.dirLength = e.nameStart - rootPrefix - 1;
        e.directoryHash = NameHash(table, p + e.dirStart, e.dirLength, true);
        // Counted here rather than taken from the hash, whose count is 8-bit.
        e.depth = 1 + uint32_t(std::count(p + e.dirStart, p + e.dirStart + e.dirLength, '/'));
    }
    if (length - e.relStart > kMaxRelativeLength) return std::nullopt;

    e.sortKey = pathBytes.mid(int(e.relStart));
    e.sortKey.replace('_', '|');
    return e;
}

// Depth-first archive order: within a folder its files come first, then its subfolders in
// name order; '/' ends a folder name before any other byte; bytes compare as signed chars.
bool sourceEntryLess(const SourceEntry& a, const SourceEntry& b)
{
    const char* ka = a.sortKey.constData();
    const char* kb = b.sortKey.constData();
    const uint32_t la = uint32_t(a.sortKey.size());
    const uint32_t lb = uint32_t(b.sortKey.size());
    uint32_t i = 0;
    while (i < la && i < lb && ka[i] == kb[i])
        ++i;

    const bool endA = i == la;
    const bool endB = i == lb;
    if (endA && endB) return false;
    if (endA) return true;
    if (endB) return false;

    // No '/' from i on means the key is inside its file name there; the last '/' of a
    // relative path stands just before the file name.
    const bool fileA = i >= a.nameStart - a.relStart;
    const bool fileB = i >= b.nameStart - b.relStart;
    if (fileA != fileB) return fileA;

    if (ka[i] == '/') return true;
    if (kb[i] == '/') return false;
    return static_cast<signed char>(ka[i]) < static_cast<signed char>(kb[i]);
}

bool SourceList::containsSource(const QString& key) const
{
    return containsRelativePath(key.toLocal8Bit());
}

bool SourceList::containsRelativePath(const QByteArray& relativePath) const
{
    return keys.contains(relativePath);
}

void SourceList::append(SourceEntry entry)
{
    keys.insert(entry.relativePathBytes());
    entries.push_back(std::move(entry));
}

void SourceList::sortSources()
{
    std::sort(entries.begin(), entries.end(), sourceEntryLess);
}

void SourceList::releaseSources()
{
    entries.clear();
    entries.shrink_to_fit();
    keys.clear();
}

#include "archive/namelisting.h"

#include "archive/archivereader.h"

#include <QString>

#include <algorithm>
#include <cstring>

void appendNameUtf8(QByteArray& out, const char* name)
{
    const size_t length = std::strlen(name);
    unsigned char high = 0;
    for (size_t k = 0; k < length; ++k)
        high |= static_cast<unsigned char>(name[k]);
    if (high < 0x80)
        out.append(name, int(length));
    else
        out.append(QString::fromUtf8(name, int(length)).toUtf8());
}

QByteArray nameListing(const ArchiveReader& reader)
{
    size_t total = 0;
    for (const FileRecord& r : reader.records)
        total += size_t(r.nameEntryLength) + 1;
    QByteArray out;
    // A name with a NUL inside is cut there, so the entry lengths bound the ASCII output.
    out.reserve(int(std::min<size_t>(total, size_t(INT32_MAX) / 2)));
    for (const FileRecord& r : reader.records) {
        appendNameUtf8(out, r.name);
        out.append('\n');
    }
    return out;
}

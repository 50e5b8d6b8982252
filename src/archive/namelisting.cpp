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
    // Archives name their files in ASCII: then the listing is the names copied into one buffer
    // of the exact size, without any conversion.
    size_t total = 0;
    unsigned char high = 0;
    for (const FileRecord& r : reader.records) {
        const size_t length = std::strlen(r.name);
        for (size_t k = 0; k < length; ++k)
            high |= static_cast<unsigned char>(r.name[k]);
        total += length + 1;
    }
    QByteArray out;
    if (high < 0x80 && total <= size_t(INT32_MAX)) {
        out.resize(int(total));
        char* p = out.data();
        for (const FileRecord& r : reader.records) {
            const size_t length = std::strlen(r.name);
            std::memcpy(p, r.name, length);
            p[length] = '\n';
            p += length + 1;
        }
        return out;
    }
    out.reserve(int(std::min<size_t>(total, size_t(INT32_MAX) / 2)));
    for (const FileRecord& r : reader.records) {
        appendNameUtf8(out, r.name);
        out.append('\n');
    }
    return out;
}

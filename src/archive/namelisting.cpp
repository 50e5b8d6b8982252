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

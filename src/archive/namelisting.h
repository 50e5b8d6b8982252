#pragma once
// The stored names of an opened archive as output bytes, built in one buffer so that a listing
// of many thousands of names costs one write.

#include <QByteArray>

class ArchiveReader;

// Appends a stored name as UTF-8: its own bytes when they are plain ASCII (no conversion at
// all), otherwise exactly what QString::fromUtf8(name).toUtf8() gives (every malformed
// sequence becomes U+FFFD), so the output is always valid UTF-8.
void appendNameUtf8(QByteArray& out, const char* name);

// Every stored name in record order, each followed by '\n'.
QByteArray nameListing(const ArchiveReader& reader);

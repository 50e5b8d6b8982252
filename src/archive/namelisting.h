#pragma once
// Stored names as output bytes.

#include <QByteArray>

// Appends a stored name as UTF-8: its own bytes when they are plain ASCII (no conversion at
// all), otherwise exactly what QString::fromUtf8(name).toUtf8() gives (every malformed
// sequence becomes U+FFFD), so the output is always valid UTF-8.
void appendNameUtf8(QByteArray& out, const char* name);

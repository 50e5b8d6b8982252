#pragma once
// How every zarnel-cli command speaks: results on stdout, one per line; complaints on stderr
// behind the command's name; usage errors end with a pointer to the help and exit status 2.

#include "archive/namelisting.h"

#include <QByteArray>
#include <QString>

#include <cstdio>

inline void printOut(const QString& text)
{
    std::fputs(text.toUtf8().constData(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

// who: "zarnel-cli" or "zarnel-cli create".
inline void printErr(const char* who, const QString& text)
{
    std::fprintf(stderr, "%s: %s\n", who, text.toUtf8().constData());
}

inline int usageError(const char* who, const QString& text)
{
    printErr(who, text);
    std::fprintf(stderr, "Try '%s --help' for more information.\n", who);
    return 2;
}

// Many lines on stdout (a listing) gathered into large writes instead of one per line.
class LineWriter
{
public:
    LineWriter() { buffer.reserve(kChunk + 4096); }
    ~LineWriter() { flush(); }
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    LineWriter& add(const char* text, size_t length)
    {
        buffer.append(text, int(length));
        return *this;
    }
    LineWriter& add(const char* text) { return add(text, std::char_traits<char>::length(text)); }
    LineWriter& add(const QByteArray& text) { return add(text.constData(), size_t(text.size())); }
    LineWriter& add(const QString& text) { return add(text.toUtf8()); }
    // A stored name, as valid UTF-8 whatever its bytes.
    LineWriter& addName(const char* name)
    {
        appendNameUtf8(buffer, name);
        return *this;
    }
    LineWriter& add(char c)
    {
        buffer.append(c);
        return *this;
    }
    // Digits by hand: a listing prints two numbers per line, and snprintf would cost more than
    // everything else on the line together.
    LineWriter& add(unsigned long long number)
    {
        char digits[24];
        char* end = digits + sizeof digits;
        char* p = end;
        do {
            *--p = char('0' + number % 10);
            number /= 10;
        } while (number != 0);
        return add(p, size_t(end - p));
    }
    // Ends a line; writes out what has gathered once it is large.
    void endLine()
    {
        buffer.append('\n');
        if (buffer.size() >= kChunk) flush();
    }
    void flush()
    {
        if (!buffer.isEmpty()) std::fwrite(buffer.constData(), 1, size_t(buffer.size()), stdout);
        std::fflush(stdout);
        buffer.resize(0); // keeps the room reserved
    }

private:
    static constexpr int kChunk = 1 << 16;
    QByteArray buffer;
};

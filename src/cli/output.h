#pragma once
// How every zarnel-cli command speaks: results on stdout, one per line; complaints on stderr
// behind the command's name; usage errors end with a pointer to the help and exit status 2.

#include "archive/namelisting.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

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
    LineWriter()
        : buffer(new char[kCapacity])
    { }
    ~LineWriter() { flush(); }
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    LineWriter& add(const char* text, size_t length)
    {
        if (length > kCapacity - used) {
            flush();
            if (length > kCapacity) {
                std::fwrite(text, 1, length, stdout);
                return *this;
            }
        }
        std::memcpy(buffer.get() + used, text, length);
        used += length;
        return *this;
    }
    LineWriter& add(const char* text) { return add(text, std::strlen(text)); }
    LineWriter& add(const QByteArray& text) { return add(text.constData(), size_t(text.size())); }
    LineWriter& add(const QString& text) { return add(text.toUtf8()); }
    // A stored name, as valid UTF-8 whatever its bytes.
    LineWriter& addName(const char* name)
    {
        const size_t length = std::strlen(name);
        // Eight bytes at a time: the scan is most of the work of a plain listing.
        uint64_t high = 0;
        size_t k = 0;
        for (uint64_t word; k + 8 <= length; k += 8) {
            std::memcpy(&word, name + k, 8);
            high |= word;
        }
        for (; k < length; ++k)
            high |= static_cast<unsigned char>(name[k]);
        if (!(high & 0x8080808080808080u)) return add(name, length);
        QByteArray converted;
        appendNameUtf8(converted, name);
        return add(converted);
    }
    LineWriter& add(char c) { return add(&c, 1); }
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
    // Ends a line; the buffer goes out whenever it is full.
    void endLine() { add('\n'); }
    void flush()
    {
        if (used) std::fwrite(buffer.get(), 1, used, stdout);
        std::fflush(stdout);
        used = 0;
    }

private:
    static constexpr size_t kCapacity = size_t(1) << 16;
    std::unique_ptr<char[]> buffer;
    size_t used = 0;
};

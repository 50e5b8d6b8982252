#pragma once
// How every zarnel-cli command speaks: results on stdout, one per line; complaints on stderr
// behind the command's name; usage errors end with a pointer to the help and exit status 2.

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

#pragma once
// Option parsing shared by the commands: --jobs for all, and the options that choose how an
// archive is written for the commands that write one.

#include "creation/codecs.h"

#include <QStringList>

#include <functional>
#include <optional>

class Command;

// Takes every "--jobs N", "-j N" and "--jobs=N" out of args (before or after the command).
// Returns false after a usage error.
bool takeJobsOption(QStringList& args, int& jobs);

// Walks the arguments of a command whose options take values: "--name=value" and "--name
// value" go to take(name, value), which returns false after a usage error; everything else
// ("-" and all after "--" included) goes to operands. Returns -1 to go on, or the exit
// status to end with: 0 after -h/--help printed the command's help, 2 after a usage error.
int parseOptions(const QStringList& args, const Command& command, const QStringList& valueOptions,
                 const std::function<bool(const QString&, const QString&)>& take,
                 QStringList& operands);

// How an archive is written; a setting left out is chosen by the creation assistance.
struct WriteOptions
{
    std::optional<int> format; // 0 general, 1 texture
    std::optional<int> version;
    std::optional<int> zlib;
    std::optional<int> lz4;
    ZlibEngine engine = ZlibEngine::Auto;

    // --format, --version, --zlib, --lz4, --zlib-engine.
    static const QStringList& names();
    // name is one of names(). Returns false after a usage error said by who.
    bool take(const QString& name, const QString& value, const char* who);
};

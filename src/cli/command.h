#pragma once
// A zarnel-cli command: its name, its help, and what it does. Every command lives in its own
// cmd_NAME.cpp and is listed once in commands.cpp; the dispatcher and both kinds of --help
// are built from that list.

#include <QStringList>

#include <vector>

class ArchiveReader;
class Progress;

class Command
{
public:
    virtual ~Command() = default;
    virtual const char* name() const = 0;
    // The arguments after the name, as the command list of --help shows them.
    virtual const char* synopsis() const = 0;
    // One line for the command list of --help.
    virtual const char* summary() const = 0;
    // The whole text of "zarnel-cli COMMAND --help".
    virtual const char* help() const = 0;
    // True when run() reads -h/--help itself (among options that take values); otherwise the
    // dispatcher answers it wherever it appears.
    virtual bool parsesHelp() const { return false; }
    // args: everything after the command's name, --jobs already taken out; jobs: its value.
    // Returns the exit status: 0 success, 1 failure, 2 usage error (as each help says).
    virtual int run(const QStringList& args, int jobs) const = 0;
};

// Every command, in the order the help lists them.
const std::vector<const Command*>& commands();
const Command* findCommand(const QString& name);

// The text of "zarnel-cli --help".
QByteArray programHelp();

// Opens an archive as the window does; on failure says why on stderr and returns false.
bool openArchive(ArchiveReader& reader, const QString& path, Progress& progress);

// The record indexes, ascending, whose stored names match any of the patterns (every record
// when there are none).
std::vector<uint32_t> matchingRecords(const ArchiveReader& reader, const QStringList& patterns);
// Says that no stored name matched; returns the exit status for it.
int noMatch();

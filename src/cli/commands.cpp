#include "cli/command.h"

#include "archive/archivereader.h"
#include "archive/namepattern.h"
#include "cli/output.h"

// One line per command, in the order --help lists them; cmd_NAME.cpp defines NAMECommand().
#define ZARNEL_CLI_COMMANDS(X) \
    X(info) \
    X(list) \
    X(extract) \
    X(verify) \
    X(create) \
    X(convert) \
    X(diff)

#define ZARNEL_DECLARE_COMMAND(name) const Command& name##Command();
ZARNEL_CLI_COMMANDS(ZARNEL_DECLARE_COMMAND)
#define ZARNEL_LIST_COMMAND(name) &name##Command(),

const std::vector<const Command*>& commands()
{
    static const std::vector<const Command*> all = {ZARNEL_CLI_COMMANDS(ZARNEL_LIST_COMMAND)};
    return all;
}

const Command* findCommand(const QString& name)
{
    for (const Command* command : commands())
        if (name == QLatin1String(command->name())) return command;
    return nullptr;
}

QByteArray programHelp()
{
    // The one-line help starts in this column, or on the next line below a long synopsis.
    const int column = 32;
    QByteArray text = "Usage: zarnel-cli COMMAND [ARGS]\n\nCommands:\n";
    for (const Command* command : commands()) {
        QByteArray line = QByteArray("  ") + command->name() + ' ' + command->synopsis();
        if (line.size() < column)
            line += QByteArray(column - line.size(), ' ');
        else
            line += '\n' + QByteArray(column, ' ');
        text += line + command->summary() + '\n';
    }
    text += "\n"
            "Options:\n"
            "  -j, --jobs N                  worker threads for extract, verify, create and\n"
            "                                convert (default: one per core)\n"
            "  -h, --help                    show this help (also: zarnel-cli COMMAND --help)\n"
            "  --version                     show the program version and its codec libraries\n"
            "\n"
            "Exit status: 0 success, 1 failure, 2 usage error.\n";
    return text;
}

bool openArchive(ArchiveReader& reader, const QString& path, Progress& progress)
{
    if (reader.open(path, progress)) return true;
    printErr("zarnel-cli", QStringLiteral("%1: %2").arg(path, reader.errorText()));
    return false;
}

std::vector<uint32_t> matchingRecords(const ArchiveReader& reader, const QStringList& patterns)
{
    const std::vector<NamePattern> compiled = NamePattern::compile(patterns);
    std::vector<uint32_t> files;
    for (uint32_t i = 0; i < reader.fileCount; ++i)
        if (NamePattern::anyMatches(compiled, reader.records[i].name)) files.push_back(i);
    return files;
}

int noMatch()
{
    printErr("zarnel-cli", QStringLiteral("no stored name matches"));
    return 1;
}

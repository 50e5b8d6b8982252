// zarnel-cli convert [OPTIONS] -o OUT ARCHIVE

#include "archive/archivereader.h"
#include "archive/status.h"
#include "cli/command.h"
#include "cli/options.h"
#include "cli/output.h"
#include "cli/terminalprogress.h"
#include "creation/converter.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <optional>

namespace {

const char kWho[] = "zarnel-cli convert";

std::atomic<bool> interrupted {false};

void interrupt(int)
{
    interrupted.store(true);
}

// The terminal line, and a cancel once Ctrl-C or a termination request arrives: the converter
// then stops between blocks and removes what it wrote.
class InterruptibleProgress : public TerminalProgress
{
public:
    using TerminalProgress::TerminalProgress;
    bool wasCanceled() override { return interrupted.load(); }
};

class Convert : public Command
{
public:
    const char* name() const override { return "convert"; }
    const char* synopsis() const override { return "[OPTIONS] -o OUT ARCHIVE"; }
    const char* summary() const override
    {
        return "rewrite an archive with another version or compression";
    }
    const char* help() const override
    {
        return "Usage: zarnel-cli convert [OPTIONS] -o OUT ARCHIVE\n"
               "\n"
               "Rewrites ARCHIVE as OUT with another version and/or compression, without\n"
               "extracting it: the same files, names, record order, texture fields and chunks.\n"
               "Versions 1, 2, 7 and 8 hold zlib blocks, version 3 LZ4 blocks. Without a level,\n"
               "a block whose codec stays is copied as stored, and one that must change codec\n"
               "is compressed as create would (zlib 1, LZ4 mode 1); stored blocks stay stored.\n"
               "Between versions 1, 7 and 8 only the version field changes. OUT may be ARCHIVE:\n"
               "the new archive is written beside it and renamed at the end; a failure or an\n"
               "interruption leaves both as they were. BSA archives are not converted.\n"
               "\n"
               "Options:\n"
               "  -o, --output OUT           the archive to write (required)\n"
               "  --version 1|2|3|7|8        archive version (default: the archive's own)\n"
               "  --zlib 0-9                 re-compress every block at this zlib level\n"
               "                             (versions 1, 2, 7, 8; 0: no compression)\n"
               "  --lz4 0|1|2                re-compress every block in this LZ4 mode\n"
               "                             (version 3; 0: none, 1: default, 2: close to\n"
               "                             Bethesda, 1 GB table)\n"
               "  -j, --jobs N               threads that decode and compress (default: one\n"
               "                             per core); the archive is the same for any number\n"
               "  -h, --help                 show this help\n"
               "\n"
               "Prints Complete. or the failure. Exit status: 0 complete, 1 failure, 2 usage "
               "error.\n";
    }
    bool parsesHelp() const override { return true; }
    int run(const QStringList& args, int jobs) const override;
};

ArchiveStatus readFailure(SaveStatus status)
{
    switch (status) {
    case SaveStatus::Lz4Error: return ArchiveStatus::Lz4Error;
    case SaveStatus::ZlibError: return ArchiveStatus::ZlibError;
    default: return ArchiveStatus::FileReadError;
    }
}

std::optional<int> choice(const QString& text, std::initializer_list<int> allowed)
{
    bool ok = false;
    const int v = text.toInt(&ok);
    if (!ok || text.trimmed() != text
        || std::find(allowed.begin(), allowed.end(), v) == allowed.end())
        return std::nullopt;
    return v;
}

int Convert::run(const QStringList& args, int jobs) const
{
    ConvertSettings settings;
    settings.jobs = jobs;
    QString output;
    QStringList operands;
    const int parsed = parseOptions(
        args, *this,
        {QStringLiteral("-o"), QStringLiteral("--output"), QStringLiteral("--version"),
         QStringLiteral("--zlib"), QStringLiteral("--lz4")},
        [&](const QString& name, const QString& value) {
            std::optional<int> v;
            if (name == QLatin1String("--version")) {
                v = choice(value, {1, 2, 3, 7, 8});
                if (v) settings.version = *v;
            } else if (name == QLatin1String("--zlib")) {
                v = choice(value, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
                if (v) settings.zlibLevel = *v;
            } else if (name == QLatin1String("--lz4")) {
                v = choice(value, {0, 1, 2});
                if (v) settings.lz4Mode = *v;
            } else if (!value.isEmpty()) {
                output = value;
                return true;
            } else {
                usageError(kWho, QStringLiteral("the archive name is empty"));
                return false;
            }
            if (!v) {
                const char* takes = name == QLatin1String("--version") ? "1, 2, 3, 7 or 8"
                    : name == QLatin1String("--zlib")                  ? "0 to 9"
                                                                       : "0, 1 or 2";
                usageError(kWho, QStringLiteral("%1 takes %2, not '%3'").arg(name, takes, value));
            }
            return bool(v);
        },
        operands);
    if (parsed >= 0) return parsed;
    if (output.isEmpty()) return usageError(kWho, QStringLiteral("no archive named (-o OUT)"));
    if (operands.size() != 1) return usageError(kWho, QStringLiteral("name exactly one ARCHIVE"));

    ArchiveReader reader;
    TerminalProgress reading("Reading");
    if (!openArchive(reader, operands[0], reading)) {
        printOut(reader.errorText());
        return 1;
    }
    reading.finish();
    if (reader.isBsa) {
        printErr(kWho,
                 QStringLiteral("%1: a BSA archive cannot be converted (convert rewrites "
                                "BA2 archives only)")
                     .arg(operands[0]));
        return 1;
    }
    const bool lz4 = (settings.version ? settings.version : int(reader.version)) == 3;
    if (lz4 ? settings.zlibLevel >= 0 : settings.lz4Mode >= 0)
        return usageError(kWho,
                          lz4 ? QStringLiteral("a version-3 archive holds LZ4 blocks: "
                                               "--lz4 sets their mode, not --zlib")
                              : QStringLiteral("this version holds zlib blocks: --zlib "
                                               "sets their level, not --lz4"));

    interrupted.store(false);
    const auto oldInt = std::signal(SIGINT, interrupt);
    const auto oldTerm = std::signal(SIGTERM, interrupt);
    InterruptibleProgress progress("Converting");
    const ConvertResult r = convertArchive(reader, output, settings, progress);
    progress.finish();
    std::signal(SIGINT, oldInt);
    std::signal(SIGTERM, oldTerm);

    if (!isFailure(r.status)) {
        printOut(outcomeText(r.status));
        return r.status == SaveStatus::Complete ? 0 : 1;
    }
    // A fault of the archive is worded as extraction words it, one of the output as creation.
    printOut(r.reading ? failureLine(readFailure(r.status)) : failureLine(r.status));
    if (!r.failedName.isEmpty()) printErr(kWho, QStringLiteral("failed at: %1").arg(r.failedName));
    return 1;
}

} // namespace

const Command& convertCommand()
{
    static const Convert command;
    return command;
}

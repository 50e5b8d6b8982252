// zarnel-cli extract ARCHIVE DIR [PATTERN...]

#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "archive/status.h"
#include "cli/command.h"
#include "cli/output.h"
#include "cli/terminalprogress.h"

namespace {

class Extract : public Command
{
public:
    const char* name() const override { return "extract"; }
    const char* synopsis() const override { return "ARCHIVE DIR [PATTERN...]"; }
    const char* summary() const override
    {
        return "extract every file, or those matching, into the existing folder DIR";
    }
    const char* help() const override
    {
        return "Usage: zarnel-cli extract ARCHIVE DIR [PATTERN...]\n\nExtracts every file into "
               "DIR, which must exist,\n"
               "or only the files whose stored names match a PATTERN (see zarnel-cli list "
               "--help);\n"
               "existing files are overwritten. Prints Complete. or the failure.\n"
               "Exit status: 0 complete, 1 failure or nothing matched, 2 usage error.\n";
    }
    int run(const QStringList& args, int jobs) const override;
};

int Extract::run(const QStringList& args, int jobs) const
{
    if (args.size() < 2)
        return usageError("zarnel-cli", QStringLiteral("extract takes ARCHIVE and DIR"));
    ArchiveReader reader;
    TerminalProgress progress("Reading");
    if (!openArchive(reader, args[0], progress)) return 1;
    progress.finish();
    const QStringList patterns = args.mid(2);
    std::vector<uint32_t> selection;
    if (!patterns.isEmpty()) {
        selection = matchingRecords(reader, patterns);
        if (selection.empty()) return noMatch();
    }
    TerminalProgress extracting("Extracting");
    const ExtractResult result = extractArchive(reader, args[1], extracting, jobs,
                                                patterns.isEmpty() ? nullptr : &selection);
    extracting.finish();
    if (result.status == ArchiveStatus::Complete || result.status == ArchiveStatus::Aborted) {
        printOut(outcomeText(result.status));
    } else {
        printOut(failureLine(result.status));
        if (!result.failedName.isEmpty())
            printErr("zarnel-cli", QStringLiteral("failed at: %1").arg(result.failedName));
        if (result.status == ArchiveStatus::SystemError)
            printErr("zarnel-cli", QStringLiteral("%1: no such folder").arg(args[1]));
    }
    return result.status == ArchiveStatus::Complete ? 0 : 1;
}

} // namespace

const Command& extractCommand()
{
    static const Extract command;
    return command;
}

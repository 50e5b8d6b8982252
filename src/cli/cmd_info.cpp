// zarnel-cli info ARCHIVE

#include "archive/archivereader.h"
#include "cli/command.h"
#include "cli/output.h"

namespace {

class Info : public Command
{
public:
    const char* name() const override { return "info"; }
    const char* synopsis() const override { return "ARCHIVE"; }
    const char* summary() const override
    {
        return "print version and file count, format, compression";
    }
    const char* help() const override
    {
        return "Usage: zarnel-cli info ARCHIVE\n\nPrints the archive's three information lines.\n"
               "Exit status: 0 success, 1 not a readable archive, 2 usage error.\n";
    }
    int run(const QStringList& args, int) const override
    {
        if (args.size() != 1)
            return usageError("zarnel-cli", QStringLiteral("info takes exactly one ARCHIVE"));
        ArchiveReader reader;
        NullProgress quiet;
        if (!openArchive(reader, args[0], quiet)) return 1;
        printOut(archiveInfoLine1(reader));
        printOut(archiveInfoLine2(reader));
        printOut(archiveInfoLine3(reader));
        return 0;
    }
};

} // namespace

const Command& infoCommand()
{
    static const Info command;
    return command;
}

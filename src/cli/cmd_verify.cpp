// zarnel-cli verify ARCHIVE

#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "cli/command.h"
#include "cli/output.h"

namespace {

class Verify : public Command
{
public:
    const char* name() const override { return "verify"; }
    const char* synopsis() const override { return "ARCHIVE"; }
    const char* summary() const override { return "decode every block in memory and check it"; }
    const char* help() const override
    {
        return "Usage: zarnel-cli verify ARCHIVE\n\nDecodes every block in memory and checks "
               "every size and\n"
               "texture format. Prints OK or the first fault.\n"
               "Exit status: 0 OK, 1 fault, 2 usage error.\n";
    }
    int run(const QStringList& args, int jobs) const override
    {
        if (args.size() != 1)
            return usageError("zarnel-cli", QStringLiteral("verify takes exactly one ARCHIVE"));
        ArchiveReader reader;
        NullProgress quiet;
        if (!openArchive(reader, args[0], quiet)) return 1;
        QString fault;
        const bool ok = verifyArchive(reader, fault, jobs);
        printOut(ok ? QStringLiteral("OK") : fault);
        return ok ? 0 : 1;
    }
};

} // namespace

const Command& verifyCommand()
{
    static const Verify command;
    return command;
}

// zarnel-cli list ARCHIVE

#include "archive/archivereader.h"
#include "archive/namelisting.h"
#include "cli/command.h"
#include "cli/output.h"

namespace {

class List : public Command
{
public:
    const char* name() const override { return "list"; }
    const char* synopsis() const override { return "ARCHIVE"; }
    const char* summary() const override { return "print every stored name in record order"; }
    const char* help() const override
    {
        return "Usage: zarnel-cli list ARCHIVE\n\nPrints every stored name in record order.\n"
               "Exit status: 0 success, 1 not a readable archive, 2 usage error.\n";
    }
    int run(const QStringList& args, int) const override
    {
        if (args.size() != 1)
            return usageError("zarnel-cli", QStringLiteral("list takes exactly one ARCHIVE"));
        ArchiveReader reader;
        NullProgress quiet;
        if (!openArchive(reader, args[0], quiet)) return 1;
        const QByteArray names = nameListing(reader);
        std::fwrite(names.constData(), 1, size_t(names.size()), stdout);
        std::fflush(stdout);
        return 0;
    }
};

} // namespace

const Command& listCommand()
{
    static const List command;
    return command;
}

// zarnel-cli: the archive engine without the window, for scripts and batch work.

#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "archive/namelisting.h"
#include "archive/status.h"
#include "cli/output.h"
#include "cli/terminalprogress.h"

#include "cli/cmd_create.h"

#include <QCoreApplication>
#include <QStringList>
#include <QTextStream>

#include <csignal>

#include <cstdio>

namespace {

const char* const kUsage
    = "Usage: zarnel-cli COMMAND [ARGS]\n"
      "\n"
      "Commands:\n"
      "  info ARCHIVE                  print version and file count, format, compression\n"
      "  list ARCHIVE                  print every stored name in record order\n"
      "  extract ARCHIVE DIR           extract every file into the existing folder DIR\n"
      "  verify ARCHIVE                decode every block in memory and check it\n"
      "  create [OPTIONS] -o ARCHIVE PATH...\n"
      "                                build an archive from files and folders\n"
      "\n"
      "Options:\n"
      "  -j, --jobs N                  worker threads for extract, verify and create\n"
      "                                (default: one per core)\n"
      "  -h, --help                    show this help (also: zarnel-cli COMMAND --help)\n"
      "  --version                     show the program version\n"
      "\n"
      "Exit status: 0 success, 1 failure, 2 usage error.\n";

bool openArchive(ArchiveReader& reader, const QString& path, Progress& progress)
{
    if (reader.open(path, progress)) return true;
    printErr("zarnel-cli", QStringLiteral("%1: %2").arg(path, reader.errorText()));
    return false;
}

int commandHelp(const QString& command)
{
    static const QHash<QString, const char*> help = {
        {"info",
         "Usage: zarnel-cli info ARCHIVE\n\nPrints the archive's three information lines.\n"
         "Exit status: 0 success, 1 not a readable archive, 2 usage error.\n"},
        {"list",
         "Usage: zarnel-cli list ARCHIVE\n\nPrints every stored name in record order.\n"
         "Exit status: 0 success, 1 not a readable archive, 2 usage error.\n"},
        {"extract",
         "Usage: zarnel-cli extract ARCHIVE DIR\n\nExtracts every file into DIR, which must "
         "exist;\n"
         "existing files are overwritten. Prints Complete. or the failure.\n"
         "Exit status: 0 complete, 1 failure, 2 usage error.\n"},
        {"verify",
         "Usage: zarnel-cli verify ARCHIVE\n\nDecodes every block in memory and checks every size "
         "and\n"
         "texture format. Prints OK or the first fault.\n"
         "Exit status: 0 OK, 1 fault, 2 usage error.\n"},
    };
    std::fputs(help.value(command, kUsage), stdout);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    // A file-size limit must end a write with an error we report, not kill the process.
    std::signal(SIGXFSZ, SIG_IGN);
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    int jobs = defaultJobCount();
    for (int i = 0; i < args.size(); ++i) {
        QString value;
        if ((args[i] == "--jobs" || args[i] == "-j") && i + 1 < args.size()) {
            value = args[i + 1];
            args.erase(args.begin() + i, args.begin() + i + 2);
        } else if (args[i].startsWith("--jobs=")) {
            value = args[i].mid(7);
            args.removeAt(i);
        } else {
            continue;
        }
        bool ok = false;
        jobs = value.toInt(&ok);
        if (!ok || jobs < 1 || jobs > 256)
            return usageError("zarnel-cli", QStringLiteral("--jobs needs a number from 1 to 256"));
        --i;
    }
    if (args.isEmpty()) return usageError("zarnel-cli", QStringLiteral("missing command"));
    const QString command = args.takeFirst();
    if (command == "-h" || command == "--help") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (command == "--version") {
        printOut(QStringLiteral("zarnel-cli " ZARNEL_VERSION));
        return 0;
    }
    if (command == "create") return runCreate(args, jobs);
    if (args.contains("--help") || args.contains("-h")) return commandHelp(command);

    if (command == "info" || command == "list" || command == "verify") {
        if (args.size() != 1)
            return usageError("zarnel-cli",
                              QStringLiteral("%1 takes exactly one ARCHIVE").arg(command));
        ArchiveReader reader;
        NullProgress quiet;
        if (!openArchive(reader, args[0], quiet)) return 1;
        if (command == "info") {
            printOut(archiveInfoLine1(reader));
            printOut(archiveInfoLine2(reader));
            printOut(archiveInfoLine3(reader));
        } else if (command == "list") {
            const QByteArray names = nameListing(reader);
            std::fwrite(names.constData(), 1, size_t(names.size()), stdout);
            std::fflush(stdout);
        } else {
            QString fault;
            const bool ok = verifyArchive(reader, fault, jobs);
            printOut(ok ? QStringLiteral("OK") : fault);
            return ok ? 0 : 1;
        }
        return 0;
    }
    if (command == "extract") {
        if (args.size() != 2)
            return usageError("zarnel-cli", QStringLiteral("extract takes ARCHIVE and DIR"));
        ArchiveReader reader;
        TerminalProgress progress("Reading");
        if (!openArchive(reader, args[0], progress)) return 1;
        progress.finish();
        TerminalProgress extracting("Extracting");
        const ExtractResult result = extractArchive(reader, args[1], extracting, jobs);
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
    return usageError("zarnel-cli", QStringLiteral("unknown command '%1'").arg(command));
}

// zarnel-cli create [OPTIONS] -o ARCHIVE PATH...

#include "archive/format.h"
#include "archive/status.h"
#include "cli/command.h"
#include "cli/options.h"
#include "cli/output.h"
#include "cli/terminalprogress.h"
#include "creation/assistance.h"
#include "creation/gather.h"
#include "creation/writer.h"

#include <QFileInfo>

namespace {

const char kWho[] = "zarnel-cli create";

class Create : public Command
{
public:
    const char* name() const override { return "create"; }
    const char* synopsis() const override { return "[OPTIONS] -o ARCHIVE PATH..."; }
    const char* summary() const override { return "build an archive from files and folders"; }
    const char* help() const override
    {
        return "Usage: zarnel-cli create [OPTIONS] -o ARCHIVE PATH...\n"
               "\n"
               "Builds a BA2 archive from folders and files, gathered as a drop on the window "
               "gathers\n"
               "them: a folder's files are named from the folder's own name down, a single file "
               "gets\n"
               "its bare name, duplicates are skipped.\n"
               "\n"
               "Options:\n"
               "  -o, --output ARCHIVE       the archive to write (required)\n"
               "  --format general|texture   archive format\n"
               "  --version 1|2|3            archive version (version 3 holds textures only)\n"
               "  --zlib 0-9                 zlib level for versions 1 and 2 (0: no compression)\n"
               "  --lz4 0|1|2                LZ4 mode for version 3 (0: none, 1: default,\n"
               "                             2: close to Bethesda, 1 GB table)\n"
               "  --zlib-engine auto|zlib|libdeflate\n"
               "                             library for the zlib streams (default auto:\n"
               "                             libdeflate where it packs as well and faster;\n"
               "                             zlib gives the streams of qCompress exactly)\n"
               "  -j, --jobs N               threads that read and compress (default: one per\n"
               "                             core); the archive is the same for any number\n"
               "  -h, --help                 show this help\n"
               "\n"
               "Options left out are chosen by the creation assistance for the gathered files.\n";
    }
    bool parsesHelp() const override { return true; }
    int run(const QStringList& args, int jobs) const override;
};

int Create::run(const QStringList& args, int jobs) const
{
    WriteOptions options;
    QString output;
    QStringList paths;
    const int parsed = parseOptions(
        args, *this,
        QStringList {QStringLiteral("-o"), QStringLiteral("--output")} + WriteOptions::names(),
        [&](const QString& name, const QString& value) {
            if (name != QLatin1String("-o") && name != QLatin1String("--output"))
                return options.take(name, value, kWho);
            if (value.isEmpty()) {
                usageError(kWho, QStringLiteral("the archive name is empty"));
                return false;
            }
            output = value;
            return true;
        },
        paths);
    if (parsed >= 0) return parsed;
    if (output.isEmpty()) return usageError(kWho, QStringLiteral("no archive named (-o ARCHIVE)"));
    if (paths.isEmpty()) return usageError(kWho, QStringLiteral("no folder or file to archive"));
    if (options.version == 3 && options.format == 0)
        return usageError(kWho, QStringLiteral("version 3 holds textures only (--format texture)"));

    for (const QString& path : paths) {
        if (!QFileInfo::exists(path)) {
            printErr(kWho, QStringLiteral("%1: no such file or folder").arg(path));
            return 1;
        }
    }

    SourceList sources;
    GatherState state;
    state.sources = &sources;
    state.table = &defaultNameHashTable();
    const LoadStatus gathered = gatherPaths(state, paths, nullptr);
    if (gathered != LoadStatus::Loaded) {
        printErr(kWho, QStringLiteral("a gathered path cannot be stored in an archive"));
        printOut(outcomeText(gathered));
        return 1;
    }
    if (sources.isEmpty()) {
        printErr(kWho, QStringLiteral("no files found to archive"));
        return 1;
    }

    const AssistanceResult assisted = assessSources(sources, true, CreationSettings());
    const int archiveFormat = options.format.value_or(assisted.settings.archiveFormat);
    int archiveVersion = options.version.value_or(assisted.settings.archiveVersion);
    // Version 3 holds textures only. The assistance offers it with the texture format alone,
    // so a general archive asked for on the command line takes version 2 instead.
    if (archiveFormat == 0 && archiveVersion == 3) {
        if (options.version)
            return usageError(kWho,
                              QStringLiteral("version 3 holds textures only, and these files make "
                                             "a general archive (--format texture forces it)"));
        archiveVersion = 2;
    }
    const int zlibLevel = options.zlib.value_or(assisted.settings.zlibLevel);
    const int lz4Mode = options.lz4.value_or(assisted.settings.lz4Mode);

    TerminalProgress progress("Writing");
    const WriteResult r
        = writeArchive(sources, output, archiveFormat == 1, archiveVersion, zlibLevel, lz4Mode,
                       progress, creationJobs(sources, jobs), options.engine);
    progress.finish();

    if (!isFailure(r.status)) {
        printOut(outcomeText(r.status));
        return r.status == SaveStatus::Complete ? 0 : 1;
    }
    printOut(failureLine(r.status));
    if (!r.failedFile.isEmpty()) printErr(kWho, QStringLiteral("failed at: %1").arg(r.failedFile));
    return 1;
}

} // namespace

const Command& createCommand()
{
    static const Create command;
    return command;
}

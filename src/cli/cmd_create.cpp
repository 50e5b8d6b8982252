#include "cli/cmd_create.h"

#include "archive/format.h"
#include "archive/status.h"
#include "cli/output.h"
#include "cli/terminalprogress.h"
#include "creation/assistance.h"
#include "creation/gather.h"
#include "creation/writer.h"

#include <QFileInfo>

#include <cstdio>
#include <optional>

namespace {

const char kUsage[]
    = "Usage: zarnel-cli create [OPTIONS] -o ARCHIVE PATH...\n"
      "\n"
      "Builds a BA2 archive from folders and files, gathered as a drop on the window gathers\n"
      "them: a folder's files are named from the folder's own name down, a single file gets\n"
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

std::optional<int> parseChoice(const QString& text, int low, int high)
{
    bool ok = false;
    const int v = text.toInt(&ok);
    if (!ok || v < low || v > high || text.trimmed() != text) return std::nullopt;
    return v;
}

} // namespace

int runCreate(const QStringList& args, int jobs)
{
    std::optional<int> format, version, zlib, lz4;
    ZlibEngine engine = ZlibEngine::Auto;
    QString output;
    QStringList paths;

    bool optionsDone = false;
    for (int i = 0; i < args.size(); ++i) {
        QString arg = args[i];
        if (optionsDone || arg == QLatin1String("-") || !arg.startsWith(QLatin1Char('-'))) {
            paths << arg;
            continue;
        }
        if (arg == QLatin1String("--")) {
            optionsDone = true;
            continue;
        }
        if (arg == QLatin1String("-h") || arg == QLatin1String("--help")) {
            std::fputs(kUsage, stdout);
            return 0;
        }
        QString value;
        bool hasValue = false;
        const int eq = arg.indexOf(QLatin1Char('='));
        if (arg.startsWith(QLatin1String("--")) && eq > 0) {
            value = arg.mid(eq + 1);
            arg = arg.left(eq);
            hasValue = true;
        }
        const bool known = arg == QLatin1String("-o") || arg == QLatin1String("--output")
            || arg == QLatin1String("--format") || arg == QLatin1String("--version")
            || arg == QLatin1String("--zlib") || arg == QLatin1String("--lz4")
            || arg == QLatin1String("--zlib-engine");
        if (!known)
            return usageError("zarnel-cli create",
                              QStringLiteral("unknown option '%1'").arg(args[i]));
        if (!hasValue) {
            if (i + 1 >= args.size())
                return usageError("zarnel-cli create",
                                  QStringLiteral("option '%1' needs a value").arg(arg));
            value = args[++i];
        }

        if (arg == QLatin1String("-o") || arg == QLatin1String("--output")) {
            if (value.isEmpty())
                return usageError("zarnel-cli create", QStringLiteral("the archive name is empty"));
            output = value;
        } else if (arg == QLatin1String("--format")) {
            if (value == QLatin1String("general"))
                format = 0;
            else if (value == QLatin1String("texture"))
                format = 1;
            else
                return usageError(
                    "zarnel-cli create",
                    QStringLiteral("--format takes general or texture, not '%1'").arg(value));
        } else if (arg == QLatin1String("--version")) {
            version = parseChoice(value, 1, 3);
            if (!version)
                return usageError("zarnel-cli create",
                                  QStringLiteral("--version takes 1, 2 or 3, not '%1'").arg(value));
        } else if (arg == QLatin1String("--zlib-engine")) {
            if (value == QLatin1String("auto"))
                engine = ZlibEngine::Auto;
            else if (value == QLatin1String("zlib"))
                engine = ZlibEngine::Zlib;
            else if (value == QLatin1String("libdeflate"))
                engine = ZlibEngine::Libdeflate;
            else
                return usageError(
                    "zarnel-cli create",
                    QStringLiteral("--zlib-engine takes auto, zlib or libdeflate, not '%1'")
                        .arg(value));
        } else if (arg == QLatin1String("--zlib")) {
            zlib = parseChoice(value, 0, 9);
            if (!zlib)
                return usageError("zarnel-cli create",
                                  QStringLiteral("--zlib takes 0 to 9, not '%1'").arg(value));
        } else {
            lz4 = parseChoice(value, 0, 2);
            if (!lz4)
                return usageError("zarnel-cli create",
                                  QStringLiteral("--lz4 takes 0, 1 or 2, not '%1'").arg(value));
        }
    }
    if (output.isEmpty())
        return usageError("zarnel-cli create", QStringLiteral("no archive named (-o ARCHIVE)"));
    if (paths.isEmpty())
        return usageError("zarnel-cli create", QStringLiteral("no folder or file to archive"));
    if (version == 3 && format == 0)
        return usageError("zarnel-cli create",
                          QStringLiteral("version 3 holds textures only (--format texture)"));

    for (const QString& path : paths) {
        if (!QFileInfo::exists(path)) {
            printErr("zarnel-cli create", QStringLiteral("%1: no such file or folder").arg(path));
            return 1;
        }
    }

    SourceList sources;
    GatherState state;
    state.sources = &sources;
    state.table = &defaultNameHashTable();
    const LoadStatus gathered = gatherPaths(state, paths, nullptr);
    if (gathered != LoadStatus::Loaded) {
        printErr("zarnel-cli create",
                 QStringLiteral("a gathered path cannot be stored in an archive"));
        printOut(outcomeText(gathered));
        return 1;
    }
    if (sources.isEmpty()) {
        printErr("zarnel-cli create", QStringLiteral("no files found to archive"));
        return 1;
    }

    const AssistanceResult assisted = assessSources(sources, true, CreationSettings());
    const int archiveFormat = format.value_or(assisted.settings.archiveFormat);
    int archiveVersion = version.value_or(assisted.settings.archiveVersion);
    // Version 3 holds textures only. The assistance offers it with the texture format alone,
    // so a general archive asked for on the command line takes version 2 instead.
    if (archiveFormat == 0 && archiveVersion == 3) {
        if (version)
            return usageError(
                "zarnel-cli create",
                QStringLiteral("version 3 holds textures only, and these files make a "
                               "general archive (--format texture forces it)"));
        archiveVersion = 2;
    }
    const int zlibLevel = zlib.value_or(assisted.settings.zlibLevel);
    const int lz4Mode = lz4.value_or(assisted.settings.lz4Mode);

    TerminalProgress progress("Writing");
    const WriteResult r
        = writeArchive(sources, output, archiveFormat == 1, archiveVersion, zlibLevel, lz4Mode,
                       progress, creationJobs(sources, jobs), engine);
    progress.finish();

    if (!isFailure(r.status)) {
        printOut(outcomeText(r.status));
        return r.status == SaveStatus::Complete ? 0 : 1;
    }
    printOut(failureLine(r.status));
    if (!r.failedFile.isEmpty())
        printErr("zarnel-cli create", QStringLiteral("failed at: %1").arg(r.failedFile));
    return 1;
}

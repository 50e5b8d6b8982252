// zarnel-cli: the archive engine without the window, for scripts and batch work. The commands
// are listed in commands.cpp, each in its own cmd_NAME.cpp.

#include "archive/extractor.h"
#include "cli/command.h"
#include "cli/options.h"
#include "cli/output.h"
#include "creation/codecs.h"

#include <QCoreApplication>

#include <csignal>
#include <cstdio>

int main(int argc, char** argv)
{
    // A file-size limit must end a write with an error we report, not kill the process.
    std::signal(SIGXFSZ, SIG_IGN);
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    int jobs = defaultJobCount();
    if (!takeJobsOption(args, jobs)) return 2;
    if (args.isEmpty()) return usageError("zarnel-cli", QStringLiteral("missing command"));
    const QString name = args.takeFirst();
    if (name == QLatin1String("-h") || name == QLatin1String("--help")) {
        std::fputs(programHelp().constData(), stdout);
        return 0;
    }
    if (name == QLatin1String("--version")) {
        printOut(QStringLiteral("zarnel-cli " ZARNEL_VERSION));
        printOut(QStringLiteral("codecs: ") + codecLibraryVersions());
        return 0;
    }
    const Command* command = findCommand(name);
    const bool helpAsked = args.contains(QStringLiteral("--help")) || args.contains("-h");
    if (command && helpAsked && !command->parsesHelp()) {
        std::fputs(command->help(), stdout);
        return 0;
    }
    if (command) return command->run(args, jobs);
    // Help asked for beside an unknown word: the program's help.
    if (helpAsked) {
        std::fputs(programHelp().constData(), stdout);
        return 0;
    }
    return usageError("zarnel-cli", QStringLiteral("unknown command '%1'").arg(name));
}

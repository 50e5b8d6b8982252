#include "cli/options.h"

#include "cli/command.h"
#include "cli/output.h"

namespace {

std::optional<int> parseChoice(const QString& text, int low, int high)
{
    bool ok = false;
    const int v = text.toInt(&ok);
    if (!ok || v < low || v > high || text.trimmed() != text) return std::nullopt;
    return v;
}

bool refuse(const char* who, const QString& text)
{
    usageError(who, text);
    return false;
}

} // namespace

bool takeJobsOption(QStringList& args, int& jobs)
{
    for (int i = 0; i < args.size(); ++i) {
        QString value;
        if ((args[i] == QLatin1String("--jobs") || args[i] == QLatin1String("-j"))
            && i + 1 < args.size()) {
            value = args[i + 1];
            args.erase(args.begin() + i, args.begin() + i + 2);
        } else if (args[i].startsWith(QLatin1String("--jobs="))) {
            value = args[i].mid(7);
            args.removeAt(i);
        } else {
            continue;
        }
        bool ok = false;
        jobs = value.toInt(&ok);
        if (!ok || jobs < 1 || jobs > 256) {
            usageError("zarnel-cli", QStringLiteral("--jobs needs a number from 1 to 256"));
            return false;
        }
        --i;
    }
    return true;
}

int parseOptions(const QStringList& args, const Command& command, const QStringList& valueOptions,
                 const std::function<bool(const QString&, const QString&)>& take,
                 QStringList& operands)
{
    const QByteArray who = QByteArray("zarnel-cli ") + command.name();
    bool optionsDone = false;
    for (int i = 0; i < args.size(); ++i) {
        QString arg = args[i];
        if (optionsDone || arg == QLatin1String("-") || !arg.startsWith(QLatin1Char('-'))) {
            operands << arg;
            continue;
        }
        if (arg == QLatin1String("--")) {
            optionsDone = true;
            continue;
        }
        if (arg == QLatin1String("-h") || arg == QLatin1String("--help")) {
            std::fputs(command.help(), stdout);
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
        if (!valueOptions.contains(arg))
            return usageError(who, QStringLiteral("unknown option '%1'").arg(args[i]));
        if (!hasValue) {
            if (i + 1 >= args.size())
                return usageError(who, QStringLiteral("option '%1' needs a value").arg(arg));
            value = args[++i];
        }
        if (!take(arg, value)) return 2;
    }
    return -1;
}

const QStringList& WriteOptions::names()
{
    static const QStringList all
        = {QStringLiteral("--format"), QStringLiteral("--version"), QStringLiteral("--zlib"),
           QStringLiteral("--lz4"), QStringLiteral("--zlib-engine")};
    return all;
}

bool WriteOptions::take(const QString& name, const QString& value, const char* who)
{
    if (name == QLatin1String("--format")) {
        if (value == QLatin1String("general"))
            format = 0;
        else if (value == QLatin1String("texture"))
            format = 1;
        else
            return refuse(who,
                          QStringLiteral("--format takes general or texture, not '%1'").arg(value));
    } else if (name == QLatin1String("--version")) {
        version = parseChoice(value, 1, 3);
        if (!version)
            return refuse(who, QStringLiteral("--version takes 1, 2 or 3, not '%1'").arg(value));
    } else if (name == QLatin1String("--zlib-engine")) {
        if (value == QLatin1String("auto"))
            engine = ZlibEngine::Auto;
        else if (value == QLatin1String("zlib"))
            engine = ZlibEngine::Zlib;
        else if (value == QLatin1String("libdeflate"))
            engine = ZlibEngine::Libdeflate;
        else
            return refuse(who,
                          QStringLiteral("--zlib-engine takes auto, zlib or libdeflate, not '%1'")
                              .arg(value));
    } else if (name == QLatin1String("--zlib")) {
        zlib = parseChoice(value, 0, 9);
        if (!zlib) return refuse(who, QStringLiteral("--zlib takes 0 to 9, not '%1'").arg(value));
    } else {
        lz4 = parseChoice(value, 0, 2);
        if (!lz4) return refuse(who, QStringLiteral("--lz4 takes 0, 1 or 2, not '%1'").arg(value));
    }
    return true;
}

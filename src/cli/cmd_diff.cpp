// zarnel-cli diff ARCHIVE1 ARCHIVE2

#include "archive/archivereader.h"
#include "archive/extractor.h"
#include "cli/command.h"
#include "cli/output.h"

#include <algorithm>
#include <cstring>

namespace {

class Diff : public Command
{
public:
    const char* name() const override { return "diff"; }
    const char* synopsis() const override { return "ARCHIVE1 ARCHIVE2"; }
    const char* summary() const override { return "compare the files of two archives"; }
    const char* help() const override
    {
        return "Usage: zarnel-cli diff ARCHIVE1 ARCHIVE2\n"
               "\n"
               "Compares two archives file by file: files are matched by stored name (ignoring\n"
               "case, / and \\ alike) and compared by the bytes extraction would write, so\n"
               "archives of other versions or compression with the same files are equal.\n"
               "Prints, sorted by name, '- NAME' for a file only in ARCHIVE1, '+ NAME' for one\n"
               "only in ARCHIVE2 and 'M NAME' for one whose contents differ.\n"
               "Exit status: 0 no differences, 1 differences, 2 trouble (usage, an unreadable\n"
               "archive, a block that cannot be decoded).\n";
    }
    int run(const QStringList& args, int jobs) const override;
};

// One side of the comparison: every file's matching key and the digest of its bytes.
struct Side
{
    ArchiveReader reader;
    std::vector<Digest> digests;
    std::vector<std::pair<const char*, uint32_t>> keys; // in record order until sorted
    std::vector<QByteArray> converted;                  // the keys that are not stored names
};

// A stored name as files are matched: lower case, '/' for '\\', as UTF-8 (whose byte order is
// the order of the characters). Most names are already that, and then serve as their own key.
const char* matchKey(const char* name, std::vector<QByteArray>& converted)
{
    const char* p = name;
    while (*p && !(*p & 0x80) && !(*p >= 'A' && *p <= 'Z') && *p != '\\')
        ++p;
    if (!*p) return name;
    QByteArray key(name);
    for (char& c : key) {
        if (c & 0x80) {
            key = QString::fromUtf8(name).toLower().replace('\\', '/').toUtf8();
            break;
        }
        if (c >= 'A' && c <= 'Z') c = char(c + 32);
        if (c == '\\') c = '/';
    }
    converted.push_back(key);
    return converted.back().constData();
}

// Opens and decodes an archive; false after saying why on stderr.
bool load(Side& side, const QString& path, int jobs)
{
    NullProgress quiet;
    if (!openArchive(side.reader, path, quiet)) return false;
    QString fault;
    if (!verifyArchive(side.reader, fault, jobs, &side.digests)) {
        printErr("zarnel-cli", QStringLiteral("%1: %2").arg(path, fault));
        return false;
    }
    side.keys.reserve(side.reader.fileCount);
    for (uint32_t i = 0; i < side.reader.fileCount; ++i)
        side.keys.emplace_back(matchKey(side.reader.records[i].name, side.converted), i);
    return true;
}

// Sorts by key; files of the same key keep their record order, and pair up in that order.
void sortByKey(std::vector<std::pair<const char*, uint32_t>>& keys)
{
    std::stable_sort(keys.begin(), keys.end(), [](const auto& a, const auto& b) {
        return std::strcmp(a.first, b.first) < 0;
    });
}

bool sameKeysInOrder(const Side& first, const Side& second)
{
    if (first.keys.size() != second.keys.size()) return false;
    for (size_t k = 0; k < first.keys.size(); ++k)
        if (std::strcmp(first.keys[k].first, second.keys[k].first) != 0) return false;
    return true;
}

int Diff::run(const QStringList& args, int jobs) const
{
    if (args.size() != 2)
        return usageError("zarnel-cli", QStringLiteral("diff takes ARCHIVE1 and ARCHIVE2"));
    Side first, second;
    if (!load(first, args[0], jobs) || !load(second, args[1], jobs)) return 2;
    LineWriter out;
    bool different = false;
    auto line = [&](char mark, const Side& side, uint32_t i) {
        out.add(mark).add(' ').addName(side.reader.records[i].name);
        out.endLine();
        different = true;
    };
    // Archives packed from the same folder list their files in the same order: then the files
    // pair up by place, and only the changed ones need sorting.
    if (sameKeysInOrder(first, second)) {
        std::vector<std::pair<const char*, uint32_t>> changed;
        for (size_t k = 0; k < first.keys.size(); ++k)
            if (first.digests[k] != second.digests[k]) changed.push_back(first.keys[k]);
        sortByKey(changed);
        for (const auto& c : changed)
            line('M', first, c.second);
        return different ? 1 : 0;
    }
    sortByKey(first.keys);
    sortByKey(second.keys);
    size_t a = 0, b = 0;
    while (a < first.keys.size() || b < second.keys.size()) {
        int order = 0;
        if (a == first.keys.size())
            order = 1;
        else if (b == second.keys.size())
            order = -1;
        else
            order = std::strcmp(first.keys[a].first, second.keys[b].first);
        if (order < 0) {
            line('-', first, first.keys[a++].second);
        } else if (order > 0) {
            line('+', second, second.keys[b++].second);
        } else {
            const uint32_t i = first.keys[a++].second, j = second.keys[b++].second;
            if (first.digests[i] != second.digests[j]) line('M', first, i);
        }
    }
    return different ? 1 : 0;
}

} // namespace

const Command& diffCommand()
{
    static const Diff command;
    return command;
}

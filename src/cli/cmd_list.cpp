// zarnel-cli list [--long] ARCHIVE [PATTERN...]

#include "archive/archivereader.h"
#include "archive/ddsheader.h"
#include "archive/dxgi.h"
#include "archive/namelisting.h"
#include "cli/command.h"
#include "cli/output.h"

namespace {

class List : public Command
{
public:
    const char* name() const override { return "list"; }
    const char* synopsis() const override { return "[-l] ARCHIVE [PATTERN...]"; }
    const char* summary() const override { return "print the stored names in record order"; }
    const char* help() const override
    {
        return "Usage: zarnel-cli list [-l|--long] ARCHIVE [PATTERN...]\n"
               "\n"
               "Prints every stored name in record order, or those that match a PATTERN.\n"
               "With --long, one line per file with tab-separated fields: SIZE (the bytes\n"
               "extraction writes), PACKED (the bytes in the archive), KIND (- for a general\n"
               "file; FORMAT WxH mips:N chunks:C, and cube, for a texture) and NAME.\n"
               "\n"
               "Patterns ignore case and use / between folders: * and ? match within one name,\n"
               "[...] one character of a set, ** any number of folders; a pattern without / is\n"
               "matched against the file's own name, so '*.dds' takes every DDS file.\n"
               "Exit status: 0 success, 1 not a readable archive or nothing matched, 2 usage "
               "error.\n";
    }
    int run(const QStringList& args, int) const override;
};

// SIZE, PACKED and KIND of record i, each followed by a tab.
void addDetails(LineWriter& out, const ArchiveReader& reader, uint32_t i)
{
    const FileRecord& r = reader.records[i];
    if (!reader.isTexture) {
        out.add((unsigned long long)r.unpackedSize).add('\t');
        out.add((unsigned long long)(r.packedSize ? r.packedSize : r.unpackedSize)).add("\t-\t");
        return;
    }
    unsigned char header[kDdsHeaderCapacity];
    initDdsHeader(header);
    unsigned long long size = (unsigned long long)buildDdsHeader(header, r), packed = 0;
    const ChunkInfo* chunks = reader.chunks(r);
    for (uint32_t c = 0; c < r.chunkCount; ++c) {
        size += chunks[c].unpackedSize;
        packed += chunks[c].packedSize ? chunks[c].packedSize : chunks[c].unpackedSize;
    }
    out.add(size).add('\t').add(packed).add('\t');
    if (const char* format = dxgiFormat(r.format).name)
        out.add(format);
    else
        out.add("format:").add((unsigned long long)r.format);
    out.add(' ').add((unsigned long long)r.width).add('x').add((unsigned long long)r.height);
    out.add(" mips:").add((unsigned long long)r.mipCount);
    out.add(" chunks:").add((unsigned long long)r.chunkCount);
    if (r.textureFlags & 1) out.add(" cube");
    out.add('\t');
}

int List::run(const QStringList& args, int) const
{
    QStringList operands = args;
    const bool longForm
        = operands.removeAll(QStringLiteral("-l")) + operands.removeAll(QStringLiteral("--long"));
    if (operands.isEmpty())
        return usageError("zarnel-cli", QStringLiteral("list takes an ARCHIVE"));
    ArchiveReader reader;
    NullProgress quiet;
    if (!openArchive(reader, operands.takeFirst(), quiet)) return 1;
    LineWriter out;
    if (!longForm && operands.isEmpty()) {
        for (const FileRecord& r : reader.records)
            out.addName(r.name).endLine();
        return 0;
    }
    const std::vector<uint32_t> files = matchingRecords(reader, operands);
    if (files.empty() && !operands.isEmpty()) return noMatch();
    for (uint32_t i : files) {
        if (longForm) addDetails(out, reader, i);
        out.addName(reader.records[i].name).endLine();
    }
    return 0;
}

} // namespace

const Command& listCommand()
{
    static const List command;
    return command;
}

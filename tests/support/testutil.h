#pragma once
// What tests, benchmarks and fuzzers share: an independent byte-by-byte BA2 builder
// (compressing with zlib and lz4 directly, not through the program's codecs), DDS files, the
// reference name hash, a progress recorder, a zarnel-cli runner, folder-tree readers and the
// real sample archives.

#include "archive/progress.h"

#include <QByteArray>
#include <QFileInfo>
#include <QMap>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QVector>

#include <cstdint>

namespace testutil {

enum class Pack { Stored, Zlib, Lz4 };

struct TestChunk
{
    QByteArray stored;       // bytes placed in the data area
    uint32_t packedSize = 0; // 0 = stored
    uint32_t unpackedSize = 0;
    uint16_t firstMip = 0, lastMip = 0;
};

struct TestEntry
{
    QByteArray name; // written to the name table as is
    // general
    QByteArray stored;
    uint32_t packedSize = 0;
    uint32_t unpackedSize = 0;
    // texture
    uint16_t height = 0, width = 0;
    uint8_t mipCount = 1, format = 98;
    uint16_t textureFlags = 0x0800;
    uint16_t chunkRecordSize = 24;
    QVector<TestChunk> chunks;
};

QByteArray zlibStream(const QByteArray& data, int level = 6); // RFC 1950 stream, no prefix
QByteArray lz4Block(const QByteArray& data);                  // LZ4 block, no prefix

class Ba2Builder
{
public:
    uint32_t version = 1;
    bool texture = false;
    uint32_t compressionCode = 3; // written for version 3
    uint64_t headerExtra = 1;     // written for versions 2 and 3
    QByteArray trailingNameBytes; // appended after the name table
    QVector<TestEntry> entries;

    // A general file; Pack picks how its data is stored.
    TestEntry& addGeneral(const QByteArray& name, const QByteArray& data, Pack pack = Pack::Stored);
    // A texture whose pixel data is given as one byte array per chunk.
    TestEntry& addTexture(const QByteArray& name, uint16_t width, uint16_t height, uint8_t mipCount,
                          uint8_t format, const QVector<QByteArray>& chunkData,
                          Pack pack = Pack::Stored);
    // The archive bytes: header, records, data in record order, name table.
    QByteArray build() const;
};

// A BSA archive: folders and files sorted by hash unless keepOrder, each file compressed when
// the archive default (flag 0x4) and its toggle differ; zlib for 103/104, an LZ4 frame for 105.
struct BsaFile
{
    QByteArray name, data;
    bool toggle = false;
};
struct BsaBuilder
{
    uint32_t version = 104;
    uint32_t flags = 0x3;
    bool keepOrder = false;
    QVector<QPair<QByteArray, QVector<BsaFile>>> folders;
    QByteArray build() const;
};
QByteArray lz4Frame(const QByteArray& data);

QByteArray patternBytes(int size, uint32_t seed, bool compressible = true);
bool writeFile(const QString& path, const QByteArray& bytes);
QByteArray readFile(const QString& path);

// Files below root (hidden ones too), relative to it and sorted.
QStringList fileList(const QString& root);
// Files with their bytes and folders (as "name/" with no bytes) below root.
QMap<QString, QByteArray> treeContents(const QString& root);

// The folder of real sample archives (ZARNEL_SAMPLES_DIR at configure time), and whether a
// build configured with ZARNEL_REQUIRE_SAMPLES must fail rather than skip without it.
QString samplesDir();
bool samplesRequired();
// In a test function: skips (or fails, when required) with a clear message if the samples
// folder is missing.
#define SKIP_WITHOUT_SAMPLES() \
    do { \
        if (!QFileInfo(testutil::samplesDir()).isDir()) { \
            const QByteArray why = "sample archives not found in " \
                + testutil::samplesDir().toUtf8() + " (configure with -DZARNEL_SAMPLES_DIR=...)"; \
            if (testutil::samplesRequired()) QFAIL(why.constData()); \
            QSKIP(why.constData()); \
        } \
    } while (false)

// The name hash computed independently: CRC-32 (zlib's) without the final inversion.
uint32_t referenceNameHash(const QByteArray& bytes);

// A DDS pixel format: flags, FourCC, bit count and masks; dxgi >= 0 adds the DX10 header.
struct DdsPixelFormat
{
    uint32_t flags = 0, fourCC = 0, bits = 0;
    uint32_t masks[4] = {0, 0, 0, 0};
    int dxgi = -1;
};
DdsPixelFormat ddsFourCC(const char* code);
DdsPixelFormat ddsFourCC(uint32_t code);
DdsPixelFormat ddsDx10(int dxgi);
DdsPixelFormat ddsMasks(uint32_t flags, uint32_t bits, uint32_t r, uint32_t g, uint32_t b,
                        uint32_t a);
struct DdsFields
{
    uint32_t flags = 0x1007, pitchOrLinearSize = 0, caps = 0x1000, caps2 = 0;
    uint32_t dimension = 3, miscFlag = 0, arraySize = 1; // of the DX10 extension
};
// A DDS file: its header, then dataBytes of patternBytes(dataBytes, seed).
QByteArray makeDds(const DdsPixelFormat& pf, uint32_t width, uint32_t height, uint32_t mips,
                   int dataBytes, const DdsFields& fields = DdsFields(), uint32_t seed = 5);
// What a DDS file holds: a 2-D texture, a cube map (legacy face bits, or the DX10 cube flag
// alone), a cube map that names five faces, a DX10 array of two slices.
enum class DdsShape { Flat, Cube, FiveFaces, Array };
// A block-compressed DDS file with data for its mip chain (blocks of 4x4 at least) on each
// face or slice: DXT1 (or the given FourCC) with 8-byte blocks, or BC7 behind the DX10 header
// with 16-byte blocks.
QByteArray blockDds(uint32_t width, uint32_t height, uint32_t mips, uint32_t seed, bool bc7 = false,
                    const char* fourCC = nullptr, DdsShape shape = DdsShape::Flat);

// Records what an engine reports; cancels once the value reaches cancelAtValue (>= 0) or at
// the cancelAtPoll-th poll of wasCanceled (> 0).
class RecordingProgress : public Progress
{
public:
    explicit RecordingProgress(int cancelAtPoll = 0, int cancelAtValue = -1)
        : cancelAtPoll(cancelAtPoll)
        , cancelAtValue(cancelAtValue)
    { }
    void setMinimum(int v) override { minimum = v; }
    void setMaximum(int v) override { maximum = v; }
    void setValue(int v) override
    {
        value = v;
        values << v;
    }
    bool wasCanceled() override
    {
        ++polls;
        return (cancelAtPoll > 0 && polls >= cancelAtPoll)
            || (cancelAtValue >= 0 && value >= cancelAtValue);
    }
    void processEvents() override { ++eventPasses; }
    int cancelAtPoll, cancelAtValue;
    int minimum = -1, maximum = -1, value = -1, polls = 0, eventPasses = 0;
    QVector<int> values;
};

// One run of zarnel-cli.
struct CliRun
{
    int exitCode = -1; // -1 when a signal ended it or it could not start
    QString out, err;
    long peakKib = 0; // peak resident size of the child
};
// Runs zarnel-cli with args, under prlimit when a limit such as "--fsize=N" is given. Output
// goes through pipes (a file would be held to the same size limit as the program's own files).
CliRun runCli(const QStringList& args, const QString& limit = QString());
QString cliPath();

} // namespace testutil

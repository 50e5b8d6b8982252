#include "creation/assistance.h"

#include "archive/archivereader.h"

namespace {

constexpr uint32_t extensionCode(char a, char b, char c)
{
    return uint32_t(uint8_t(a)) | uint32_t(uint8_t(b)) << 8 | uint32_t(uint8_t(c)) << 16;
}

constexpr uint32_t kDds = extensionCode('d', 'd', 's');
constexpr uint32_t kWem = extensionCode('w', 'e', 'm');
constexpr uint32_t kFuz = extensionCode('f', 'u', 'z');
constexpr uint32_t kXwm = extensionCode('x', 'w', 'm');
constexpr uint32_t kWav = extensionCode('w', 'a', 'v');
constexpr uint32_t kSwf = extensionCode('s', 'w', 'f');
constexpr uint32_t kPex = extensionCode('p', 'e', 'x');

} // namespace

AssistanceResult assessSources(const SourceList& sources, bool assist,
                               const CreationSettings& current)
{
    AssistanceResult r;
    r.settings = current;

    qint64 textures = 0, wem = 0, fuz = 0, xwm = 0, wav = 0;
    for (const SourceEntry& e : sources) {
        switch (e.extension) {
        case kDds: ++textures; break;
        case kWem:
            ++wem;
            r.allCompressible = false;
            break;
        case kFuz:
            ++fuz;
            r.allCompressible = false;
            break;
        case kXwm:
            ++xwm;
            r.allCompressible = false;
            break;
        case kWav:
            ++wav;
            r.allCompressible = false;
            break;
        case kSwf:
        case kPex: r.allCompressible = false; break;
        default: break;
        }
    }

    const qint64 count = qint64(sources.size());
    r.message = groupedNumber(count) + QStringLiteral(" file");
    if (count > 1) r.message += QLatin1Char('s');
    r.message += QLatin1Char(' ');

    if (textures > 0 && textures == count) {
        r.ver3Enabled = true;
        r.allDds = true;
        if (assist) {
            r.message
                += QStringLiteral("* assistance * 'DDS format' selected, because all DDS files. "
                                  "and, Ver.3 BA2 can be created.");
            r.settings.archiveFormat = 1;
            r.settings.archiveVersion = 3;
            r.settings.zlibLevel = 1;
            r.settings.lz4Mode = 1;
            r.settingsChanged = true;
        }
    } else if (textures > 0) {
        r.message += QStringLiteral(
            "* Assistance * some files are not DDS, they cannot be archived in texture format.");
        if (assist) {
            r.settings.archiveFormat = 0;
            r.settings.archiveVersion = 2;
            r.settings.zlibLevel = r.allCompressible ? 1 : 0;
            r.settingsChanged = true;
        }
    } else if (r.allCompressible) {
        if (assist) {
            r.message += QStringLiteral("* assistance * This is the recommended settings.");
            r.settings.archiveVersion = 2;
            r.settings.zlibLevel = 1;
            r.settings.archiveFormat = 0;
            r.settingsChanged = true;
        }
    } else if (assist) {
        r.message += QStringLiteral("* assistance * 'No compression' selected, because some files "
                                    "do not work when compressed.(");
        if (wem) r.message += QStringLiteral(".wem");
        if (fuz) r.message += QStringLiteral(".fuz");
        if (xwm) r.message += QStringLiteral(".xwm");
        if (wav) r.message += QStringLiteral(".wav.swf");
        r.message += QLatin1Char(')');
        r.settings.archiveVersion = 2;
        r.settings.zlibLevel = 0;
        r.settings.archiveFormat = 0;
        r.settingsChanged = true;
    }
    return r;
}

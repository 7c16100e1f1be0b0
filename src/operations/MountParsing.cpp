#include "operations/MountParsing.h"

#include "drives/Drive.h"

#include <QStringList>

namespace tapedesk {

namespace {
const QString kMountedMarker = QStringLiteral("Volume mounted successfully. ");
const QString kVolumeEnd = QStringLiteral(" : ");
} // namespace

// itdt -f tape0 -w 1 readattr -p 0 -a 0x806 -d /dev/stdout prints (the
// attribute is 32 bytes of ASCII, padded with blanks):
//   Initializing device...
//   Barcode: TD0001                          .
//   Exit with code: 0
// (the dot only marks where the blanks end; itdt prints none).
// Exact splits: a double blank yields an empty word, and nothing is trimmed.
QString barcodeFromAttributeRead(const QString &output)
{
    const QStringList lines = output.split(QLatin1Char('\n'));
    if (lines.size() < 2)
        return {};
    const QStringList words = lines.at(1).split(QLatin1Char(' '));
    if (words.size() < 2)
        return {};
    return words.at(1);
}

// ltfs writes nothing on standard output; on standard error, each line
// prefixed by the logging thread's id:
//   5ec0 LTFS11031I Volume mounted successfully. ABC123 : Gen = 1 / (a, 5) -> (b, 5) / 10WT001089.
// The volume text is kept as it is: blanks around it belong to the barcode.
std::optional<QString> volumeFromLtfsStderr(const QString &stderrText)
{
    const qsizetype marker = stderrText.indexOf(kMountedMarker);
    if (marker < 0)
        return std::nullopt;
    const qsizetype start = marker + kMountedMarker.size();
    const qsizetype end = stderrText.indexOf(kVolumeEnd, start);
    if (end < 0)
        return std::nullopt;
    return stderrText.mid(start, end - start);
}

// After a daemon died with the volume mounted, the next mount fails with
//   5ca5 LTFS11220E Medium check failed: extra blocks detected. Run ltfsck.
//   5ca5 LTFS11027E Cannot mount volume: medium consistency check failed.
// Another version may word the first line otherwise, but still names ltfsck.
bool ltfsAsksForLtfsck(const QString &stderrText)
{
    return stderrText.contains(QStringLiteral("LTFS11220E")) ||
           stderrText.contains(QStringLiteral("LTFS11027E")) ||
           stderrText.contains(QStringLiteral("Run ltfsck"), Qt::CaseInsensitive);
}

// mount prints one line per mount, for an LTFS volume:
//   ltfs:/dev/sg3 on /tmp/ltfs/mnt/0 type fuse (rw,nosuid,nodev,relatime,user_id=0,group_id=0,...)
// and escapes blanks, tabs, newlines and backslashes in paths as octal
// ("/tmp/ltfs/mnt/my\040drive"), so the fields split at " on " and " type ".
std::optional<MountLine> parseMountLine(QStringView line)
{
    const qsizetype on = line.indexOf(u" on ");
    if (on < 0)
        return std::nullopt;
    const qsizetype type = line.indexOf(u" type ", on + 4);
    if (type < 0)
        return std::nullopt;
    QString point;
    const QStringView raw = line.mid(on + 4, type - on - 4);
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const auto isOctal = [&](qsizetype at) { return raw[at] >= u'0' && raw[at] <= u'7'; };
        if (raw[i] == u'\\' && i + 3 < raw.size() && isOctal(i + 1) && isOctal(i + 2) && isOctal(i + 3)) {
            point += QChar(((raw[i + 1].unicode() - u'0') << 6) | ((raw[i + 2].unicode() - u'0') << 3) |
                           (raw[i + 3].unicode() - u'0'));
            i += 3;
        } else {
            point += raw[i];
        }
    }
    const QStringView rest = line.mid(type + 6);
    const qsizetype typeEnd = rest.indexOf(u' ');
    return MountLine{point, (typeEnd < 0 ? rest : rest.left(typeEnd)).toString()};
}

// Exact mount point, not a text search: "/mnt/1" is inside "/mnt/10", and any
// other mount whose path merely contains "/mnt/<name>" must not count (a
// safety departure from a plain substring test). FUSE is how ltfs mounts.
bool mountOutputShows(const QString &mountOutput, const QString &name)
{
    const QString point = kMountRoot + name;
    for (const QString &line : mountOutput.split(QLatin1Char('\n'))) {
        const std::optional<MountLine> m = parseMountLine(line);
        if (m && m->point == point &&
            (m->type == QStringLiteral("fuse") || m->type.startsWith(QStringLiteral("fuse."))))
            return true;
    }
    return false;
}

QString unsafeMountNameMessage(const QString &operation, const QString &name)
{
    QString shown;
    for (QChar c : name) {
        if (c.category() == QChar::Other_Control)
            shown += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            shown += c;
    }
    return operation + QStringLiteral(" Error: drive name \"") + shown +
           QStringLiteral("\" cannot be used as a mount point under ") + kMountRoot;
}

} // namespace tapedesk

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

// mount | grep ltfs, while a volume is mounted:
//   ltfs:/dev/sg3 on /tmp/ltfs/mnt/0 type fuse (rw,nosuid,nodev,relatime,user_id=0,group_id=0,...)
// A plain substring test: "/mnt/1" also matches "/mnt/10", and a mount point
// shown under a resolved parent path still counts.
bool mountOutputShows(const QString &mountOutput, const QString &name)
{
    return mountOutput.contains(QStringLiteral("/mnt/") + name);
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

// What ltfs reports on standard error when a volume is mounted:
//   5ec0 LTFS11031I Volume mounted successfully. ABC123 : Gen = 1 / (a, 5) -> (b, 5) / 10WT001089.
// and, on the same bytes, the mount-table test and the mount-point name checks
// that decide which folder a mount or an unmount touches.

#include "FuzzInput.h"
#include "drives/Drive.h"
#include "operations/MountParsing.h"

using namespace tapedesk;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = fuzz::decode(data, size);

    if (const std::optional<QString> volume = volumeFromLtfsStderr(text)) {
        // The volume text sits between the marker and the first " : " after it.
        fuzz::require(!volume->contains(QStringLiteral(" : ")));
        fuzz::require(
            text.contains(QStringLiteral("Volume mounted successfully. ") + *volume + QStringLiteral(" : ")));
    } else {
        const QString marker = QStringLiteral("Volume mounted successfully. ");
        const qsizetype at = text.indexOf(marker);
        fuzz::require(at < 0 || text.indexOf(QStringLiteral(" : "), at + marker.size()) < 0);
    }

    // The first line plays a drive name, the rest the mount table.
    const qsizetype lineEnd = text.indexOf(QLatin1Char('\n'));
    const QString name = lineEnd < 0 ? text : text.left(lineEnd);
    const QString table = lineEnd < 0 ? QString() : text.mid(lineEnd + 1);
    const bool shown = mountOutputShows(table, name);
    // Only a FUSE line can show a mounted volume.
    fuzz::require(!shown || table.contains(QStringLiteral(" type fuse")));

    // A name that may become a mount point never leaves /tmp/ltfs/mnt/.
    if (isSafeMountName(name)) {
        fuzz::require(!name.contains(QLatin1Char('/')));
        fuzz::require(name != QStringLiteral(".") && name != QStringLiteral(".."));
    }
    // The refusal line shows control characters escaped, so the pane gets one line.
    const QString refusal = unsafeMountNameMessage(QStringLiteral("Mount"), name);
    for (QChar c : refusal)
        fuzz::require(c.category() != QChar::Other_Control);
    return 0;
}

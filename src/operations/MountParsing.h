#pragma once

#include <QString>
#include <optional>

namespace tapedesk {

// The texts the mount and unmount read back from itdt, ltfs and the mount
// table. Plain text in, plain text out, so they can be fuzzed without a window.

// The barcode from itdt's attribute read: the second blank-separated word of
// the second line, cut at every single blank. "" when the output has fewer
// lines or words.
QString barcodeFromAttributeRead(const QString &output);

// The volume text ltfs reports on standard error between "Volume mounted
// successfully. " and the next " : ", as it is. nullopt when either is missing.
std::optional<QString> volumeFromLtfsStderr(const QString &stderrText);

// Whether ltfs refused the volume because its last session was never closed
// (the daemon died while it was mounted), which ltfsck repairs.
bool ltfsAsksForLtfsck(const QString &stderrText);

// One line of `mount`'s table: the mount point (octal escapes such as \040
// undone) and the file-system type. nullopt for a line of another shape.
struct MountLine
{
    QString point;
    QString type;
};
std::optional<MountLine> parseMountLine(QStringView line);

// Whether the mount table text lists a FUSE mount whose mount point is exactly
// /tmp/ltfs/mnt/<name>.
bool mountOutputShows(const QString &mountOutput, const QString &name);

// The pane line for a drive whose name cannot be a mount point; `operation`
// is "Mount" or "Unmount". Control characters in the name are shown escaped.
QString unsafeMountNameMessage(const QString &operation, const QString &name);

} // namespace tapedesk

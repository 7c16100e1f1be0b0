#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

namespace tapedesk {

// Whether a drive's volume is mounted, as far as the host can tell. A mount
// table that could not be read answers Unknown, never No: where a wrong "not
// mounted" could cost data (the end of an unmount, the format's check, the
// diagnostics' refusal), Unknown is treated as mounted.
enum class MountAnswer { No, Yes, Unknown };

// The host's mount table as `mount` prints it, run through the same shell as
// every other command line. nullopt when it cannot be read: the command did
// not run, exited non-zero, or printed no line of the table's shape (a real
// mount table always lists at least the root file system).
std::optional<QString> readMountTable();

// The table's lines that mention ltfs: what "mount | grep ltfs" would print.
QString ltfsLinesOf(const QString &mountTable);

// What `mountTable` (nullopt: unreadable) says of the volume of drive `name`.
MountAnswer mountAnswerFor(const std::optional<QString> &mountTable, const QString &name);

// The pane line when the mount table could not be read; `consequence` says
// what TapeDesk does about it.
QString mountTableUnreadableLine(const QString &consequence);

// What a mount point holds while nothing is mounted on it: files written
// there by mistake, which a mount would hide and which would then be taken
// for the tape's.
struct StrayFiles
{
    QStringList firstNames; // sorted by name, at most a few
    qsizetype count = 0;    // entries directly in the folder
    qint64 bytes = 0;       // size of everything below it
};
StrayFiles strayFilesIn(const QString &mountPoint);
QString strayFilesLine(const QString &mountPoint, const StrayFiles &stray);

// Polls the mount table until it lists the volume of drive `name`, for at
// most `timeoutMs`: ltfs returns before its daemon has finished mounting, and
// may report success when FUSE then refuses. Returns the last answer.
MountAnswer waitForMountListing(const QString &name, int timeoutMs);

// A process that keeps a mounted volume busy, so umount answers "target is
// busy": its working folder, an open file or a mapped file lies inside the
// mount point.
struct VolumeUser
{
    qint64 pid = 0;
    QString program;
    QString path;
};
struct VolumeUsers
{
    QList<VolumeUser> visible;
    int hidden = 0; // processes of other users this one may not look into
};
VolumeUsers volumeUsersOf(const QString &mountPoint, const QString &procRoot = QStringLiteral("/proc"));
// The pane lines that say who holds the volume.
QStringList volumeUsersLines(const VolumeUsers &users);

// A process that still serves an LTFS mount point. After umount the mount
// table forgets the volume at once, but the ltfs daemon goes on writing the
// index to the cartridge and holds the drive until it exits.
struct LtfsHolder
{
    qint64 pid = 0;
    QString commandLine; // its arguments joined by blanks
};

// The running processes whose program is `ltfsPath` or is named "ltfs", and
// that have `mountPoint` among their arguments. nullopt when the process
// table cannot be read (no /proc), which must not pass for "released".
std::optional<QList<LtfsHolder>> ltfsHoldersOf(const QString &mountPoint, const QString &ltfsPath);

// Parses one /proc/PID/cmdline (arguments separated by NUL bytes) and tells
// whether it is such a holder; split out so it can be tested and fuzzed.
bool isLtfsHolder(const QByteArray &cmdline, const QString &mountPoint, const QString &ltfsPath);

} // namespace tapedesk

#include "operations/MountCheck.h"

#include "operations/MountParsing.h"
#include "tools/ProcessRunner.h"
#include "tools/Shell.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QThread>
#include <cerrno>
#include <unistd.h>

namespace tapedesk {

namespace {

QString canonicalOrSelf(const QString &path)
{
    const QString canonical = QFileInfo(path).canonicalFilePath();
    return canonical.isEmpty() ? path : canonical;
}

} // namespace

std::optional<QString> readMountTable()
{
    // The same shell as every other command line, so `mount` is the one the
    // operator's PATH names. Its standard error is not part of the table.
    // A time limit also makes the runner wait for the exit status, which
    // decides here; a mount that has not answered in 10 s is no answer.
    const ProcessResult r = runProcess(commandShell(), {QStringLiteral("-c"), QStringLiteral("mount")},
                                       StreamMode::Separate, {}, 10000);
    if (!r.started || r.exitStatus != 0)
        return std::nullopt;
    const QString table = QString::fromUtf8(r.out);
    const QStringList lines = table.split(QLatin1Char('\n'));
    // A real table lists at least "/dev/sda1 on / type ext4 (rw,relatime)".
    if (std::none_of(lines.cbegin(), lines.cend(),
                     [](const QString &l) { return parseMountLine(l).has_value(); }))
        return std::nullopt;
    return table;
}

QString ltfsLinesOf(const QString &mountTable)
{
    QStringList picked;
    for (const QString &line : mountTable.split(QLatin1Char('\n'))) {
        if (line.contains(QStringLiteral("ltfs")))
            picked << line;
    }
    return picked.isEmpty() ? QString() : picked.join(QLatin1Char('\n')) + QLatin1Char('\n');
}

MountAnswer mountAnswerFor(const std::optional<QString> &mountTable, const QString &name)
{
    if (!mountTable)
        return MountAnswer::Unknown;
    return mountOutputShows(*mountTable, name) ? MountAnswer::Yes : MountAnswer::No;
}

QString mountTableUnreadableLine(const QString &consequence)
{
    return QStringLiteral("The mount table could not be read (`mount` failed or printed no table), so "
                          "TapeDesk cannot tell whether the tape is mounted: ") +
           consequence;
}

StrayFiles strayFilesIn(const QString &mountPoint)
{
    StrayFiles stray;
    const QDir dir(mountPoint);
    const QFileInfoList entries =
        dir.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    stray.count = entries.size();
    for (const QFileInfo &entry : entries) {
        if (stray.firstNames.size() < 5)
            stray.firstNames << entry.fileName();
        if (entry.isFile())
            stray.bytes += entry.size();
    }
    QDirIterator below(mountPoint, QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                       QDirIterator::Subdirectories);
    while (below.hasNext()) {
        below.next();
        if (below.fileInfo().dir() != dir)
            stray.bytes += below.fileInfo().size();
    }
    return stray;
}

QString strayFilesLine(const QString &mountPoint, const StrayFiles &stray)
{
    QString names = stray.firstNames.join(QStringLiteral(", "));
    if (stray.count > stray.firstNames.size())
        names += QStringLiteral(" and %1 more").arg(stray.count - stray.firstNames.size());
    return QStringLiteral("Mount Error: %1 holds files although no tape is mounted there, probably written "
                          "while the tape was not mounted: %2 (%3 in all). A mount would hide them. Move "
                          "them away, then mount again; TapeDesk neither deletes nor moves them.")
        .arg(mountPoint, names,
             QLocale::c().formattedDataSize(stray.bytes, 1, QLocale::DataSizeTraditionalFormat));
}

MountAnswer waitForMountListing(const QString &name, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    for (;;) {
        const MountAnswer answer = mountAnswerFor(readMountTable(), name);
        if (answer == MountAnswer::Yes || clock.elapsed() >= timeoutMs)
            return answer;
        QThread::msleep(100);
    }
}

namespace {

enum class LinkRead { Ok, Hidden, Gone };

LinkRead readLink(const QString &link, QString &target)
{
    const QByteArray path = QFile::encodeName(link);
    char buffer[4096];
    const ssize_t n = ::readlink(path.constData(), buffer, sizeof buffer);
    if (n < 0)
        return errno == EACCES || errno == EPERM ? LinkRead::Hidden : LinkRead::Gone;
    target = QFile::decodeName(QByteArray(buffer, static_cast<qsizetype>(n)));
    return LinkRead::Ok;
}

bool inside(const QString &path, const QString &point)
{
    return path == point || path.startsWith(point + QLatin1Char('/'));
}

// Where in the volume process `dir` (/proc/PID) works, reads or maps a file;
// "" when nowhere.
LinkRead pathInside(const QString &dir, const QString &point, QString &found)
{
    QString target;
    const LinkRead cwd = readLink(dir + QStringLiteral("/cwd"), target);
    if (cwd != LinkRead::Ok)
        return cwd;
    if (inside(target, point)) {
        found = target;
        return LinkRead::Ok;
    }
    const QStringList fds = QDir(dir + QStringLiteral("/fd")).entryList(QDir::Files | QDir::System);
    for (const QString &fd : fds) {
        if (readLink(dir + QStringLiteral("/fd/") + fd, target) == LinkRead::Ok && inside(target, point)) {
            found = target;
            return LinkRead::Ok;
        }
    }
    // "7f2a...-7f2b... r--p 00000000 00:2e 12 /tmp/ltfs/mnt/0/lib.so": the path is the sixth field.
    QFile maps(dir + QStringLiteral("/maps"));
    if (maps.open(QIODevice::ReadOnly)) {
        for (const QByteArray &line : maps.readAll().split('\n')) {
            const qsizetype slash = line.indexOf(" /");
            if (slash < 0)
                continue;
            const QString mapped = QFile::decodeName(line.mid(slash + 1).trimmed());
            if (inside(mapped, point)) {
                found = mapped;
                return LinkRead::Ok;
            }
        }
    }
    return LinkRead::Ok;
}

} // namespace

VolumeUsers volumeUsersOf(const QString &mountPoint, const QString &procRoot)
{
    VolumeUsers users;
    const QString point = QDir::cleanPath(mountPoint);
    const QStringList entries = QDir(procRoot).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString &entry : entries) {
        bool numeric = false;
        const qint64 pid = entry.toLongLong(&numeric);
        if (!numeric)
            continue;
        const QString dir = procRoot + QLatin1Char('/') + entry;
        QString found;
        switch (pathInside(dir, point, found)) {
        case LinkRead::Hidden:
            ++users.hidden;
            break;
        case LinkRead::Gone:
            break;
        case LinkRead::Ok:
            if (!found.isEmpty()) {
                QFile comm(dir + QStringLiteral("/comm"));
                const QString program =
                    comm.open(QIODevice::ReadOnly) ? QString::fromUtf8(comm.readAll()).trimmed() : QString();
                users.visible.append({pid, program, found});
            }
            break;
        }
    }
    return users;
}

QStringList volumeUsersLines(const VolumeUsers &users)
{
    QStringList lines;
    for (const VolumeUser &u : users.visible)
        lines << QStringLiteral("The volume is busy: %1 (pid %2) holds %3")
                     .arg(u.program)
                     .arg(u.pid)
                     .arg(u.path);
    if (!lines.isEmpty())
        return lines;
    QString none = QStringLiteral("The volume is busy, but no process holding it could be found");
    // Permissions hide other users' processes: one of them may be the holder.
    if (users.hidden > 0)
        none +=
            QStringLiteral(" among those TapeDesk may look into; %1 process(es) of other users are hidden "
                           "from it")
                .arg(users.hidden);
    return {none};
}

bool isLtfsHolder(const QByteArray &cmdline, const QString &mountPoint, const QString &ltfsPath)
{
    QList<QByteArray> args = cmdline.split('\0');
    if (!args.isEmpty() && args.constLast().isEmpty())
        args.removeLast();
    if (args.size() < 2)
        return false;
    const QString program = QFile::decodeName(args.constFirst());
    const bool isLtfs =
        program.section(QLatin1Char('/'), -1) == QStringLiteral("ltfs") ||
        (!ltfsPath.isEmpty() && (program == ltfsPath || program == canonicalOrSelf(ltfsPath)));
    if (!isLtfs)
        return false;
    const QString point = QDir::cleanPath(mountPoint);
    return std::any_of(args.cbegin() + 1, args.cend(), [&](const QByteArray &a) {
        return !a.isEmpty() && QDir::cleanPath(QFile::decodeName(a)) == point;
    });
}

std::optional<QList<LtfsHolder>> ltfsHoldersOf(const QString &mountPoint, const QString &ltfsPath)
{
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QList<LtfsHolder> holders;
    bool sawProcess = false;
    for (const QString &entry : pids) {
        bool numeric = false;
        const qint64 pid = entry.toLongLong(&numeric);
        if (!numeric)
            continue;
        sawProcess = true;
        QFile f(QStringLiteral("/proc/") + entry + QStringLiteral("/cmdline"));
        // A process that ended since the listing has nothing to read.
        if (!f.open(QIODevice::ReadOnly))
            continue;
        const QByteArray cmdline = f.readAll();
        if (!isLtfsHolder(cmdline, mountPoint, ltfsPath))
            continue;
        QByteArray shown = cmdline;
        while (shown.endsWith('\0'))
            shown.chop(1);
        shown.replace('\0', ' ');
        holders.append({pid, QString::fromUtf8(shown)});
    }
    if (!sawProcess)
        return std::nullopt;
    return holders;
}

} // namespace tapedesk

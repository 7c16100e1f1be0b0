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
    const ProcessResult r =
        runProcess(commandShell(), {QStringLiteral("-c"), QStringLiteral("mount")}, StreamMode::Separate);
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

#pragma once

// The real LTFS programs' harness for tst_real_ltfs: the drives, their
// cartridge folders and mount points, running the tools and tapedesk-cli,
// the daemons, and the masks of the comparison with the simulator.

#include "support/EngineHarness.h"
#include "support/TestEnv.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QTest>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

// This program's own drives, so no other test's mount point is touched; the
// last one is the comparison's.
const QStringList kDrives{"rlt1", "rlt2", "rlt3", "rlt4", "rlt5", "rlt6", "rlt7", "rltc"};
const QString kCompared = QStringLiteral("rltc");
const QByteArray kData(qsizetype{1} << 20, 'x');

QString g_root; // bin/ (the tools TapeDesk runs), ltfs-bin, cartridges/, tools.log

QString pointOf(const QString &name)
{
    return QStringLiteral("/tmp/ltfs/mnt/") + name;
}

QString cartridgeOf(const QString &name)
{
    return g_root + QStringLiteral("/cartridges/") + name;
}

struct Run
{
    int status = -1;
    QString out;
    QString err;
};

Run run(const QString &program, const QStringList &arguments, const QByteArray &input = {},
        const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment())
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(program, arguments);
    p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(120000))
        p.kill();
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAllStandardOutput()), QString::fromUtf8(p.readAllStandardError())};
}

// The real ltfs processes serving `point`: "/root/.cache/.../bin/ltfs /tmp/ltfs/mnt/rlt1 -o devname=..."
QList<qint64> daemonsOf(const QString &point)
{
    QList<qint64> pids;
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QList<QByteArray> args = readFile(QStringLiteral("/proc/%1/cmdline").arg(entry)).split('\0');
        if (QFileInfo(QFile::decodeName(args.first())).fileName() == QStringLiteral("ltfs") &&
            args.contains(QFile::encodeName(point)))
            pids << entry.toLongLong();
    }
    return pids;
}

// Alive, and not a zombie ("1234 (ltfs) Z ...") left for whoever adopted it.
bool isRunning(qint64 pid)
{
    return ::kill(static_cast<pid_t>(pid), 0) == 0 &&
           !readFile(QStringLiteral("/proc/%1/stat").arg(pid)).contains(") Z ");
}

bool isListed(const QString &point)
{
    return readFile(QStringLiteral("/proc/self/mounts")).contains(" " + QFile::encodeName(point) + " ");
}

QByteArray attribute(const QString &point, const char *name)
{
    char value[256];
    const ssize_t n = ::getxattr(QFile::encodeName(point).constData(),
                                 (QByteArray("user.ltfs.") + name).constData(), value, sizeof value);
    return n < 0 ? QByteArray(std::strerror(errno)) : QByteArray(value, static_cast<qsizetype>(n));
}

// Ends every daemon of the drive's mount point and takes the mount away (a
// lazy unmount asks the file system nothing, so a dead daemon does not matter).
void release(const QString &name)
{
    const QString point = pointOf(name);
    const QList<qint64> daemons = daemonsOf(point);
    for (const qint64 pid : daemons) {
        ::kill(static_cast<pid_t>(pid), SIGCONT);
        ::kill(static_cast<pid_t>(pid), SIGKILL);
    }
    if (isListed(point))
        run(QStringLiteral("umount"), {QStringLiteral("-l"), QStringLiteral("-c"), point});
    for (const qint64 pid : daemons) {
        if (!QTest::qWaitFor([pid] { return !isRunning(pid); }, 10000))
            qWarning("ltfs daemon %lld outlived SIGKILL", pid);
    }
    QDir(point).removeRecursively();
}

// A fresh cartridge, blank or formatted by the real mkltfs with `options`;
// mkltfs's standard error, or "" when it failed.
QString freshCartridge(const QString &name, bool formatted, const QStringList &options = {})
{
    release(name);
    QDir(cartridgeOf(name)).removeRecursively();
    QDir().mkpath(cartridgeOf(name));
    if (!formatted)
        return QStringLiteral("blank");
    const Run r = run(g_root + QStringLiteral("/ltfs-bin/mkltfs"),
                      QStringList{QStringLiteral("--device=") + cartridgeOf(name)} + options);
    return r.status == 0 ? r.err : QString();
}

// The real tools' runs since the last look: "mkltfs --device=rlt1 ...".
QStringList takeToolRuns()
{
    const QString log = g_root + QStringLiteral("/tools.log");
    QStringList runs = QString::fromUtf8(readFile(log)).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QFile::remove(log);
    return runs;
}

// tapedesk-cli --json: its status, what it said, the tools it ran ("itdt -f tape0 load").
struct Cli
{
    int status = -1;
    QString text;
    QStringList tools;
};

Cli cli(const QStringList &arguments)
{
    const Run r =
        run(QStringLiteral(TAPEDESK_BIN "/tapedesk-cli"), QStringList{QStringLiteral("--json")} + arguments);
    const QJsonObject json = QJsonDocument::fromJson(r.out.toUtf8()).object();
    Cli c{r.status, r.err, {}};
    for (const auto &line : json[QStringLiteral("transcript")].toArray())
        c.text += QLatin1Char('\n') + line.toString();
    for (const auto &tool : json[QStringLiteral("tools")].toArray()) {
        QString words = QFileInfo(tool[QStringLiteral("program")].toString()).fileName();
        for (const auto &a : tool[QStringLiteral("arguments")].toArray())
            words += QLatin1Char(' ') + a.toString();
        c.tools << words;
    }
    return c;
}

// Standard error as compared: the cartridge folder named as the drive, then mask.sed.
QString masked(QString err)
{
    err.replace(cartridgeOf(kCompared), kCompared);
    return run(QStringLiteral("sed"),
               {QStringLiteral("-E"), QStringLiteral("-f"),
                QStringLiteral(TAPEDESK_SOURCE_DIR "/tests/real-ltfs/mask.sed")},
               err.toUtf8())
        .out.trimmed();
}

// A step of a command-line case.
struct Steps
{
    explicit Steps(QString drive) : name(std::move(drive)) {}
    QString name;
    qint64 daemon = 0;
    std::unique_ptr<QProcess> holder;  // a process inside the volume
    std::unique_ptr<QProcess> running; // a tapedesk-cli left running
    QString runningOut;
    Cli last;
};

} // namespace

#include "real-ltfs/RealLtfs.h"

#include "support/TestEnv.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace tapedesk::test::real {

QString ltfsBin()
{
    return QString::fromLocal8Bit(qgetenv("TAPEDESK_LTFS_BIN"));
}

QString whyUnavailable()
{
    const int fuse = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (fuse < 0)
        return QStringLiteral("/dev/fuse cannot be opened (%1): no FUSE on this host")
            .arg(QString::fromLocal8Bit(std::strerror(errno)));
    ::close(fuse);
    const QString bin = ltfsBin();
    if (bin.isEmpty())
        return QStringLiteral(
            "TAPEDESK_LTFS_BIN is not set: configure with -DTAPEDESK_LTFS_BIN=$(../shared/ltfs/build)");
    for (const char *tool : {"ltfs", "mkltfs", "ltfsck"}) {
        if (!QFileInfo(bin + QLatin1Char('/') + QLatin1String(tool)).isExecutable())
            return QStringLiteral("the real %1 is missing from %2").arg(QLatin1String(tool), bin);
    }
    return {};
}

void markSkipped(const QString &why)
{
    const QString marker = QString::fromLocal8Bit(qgetenv("TAPEDESK_REAL_LTFS_SKIPPED"));
    if (marker.isEmpty())
        return;
    QFile f(marker);
    if (why.isEmpty())
        f.remove();
    else if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        f.write(why.toUtf8() + '\n');
}

QString mountPoint(const QString &name)
{
    return QStringLiteral("/tmp/ltfs/mnt/") + name;
}

QList<qint64> daemonsOf(const QString &point)
{
    QList<qint64> pids;
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool numeric = false;
        const qint64 pid = entry.toLongLong(&numeric);
        if (!numeric)
            continue;
        const QList<QByteArray> args = readFile(QStringLiteral("/proc/%1/cmdline").arg(entry)).split('\0');
        // "/root/.cache/.../bin/ltfs /tmp/ltfs/mnt/rlt1 -o devname=... -o eject"
        if (args.size() > 1 &&
            QFileInfo(QFile::decodeName(args.first())).fileName() == QStringLiteral("ltfs") &&
            args.contains(QFile::encodeName(point)))
            pids << pid;
    }
    return pids;
}

bool isRunning(qint64 pid)
{
    if (::kill(static_cast<pid_t>(pid), 0) != 0)
        return false;
    // "1234 (ltfs) Z ...": dead, waiting for whoever adopted it to reap it.
    return !readFile(QStringLiteral("/proc/%1/stat").arg(pid)).contains(") Z ");
}

bool isListed(const QString &point)
{
    for (const QByteArray &line : readFile(QStringLiteral("/proc/self/mounts")).split('\n')) {
        if (line.split(' ').value(1) == QFile::encodeName(point))
            return true;
    }
    return false;
}

QByteArray attribute(const QString &path, const QString &name, QString *error)
{
    const QByteArray file = QFile::encodeName(path);
    const QByteArray key = "user.ltfs." + name.toLatin1();
    char value[256];
    const ssize_t n = ::getxattr(file.constData(), key.constData(), value, sizeof value);
    if (n < 0) {
        if (error)
            *error = QString::fromLocal8Bit(std::strerror(errno));
        return {};
    }
    return QByteArray(value, static_cast<qsizetype>(n));
}

Library::Library(const QStringList &names) : m_root(makeDir(QStringLiteral("real-ltfs"))), m_names(names)
{
    QDir(m_root).removeRecursively();
    QDir().mkpath(toolDir());
    const QString wrapper = QStringLiteral(TAPEDESK_SOURCE_DIR "/tests/real-ltfs/cartridge-tools.sh");
    for (const char *tool : {"ltfs", "mkltfs", "ltfsck"})
        QFile::link(wrapper, toolDir() + QLatin1Char('/') + QLatin1String(tool));
    QFile::link(ltfsBin(), m_root + QStringLiteral("/ltfs-bin"));
    QByteArray library;
    int n = 0;
    for (const QString &name : names) {
        release(name);
        QDir().mkpath(cartridge(name));
        // Formatted as far as itdt knows: its attribute read lets a mount go
        // on, and the real programs decide the rest.
        library += "[drive]\nid = tape" + name.toLatin1() +
                   "\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 10133300" + QByteArray::number(10 + n) +
                   "\naddress = H1-B0-T" + QByteArray::number(n) +
                   "-L0\nloaded = yes\ncartridge = yes\nbarcode = " + name.toUpper().toLatin1() +
                   "\nformatted = yes\n\n";
        ++n;
    }
    if (!resetSimulatorTo(library))
        qWarning("the simulator's library could not be written");
}

Library::~Library()
{
    for (const QString &name : std::as_const(m_names))
        release(name);
}

QStringList Library::takeToolRuns()
{
    const QString log = m_root + QStringLiteral("/tools.log");
    QStringList runs = QString::fromUtf8(readFile(log)).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QFile::remove(log);
    return runs;
}

QString Library::format(const QString &name, const QString &serial, const QString &volume)
{
    QStringList arguments{QStringLiteral("--device=") + cartridge(name)};
    if (!serial.isEmpty())
        arguments << QStringLiteral("--tape-serial=") + serial;
    if (!volume.isEmpty())
        arguments << QStringLiteral("--volume-name=") + volume;
    QProcess p;
    p.start(ltfsBin() + QStringLiteral("/mkltfs"), arguments);
    p.waitForFinished(60000);
    return p.exitCode() == 0 ? QString::fromUtf8(p.readAllStandardError()) : QString();
}

void Library::release(const QString &name)
{
    const QString point = mountPoint(name);
    const QList<qint64> daemons = daemonsOf(point);
    for (const qint64 pid : daemons) {
        ::kill(static_cast<pid_t>(pid), SIGCONT);
        ::kill(static_cast<pid_t>(pid), SIGKILL);
    }
    // A dead daemon leaves its mount listed; a lazy unmount takes it away
    // without asking the file system anything.
    if (isListed(point))
        QProcess::execute(QStringLiteral("umount"), {QStringLiteral("-l"), QStringLiteral("-c"), point});
    for (const qint64 pid : daemons) {
        if (!QTest::qWaitFor([pid] { return !isRunning(pid); }, 10000))
            qWarning("ltfs daemon %lld outlived SIGKILL", pid);
    }
    QDir(point).removeRecursively();
}

CliRun cli(const QStringList &arguments)
{
    const std::unique_ptr<QProcess> p = startCli(QStringList{QStringLiteral("--json")} + arguments);
    CliRun run;
    if (!p->waitForFinished(180000))
        return run;
    run.status = p->exitCode();
    run.json = QJsonDocument::fromJson(p->readAllStandardOutput()).object();
    QStringList lines;
    for (const auto &v : run.json.value(QStringLiteral("transcript")).toArray())
        lines << v.toString();
    lines << QString::fromUtf8(p->readAllStandardError());
    run.text = lines.join(QLatin1Char('\n'));
    for (const auto &v : run.json.value(QStringLiteral("tools")).toArray()) {
        QStringList words{QFileInfo(v[QStringLiteral("program")].toString()).fileName()};
        for (const auto &a : v[QStringLiteral("arguments")].toArray())
            words << a.toString();
        run.tools << words.join(QLatin1Char(' '));
    }
    return run;
}

std::unique_ptr<QProcess> startCli(const QStringList &arguments)
{
    auto p = std::make_unique<QProcess>();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("DISPLAY"));
    p->setProcessEnvironment(env);
    p->start(QStringLiteral(TAPEDESK_BIN "/tapedesk-cli"), arguments);
    p->waitForStarted();
    return p;
}

} // namespace tapedesk::test::real

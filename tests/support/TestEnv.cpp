#include "support/TestEnv.h"

#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcessEnvironment>
#include <QTemporaryFile>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace tapedesk::test {

namespace {
QString g_home;
}

TestHome::TestHome()
{
    m_dir.setAutoRemove(true);
    g_home = m_dir.path();
    const QByteArray home = QFile::encodeName(g_home);
    ::setenv("HOME", home.constData(), 1);
    ::setenv("XDG_CONFIG_HOME", (home + "/.config").constData(), 1);
    ::setenv("XDG_DATA_HOME", (home + "/.local/share").constData(), 1);
    ::setenv("XDG_CACHE_HOME", (home + "/.cache").constData(), 1);
    ::setenv("XDG_STATE_HOME", (home + "/.local/state").constData(), 1);
    ::setenv("TAPESIM_HOME", (home + "/tapesim").constData(), 1);
    if (!::getenv("QT_QPA_PLATFORM"))
        ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QDir().mkpath(g_home + QStringLiteral("/.config"));
}

TestHome::~TestHome()
{
    resetSimulator();
}

QString TestHome::path()
{
    return g_home;
}

void resetSimulator()
{
    const QString folder = QString::fromLocal8Bit(qgetenv("TAPESIM_HOME"));
    // state.ini names each daemon in a line "daemon = PID".
    for (const QByteArray &line : readFile(folder + QStringLiteral("/state.ini")).split('\n')) {
        if (!line.startsWith("daemon"))
            continue;
        const pid_t pid = static_cast<pid_t>(line.mid(line.indexOf('=') + 1).trimmed().toLongLong());
        if (pid <= 0 || ::kill(pid, SIGKILL) != 0)
            continue;
        // Gone from the process table (it is not our child: init reaps it).
        for (int i = 0; i < 200 && ::kill(pid, 0) == 0; ++i) {
            QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
            if (stat.open(QIODevice::ReadOnly) && stat.readAll().contains(") Z "))
                break;
            ::usleep(10000);
        }
    }
    QDir(folder).removeRecursively();
}

bool resetSimulatorTo(const QByteArray &stateIni)
{
    resetSimulator();
    const QString folder = QString::fromLocal8Bit(qgetenv("TAPESIM_HOME"));
    QFile state(folder + QStringLiteral("/state.ini"));
    return QDir().mkpath(folder) && state.open(QIODevice::WriteOnly) &&
           state.write(stateIni) == stateIni.size();
}

QList<QStringList> simInvocations(const QString &logPath)
{
    QList<QStringList> runs;
    for (const QByteArray &line : readFile(logPath).split('\n')) {
        QStringList argv;
        for (const QJsonValue &v : QJsonDocument::fromJson(line).array())
            argv << v.toString();
        if (!argv.isEmpty())
            runs << argv;
    }
    return runs;
}

QString simBinDir()
{
    return QStringLiteral(TAPEDESK_SIM_BIN);
}

QString writeScript(const QString &dir, const QString &name, const QString &body)
{
    QDir().mkpath(dir);
    const QString path = dir + QLatin1Char('/') + name;
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return {};
    f.write("#!/bin/sh\n");
    f.write(body.toUtf8());
    f.write("\n");
    f.close();
    f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup |
                     QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther);
    return path;
}

void installLoginProfile(const QStringList &pathFirst)
{
    QFile f(g_home + QStringLiteral("/.bash_profile"));
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return;
    f.write("export PATH=\"" + QFile::encodeName(pathFirst.join(QLatin1Char(':'))) + ":$PATH\"\n");
}

QString makeDir(const QString &relative)
{
    const QString p = g_home + QLatin1Char('/') + relative;
    QDir().mkpath(p);
    return p;
}

QByteArray readFile(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return f.readAll();
}

QList<QByteArray> consoleOf(const std::function<void()> &f)
{
    QTemporaryFile file;
    if (!file.open())
        return {};
    std::fflush(stdout);
    const int saved = ::dup(STDOUT_FILENO);
    ::dup2(file.handle(), STDOUT_FILENO);
    f();
    std::fflush(stdout);
    ::dup2(saved, STDOUT_FILENO);
    ::close(saved);
    QByteArray all = readFile(file.fileName());
    if (all.endsWith('\n'))
        all.chop(1);
    return all.isEmpty() ? QList<QByteArray>{} : all.split('\n');
}

void setPaths(const QString &itdt, const QString &ltfs, const QString &mkltfs, const QString &output)
{
    SettingsStore::setText(PreferenceKeys::itdt, itdt);
    SettingsStore::setText(PreferenceKeys::ltfs, ltfs);
    SettingsStore::setText(PreferenceKeys::mkltfs, mkltfs);
    SettingsStore::setText(PreferenceKeys::output, output);
    ITDT_PATH.set(itdt);
    LTFS_PATH.set(ltfs);
    MKLTFS_PATH.set(mkltfs);
    OUTPUT_FOLDER.set(output);
}

void useSimulator()
{
    const QString bin = simBinDir();
    setPaths(bin + QStringLiteral("/itdt"), bin + QStringLiteral("/ltfs"), bin + QStringLiteral("/mkltfs"),
             makeDir(QStringLiteral("output")));
    installLoginProfile({bin});
    // mount | grep ltfs runs through a plain shell that inherits our PATH.
    const QByteArray current = qgetenv("PATH");
    if (!current.startsWith(QFile::encodeName(bin) + ':'))
        qputenv("PATH", QFile::encodeName(bin) + ':' + current);
}

} // namespace tapedesk::test

#pragma once

#include "support/TestEnv.h"

#include <QDir>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>

namespace tapedesk::test {

// One finished run of a simulated tool. `status` is the exit status, or
// 128 + signal when the tool died by a signal (as a shell would report it).
struct SimRun
{
    int status = -1;
    QByteArray out;
    QByteArray err;

    QList<QByteArray> outLines() const { return out.trimmed().split('\n'); }
    QList<QByteArray> errLines() const { return err.trimmed().split('\n'); }
};

// Runs `tool` from the simulator's bin folder through /bin/sh so a death by
// signal shows up as an exit status. `env` entries are added to the test's
// own environment (which already points TAPESIM_HOME into the test home).
inline SimRun runSim(const QString &tool, const QStringList &args, const QStringList &env = {},
                     int timeoutMs = 20000)
{
    QProcess p;
    QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
    if (!e.contains(QStringLiteral("TAPESIM_SPEED")))
        e.insert(QStringLiteral("TAPESIM_SPEED"), QStringLiteral("0"));
    for (const QString &kv : env)
        e.insert(kv.section(QLatin1Char('='), 0, 0), kv.section(QLatin1Char('='), 1));
    p.setProcessEnvironment(e);
    QStringList shArgs{QStringLiteral("-c"), QStringLiteral("\"$0\" \"$@\"; exit $?"),
                       simBinDir() + QLatin1Char('/') + tool};
    shArgs += args;
    p.start(QStringLiteral("/bin/sh"), shArgs);
    SimRun r;
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished();
        return r;
    }
    r.status = p.exitCode();
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

inline SimRun itdt(const QStringList &args, const QStringList &env = {})
{
    return runSim(QStringLiteral("itdt"), args, env);
}

} // namespace tapedesk::test

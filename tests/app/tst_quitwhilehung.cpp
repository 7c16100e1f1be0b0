// ctest-timeout: 90
// The real application, quit while a tool hangs: tapedesk runs in a session of
// its own with the simulator's scan hanging, gets SIGTERM (a logout, a
// service stop) and must end cleanly without leaving any process of its
// session behind, the hung itdt included.

#include "operations/FaultMatrix.h"
#include "support/TestMain.h"

#include <QDir>
#include <QProcess>
#include <csignal>
#include <unistd.h>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

struct Member
{
    pid_t pid = 0;
    QString commandLine;
};

// The living processes of session `sid` (zombies are dead already: they only
// wait for whoever adopted them to reap them).
QList<Member> sessionMembers(pid_t sid)
{
    QList<Member> members;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        bool isPid = false;
        const pid_t pid = entry.toInt(&isPid);
        if (!isPid)
            continue;
        const QByteArray stat = readFile(QStringLiteral("/proc/%1/stat").arg(pid));
        // "pid (comm) state ppid pgrp session ...": comm may hold blanks.
        const qsizetype close = stat.lastIndexOf(')');
        if (close < 0)
            continue;
        const QList<QByteArray> fields = stat.mid(close + 2).split(' ');
        if (fields.size() < 4 || fields.at(0) == "Z" || fields.at(3).toInt() != sid)
            continue;
        QByteArray cmdline = readFile(QStringLiteral("/proc/%1/cmdline").arg(pid));
        cmdline.replace('\0', ' ');
        members << Member{pid, QString::fromLocal8Bit(cmdline.trimmed())};
    }
    return members;
}

bool hungScanRuns(pid_t sid)
{
    const QList<Member> members = sessionMembers(sid);
    return std::any_of(members.cbegin(), members.cend(), [](const Member &m) {
        return m.commandLine.contains(QStringLiteral("/itdt")) &&
               m.commandLine.endsWith(QStringLiteral(" scan"));
    });
}

} // namespace

class QuitWhileHungTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { freshSimulator(); }

    void sigtermEndsTheApplicationAndItsTools()
    {
        QProcess app;
        app.setProgram(QStringLiteral(TAPEDESK_BIN) + QStringLiteral("/tapedesk"));
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("TAPESIM_FAIL"), QStringLiteral("*:scan=hang"));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        app.setProcessEnvironment(env);
        app.setStandardOutputFile(QProcess::nullDevice());
        app.setStandardErrorFile(QProcess::nullDevice());
        app.setChildProcessModifier([] { ::setsid(); });
        app.start();
        QVERIFY(app.waitForStarted());
        const pid_t sid = static_cast<pid_t>(app.processId());

        // The start-up scan runs with the stored paths and hangs.
        QVERIFY(waitUntil([&] { return hungScanRuns(sid); }, 30000));

        ::kill(sid, SIGTERM);
        const bool ended = app.waitForFinished(30000);
        waitUntil([&] { return sessionMembers(sid).isEmpty(); }, 5000);
        const QList<Member> left = sessionMembers(sid);
        for (const Member &m : left) { // never leave a test's processes behind
            qWarning("left behind: %d %s", m.pid, qPrintable(m.commandLine));
            ::kill(m.pid, SIGKILL);
        }
        QVERIFY(ended);
        QCOMPARE(app.exitStatus(), QProcess::NormalExit);
        QCOMPARE(app.exitCode(), 0);
        QVERIFY(left.isEmpty());
    }
};

TAPEDESK_TEST_MAIN(QuitWhileHungTest)
#include "tst_quitwhilehung.moc"

// ctest-timeout: 120
#include "support/TestMain.h"
#include "tools/Bash.h"
#include "tools/ProcessRunner.h"
#include "tools/Shell.h"

#include <QDir>
#include <QFile>
#include <QObject>
#include <QScopeGuard>
#include <QTemporaryFile>
#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

// Points this process's own standard output (fd 1, where the console lines go)
// at a file for as long as it lives, so a test can read what was printed.
class StdoutCapture
{
public:
    explicit StdoutCapture(const QString &target = {})
    {
        if (target.isEmpty()) {
            m_file.open();
            m_path = m_file.fileName();
        } else {
            m_path = target;
        }
        std::fflush(stdout);
        m_saved = ::dup(STDOUT_FILENO);
        const int fd = ::open(QFile::encodeName(m_path).constData(), O_WRONLY | O_TRUNC | O_CLOEXEC);
        ::dup2(fd, STDOUT_FILENO);
        ::close(fd);
    }
    ~StdoutCapture() { restore(); }
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;

    // Everything written to fd 1 since the capture began, as lines.
    QList<QByteArray> lines()
    {
        restore();
        QByteArray all = readFile(m_path);
        if (all.endsWith('\n'))
            all.chop(1);
        return all.split('\n');
    }

private:
    void restore()
    {
        if (m_saved < 0)
            return;
        std::fflush(stdout);
        ::dup2(m_saved, STDOUT_FILENO);
        ::close(m_saved);
        m_saved = -1;
    }

    QTemporaryFile m_file;
    QString m_path;
    int m_saved = -1;
};

// Console lines of big runs would flood the test log.
QString quietLaunch(const QString &path, const QStringList &args, Synchronized<QString> &err)
{
    StdoutCapture toNowhere(QStringLiteral("/dev/null"));
    return shellLaunch(path, args, err);
}

// Children of this process that have exited but were never waited for.
int zombieChildren()
{
    int zombies = 0;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString &entry : entries) {
        bool numeric = false;
        entry.toInt(&numeric);
        if (!numeric)
            continue;
        const QByteArray stat = readFile(QStringLiteral("/proc/") + entry + QStringLiteral("/stat"));
        // "1234 (sh) Z 1200 ..." - the command name may hold blanks and parentheses.
        const qsizetype close = stat.lastIndexOf(')');
        if (close < 0)
            continue;
        const QList<QByteArray> fields = stat.mid(close + 2).split(' ');
        if (fields.size() > 1 && fields.at(0) == "Z" && fields.at(1).toInt() == ::getpid())
            ++zombies;
    }
    return zombies;
}

QString toolDir()
{
    return TestHome::path() + QStringLiteral("/tools");
}

} // namespace

class TestShell : public QObject
{
    Q_OBJECT

private slots:
    void missingToolStartsNothingButStillPrintsTheBanners()
    {
        Synchronized<QString> lastErrorOutput(QStringLiteral("left from the last run"));
        StdoutCapture console;
        const QString out =
            shellLaunch(toolDir() + QStringLiteral("/no-such-tool"), {"scan"}, lastErrorOutput);
        const QList<QByteArray> lines = console.lines();

        QCOMPARE(out, QString());
        QCOMPARE(lastErrorOutput.get(), QStringLiteral("left from the last run"));
        const QList<QByteArray> expected{"(*********** START ERROR ************************)",
                                         "left from the last run",
                                         "(*********** END ERROR ********************)",
                                         "(*********** START ************************)",
                                         "",
                                         "(*********** END ********************)"};
        QCOMPARE(lines, expected);
    }

    void pathsThatCannotStartAreTreatedAsMissing_data()
    {
        QTest::addColumn<QString>("path");
        const QString dir = makeDir(QStringLiteral("unstartable"));
        QTest::newRow("folder") << makeDir(QStringLiteral("unstartable/folder"));

        const QString noRunBit = writeScript(dir, QStringLiteral("no-run-bit"), QStringLiteral("echo ran"));
        QFile::setPermissions(noRunBit, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther);
        QTest::newRow("no run bit") << noRunBit;

        const QString broken = dir + QStringLiteral("/broken-interpreter");
        QFile f(broken);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("#!/no/such/interpreter\necho ran\n");
        f.close();
        f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QTest::newRow("broken interpreter line") << broken;

        // Neither an interpreter line nor a binary: the kernel refuses it and
        // nothing may fall back to running it through a shell.
        const QString plain = dir + QStringLiteral("/plain-text");
        QFile p(plain);
        QVERIFY(p.open(QIODevice::WriteOnly));
        p.write("echo ran\n");
        p.close();
        p.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QTest::newRow("no interpreter line") << plain;
    }

    void pathsThatCannotStartAreTreatedAsMissing()
    {
        QFETCH(QString, path);
        Synchronized<QString> lastErrorOutput(QStringLiteral("before"));
        StdoutCapture console;
        QCOMPARE(shellLaunch(path, {}, lastErrorOutput), QString());
        QCOMPARE(console.lines().size(), 6);
        QCOMPARE(lastErrorOutput.get(), QStringLiteral("before"));
        QCOMPARE(children::liveCount(), 0);
    }

    void streamsAreCollectedApartWithTheirLineEnds()
    {
        const QString tool =
            writeScript(toolDir(), QStringLiteral("two-lines"),
                        QStringLiteral("echo 'Exit with code: 0'\necho 'warning: slow' >&2"));
        Synchronized<QString> lastErrorOutput;
        StdoutCapture console;
        const QString out = shellLaunch(tool, {}, lastErrorOutput);
        const QList<QByteArray> lines = console.lines();

        QCOMPARE(out, QStringLiteral("Exit with code: 0\n"));
        QCOMPARE(lastErrorOutput.get(), QStringLiteral("warning: slow\n"));
        // The texts are printed as they are, so each brings its own line end.
        QCOMPARE(lines.mid(0, 3), (QList<QByteArray>{"(*********** START ERROR ************************)",
                                                     "warning: slow", ""}));
        QCOMPARE(lines.mid(4, 3), (QList<QByteArray>{"(*********** START ************************)",
                                                     "Exit with code: 0", ""}));

        // A later run that prints nothing on stderr empties it again.
        QCOMPARE(quietLaunch(QStringLiteral("/bin/true"), {}, lastErrorOutput), QString());
        QCOMPARE(lastErrorOutput.get(), QString());
    }

    void argumentsReachTheToolUnchanged()
    {
        const QString tool =
            writeScript(toolDir(), QStringLiteral("echo-args"), QStringLiteral("printf '[%s]\\n' \"$@\""));
        Synchronized<QString> err;
        const QStringList args{"-f", "/dev/IBMtape3", "", "two  blanks", "*", "$HOME", "'q\"", "Ünïcødé"};
        QCOMPARE(
            quietLaunch(tool, args, err),
            QStringLiteral("[-f]\n[/dev/IBMtape3]\n[]\n[two  blanks]\n[*]\n[$HOME]\n['q\"]\n[Ünïcødé]\n"));
    }

    void bigStderrBeforeAnyStdoutDoesNotBlock()
    {
        // 64 MiB on stderr while stdout is still silent, then 3 MiB on stdout:
        // reading stdout alone first would deadlock once the stderr pipe fills.
        const QString tool = writeScript(toolDir(), QStringLiteral("flood"),
                                         QStringLiteral("head -c 67108864 /dev/zero | tr '\\0' e >&2\n"
                                                        "head -c 3145728 /dev/zero | tr '\\0' o\n"
                                                        "echo"));
        Synchronized<QString> err;
        const QString out = quietLaunch(tool, {}, err);
        QCOMPARE(out.size(), 3 * 1024 * 1024 + 1);
        QCOMPARE(err.get().size(), 64 * 1024 * 1024);
        QCOMPARE(out.count(QLatin1Char('o')), 3 * 1024 * 1024);
        QCOMPARE(err.get().count(QLatin1Char('e')), 64 * 1024 * 1024);
    }

    void invalidUtf8BecomesReplacementCharacters()
    {
        const QString tool = writeScript(toolDir(), QStringLiteral("latin1"),
                                         QStringLiteral("printf 'Gr\\374\\337e \\377\\n'\n"
                                                        "printf 'caf\\303\\251 \\300\\n' >&2"));
        Synchronized<QString> err;
        const QString out = quietLaunch(tool, {}, err);
        QCOMPARE(out, QStringLiteral("Gr\uFFFD\uFFFDe \uFFFD\n"));
        QCOMPARE(err.get(), QStringLiteral("café \uFFFD\n"));
        QCOMPARE(shellCommand(QStringLiteral("printf 'ok\\377\\n'")), QStringLiteral("ok\uFFFD\n"));
    }

    void childrenAreReaped()
    {
        Synchronized<QString> err;
        {
            StdoutCapture toNowhere(QStringLiteral("/dev/null"));
            for (int i = 0; i < 1000; ++i)
                shellLaunch(i % 2 ? QStringLiteral("/bin/true") : QStringLiteral("/bin/false"), {}, err);
        }
        // One that closes its pipes and lives on is reaped after it ends.
        QCOMPARE(shellCommand(QStringLiteral("echo bye; exec >&- 2>&-; sleep 0.3")), QStringLiteral("bye\n"));
        QTRY_COMPARE_WITH_TIMEOUT(children::liveCount(), 0, 10000);
        QCOMPARE(zombieChildren(), 0);
    }

    void mergedStreamsKeepTheChildsOrder()
    {
        QCOMPARE(shellCommand(QStringLiteral("echo first; echo second >&2; echo third")),
                 QStringLiteral("first\nsecond\nthird\n"));
        QCOMPARE(shellCommand(QStringLiteral("echo 'tmpfs on /tmp type tmpfs' | grep ltfs")), QString());
        QCOMPARE(shellCommand(QString()), QString());
    }

    void bashFindsCommandsThroughTheLoginProfile()
    {
        const QString dir = makeDir(QStringLiteral("login-bin"));
        writeScript(dir, QStringLiteral("tapedesk-fake-umount"),
                    QStringLiteral("echo 'not collected' >&2\nprintf '<%s>\\n' \"$@\""));
        installLoginProfile({dir});
        QVERIFY(!qEnvironmentVariable("PATH").contains(dir));

        Bash bash;
        CommandExecuting &executor = bash;
        QCOMPARE(
            executor.execute(QStringLiteral("tapedesk-fake-umount"), {"-v", "/tmp/ltfs/mnt/0", "a b", ""}),
            QStringLiteral("<-v>\n</tmp/ltfs/mnt/0>\n<a b>\n<>\n"));
    }

    void unknownCommandThrowsCommandNotFound()
    {
        const QString name = QStringLiteral("tapedesk-no-such-command");
        try {
            Bash().execute(name, {});
            QFAIL("no error thrown");
        } catch (const BashError &e) {
            QCOMPARE(e.kind, BashError::Case::commandNotFound);
            QCOMPARE(e.name, name);
        }
    }

    // Regression: when the path that "which" reported could not be started,
    // the error carried that path instead of the name that was looked up.
    void unstartableLookupResultNamesTheCommand()
    {
        const QString dir = makeDir(QStringLiteral("lying-which"));
        writeScript(dir, QStringLiteral("which"), QStringLiteral("echo Welcome back\necho /no/such/umount"));
        installLoginProfile({dir});
        try {
            Bash().execute(QStringLiteral("umount"), {"-v", "/tmp/ltfs/mnt/0"});
            QFAIL("no error thrown");
        } catch (const BashError &e) {
            QCOMPARE(e.name, QStringLiteral("umount"));
        }
        QFile::remove(TestHome::path() + QStringLiteral("/.bash_profile"));
    }

    void observerSeesEveryByteInOrder()
    {
        const QString tool =
            writeScript(toolDir(), QStringLiteral("chatty"),
                        QStringLiteral("i=0\nwhile [ $i -lt 300 ]; do\n"
                                       "  echo \"out $i\"; echo \"err $i\" >&2\n"
                                       "  [ $((i % 50)) -eq 0 ] && head -c 200000 /dev/zero | tr '\\0' x\n"
                                       "  i=$((i + 1))\ndone"));
        QByteArray seenOut;
        QByteArray seenErr;
        int chunks = 0;
        const ProcessResult r =
            runProcess(tool, {}, StreamMode::Separate, [&](OutputStream stream, QByteArrayView chunk) {
                ++chunks;
                (stream == OutputStream::Stdout ? seenOut : seenErr).append(chunk);
            });
        QVERIFY(r.started);
        QVERIFY(chunks > 2);
        QCOMPARE(seenOut, r.out);
        QCOMPARE(seenErr, r.err);
        QVERIFY(r.out.startsWith("out 0\n"));
        QVERIFY(r.err.endsWith("err 299\n"));
        QCOMPARE(r.err.count('\n'), 300);

        // The observer must not change what shell returns.
        Synchronized<QString> err;
        QByteArray viaShell;
        StdoutCapture toNowhere(QStringLiteral("/dev/null"));
        const QString out = shellLaunch(tool, {}, err, [&](OutputStream s, QByteArrayView chunk) {
            if (s == OutputStream::Stdout)
                viaShell.append(chunk);
        });
        QCOMPARE(out, QString::fromUtf8(r.out));
        QCOMPARE(viaShell, r.out);
        QCOMPARE(err.get(), QString::fromUtf8(r.err));
    }

    void killAllEndsAHangingToolAndItsChildren()
    {
        // The sleep is a grandchild that holds the pipes too: only killing the
        // whole process group lets the blocked run see end of file.
        const QString tool = writeScript(toolDir(), QStringLiteral("hang"),
                                         QStringLiteral("sleep 1000 &\necho started\nwait"));
        QTRY_COMPARE_WITH_TIMEOUT(children::liveCount(), 0, 10000); // earlier runs are all reaped
        std::atomic<bool> started{false};
        ProcessResult result;
        std::thread runner([&] {
            result = runProcess(tool, {}, StreamMode::Separate, [&](OutputStream, QByteArrayView chunk) {
                if (chunk.contains(QByteArrayView("started")))
                    started = true;
            });
        });
        // Should a check fail, the run must still end before the thread goes.
        auto joinAnyway = qScopeGuard([&] {
            if (runner.joinable()) {
                children::killAll();
                runner.join();
            }
        });
        QTRY_VERIFY_WITH_TIMEOUT(started.load(), 10000);
        QCOMPARE(children::liveCount(), 1);
        children::killAll();
        runner.join();
        QCOMPARE(result.out, QByteArray("started\n"));
        QTRY_COMPARE_WITH_TIMEOUT(children::liveCount(), 0, 10000);
        QCOMPARE(zombieChildren(), 0);
    }
};

TAPEDESK_TEST_MAIN(TestShell)
#include "tst_shell.moc"

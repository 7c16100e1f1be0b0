// ctest-timeout: 600
// TapeDesk against the real ltfs, mkltfs and ltfsck on file-backed
// cartridges, mounting through the host's FUSE on /tmp/ltfs/mnt/<name>, with
// the simulator's itdt listing the drives: the command line and the engine
// through every LTFS workflow; then the simulator's ltfs, mkltfs and ltfsck
// against the real ones, line by line, for the same cases.

#include "real-ltfs/Conformance.h"
#include "real-ltfs/RealLtfs.h"
#include "support/EngineHarness.h"
#include "support/TestEnv.h"
#include "tools/ToolPaths.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTest>
#include <csignal>
#include <cstdio>
#include <sys/statvfs.h>

using namespace tapedesk;
using namespace tapedesk::test;
using namespace tapedesk::test::real;

namespace {

// Each drive serves one case; the names are this program's own, so no other
// test's mount point is touched.
const QStringList kDrives{QStringLiteral("rlt1"), QStringLiteral("rlt2"), QStringLiteral("rlt3"),
                          QStringLiteral("rlt4"), QStringLiteral("rlt5"), QStringLiteral("rlt6"),
                          QStringLiteral("rlt7")};

const QByteArray kSmall("six by");

QByteArray bigFile()
{
    QByteArray data(qsizetype{3} * 1000 * 1000, '\0');
    for (qsizetype i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>((i * 7919) >> 3);
    return data;
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(content) == content.size();
}

} // namespace

class RealLtfsTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<Library> m_library;

    // A step of a command-line case; false (after a failed check) ends it.
    struct Steps
    {
        Steps(Library &l, QString drive) : library(l), name(std::move(drive)) {}
        Library &library;
        QString name;
        qint64 daemon = 0;
        std::unique_ptr<QProcess> holder;  // a process inside the volume
        std::unique_ptr<QProcess> running; // a tapedesk-cli left running
        QString runningOut;
        CliRun last;

        QString point() const { return mountPoint(name); }
    };

private Q_SLOTS:
    void initTestCase()
    {
        const QString why = whyUnavailable();
        markSkipped(why);
        if (!why.isEmpty()) {
            qWarning("*** THE REAL LTFS TESTS ARE SKIPPED: %s ***", qPrintable(why));
            QSKIP(qPrintable(why));
        }
        m_library = std::make_unique<Library>(kDrives + QStringList{kConformanceDrive});
        setPaths(simBinDir() + QStringLiteral("/itdt"), m_library->toolDir() + QStringLiteral("/ltfs"),
                 m_library->toolDir() + QStringLiteral("/mkltfs"), makeDir(QStringLiteral("output")));
    }
    void cleanupTestCase() { m_library.reset(); }

    // Each step one word and its arguments ("@" is the case's drive):
    //   cli ARGS => STATUS [TEXT]  tapedesk-cli --json ARGS; its status, and TEXT in what it said
    //   untouched          no real LTFS tool ran, and no tool on the drive
    //   daemon             the one ltfs daemon serving the mount, noted
    //   daemon-gone        the noted daemon has exited
    //   write / files      files written to the volume / there, unchanged
    //   gen N / volume V   the index generation / volume name the mount shows
    //   stray              a file left in the unmounted mount point
    //   hold / release     a process with its working folder inside the volume, and its end
    //   freeze / thaw      the daemon stopped and its volume taken out of the mount table
    //                      (so it still holds the drive), and let go on
    //   start ARGS         tapedesk-cli ARGS left running
    //   await TEXT         until its output says TEXT
    //   ran TOOL / not-ran TOOL   the real TOOL ran / did not run since the last look
    //   end => STATUS      its end
    void commandLine_data()
    {
        QTest::addColumn<QString>("drive");
        QTest::addColumn<bool>("formatted"); // by the real mkltfs before the case
        QTest::addColumn<QStringList>("steps");
        const auto row = [](const char *tag, const char *drive, bool formatted, const char *steps) {
            QTest::newRow(tag) << QString::fromLatin1(drive) << formatted
                               << QString::fromUtf8(steps).split(QStringLiteral(" | "));
        };
        row("blank cartridge: format, mount, write, unmount after the daemon, next generation", "rlt1", false,
            "cli format @ --name RLT001 --then mount => 0 Mount Complete | ran mkltfs | gen 1 | volume RLT001"
            " | daemon | write | freeze | start unmount @ | await Waiting for un-mount to complete | thaw"
            " | end => 0 | daemon-gone"
            " | cli mount @ --yes => 0 Mount Complete | gen 2 | files | cli unmount @ => 0");
        row("stray file in the mount point refused before any tool runs", "rlt3", true,
            "stray | cli mount @ --yes => 1 holds files although no tape is mounted there | untouched");
        row("a process inside the volume named, unmounted once it leaves", "rlt4", true,
            "cli mount @ --yes => 0 Mount Complete | daemon | hold | start unmount @"
            " | await The volume is busy: sh (pid | release | end => 0 | daemon-gone");
        row("formatted cartridge: format refused without --force, then forced", "rlt6", true,
            "cli format @ --name RLT066 --then mount => 3 Tape is already formated | ran mkltfs"
            " | cli format @ --name RLT066 --then mount --force => 0 Mount Complete | ran mkltfs"
            " | volume RLT066 | gen 1 | cli unmount @ => 0");
        row("format refused while the daemon still holds the drive", "rlt7", true,
            "cli mount @ --yes => 0 Mount Complete | daemon | freeze"
            " | cli format @ --name RLT077 --then eject --force => 3 needs --yes | not-ran mkltfs"
            " | start format @ --name RLT077 --then eject --force --yes | await Waiting for un-mount to "
            "complete"
            " | not-ran mkltfs | thaw | end => 0 | daemon-gone | ran mkltfs");
    }
    void commandLine()
    {
        QFETCH(QString, drive);
        QFETCH(bool, formatted);
        QFETCH(QStringList, steps);
        if (formatted)
            QVERIFY(
                !m_library->format(drive, drive.toUpper() + QStringLiteral("00"), drive.toUpper()).isEmpty());
        m_library->takeToolRuns();
        Steps s{*m_library, drive};
        auto cleanup = qScopeGuard([&] {
            if (s.holder)
                s.holder->kill();
            if (s.running)
                s.running->kill();
            Library::release(drive);
        });
        for (const QString &step : std::as_const(steps)) {
            runStep(s, step);
            if (QTest::currentTestFailed()) {
                qWarning("failed at: %s", qPrintable(step));
                return;
            }
        }
    }

    // What the engine reads of the real volume: the attributes of its root,
    // the sizes as the file system itself gives them.
    void volumeDetails_data()
    {
        QTest::addColumn<QString>("serial"); // "" none given: not reported
        QTest::addColumn<QString>("volume");
        QTest::newRow("named") << QStringLiteral("RLT002") << QStringLiteral("VOLTWO");
        QTest::newRow("formatted without a serial or a name") << QString() << QString();
    }
    void volumeDetails()
    {
        QFETCH(QString, serial);
        QFETCH(QString, volume);
        const QString name = QStringLiteral("rlt2");
        Library::release(name);
        QDir(m_library->cartridge(name)).removeRecursively();
        QVERIFY(QDir().mkpath(m_library->cartridge(name)));
        const QString formatted = m_library->format(name, serial, volume);
        const QString uuid = QRegularExpression(QStringLiteral("Volume UUID is: ([0-9a-f-]{36})\\."))
                                 .match(formatted)
                                 .captured(1);
        QVERIFY2(!uuid.isEmpty(), qPrintable(formatted));
        auto cleanup = qScopeGuard([&] { Library::release(name); });
        QStringList asked;
        answerWith({QStringLiteral("0")}, &asked);
        RecordingFace face;
        TapeEngine engine(face);
        QVERIFY(scanAndSelect(engine, face, QStringLiteral("tape") + name));
        QVERIFY(performToEnd(engine, Action::Mount, 60000));
        QTRY_VERIFY2_WITH_TIMEOUT(!face.volumeReports.isEmpty() &&
                                      face.volumeReports.last().state == VolumeReport::State::Read,
                                  qPrintable(face.shown), 30000);
        const VolumeDetails d = face.volumeReports.last().details;
        const auto reported = [](const QString &value) {
            return value.isEmpty() ? std::nullopt : std::optional<QString>(value);
        };
        QCOMPARE(d.volumeName, reported(volume));
        QCOMPARE(d.barcode, reported(serial));
        QCOMPARE(d.uuid, uuid);
        QCOMPARE(d.indexGeneration, 1);
        // LTFS counts whole binary megabytes of what statvfs counts in blocks.
        struct statvfs fs
        {
        };
        QCOMPARE(::statvfs(QFile::encodeName(mountPoint(name)).constData(), &fs), 0);
        const auto near = [](const std::optional<qint64> &shown, qint64 blocks, qint64 blockSize) {
            constexpr qint64 mib = qint64{1024} * 1024;
            const qint64 bytes = blocks * blockSize;
            return shown && *shown <= bytes && bytes - *shown < mib;
        };
        QVERIFY2(near(d.capacityBytes, static_cast<qint64>(fs.f_blocks), static_cast<qint64>(fs.f_frsize)),
                 qPrintable(QString::number(d.capacityBytes.value_or(-1))));
        QVERIFY2(near(d.freeBytes, static_cast<qint64>(fs.f_bavail), static_cast<qint64>(fs.f_frsize)),
                 qPrintable(QString::number(d.freeBytes.value_or(-1))));

        answerWith({}, &asked);
        QVERIFY(performToEnd(engine, Action::Mount, 60000));
        QVERIFY2(face.shown.contains(QStringLiteral("Unmounting Tape Complete")), qPrintable(face.shown));
        QCOMPARE(face.volumeReports.last().state, VolumeReport::State::NotMounted);
        QVERIFY(!isListed(mountPoint(name)));
    }

    // The daemon killed under a mounted volume: the scan names the dead
    // mount, the unmount takes it away at once, the mount asks for ltfsck,
    // and the recovered volume mounts at the next generation.
    void killedDaemon()
    {
        const QString name = QStringLiteral("rlt5");
        QVERIFY(!m_library->format(name, QStringLiteral("RLT005"), QStringLiteral("RLT005")).isEmpty());
        auto cleanup = qScopeGuard([&] { Library::release(name); });
        const QString point = mountPoint(name);
        QStringList asked;
        answerWith({QStringLiteral("0")}, &asked);
        RecordingFace face;
        TapeEngine engine(face);
        QVERIFY(scanAndSelect(engine, face, QStringLiteral("tape") + name));
        QVERIFY(performToEnd(engine, Action::Mount, 60000));
        QVERIFY2(face.shown.contains(QStringLiteral("Mount Complete")), qPrintable(face.shown));
        // Written after the last index, which the killed daemon never writes.
        QVERIFY(writeFile(point + QStringLiteral("/lost.bin"), bigFile()));
        const QList<qint64> daemons = daemonsOf(point);
        QCOMPARE(daemons.size(), 1);
        QCOMPARE(::kill(static_cast<pid_t>(daemons.first()), SIGKILL), 0);
        QTRY_VERIFY(!isRunning(daemons.first()));
        QVERIFY(isListed(point));

        face.shown.clear();
        QVERIFY(scanAndSelect(engine, face, QStringLiteral("tape") + name));
        QVERIFY2(
            face.shown.contains(QStringLiteral("LTFS stopped unexpectedly: the volume is still listed as "
                                               "mounted on ") +
                                point),
            qPrintable(face.shown));
        QVERIFY(performToEnd(engine, Action::Mount, 60000)); // the Mount button unmounts a mounted drive
        QVERIFY2(face.shown.contains(QStringLiteral("Unmounting Tape Complete")), qPrintable(face.shown));
        QVERIFY(!isListed(point));

        // Mount, recover, and mount the recovered volume.
        face.shown.clear();
        asked.clear();
        answerWith({QStringLiteral("0"), QStringLiteral("0"), QStringLiteral("0")}, &asked);
        QVERIFY(performToEnd(engine, Action::Mount, 60000));
        QTRY_VERIFY2_WITH_TIMEOUT(face.shown.contains(QStringLiteral("Mount Complete")) &&
                                      !engine.isOperating(),
                                  qPrintable(face.shown), 60000);
        QCOMPARE(asked, (QStringList{QStringLiteral("Mount Tape"), QStringLiteral("Recover Volume"),
                                     QStringLiteral("Volume Recovered")}));
        QVERIFY2(face.shown.contains(
                     QStringLiteral("LTFS11220E Medium check failed: extra blocks detected. Run ltfsck.")),
                 qPrintable(face.shown));
        QVERIFY2(face.shown.contains(QStringLiteral("LTFS16022I Volume is consistent.")),
                 qPrintable(face.shown));
        QVERIFY(isListed(point));
        QCOMPARE(attribute(point, QStringLiteral("indexGeneration")), QByteArray("2"));
        QVERIFY(!QFile::exists(point + QStringLiteral("/lost.bin")));

        answerWith({}, &asked);
        QVERIFY(performToEnd(engine, Action::Mount, 60000));
        QVERIFY(!isListed(point));
    }

    void conformance_data() { addConformanceCases(); }
    void conformance()
    {
        QFETCH(QStringList, setup);
        QFETCH(QString, command);
        const Comparison c = compareWithSimulator(*m_library, setup, command);
        const bool same = c.realStatus == c.simStatus && c.realLines == c.simLines;
        // In full: the test log cuts a long message short.
        if (!same)
            std::fputs(qPrintable(c.report()), stderr);
        QVERIFY2(same, "the simulator differs from the real program, see the diff above");
    }

private:
    static void runStep(Steps &s, const QString &step)
    {
        const QString word = step.section(QLatin1Char(' '), 0, 0);
        QString rest = step.section(QLatin1Char(' '), 1);
        rest.replace(QStringLiteral("@"), s.name);
        const QString point = s.point();
        if (word == QStringLiteral("cli")) {
            const QStringList args = rest.section(QStringLiteral(" => "), 0, 0).split(QLatin1Char(' '));
            const QString expected = rest.section(QStringLiteral(" => "), 1);
            s.last = cli(args);
            QVERIFY2(s.last.status == expected.section(QLatin1Char(' '), 0, 0).toInt() &&
                         s.last.text.contains(expected.section(QLatin1Char(' '), 1)),
                     qPrintable(QStringLiteral("status %1:\n%2").arg(s.last.status).arg(s.last.text)));
        } else if (word == QStringLiteral("untouched")) {
            QCOMPARE(s.library.takeToolRuns(), QStringList());
            for (const QString &tool : std::as_const(s.last.tools))
                QVERIFY2(!tool.contains(s.name), qPrintable(tool));
        } else if (word == QStringLiteral("ran") || word == QStringLiteral("not-ran")) {
            const QStringList runs = s.library.takeToolRuns();
            const bool ran = std::any_of(runs.cbegin(), runs.cend(), [&](const QString &r) {
                return r.startsWith(rest + QLatin1Char(' '));
            });
            QVERIFY2(ran == (word == QStringLiteral("ran")), qPrintable(runs.join(QLatin1Char('\n'))));
        } else if (word == QStringLiteral("daemon")) {
            const QList<qint64> daemons = daemonsOf(point);
            QCOMPARE(daemons.size(), 1);
            QVERIFY(isListed(point));
            s.daemon = daemons.first();
        } else if (word == QStringLiteral("daemon-gone")) {
            QVERIFY(s.daemon > 0);
            QVERIFY2(!isRunning(s.daemon), "reported done while the ltfs daemon still ran");
            QVERIFY(!isListed(point));
        } else if (word == QStringLiteral("write")) {
            QVERIFY(QDir().mkpath(point + QStringLiteral("/dir")));
            QVERIFY(writeFile(point + QStringLiteral("/dir/a.bin"), bigFile()));
            QVERIFY(writeFile(point + QStringLiteral("/b.txt"), kSmall));
        } else if (word == QStringLiteral("files")) {
            QCOMPARE(readFile(point + QStringLiteral("/dir/a.bin")), bigFile());
            QCOMPARE(readFile(point + QStringLiteral("/b.txt")), kSmall);
        } else if (word == QStringLiteral("gen")) {
            QCOMPARE(attribute(point, QStringLiteral("indexGeneration")), rest.toLatin1());
        } else if (word == QStringLiteral("volume")) {
            QCOMPARE(attribute(point, QStringLiteral("volumeName")), rest.toLatin1());
        } else if (word == QStringLiteral("stray")) {
            QVERIFY(QDir().mkpath(point));
            QVERIFY(writeFile(point + QStringLiteral("/copied-too-early.txt"), kSmall));
        } else if (word == QStringLiteral("hold")) {
            s.holder = std::make_unique<QProcess>();
            s.holder->setWorkingDirectory(point);
            s.holder->start(QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("read line")});
            QVERIFY(s.holder->waitForStarted());
        } else if (word == QStringLiteral("release")) {
            s.holder->closeWriteChannel();
            QVERIFY(s.holder->waitForFinished(10000));
        } else if (word == QStringLiteral("freeze")) {
            QCOMPARE(::kill(static_cast<pid_t>(s.daemon), SIGSTOP), 0);
            // umount without a look at the mount point, which would wait for the stopped daemon.
            QCOMPARE(QProcess::execute(QStringLiteral("umount"), {QStringLiteral("-c"), point}), 0);
            QVERIFY(!isListed(point));
            QVERIFY(isRunning(s.daemon));
        } else if (word == QStringLiteral("thaw")) {
            // Whatever was started waits for the held daemon: it must not have ended.
            QVERIFY2(!s.running || s.running->state() == QProcess::Running, qPrintable(s.runningOut));
            QCOMPARE(::kill(static_cast<pid_t>(s.daemon), SIGCONT), 0);
        } else if (word == QStringLiteral("start")) {
            s.running = startCli(rest.split(QLatin1Char(' ')));
            s.runningOut.clear();
        } else if (word == QStringLiteral("await")) {
            QTRY_VERIFY2_WITH_TIMEOUT(
                (s.runningOut += QString::fromUtf8(s.running->readAllStandardOutput())).contains(rest),
                qPrintable(s.runningOut), 60000);
        } else if (word == QStringLiteral("end")) {
            QVERIFY(s.running->waitForFinished(120000));
            s.runningOut += QString::fromUtf8(s.running->readAll());
            QVERIFY2(s.running->exitCode() == rest.section(QLatin1Char(' '), 1).toInt(),
                     qPrintable(s.runningOut));
        } else {
            QFAIL(qPrintable(QStringLiteral("unknown step: ") + step));
        }
    }
};

TAPEDESK_ENGINE_TEST_MAIN(RealLtfsTest)
#include "tst_real_ltfs.moc"

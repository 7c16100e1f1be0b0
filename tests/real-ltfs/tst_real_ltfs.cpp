// ctest-timeout: 600
// TapeDesk against the real ltfs, mkltfs and ltfsck on file-backed
// cartridges, mounting through the host's FUSE on /tmp/ltfs/mnt/<name>, with
// the simulator's itdt listing the drives: the command line and the engine
// through every LTFS workflow; then the simulator's ltfs, mkltfs and ltfsck
// against the real ones, line by line, for the same cases. The real programs
// run behind cartridge-tools.sh, which maps a drive's name to its folder.

#include "RealLtfsHarness.h"

class RealLtfsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // scripts/test fails on this marker: every machine it runs on has FUSE.
        QFile marker(QString::fromLocal8Bit(qgetenv("TAPEDESK_REAL_LTFS_SKIPPED")));
        marker.remove();
        const QString bin = QString::fromLocal8Bit(qgetenv("TAPEDESK_LTFS_BIN"));
        const int fuse = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
        QString why = fuse < 0 ? QStringLiteral("/dev/fuse cannot be opened: %1").arg(std::strerror(errno))
                      : !QFileInfo(bin + QStringLiteral("/ltfsck")).isExecutable()
                          ? QStringLiteral("no real LTFS in TAPEDESK_LTFS_BIN (%1): configure with "
                                           "-DTAPEDESK_LTFS_BIN=$(../shared/ltfs/build)")
                                .arg(bin)
                          : QString();
        if (fuse >= 0)
            ::close(fuse);
        if (!why.isEmpty()) {
            if (marker.open(QIODevice::WriteOnly))
                marker.write(why.toUtf8());
            std::fprintf(stderr, "\n*** THE TESTS AGAINST THE REAL LTFS ARE SKIPPED: %s ***\n\n",
                         qPrintable(why));
            QSKIP(qPrintable(why));
        }
        g_root = makeDir(QStringLiteral("real-ltfs"));
        QDir().mkpath(g_root + QStringLiteral("/bin"));
        for (const char *tool : {"ltfs", "mkltfs", "ltfsck"})
            QFile::link(QStringLiteral(TAPEDESK_SOURCE_DIR "/tests/real-ltfs/cartridge-tools.sh"),
                        g_root + QStringLiteral("/bin/") + QLatin1String(tool));
        QFile::link(bin, g_root + QStringLiteral("/ltfs-bin"));
        // Formatted as far as itdt knows, so a mount goes on to the real ltfs, which decides.
        QByteArray library;
        for (const QString &name : kDrives)
            library += "[drive]\nid = tape" + name.toLatin1() + "\nmodel = ULTRIUM-HH8\nserial = 10133300" +
                       QByteArray::number(kDrives.indexOf(name) + 10) +
                       "\nloaded = yes\ncartridge = yes\nformatted = yes\n\n";
        QVERIFY(resetSimulatorTo(library));
        setPaths(simBinDir() + QStringLiteral("/itdt"), g_root + QStringLiteral("/bin/ltfs"),
                 g_root + QStringLiteral("/bin/mkltfs"), makeDir(QStringLiteral("output")));
    }
    void cleanupTestCase()
    {
        for (const QString &name : kDrives)
            release(name);
    }

    // Each step one word and its arguments ("@" is the case's drive):
    //   cli ARGS => STATUS [TEXT]  tapedesk-cli --json ARGS; its status, and TEXT in what it said
    //   untouched          no real LTFS tool ran, and no tool on the drive
    //   ran TOOL / not-ran TOOL   the real TOOL ran / did not run since the last look
    //   daemon             the one ltfs daemon serving the listed mount, noted
    //   daemon-gone        the noted daemon has exited, the mount is unlisted
    //   kill               the noted daemon killed with SIGKILL, its volume left listed
    //   named TEXT         the engine's scan, the drive selected, shows TEXT
    //   write / files [lost]   a file written to the volume / there, unchanged (gone)
    //   gen N              the index generation the mount shows
    //   details BARCODE VOLUME   the engine's scan, the drive selected, reads them ("-" none), the
    //                      volume's UUID, generation and sizes (as statvfs gives them) from the mount
    //   stray              a file left in the unmounted mount point
    //   hold / release     a process with its working folder inside the volume, and its end
    //   freeze / thaw      the daemon stopped and its volume taken out of the mount table (a
    //                      real tape's daemon writes the index for minutes then), and let go on
    //   start ARGS / await TEXT / end => STATUS   tapedesk-cli ARGS left running, until it
    //                      says TEXT, its end
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
            "cli format @ --name RLT001 --then mount => 0 Mount Complete | ran mkltfs | gen 1"
            " | details RLT001 RLT001 | daemon | write | freeze | start unmount @ | await Waiting for "
            "un-mount to complete | thaw"
            " | end => 0 | daemon-gone | cli mount @ --yes => 0 Mount Complete | gen 2 | files"
            " | cli unmount @ => 0");
        row("stray file in the mount point refused before any tool runs", "rlt3", true,
            "stray | cli mount @ --yes => 1 holds files although no tape is mounted there | untouched");
        row("a process inside the volume named, unmounted once it leaves", "rlt4", true,
            "cli mount @ --yes => 0 Mount Complete | details - - | daemon | hold | start unmount @"
            " | await The volume is busy: sh (pid | release | end => 0 | daemon-gone");
        // The file is written after the last index, which the killed daemon never writes.
        row("daemon killed: the dead mount named, recovered by ltfsck, mounted again", "rlt5", true,
            "cli mount @ --yes => 0 Mount Complete | daemon | write | kill"
            " | named LTFS stopped unexpectedly: the volume is still listed as mounted on /tmp/ltfs/mnt/@"
            " | cli unmount @ => 0 Unmounting Tape Complete"
            " | cli mount @ --yes => 1 LTFS11220E Medium check failed: extra blocks detected. Run ltfsck."
            " | not-ran ltfsck | cli recover @ --yes => 0 LTFS16022I Volume is consistent. | ran ltfsck"
            " | cli mount @ --yes => 0 Mount Complete | gen 2 | files lost | cli unmount @ => 0");
        row("formatted cartridge: format refused without --force, then forced", "rlt6", true,
            "cli format @ --name RLT066 --then mount => 3 Tape is already formated | ran mkltfs"
            " | cli format @ --name RLT066 --then mount --force => 0 Mount Complete | ran mkltfs"
            " | gen 1 | details RLT066 RLT066 | cli unmount @ => 0");
        row("format refused while the daemon still holds the drive", "rlt7", true,
            "cli mount @ --yes => 0 Mount Complete | daemon | freeze"
            " | cli format @ --name RLT077 --then eject --force => 3 needs --yes | not-ran mkltfs"
            " | start format @ --name RLT077 --then eject --force --yes"
            " | await Waiting for un-mount to complete | not-ran mkltfs | thaw | end => 0 | daemon-gone"
            " | ran mkltfs");
    }
    void commandLine()
    {
        QFETCH(QString, drive);
        QFETCH(bool, formatted);
        QFETCH(QStringList, steps);
        QVERIFY(!freshCartridge(drive, formatted).isEmpty());
        takeToolRuns();
        Steps s{drive};
        auto cleanup = qScopeGuard([&] {
            if (s.holder)
                s.holder->kill();
            if (s.running)
                s.running->kill();
            release(drive);
        });
        for (const QString &step : std::as_const(steps)) {
            runStep(s, step);
            if (QTest::currentTestFailed()) {
                qWarning("failed at: %s", qPrintable(step));
                return;
            }
        }
    }

    // The same case on a real cartridge and on a simulated drive in the same
    // state: "blank", "formatted" (serial RLTC01, name VOLC01), "unnamed"
    // (neither), "killed" (its daemon killed after a write), "stray" (a file
    // in the mount point). DEV is the drive, POINT its mount point.
    void conformance_data()
    {
        QTest::addColumn<QString>("setup");
        QTest::addColumn<QString>("command");
        const auto row = [](const char *tag, const char *setup, const char *command) {
            QTest::newRow(tag) << QString::fromLatin1(setup) << QString::fromLatin1(command);
        };
        const char *format = "mkltfs --device=DEV --tape-serial=RLTC02 --volume-name=VOLC02";
        row("mkltfs: a blank cartridge", "blank", format);
        row("mkltfs: a formatted one, not forced", "formatted", format);
        row("mkltfs: a formatted one, forced", "formatted", "mkltfs --device=DEV --force -s RLTC02");
        row("mkltfs: no serial, no name", "blank", "mkltfs --device=DEV");
        row("mkltfs: a serial too short", "blank", "mkltfs --device=DEV --tape-serial=RL02");
        row("mkltfs: a serial in lower case", "blank", "mkltfs --device=DEV --tape-serial=rltc02");
        row("ltfs: ejected at the end", "formatted", "ltfs POINT -o devname=DEV -o eject");
        row("ltfs: kept loaded", "formatted", "ltfs POINT -o devname=DEV");
        row("ltfs: no serial, no name", "unnamed", "ltfs POINT -o devname=DEV -o eject");
        row("ltfs: a blank cartridge", "blank", "ltfs POINT -o devname=DEV -o eject");
        row("ltfs: files in the mount point", "stray", "ltfs POINT -o devname=DEV -o eject");
        row("ltfs: the daemon was killed", "killed", "ltfs POINT -o devname=DEV -o eject");
        row("ltfsck: the daemon was killed", "killed", "ltfsck DEV");
        row("ltfsck: a consistent volume", "formatted", "ltfsck DEV");
        row("ltfsck: no serial, no name", "unnamed", "ltfsck DEV");
        row("ltfsck: a blank cartridge", "blank", "ltfsck DEV");
    }
    void conformance()
    {
        QFETCH(QString, setup);
        QFETCH(QString, command);
        const QString point = pointOf(kCompared);
        QStringList arguments = command.split(QLatin1Char(' '));
        const QString tool = arguments.takeFirst();
        arguments.replaceInStrings(QStringLiteral("DEV"), kCompared)
            .replaceInStrings(QStringLiteral("POINT"), point);
        const auto makePoint = [&] {
            QDir().mkpath(point);
            QFile stray(point + QStringLiteral("/copied-too-early.txt"));
            QVERIFY(setup != QStringLiteral("stray") ||
                    (stray.open(QIODevice::WriteOnly) && stray.write("x") == 1));
        };

        const bool unnamed = setup == QStringLiteral("unnamed");
        QVERIFY(!freshCartridge(kCompared, setup != QStringLiteral("blank"),
                                unnamed ? QStringList() : QStringList{"-s", "RLTC01", "-n", "VOLC01"})
                     .isEmpty());
        if (setup == QStringLiteral("killed")) {
            makePoint();
            QCOMPARE(run(g_root + QStringLiteral("/bin/ltfs"), {point, "-o", "devname=" + kCompared}).status,
                     0);
            QFile f(point + QStringLiteral("/unindexed.bin"));
            QVERIFY(f.open(QIODevice::WriteOnly) && f.write(kData) > 0);
            f.close();
            release(kCompared);
        }
        makePoint();
        const Run real = run(g_root + QStringLiteral("/bin/") + tool, arguments);
        release(kCompared);

        QTemporaryDir simHome;
        QByteArray state = "[drive]\nid = tape" + kCompared.toLatin1() +
                           "\nmodel = ULTRIUM-HH8\nserial = 1013330099\nloaded = yes\ncartridge = yes\n"
                           "formatted-at = 2026-11-24T10:00:00.000000000Z\nformatted = " +
                           (setup == QStringLiteral("blank") ? "no\n" : "yes\n");
        if (!unnamed)
            state += "barcode = RLTC01\nvolume = VOLC01\n";
        if (setup == QStringLiteral("killed"))
            state += "consistent = no\n";
        QFile stateFile(simHome.filePath(QStringLiteral("state.ini")));
        QVERIFY(stateFile.open(QIODevice::WriteOnly) && stateFile.write(state) == state.size());
        stateFile.close();
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("TAPESIM_HOME"), simHome.path());
        makePoint();
        const Run sim = run(simBinDir() + QLatin1Char('/') + tool, arguments, {}, env);
        // The simulated mount's daemon ends with its state folder.
        simHome.remove();
        QDir(point).removeRecursively();

        const QString realText =
            QStringLiteral("exit %1\n%2\n").arg(real.status).arg(masked(real.err + real.out));
        const QString simText =
            QStringLiteral("exit %1\n%2\n").arg(sim.status).arg(masked(sim.err + sim.out));
        QVERIFY2(realText.contains(QStringLiteral("LTFS1")),
                 qPrintable(realText)); // the masks kept the messages
        if (realText != simText) {
            // diff's view, in full (the test log cuts a long message short): "-" real, "+" simulator.
            QTemporaryFile file;
            QVERIFY(file.open() && file.write(realText.toUtf8()) > 0 && file.flush());
            std::fputs(qPrintable(run(QStringLiteral("diff"), {QStringLiteral("-u"), file.fileName(), "-"},
                                      simText.toUtf8())
                                      .out),
                       stderr);
        }
        QVERIFY2(realText == simText, "the simulator differs from the real program: see the diff above");
    }

private:
    static void runStep(Steps &s, const QString &step)
    {
        const QString word = step.section(QLatin1Char(' '), 0, 0);
        const QString rest = step.section(QLatin1Char(' '), 1).replace(QLatin1Char('@'), s.name);
        const QString point = pointOf(s.name);
        const auto status = [&] {
            return rest.section(QStringLiteral("=> "), 1).section(QLatin1Char(' '), 0, 0).toInt();
        };
        if (word == QStringLiteral("cli")) {
            s.last = cli(rest.section(QStringLiteral(" => "), 0, 0).split(QLatin1Char(' ')));
            QVERIFY2(s.last.status == status() &&
                         s.last.text.contains(
                             rest.section(QStringLiteral(" => "), 1).section(QLatin1Char(' '), 1)),
                     qPrintable(QStringLiteral("status %1:%2").arg(s.last.status).arg(s.last.text)));
        } else if (word == QStringLiteral("untouched")) {
            QCOMPARE(takeToolRuns(), QStringList());
            for (const QString &tool : std::as_const(s.last.tools))
                QVERIFY2(!tool.contains(s.name), qPrintable(tool));
        } else if (word == QStringLiteral("ran") || word == QStringLiteral("not-ran")) {
            const QStringList runs = takeToolRuns();
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
            QVERIFY2(s.daemon > 0 && !isRunning(s.daemon), "reported done while the ltfs daemon still ran");
            QVERIFY(!isListed(point));
        } else if (word == QStringLiteral("write") || word == QStringLiteral("stray")) {
            QVERIFY(QDir().mkpath(point + QStringLiteral("/dir")));
            QFile f(point + QStringLiteral("/dir/b.txt"));
            QVERIFY(f.open(QIODevice::WriteOnly) && f.write(kData) == kData.size());
        } else if (word == QStringLiteral("kill")) {
            QCOMPARE(::kill(static_cast<pid_t>(s.daemon), SIGKILL), 0);
            QTRY_VERIFY(!isRunning(s.daemon));
            QVERIFY(isListed(point));
        } else if (word == QStringLiteral("named") || word == QStringLiteral("details")) {
            RecordingFace face;
            TapeEngine engine(face);
            QVERIFY(scanAndSelect(engine, face, QStringLiteral("tape") + s.name));
            if (word == QStringLiteral("named")) {
                QVERIFY2(face.shown.contains(rest), qPrintable(face.shown));
                return;
            }
            QTRY_VERIFY2_WITH_TIMEOUT(!face.volumeReports.isEmpty() &&
                                          face.volumeReports.last().state == VolumeReport::State::Read,
                                      qPrintable(face.shown), 30000);
            const VolumeDetails d = face.volumeReports.last().details;
            const auto reported = [&](int i) {
                const QString v = rest.section(QLatin1Char(' '), i, i);
                return v == QStringLiteral("-") ? std::nullopt : std::optional(v);
            };
            QCOMPARE(d.barcode, reported(0));
            QCOMPARE(d.volumeName, reported(1));
            QCOMPARE(d.uuid.value_or(QString()), QString::fromLatin1(attribute(point, "volumeUUID")));
            QCOMPARE(QByteArray::number(d.indexGeneration.value_or(-1)), attribute(point, "indexGeneration"));
            // LTFS counts whole binary megabytes of what statvfs counts in blocks.
            struct statvfs fs
            {
            };
            QCOMPARE(::statvfs(QFile::encodeName(point).constData(), &fs), 0);
            for (const auto &[shown, blocks] :
                 {std::pair{d.capacityBytes, fs.f_blocks}, std::pair{d.freeBytes, fs.f_bavail}}) {
                const qint64 bytes = static_cast<qint64>(blocks) * static_cast<qint64>(fs.f_frsize);
                QVERIFY2(shown && *shown <= bytes && bytes - *shown < qint64{1024} * 1024,
                         qPrintable(QString::number(shown.value_or(-1))));
            }
        } else if (word == QStringLiteral("files")) {
            QCOMPARE(readFile(point + QStringLiteral("/dir/b.txt")),
                     rest == QStringLiteral("lost") ? "" : kData);
        } else if (word == QStringLiteral("gen")) {
            QCOMPARE(attribute(point, "indexGeneration"), rest.toLatin1());
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
            // umount -c looks nothing up under the mount point, which would wait for the stopped daemon.
            QCOMPARE(run(QStringLiteral("umount"), {QStringLiteral("-c"), point}).status, 0);
            QVERIFY(!isListed(point) && isRunning(s.daemon));
        } else if (word == QStringLiteral("thaw")) {
            // Whatever was started waits for the held daemon: it must not have ended.
            QVERIFY2(!s.running || s.running->state() == QProcess::Running, qPrintable(s.runningOut));
            QCOMPARE(::kill(static_cast<pid_t>(s.daemon), SIGCONT), 0);
        } else if (word == QStringLiteral("start")) {
            s.running = std::make_unique<QProcess>();
            s.running->start(QStringLiteral(TAPEDESK_BIN "/tapedesk-cli"), rest.split(QLatin1Char(' ')));
        } else if (word == QStringLiteral("await")) {
            QTRY_VERIFY2_WITH_TIMEOUT(
                (s.runningOut += QString::fromUtf8(s.running->readAllStandardOutput())).contains(rest),
                qPrintable(s.runningOut), 60000);
        } else if (word == QStringLiteral("end")) {
            QVERIFY(s.running->waitForFinished(120000));
            s.runningOut += QString::fromUtf8(s.running->readAll());
            QVERIFY2(s.running->exitCode() == status(), qPrintable(s.runningOut));
        } else {
            QFAIL(qPrintable(QStringLiteral("unknown step: ") + step));
        }
    }
};

TAPEDESK_ENGINE_TEST_MAIN(RealLtfsTest)
#include "tst_real_ltfs.moc"

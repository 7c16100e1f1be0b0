// ctest-timeout: 60
// The operator's Stop while a tool hangs (the simulator's hang fault): each row
// starts an action, waits until its tool hangs, stops it and reads the end:
// the pane's last line, the failed status, no tool left, nothing run after it
// and the records as they were. The firmware update and an unconfirmed format
// refuse; an unmount's wait ends with the drive still recorded as mounted; a
// tool that ignores SIGTERM is ended by SIGKILL 5 s later, and nothing else
// starts before.

#include "drives/DriveStateStore.h"
#include "support/EngineHarness.h"
#include "support/TestEnv.h"
#include "tools/ProcessRunner.h"
#include "tools/ToolPaths.h"

#include <QDir>
#include <QSettings>
#include <QTest>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QByteArray kLibrary = "[drive]\nid = tape81\nmodel = ULTRIUM-HH8\nserial = 1013000181\nloaded = yes\n"
                            "cartridge = yes\nbarcode = TD0081\nformatted = yes\nvolume = VOL81\n\n"
                            "[drive]\nid = tape82\nmodel = ULTRIUM-HH8\nserial = 1013000182\nloaded = yes\n"
                            "cartridge = yes\nformatted = no\n\n"
                            "[drive]\nid = tape83\nmodel = ULTRIUM-HH8\nserial = 1013000183\nloaded = yes\n"
                            "cartridge = yes\nbarcode = TD0083\nformatted = yes\nvolume = VOL83\n";
const QString kStopped = QStringLiteral("Stopped by the operator: ");

QMap<QString, QVariant> storeContents()
{
    QSettings s(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("TapeDesk"),
                QStringLiteral("TapeDesk"));
    QMap<QString, QVariant> all;
    for (const QString &k : s.allKeys())
        all.insert(k, s.value(k));
    return all;
}

QString simLog()
{
    return QString::fromUtf8(readFile(TestHome::path() + QStringLiteral("/sim.log")));
}

} // namespace

class EngineStopTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        resetSimulator();
        QDir().mkpath(TestHome::path() + QStringLiteral("/tapesim"));
        QFile state(TestHome::path() + QStringLiteral("/tapesim/state.ini"));
        QVERIFY(state.open(QIODevice::WriteOnly) && state.write(kLibrary) > 0);
        qputenv("TAPESIM_SPEED", "0");
        qputenv("TAPESIM_LOG", QFile::encodeName(TestHome::path() + QStringLiteral("/sim.log")));
        useSimulator();
        DriveStateStore::resetMountedDrives();
    }

    void cleanup()
    {
        qunsetenv("TAPESIM_FAIL");
        qunsetenv("TAPESIM_UNMOUNT_DELAY");
        children::killAll();
    }

    void stop_data()
    {
        QTest::addColumn<QString>("drive");
        QTest::addColumn<Action>("action");
        // TAPESIM_FAIL; "delay": the ltfs daemon holds the drive after umount;
        // "ignore-term": a stand-in itdt that ignores SIGTERM.
        QTest::addColumn<QByteArray>("fault");
        QTest::addColumn<QStringList>("answers");
        QTest::addColumn<QString>("line"); // the pane's last line after Stop
        const QString t81 = QStringLiteral("tape81");
        QTest::newRow("scan") << t81 << Action::Scan << QByteArray("*:scan=hang") << QStringList()
                              << kStopped + "itdt scan";
        for (const char *step : {"load", "readattr"}) {
            QTest::newRow(step) << t81 << Action::Mount << "tape81:" + QByteArray(step) + "=hang"
                                << QStringList{"0"} << kStopped + "itdt " + step + " on tape81";
        }
        QTest::newRow("ltfs") << t81 << Action::Mount << QByteArray("tape81:ltfs=hang") << QStringList{"0"}
                              << kStopped + "ltfs on tape81";
        QTest::newRow("dump") << t81 << Action::RetrieveLog << QByteArray("tape81:dump=hang") << QStringList()
                              << kStopped + "itdt dump on tape81";
        QTest::newRow("standard test") << t81 << Action::Test << QByteArray("tape81:standardtest=hang")
                                       << QStringList{"ok"} << kStopped + "itdt standardtest on tape81";
        QTest::newRow("host validation")
            << t81 << Action::HostValidation << QByteArray("tape81:systemtest=hang") << QStringList{"ok"}
            << kStopped + "itdt systemtest on tape81";
        QTest::newRow("firmware refuses") << t81 << Action::Upgrade << QByteArray("tape81:ucode=hang")
                                          << QStringList{"ok", "/tmp/HH8_G3C1.fmrz"}
                                          << "Stop refused: a firmware update cut short can leave the drive "
                                             "unusable, so it runs to its end";
        QTest::newRow("format refuses")
            << "tape82" << Action::Format << QByteArray("tape82:mkltfs=hang")
            << QStringList{"ABC123", "cancel"} << "Stop refused: mkltfs goes on formatting the cartridge";
        QTest::newRow("format confirmed")
            << "tape82" << Action::Format << QByteArray("tape82:mkltfs=hang") << QStringList{"ABC123", "ok"}
            << kStopped + "mkltfs on tape82 - the cartridge is left unformatted";
        QTest::newRow("unmount wait") << "tape83" << Action::Mount << QByteArray("delay") << QStringList()
                                      << kStopped + "the wait for the unmount of /tmp/ltfs/mnt/83 on tape83"
                                                    " - the volume may still be in use";
        QTest::newRow("SIGTERM ignored")
            << t81 << Action::RetrieveLog << QByteArray("tape81:dump=ignore-term") << QStringList()
            << kStopped + "itdt dump on tape81";
    }

    void stop()
    {
        QFETCH(QString, drive);
        QFETCH(Action, action);
        QFETCH(QByteArray, fault);
        QFETCH(QStringList, answers);
        QFETCH(QString, line);
        const QString word =
            QString::fromLatin1(fault).section(QLatin1Char(':'), 1).section(QLatin1Char('='), 0, 0);
        const bool ignoresTerm = fault.endsWith("=ignore-term");
        if (ignoresTerm) {
            const QString itdt =
                writeScript(makeDir(QStringLiteral("stubborn")), QStringLiteral("itdt"),
                            QStringLiteral("case \"$*\" in *dump*) echo '\"dump\"' >> \"$TAPESIM_LOG\"\n"
                                           "  trap '' TERM; while :; do sleep 0.1; done;; esac\n"
                                           "exec '%1/itdt' \"$@\"")
                                .arg(simBinDir()));
            setPaths(itdt, LTFS_PATH.get().value_or(QString()), MKLTFS_PATH.get().value_or(QString()),
                     OUTPUT_FOLDER.get().value_or(QString()));
        }
        RecordingFace face;
        TapeEngine engine(face);
        QStringList asked;
        QVERIFY(scanAndSelect(engine, face, drive));
        if (fault == "delay") {
            qputenv("TAPESIM_UNMOUNT_DELAY", "60");
            answerWith({QStringLiteral("0")}, &asked);
            QVERIFY(performToEnd(engine, Action::Mount));
        } else if (!ignoresTerm) {
            qputenv("TAPESIM_FAIL", fault);
        }
        const auto storeBefore = storeContents();
        const QList<DrivePtr> listedBefore = driveList.snapshot();
        const DrivePtr selectedBefore = engine.selectedDrive.get();
        const bool mountedBefore = selectedBefore->mounted();
        const QString hung = fault == "delay" ? QStringLiteral("Waiting for un-mount") : '"' + word + '"';

        QFile::remove(TestHome::path() + QStringLiteral("/sim.log"));
        answerWith(answers, &asked);
        engine.perform(action);
        QVERIFY(QTest::qWaitFor([&] { return simLog().contains(hung) || face.pane.contains(hung); }));
        const bool stops = line.startsWith(kStopped);
        QCOMPARE(engine.stop(), stops ? TapeEngine::StopResult::Stopped : TapeEngine::StopResult::Refused);
        QTRY_COMPARE(face.paneLines().constLast(), line);
        if (!stops) {
            // The tool goes on until TapeDesk quits.
            QVERIFY(face.busy && children::liveCount() > 0);
            children::killAll();
        } else {
            QCOMPARE(face.status.value(action == Action::Format ? Action::Mount : action), 1);
            QVERIFY(!face.busy);
        }
        if (ignoresTerm) {
            QVERIFY(children::liveCount() > 0);
            engine.perform(Action::Scan);
            QTRY_COMPARE(
                face.paneLines().constLast(),
                QStringLiteral("Not started: the stopped tool has not ended yet - try again in a moment"));
        }
        QVERIFY(settle(engine, 10000));
        QCOMPARE(children::liveCount(), 0);
        if (fault != "delay")
            QVERIFY2(simLog().trimmed().split(QLatin1Char('\n')).constLast().contains(hung),
                     qPrintable(simLog()));
        QCOMPARE(storeContents(), storeBefore);
        QCOMPARE(driveList.snapshot(), listedBefore);
        QCOMPARE(engine.selectedDrive.get(), selectedBefore);
        QCOMPARE(selectedBefore->mounted(), mountedBefore);
    }
};

int main(int argc, char **argv)
{
    TestHome home;
    QCoreApplication app(argc, argv);
    configureApplication(app);
    EngineStopTest tc;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&tc, argc, argv);
}

#include "tst_engine_stop.moc"

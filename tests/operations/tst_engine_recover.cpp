// ctest-timeout: 30
// When LTFS stopped under a mounted volume, against the simulator: the dead
// mount is named at the scan and unmounted at once; the cartridge it left
// unclosed refuses to mount until ltfsck, offered by the failed mount, has
// recovered it, and ltfsck's verdicts come from its exit status.

#include "support/EngineHarness.h"
#include "support/TestEnv.h"
#include "tools/ToolPaths.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <QTimer>

using namespace tapedesk;
using namespace tapedesk::test;

class EngineRecoverTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // tape92's cartridge was left unclosed by a daemon that died under it.
    void init()
    {
        QVERIFY(resetSimulatorTo(
            "[drive]\nid = tape91\nmodel = ULTRIUM-HH8\nserial = 1013000191\ncartridge = yes\n"
            "barcode = TD0091\nformatted = yes\n\n[drive]\nid = tape92\nmodel = ULTRIUM-HH8\n"
            "serial = 1013000192\ncartridge = yes\nbarcode = TD0092\nformatted = yes\nconsistent = no\n"));
        useSimulator();
    }

    void ltfsStoppedUnderTheVolume_data()
    {
        QTest::addColumn<Action>("action");
        // TAPESIM_FAIL; with daemon=crash tape91 is mounted first, its daemon
        // killed, and the row acts on it, else on tape92. "bare": ltfs is set
        // where no ltfsck is.
        QTest::addColumn<QByteArray>("fault");
        QTest::addColumn<QStringList>("answers");
        QTest::addColumn<QStringList>("asked");
        QTest::addColumn<QString>("pane");      // a pattern the last pane matches
        QTest::addColumn<int>("recoverStatus"); // -1: none shown
        const QByteArray dead("tape91:daemon=crash");
        const QStringList asked{"Mount Tape", "Recover Volume"};
        const QString refused("LTFS11220E .* Run ltfsck.*");
        const QString explained = refused + "The volume was not closed: LTFS stopped.*";
        QTest::newRow("dead mount: named, unmounted at once")
            << Action::Mount << dead << QStringList() << QStringList()
            << "Unmounting Tape: /tmp/ltfs/mnt/91\nUnmounting Tape Complete\n.*End unMountDrive$" << -1;
        QTest::newRow("recover, then mount")
            << Action::Mount << QByteArray() << QStringList{"0", "0", "0"}
            << asked + QStringList{"Volume Recovered"} << "^\nMounting Tape\n.*Mount Complete$" << 0;
        QTest::newRow("could not recover")
            << Action::Mount << QByteArray("tape92:ltfsck=4") << QStringList{"0", "0"} << asked
            << explained + "ltfsck 92.*may need reformatting" << 1;
        QTest::newRow("device error")
            << Action::Mount << QByteArray("tape92:ltfsck=8") << QStringList{"0", "0"} << asked
            << refused + "use the drive \\(exit status 8, a device error" << 1;
        QTest::newRow("a status with no verdict of its own")
            << Action::Mount << QByteArray("tape92:ltfsck=64") << QStringList{"0", "0"} << asked
            << refused + "exit status 64 \\(a library error\\); the volume was not recovered" << 1;
        QTest::newRow("no ltfsck beside ltfs")
            << Action::Recover << QByteArray("bare") << QStringList{"0"} << QStringList{"Recover Volume"}
            << "ltfsck was not found at /nowhere/ltfsck" << 1;
        QTest::newRow("cancel changes nothing") << Action::Mount << QByteArray() << QStringList{"0", "1"}
                                                << asked << explained + "Recovery canceled" << -1;
        QTest::newRow("a mounted volume is never checked")
            << Action::Recover << dead << QStringList{"0"} << QStringList{"Recover Volume", "Recover Volume"}
            << "Error: Tape needs to be un-mounted" << 1;
    }

    void ltfsStoppedUnderTheVolume()
    {
        QFETCH(Action, action);
        QFETCH(QByteArray, fault);
        QFETCH(QStringList, answers);
        QFETCH(QStringList, asked);
        QFETCH(QString, pane);
        QFETCH(int, recoverStatus);
        const bool dead = fault.endsWith("daemon=crash");
        qputenv("TAPESIM_FAIL", fault);
        if (dead) {
            QDir().mkpath(QStringLiteral("/tmp/ltfs/mnt/91"));
            QCOMPARE(QProcess::execute(simBinDir() + "/ltfs", {"/tmp/ltfs/mnt/91", "-o", "devname=91"}), 0);
        }
        if (fault == "bare")
            LTFS_PATH.set(QStringLiteral("/nowhere/ltfs"));
        QStringList questions;
        answerWith(answers, &questions);
        RecordingFace face;
        TapeEngine engine(face);
        engine.setLiveOutput(true);
        QVERIFY(scanAndSelect(engine, face, dead ? QStringLiteral("tape91") : QStringLiteral("tape92")));
        QCOMPARE(engine.selectedDrive.get()->record().ltfsStopped, dead);
        QCOMPARE(face.pane.contains(QStringLiteral("LTFS stopped unexpectedly")), dead);

        engine.perform(action);
        // No 3-second poll pending: with no daemon left, an unmount is over at once.
        QVERIFY(!engine.timer->isActive());
        QVERIFY(settle(engine));
        QCOMPARE(questions, asked);
        QVERIFY2(QRegularExpression(pane, QRegularExpression::DotMatchesEverythingOption)
                     .match(face.pane)
                     .hasMatch(),
                 qPrintable(face.pane));
        QCOMPARE(face.status.value(Action::Recover, -1), recoverStatus);
        // ltfsck's own lines reached the face live.
        QVERIFY(recoverStatus != 0 || face.toolBytes.contains("LTFS16022I Volume is consistent."));
        // Only a recovery clears what the killed daemon left unclosed.
        QCOMPARE(
            readFile(TestHome::path() + QStringLiteral("/tapesim/state.ini")).contains("consistent = no"),
            recoverStatus != 0);
    }
};

TAPEDESK_ENGINE_TEST_MAIN(EngineRecoverTest)

#include "tst_engine_recover.moc"

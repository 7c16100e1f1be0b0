// ctest-timeout: 60
// The engine without a window: a whole mount and unmount against the
// simulator through a face that only records, in a program that links no
// widget library (checked by the test engine_links_no_widgets).

#include "drives/Drive.h"
#include "drives/DriveStateStore.h"
#include "operations/TapeEngine.h"
#include "support/EngineHarness.h"
#include "support/TestEnv.h"

#include <QCoreApplication>
#include <QTest>

using namespace tapedesk;
using namespace tapedesk::test;

class EngineTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void mountAndUnmountWithoutAWindow()
    {
        resetSimulator();
        qputenv("TAPESIM_UNMOUNT_DELAY", "0");
        useSimulator();
        QStringList asked;
        answerWith({QStringLiteral("0")}, &asked);
        RecordingFace face;
        TapeEngine engine(face);

        engine.start();
        QVERIFY(QTest::qWaitFor(
            [&] { return face.pane.endsWith(QStringLiteral("Scan Complete")) && !face.busy; }));
        QVERIFY(!face.listed.isEmpty());
        engine.selectDrive(face.listed.first());
        QCOMPARE(face.events.last(), QStringLiteral("caption MOUNT"));

        engine.perform(Action::Mount);
        QVERIFY(QTest::qWaitFor([&] { return face.busy; }));
        // One operation at a time: a second request while the mount runs asks nothing.
        engine.perform(Action::Format);
        QVERIFY(QTest::qWaitFor(
            [&] { return face.pane.endsWith(QStringLiteral("Mount Complete")) && !face.busy; }, 20000));
        QCOMPARE(asked, QStringList{QStringLiteral("Mount Tape")});
        QCOMPARE(face.pane,
                 QStringLiteral("\nMounting Tape\n      Loading Media\n      Getting Tape Address\n"
                                "Starting getSelectedDriveAddress for: tape0\n/tmp/ltfs/mnt/ 0\n"
                                "devname= 0\n\nMount Complete"));
        QVERIFY(face.events.contains(QStringLiteral("caption UNMOUNT")));
        QCOMPARE(face.events.last(), QStringLiteral("status 1 0"));
        QVERIFY(engine.isTapeMounted());
        QCOMPARE(mountedDrives.get().size(), 1);

        engine.perform(Action::Mount);
        QVERIFY(QTest::qWaitFor(
            [&] { return face.pane.endsWith(QStringLiteral("End unMountDrive")) && !face.busy; }, 20000));
        QVERIFY2(face.pane.startsWith(QStringLiteral("\nUnmounting Tape: /tmp/ltfs/mnt/0")),
                 qPrintable(face.pane));
        QVERIFY2(face.pane.endsWith(QStringLiteral("\nUnmounting Tape Complete\nRemoving Mounted Record\n"
                                                   "Removed Mounted Record\nEnd unMountDrive")),
                 qPrintable(face.pane));
        QVERIFY(face.events.contains(QStringLiteral("caption MOUNT")));
        QVERIFY(!engine.isTapeMounted());
        QVERIFY(mountedDrives.get().isEmpty());
        QCOMPARE(asked.size(), 1);
        qunsetenv("TAPESIM_UNMOUNT_DELAY");
    }
};

int main(int argc, char **argv)
{
    TestHome home;
    QCoreApplication app(argc, argv);
    configureApplication(app);
    EngineTest tc;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&tc, argc, argv);
}

#include "tst_engine.moc"

// ctest-timeout: 60
// The Test button against the simulator: three phases on tape0, each failure
// ending the run with its own lines, and the refusals before anything runs.

#include "operations/Texts.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "support/WorkflowFixture.h"
#include "tools/ToolPaths.h"
#include "ui/ViewController.h"

#include <QPlainTextEdit>
#include <QThreadPool>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QString kInProgress = QStringLiteral(
    "Standard Test in progress - this may take up to 30 minutes and cannot be interrupted. You may see "
    "'testing Complete' appear several times during this test process as each phases of the overall test in "
    "finished, please wait for 'Standard Test Compete to ensure all phases of the test are finished'\n");

} // namespace

class StandardTestTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { freshWorkflowCase(); }
    void cleanup() { endWorkflowCase(); }

    // A silent rmp leaves no output: it is judged by the load's code and the
    // test goes on.
    void allPhasesPassingEndComplete_data()
    {
        QTest::addColumn<QByteArray>("fault");
        QTest::newRow("every phase reports 0") << QByteArray();
        QTest::newRow("rmp prints nothing") << QByteArray("tape0:rmp=silent");
    }
    void allPhasesPassingEndComplete()
    {
        QFETCH(QByteArray, fault);
        if (!fault.isEmpty())
            qputenv("TAPESIM_FAIL", fault);
        ViewController vc;
        selectDrive(vc);
        DialogScript script;
        script.press(QStringLiteral("OK"));
        vc.btnRunTest();
        QVERIFY(waitForPane(vc, QStringLiteral("Standard Test Complete")));
        QVERIFY(waitForIdle(vc));

        QCOMPARE(script.seen().size(), 1);
        QCOMPARE(script.seen().first().title, ALERT_WARNING);
        QCOMPARE(script.seen().first().informative, ALERT_DESTRUCTIVE_RUN_TEST);
        QCOMPARE(script.seen().first().buttons,
                 (QStringList{QStringLiteral("OK"), QStringLiteral("Cancel")}));
        QCOMPARE(paneText(vc),
                 QStringLiteral("\n") + kInProgress +
                     QStringLiteral("\n     Loading...\n\n     Load Complete\n\n     Testing\n\n     "
                                    "Testing Complete\n\nStandard Test Complete"));
        QCOMPARE(statusOf(vc.ui.btnTest), QStringLiteral("Complete Button"));
        QCOMPARE(simRunsOf(QStringLiteral("itdt")),
                 (QList<QStringList>{itdtArgs(QStringLiteral("tape0"), {QStringLiteral("load")}),
                                     itdtArgs(QStringLiteral("tape0"), {QStringLiteral("rmp")}),
                                     itdtArgs(QStringLiteral("tape0"), {QStringLiteral("standardtest")})}));
    }

    void failedPhaseEndsTheRun_data()
    {
        const QString testFailed =
            QStringLiteral("Host Validation Failed \u2013 Run Retrieve Log And Contact Corvel Support At ") +
            supportEmail() + QStringLiteral(" For Instruction");
        QTest::addColumn<QByteArray>("fault");
        QTest::addColumn<QString>("after");
        QTest::addColumn<QStringList>("ran");
        QTest::newRow("load") << QByteArray("tape0:load=4")
                              << QStringLiteral(
                                     "\n     load failed\n\nTEST failed - Please try with another tape, if "
                                     "failure repeats contact Corvel Support at ") +
                                     supportEmail()
                              << QStringList{QStringLiteral("load")};
        QTest::newRow("rmp") << QByteArray("tape0:rmp=1")
                             << QStringLiteral(
                                    "\n     Load Complete\n\n     Testing\n\n     Load Failed\n\n") +
                                    testFailed
                             << QStringList{QStringLiteral("load"), QStringLiteral("rmp")};
        QTest::newRow("standardtest")
            << QByteArray("tape0:standardtest=1")
            << QStringLiteral(
                   "\n     Load Complete\n\n     Testing\n\n     Testing Complete\n\n     Standard Test "
                   "Failed\n\n") +
                   testFailed
            << QStringList{QStringLiteral("load"), QStringLiteral("rmp"), QStringLiteral("standardtest")};
    }
    void failedPhaseEndsTheRun()
    {
        QFETCH(QByteArray, fault);
        QFETCH(QString, after);
        QFETCH(QStringList, ran);
        qputenv("TAPESIM_FAIL", fault);
        ViewController vc;
        selectDrive(vc);
        DialogScript script;
        script.press(QStringLiteral("OK"));
        vc.btnRunTest();
        QVERIFY(waitForStatus(vc.ui.btnTest, QStringLiteral("Fail Button")));
        QVERIFY(waitForIdle(vc));

        // No error display: the pane ends with the failure line.
        QCOMPARE(paneText(vc),
                 QStringLiteral("\n") + kInProgress + QStringLiteral("\n     Loading...\n") + after);
        QList<QStringList> expected;
        for (const QString &word : ran)
            expected << itdtArgs(QStringLiteral("tape0"), {word});
        QCOMPARE(simRunsOf(QStringLiteral("itdt")), expected);
        QCOMPARE(script.unexpected().size(), 0);
    }

    void refusalsRunNothing()
    {
        ViewController vc;
        DialogScript script;
        vc.btnRunTest();
        QVERIFY(waitForPane(vc, QStringLiteral("Error: No Drive Selected")));
        QCOMPARE(paneText(vc), QStringLiteral("\nError: No Drive Selected"));

        selectDrive(vc);
        OUTPUT_FOLDER.set(std::nullopt);
        vc.btnRunTest();
        QVERIFY(waitForPane(vc, MSG_NO_PREFERENCES));
        QCOMPARE(paneText(vc), QStringLiteral("\n") + MSG_NO_PREFERENCES);
        QVERIFY(script.seen().isEmpty());

        useSimulator();
        vc.ui.rightScrollView->setPlainText(QStringLiteral("earlier"));
        script.press(QStringLiteral("Cancel"));
        vc.btnRunTest();
        QCOMPARE(script.seen().size(), 1);
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        QCOMPARE(paneText(vc), QStringLiteral("earlier"));
        QVERIFY(simRunsOf(QStringLiteral("itdt")).isEmpty());
    }

    void mountedVolumeIsRefused()
    {
        const QList<SeenDialog> seen = startOnMountedTape0([](ViewController &vc) { vc.btnRunTest(); });
        QCOMPARE(seen.size(), 1);
        QCOMPARE(seen.first().title, QStringLiteral("Run Test"));
        QCOMPARE(seen.first().informative, QStringLiteral("Please unmount tape before running test"));
        QCOMPARE(seen.first().buttons, QStringList{QStringLiteral("OK")});
        QVERIFY(simRunsOf(QStringLiteral("itdt")).isEmpty());

        // A mount table that cannot be read counts as mounted, and says so.
        ViewController vc;
        selectDrive(vc);
        DialogScript script;
        script.press(QStringLiteral("OK"));
        qputenv("TAPESIM_FAIL", "*:mount=5");
        vc.btnRunTest();
        qunsetenv("TAPESIM_FAIL");
        QVERIFY(waitForPane(vc, QStringLiteral("nothing was run.")));
        QVERIFY(paneText(vc).contains(
            QStringLiteral("Error: Tape needs to be un-mounted\nThe mount table could not be read ")));
        QCOMPARE(script.seen().size(), 1);
        QVERIFY(simRunsOf(QStringLiteral("itdt")).isEmpty());
    }
};

TAPEDESK_TEST_MAIN(StandardTestTest)
#include "tst_standardtest.moc"

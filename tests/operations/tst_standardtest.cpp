// ctest-timeout: 60
// The Test button against the simulator: three phases on tape0, each failure
// ending the run with its own lines, and the refusals before anything runs.

#include "operations/Texts.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
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

QString logPath()
{
    return TestHome::path() + QStringLiteral("/sim.log");
}

// The itdt runs of this test, each as its argument list after the tool name.
QList<QStringList> itdtRuns()
{
    QList<QStringList> runs;
    for (QStringList argv : simInvocations(logPath())) {
        if (argv.takeFirst() == QStringLiteral("itdt"))
            runs << argv;
    }
    return runs;
}

QStringList phase(const QString &word)
{
    const QString out = OUTPUT_FOLDER.get().value_or(QString());
    return {QStringLiteral("-R"),    out, QStringLiteral("-LP"), out, QStringLiteral("-f"),
            QStringLiteral("tape0"), word};
}

void selectTape0(ViewController &vc)
{
    DriveRecord tape0;
    tape0.id = QStringLiteral("tape0");
    tape0.name = QStringLiteral("0");
    vc.selectedDrive.set(makeDrive(tape0));
}

} // namespace

class StandardTestTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        resetSimulator();
        useSimulator();
        QFile::remove(logPath());
        qputenv("TAPESIM_LOG", QFile::encodeName(logPath()));
    }
    void cleanup()
    {
        qunsetenv("TAPESIM_FAIL");
        qunsetenv("TAPESIM_LOG");
    }

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
        selectTape0(vc);
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
        QCOMPARE(itdtRuns(), (QList<QStringList>{phase(QStringLiteral("load")), phase(QStringLiteral("rmp")),
                                                 phase(QStringLiteral("standardtest"))}));
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
        selectTape0(vc);
        DialogScript script;
        script.press(QStringLiteral("OK"));
        vc.btnRunTest();
        QVERIFY(waitUntil([&] { return statusOf(vc.ui.btnTest) == QStringLiteral("Fail Button"); }));
        QVERIFY(waitForIdle(vc));

        // No error display: the pane ends with the failure line.
        QCOMPARE(paneText(vc),
                 QStringLiteral("\n") + kInProgress + QStringLiteral("\n     Loading...\n") + after);
        QList<QStringList> expected;
        for (const QString &word : ran)
            expected << phase(word);
        QCOMPARE(itdtRuns(), expected);
        QCOMPARE(script.unexpected().size(), 0);
    }

    void refusalsRunNothing()
    {
        ViewController vc;
        DialogScript script;
        vc.btnRunTest();
        QVERIFY(waitForPane(vc, QStringLiteral("Error: No Drive Selected")));
        QCOMPARE(paneText(vc), QStringLiteral("\nError: No Drive Selected"));

        selectTape0(vc);
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
        QVERIFY(itdtRuns().isEmpty());
    }

    void mountedVolumeIsRefused()
    {
        QVERIFY(mountWithSimulator(QStringLiteral("0")));
        QFile::remove(logPath());
        ViewController vc;
        selectTape0(vc);
        DialogScript script;
        script.press(QStringLiteral("OK"));
        vc.btnRunTest();
        QVERIFY(waitForPane(vc, QStringLiteral("Error: Tape needs to be un-mounted")));
        QCOMPARE(script.seen().size(), 1);
        QCOMPARE(script.seen().first().title, QStringLiteral("Run Test"));
        QCOMPARE(script.seen().first().informative,
                 QStringLiteral("Please unmount tape before running test"));
        QCOMPARE(script.seen().first().buttons, QStringList{QStringLiteral("OK")});
        QVERIFY(itdtRuns().isEmpty());
    }
};

TAPEDESK_TEST_MAIN(StandardTestTest)
#include "tst_standardtest.moc"

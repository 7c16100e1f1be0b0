// ctest-timeout: 60
// The Host Validation button against the simulator: load, rmp and the system
// test on tape0, the system test's report as the verdict, each failed phase
// with its lines and the error display, and the refusals.

#include "operations/Texts.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "support/WorkflowFixture.h"
#include "tools/ToolPaths.h"
#include "ui/ViewController.h"

#include <QPlainTextEdit>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QString kStart = QStringLiteral("\nHost Validation In Process - Please Wait\n\n     Loading...\n");

} // namespace

class HostValidationTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { freshWorkflowCase(); }
    void cleanup() { endWorkflowCase(); }

    void passingRunEndsWithTheSystemTestReport()
    {
        ViewController vc;
        selectDrive(vc);
        DialogScript script;
        script.press(QStringLiteral("OK"));
        vc.btnHostValidation();
        QVERIFY(waitForPane(vc, QStringLiteral("Host Validation Complete")));
        QVERIFY(waitForIdle(vc));

        QCOMPARE(script.seen().size(), 1);
        QCOMPARE(script.seen().first().title, ALERT_WARNING);
        QCOMPARE(script.seen().first().informative, ALERT_DESTRUCTIVE);
        const QString head =
            kStart + QStringLiteral("\n     Load Complete\n\n     Testing in Progress...\n\nHost "
                                    "Validation Complete\n");
        const QString pane = paneText(vc);
        QVERIFY2(pane.startsWith(head), qPrintable(pane));
        // What follows is the system test's own output, not an earlier phase's.
        const QString report = pane.mid(head.size());
        QVERIFY2(report.startsWith(QStringLiteral("Initializing device...\nRunning system test on tape0")),
                 qPrintable(report));
        QVERIFY(report.contains(QStringLiteral("Result: PASSED")));
        QVERIFY(report.endsWith(QStringLiteral("Exit with code: 0\n")));
        QCOMPARE(statusOf(vc.ui.btnHostValidation), QStringLiteral("Complete Button"));
        QCOMPARE(simRunsOf(QStringLiteral("itdt")),
                 (QList<QStringList>{itdtArgs(QStringLiteral("tape0"), {QStringLiteral("load")}),
                                     itdtArgs(QStringLiteral("tape0"), {QStringLiteral("rmp")}),
                                     itdtArgs(QStringLiteral("tape0"), {QStringLiteral("systemtest")})}));
    }

    void failedPhaseEndsWithItsLinesAndTheErrorDisplay_data()
    {
        QTest::addColumn<QByteArray>("fault");
        QTest::addColumn<QString>("lines");
        QTest::addColumn<QString>("code");
        QTest::addColumn<QStringList>("ran");
        QTest::newRow("load") << QByteArray("tape0:load=4") << QStringLiteral("\n     Load Failed\n")
                              << QStringLiteral("4") << QStringList{QStringLiteral("load")};
        QTest::newRow("rmp") << QByteArray("tape0:rmp=6")
                             << QStringLiteral(
                                    "\n     Load Complete\n\n     Testing in Progress...\n\n     Test "
                                    "Failed\n")
                             << QStringLiteral("6")
                             << QStringList{QStringLiteral("load"), QStringLiteral("rmp")};
        QTest::newRow("systemtest")
            << QByteArray("tape0:systemtest=1")
            << QStringLiteral("\n     Load Complete\n\n     Testing in Progress...\n\n     Test Failed\n")
            << QStringLiteral("1")
            << QStringList{QStringLiteral("load"), QStringLiteral("rmp"), QStringLiteral("systemtest")};
    }
    void failedPhaseEndsWithItsLinesAndTheErrorDisplay()
    {
        QFETCH(QByteArray, fault);
        QFETCH(QString, lines);
        QFETCH(QString, code);
        QFETCH(QStringList, ran);
        qputenv("TAPESIM_FAIL", fault);
        ViewController vc;
        selectDrive(vc);
        DialogScript script;
        script.press(QStringLiteral("OK"));
        vc.btnHostValidation();
        QVERIFY(waitForStatus(vc.ui.btnHostValidation, QStringLiteral("Fail Button")));
        QVERIFY(waitForIdle(vc));

        const QString failureLine =
            QStringLiteral(
                "\nHost Validation Failed \u2013 Run Retrieve Log And Contact Corvel Support At ") +
            supportEmail() + QStringLiteral(" For Instructions");
        const QString errorDisplay =
            QStringLiteral("\n") +
            vc.engine.localizedString(QStringLiteral("error_code_%1_title").arg(code)) +
            QStringLiteral("\n") + vc.engine.localizedString(QStringLiteral("error_code_%1").arg(code));
        QCOMPARE(paneText(vc), kStart + lines + failureLine + errorDisplay);
        QList<QStringList> expected;
        for (const QString &word : ran)
            expected << itdtArgs(QStringLiteral("tape0"), {word});
        QCOMPARE(simRunsOf(QStringLiteral("itdt")), expected);
    }

    void refusalsRunNothing()
    {
        ViewController vc;
        DialogScript script;
        vc.btnHostValidation();
        QVERIFY(waitForPane(vc, QStringLiteral("Error: No Drive Selected")));
        QCOMPARE(paneText(vc), QStringLiteral("\nError: No Drive Selected"));

        selectDrive(vc);
        ITDT_PATH.set(std::nullopt);
        vc.btnHostValidation();
        QVERIFY(waitForPane(vc, MSG_NO_PREFERENCES));
        QCOMPARE(paneText(vc), QStringLiteral("\n") + MSG_NO_PREFERENCES);
        QVERIFY(script.seen().isEmpty());
        QVERIFY(simRunsOf(QStringLiteral("itdt")).isEmpty());
    }

    void mountedVolumeIsRefused()
    {
        const QList<SeenDialog> seen =
            startOnMountedTape0([](ViewController &vc) { vc.btnHostValidation(); });
        QCOMPARE(seen.size(), 1);
        QCOMPARE(seen.first().title, QStringLiteral("Host Validation"));
        QCOMPARE(seen.first().informative, QStringLiteral("Please unmount tape before running test"));
        QCOMPARE(seen.first().buttons, QStringList{QStringLiteral("OK")});
        QVERIFY(simRunsOf(QStringLiteral("itdt")).isEmpty());
    }
};

TAPEDESK_TEST_MAIN(HostValidationTest)
#include "tst_hostvalidation.moc"

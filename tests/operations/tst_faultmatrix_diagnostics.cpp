// ctest-timeout: 120
// Log retrieval, standard test and host validation against every fault the
// simulator injects into their deciding itdt run. The log retrieval judges no
// code: whatever the dump run did, the newest dump in the output folder is
// offered. The two tests judge each phase by its "Exit with code:" line, so an
// output without one leaves the previous phase's "0" in force.

#include "operations/FaultMatrix.h"
#include "operations/PaneText.h"
#include "operations/Texts.h"
#include "support/TestMain.h"

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

void expectPaintedThroughHang(const QString &mode, const HangWatch &watch)
{
    if (mode != QStringLiteral("hang"))
        return;
    QVERIFY(watch.quitTheTool());
    QVERIFY(watch.paintsWhileHung() >= HangWatch::kPaints);
}

bool paneLinesAreShort(ViewController &vc)
{
    const QStringList lines = paneText(vc).split(QLatin1Char('\n'));
    return std::all_of(lines.cbegin(), lines.cend(),
                       [](const QString &l) { return l.size() <= kLongestPaneLine; });
}

} // namespace

class FaultMatrixDiagnosticsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        freshSimulator();
        rememberAnotherDrive();
    }

    void cleanup()
    {
        qunsetenv("TAPESIM_FAIL");
        QVERIFY(waitUntil([] { return children::liveCount() == 0; }));
    }

    void log_data() { addFaultRows(); }

    void log()
    {
        QFETCH(QString, mode);
        ViewController vc;
        QVERIFY(openWithDriveSelected(vc, 0, QStringLiteral("tape0")));
        // A dump from an earlier run: the one a failed dump run still offers.
        const QString earlier = makeDir(QStringLiteral("output")) + QStringLiteral("/1013000101_earlier.blz");
        QFile dump(earlier);
        QVERIFY(dump.open(QIODevice::WriteOnly));
        dump.write("earlier drive dump");
        dump.close();
        const QString saveTo =
            makeDir(QStringLiteral("saved-") + QString::fromLatin1(QTest::currentDataTag()));
        const auto storeBefore = storeContents();

        injectFault(QStringLiteral("tape0:dump"), mode);
        HangWatch watch(vc, [] { return simulatorRan(QStringLiteral("itdt"), QStringLiteral("dump")); });
        DialogScript script;
        script.choosePath(saveTo);
        vc.ui.btnRetriveLog->click();
        const QString closing = QStringLiteral("Contact Corvel Support At ") + supportEmail() +
                                QStringLiteral(" For Further Instructions");
        QVERIFY(waitForPane(vc, closing, 90000));
        QVERIFY(waitForIdle(vc, 30000));
        QVERIFY(script.unexpected().isEmpty());
        expectPaintedThroughHang(mode, watch);

        QCOMPARE(paneLines(vc).constFirst(), STATUS_LOG_GATHERING.chopped(1));
        QCOMPARE(paneLines(vc).constLast(), closing);
        if (mode == kFaultCode)
            QVERIFY(paneText(vc).contains(QStringLiteral("Exit with code: 3")));
        QVERIFY(paneLinesAreShort(vc));
        QCOMPARE(readFile(saveTo + QStringLiteral("/1013000101_earlier.blz")),
                 QByteArray("earlier drive dump"));
        QCOMPARE(statusOf(vc.ui.btnRetriveLog), QStringLiteral("Complete Button"));
        QCOMPARE(storeContents(), storeBefore);
    }

    void standardTest_data() { addFaultRows(); }

    void standardTest()
    {
        QFETCH(QString, mode);
        ViewController vc;
        QVERIFY(openWithDriveSelected(vc, 0, QStringLiteral("tape0")));
        const auto storeBefore = storeContents();
        const bool fails = mode == kFaultCode;

        injectFault(QStringLiteral("tape0:standardtest"), mode, 6);
        HangWatch watch(vc,
                        [] { return simulatorRan(QStringLiteral("itdt"), QStringLiteral("standardtest")); });
        DialogScript script;
        script.press(QStringLiteral("OK"));
        vc.ui.btnTest->click();
        const QString verdict =
            fails ? QStringLiteral("     Standard Test Failed\n") : QStringLiteral("Standard Test Complete");
        QVERIFY(waitForPane(vc, verdict, 90000));
        QVERIFY(waitForIdle(vc, 30000));
        QVERIFY(script.unexpected().isEmpty());
        expectPaintedThroughHang(mode, watch);

        // Every phase ran, the faulted one last.
        QStringList words;
        for (const QStringList &argv : runsOf(QStringLiteral("itdt")))
            words << argv.constLast();
        QCOMPARE(words, (QStringList{QStringLiteral("load"), QStringLiteral("rmp"),
                                     QStringLiteral("standardtest")}));
        QCOMPARE(statusOf(vc.ui.btnTest),
                 fails ? QStringLiteral("Fail Button") : QStringLiteral("Complete Button"));
        QCOMPARE(vc.engine.lastExitCode.get(), fails ? QStringLiteral("6") : QStringLiteral("0"));
        if (!fails)
            QCOMPARE(paneLines(vc).constLast(), verdict);
        QCOMPARE(storeContents(), storeBefore);
    }

    void hostValidation_data() { addFaultRows(); }

    void hostValidation()
    {
        QFETCH(QString, mode);
        ViewController vc;
        QVERIFY(openWithDriveSelected(vc, 0, QStringLiteral("tape0")));
        const auto storeBefore = storeContents();
        const bool fails = mode == kFaultCode;

        injectFault(QStringLiteral("tape0:systemtest"), mode, 6);
        HangWatch watch(vc,
                        [] { return simulatorRan(QStringLiteral("itdt"), QStringLiteral("systemtest")); });
        DialogScript script;
        script.press(QStringLiteral("OK"));
        vc.ui.btnHostValidation->click();
        const QString verdict =
            fails ? QStringLiteral("     Test Failed\n") : QStringLiteral("Host Validation Complete");
        QVERIFY(waitForPane(vc, verdict, 90000));
        QVERIFY(waitForIdle(vc, 30000));
        QVERIFY(script.unexpected().isEmpty());
        expectPaintedThroughHang(mode, watch);

        QCOMPARE(statusOf(vc.ui.btnHostValidation),
                 fails ? QStringLiteral("Fail Button") : QStringLiteral("Complete Button"));
        QCOMPARE(vc.engine.lastExitCode.get(), fails ? QStringLiteral("6") : QStringLiteral("0"));
        // A completed validation ends with the system test's own output,
        // whatever it was: part of it, garbage or nothing.
        if (!fails)
            QVERIFY(paneText(vc).endsWith(QStringLiteral("Host Validation Complete\n") +
                                          withLongLinesCut(lastStatusFeedBack.get())));
        QVERIFY(paneLinesAreShort(vc));
        QCOMPARE(storeContents(), storeBefore);
    }
};

TAPEDESK_TEST_MAIN(FaultMatrixDiagnosticsTest)
#include "tst_faultmatrix_diagnostics.moc"

// ctest-timeout: 120
// Format and firmware update against every fault the simulator injects. mkltfs
// writes nothing to standard output, so its verdict rests on its standard error
// and on the code the previous tool left; itdt's ucode is judged by its
// "Exit with code:" line alone, so an output without one keeps the earlier
// code (here the scan's "0") in force.

#include "operations/FaultMatrix.h"
#include "support/TestMain.h"

#include <QDir>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

QString firmwareFile()
{
    const QString path = makeDir(QStringLiteral("fw")) + QStringLiteral("/HH8_G3C1.fmrz");
    QFile f(path);
    if (f.open(QIODevice::WriteOnly))
        f.write("microcode image");
    return path;
}

} // namespace

class FaultMatrixFormatFirmwareTest : public QObject
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

    void format_data() { addFaultRows(); }

    // Only a run that prints no error at all and leaves the scan's "0" in
    // place counts as formatted; every other fault fails the format.
    void format()
    {
        QFETCH(QString, mode);
        ViewController vc;
        QVERIFY(openWithDriveSelected(vc, 1, QStringLiteral("tape1"))); // the blank cartridge
        const auto storeBefore = storeContents();
        const bool formats = mode == QStringLiteral("silent");

        injectFault(QStringLiteral("tape1:mkltfs"), mode, 16);
        HangWatch watch(vc, [] { return simulatorRan(QStringLiteral("mkltfs"), QString()); });
        DialogScript script;
        script.press(QStringLiteral("Proceed")).type(QStringLiteral("abc123"));
        if (formats)
            script.press(QStringLiteral("Eject"));
        vc.ui.btnFormat->click();
        QVERIFY(waitUntil([] { return simulatorRan(QStringLiteral("mkltfs"), QString()); }, 30000));
        if (formats)
            QVERIFY(waitUntil([] { return simulatorRan(QStringLiteral("itdt"), QStringLiteral("unload")); },
                              30000));
        else
            QVERIFY(waitForPane(vc, QStringLiteral("Tape Format Failed"), 90000));
        QVERIFY(waitForIdle(vc, 30000));
        QVERIFY(script.unexpected().isEmpty());
        QCOMPARE(script.pending(), 0);

        if (mode == QStringLiteral("hang")) {
            QVERIFY(watch.quitTheTool());
            QVERIFY(watch.paintsWhileHung() >= HangWatch::kPaints);
        }
        if (formats) {
            QCOMPARE(paneLines(vc).constLast(), QStringLiteral("--volume-name= ABC123"));
            QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Complete Button"));
        } else {
            QCOMPARE(paneLines(vc), QStringList{QStringLiteral("Tape Format Failed")});
            QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Fail Button"));
        }
        QCOMPARE(vc.engine.lastExitCode.get(), QStringLiteral("0"));
        QCOMPARE(vc.engine.selectedDrive.get()->record().barCode, QStringLiteral("ABC123"));
        QCOMPARE(storeContents(), storeBefore);
    }

    void firmware_data() { addFaultRows(); }

    void firmware()
    {
        QFETCH(QString, mode);
        ViewController vc;
        QVERIFY(openWithDriveSelected(vc, 0, QStringLiteral("tape0")));
        const auto storeBefore = storeContents();
        const bool fails = mode == kFaultCode;
        const QString file = firmwareFile();

        injectFault(QStringLiteral("tape0:ucode"), mode, 7);
        HangWatch watch(vc, [] { return simulatorRan(QStringLiteral("itdt"), QStringLiteral("ucode")); });
        DialogScript script;
        script.press(QStringLiteral("OK")).choosePath(file);
        vc.ui.btnUpgrade->click();
        const QString verdict = fails ? QStringLiteral("Firmware Update Failed - Contact Corvel Support")
                                      : QStringLiteral("Firmware Update Complete");
        QVERIFY(waitForPane(vc, verdict, 90000));
        QVERIFY(waitForIdle(vc, 30000));
        QVERIFY(script.unexpected().isEmpty());

        if (mode == QStringLiteral("hang")) {
            QVERIFY(watch.quitTheTool());
            QVERIFY(watch.paintsWhileHung() >= HangWatch::kPaints);
        }
        QCOMPARE(paneLines(vc).constFirst(), verdict);
        QCOMPARE(statusOf(vc.ui.btnUpgrade),
                 fails ? QStringLiteral("Fail Button") : QStringLiteral("Complete Button"));
        QCOMPARE(vc.engine.lastExitCode.get(), fails ? QStringLiteral("7") : QStringLiteral("0"));
        const QList<QStringList> runs = runsOf(QStringLiteral("itdt"));
        QCOMPARE(runs.size(), 1);
        QCOMPARE(runs.constFirst().constLast(), file);
        QCOMPARE(storeContents(), storeBefore);
    }
};

TAPEDESK_TEST_MAIN(FaultMatrixFormatFirmwareTest)
#include "tst_faultmatrix_formatfirmware.moc"

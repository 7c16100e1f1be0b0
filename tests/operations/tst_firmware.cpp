// ctest-timeout: 60
// Updating a drive's firmware: the warning, the file choice, and the
// simulated itdt's verdict on the Upgrade button.

#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "support/WorkflowFixture.h"
#include "tools/ToolPaths.h"
#include "ui/ViewController.h"

#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableView>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

// The firmware runs of itdt, leaving out the scan's.
QList<QStringList> ucodeRuns()
{
    QList<QStringList> runs;
    for (const QStringList &args : simRunsOf(QStringLiteral("itdt"))) {
        if (args.contains(QStringLiteral("ucode")))
            runs << args;
    }
    return runs;
}

// Types the whole path into the picker's name field: the folder listing
// loads in the background, and a selection made before it has loaded can
// come to nothing.
void choose(QWidget *dialog, const QString &path)
{
    auto *panel = qobject_cast<QFileDialog *>(dialog);
    if (!panel)
        return;
    panel->setDirectory(QFileInfo(path).absolutePath());
    if (auto *field = panel->findChild<QLineEdit *>(QStringLiteral("fileNameEdit")))
        field->setText(path);
    QMetaObject::invokeMethod(panel, "accept", Qt::QueuedConnection);
}

QString firmwareFile(const QString &fileName)
{
    const QString path = makeDir(QStringLiteral("fw")) + QLatin1Char('/') + fileName;
    QFile f(path);
    if (f.open(QIODevice::WriteOnly))
        f.write("microcode image");
    return path;
}

} // namespace

class FirmwareTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { freshWorkflowCase(); }
    void cleanup() { endWorkflowCase(); }

    void updateCompletes()
    {
        const QString file = firmwareFile(QStringLiteral("new.fmrz"));
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        QStringList offered;
        bool hiddenShown = false;
        DialogScript script;
        script.press(QStringLiteral("OK")).then([&](QWidget *d, const SeenDialog &) {
            auto *panel = qobject_cast<QFileDialog *>(d);
            offered = panel->nameFilters();
            hiddenShown = panel->filter().testFlag(QDir::Hidden);
            choose(panel, file);
        });
        vc.btnUpgrade(vc.ui.btnUpgrade);
        QVERIFY(waitForPane(vc, QStringLiteral("Firmware Update Complete")));
        QVERIFY(waitForIdle(vc));
        QCOMPARE(paneText(vc), QStringLiteral("\nFirmware Update Complete"));
        QCOMPARE(statusOf(vc.ui.btnUpgrade), QStringLiteral("Complete Button"));
        QCOMPARE(vc.engine.firmwareFileAndPath.get(), file);
        QCOMPARE(ucodeRuns(),
                 QList<QStringList>{itdtArgs(QStringLiteral("tape0"), {QStringLiteral("ucode"), file})});
        QCOMPARE(script.seen()[0].title, QStringLiteral("Warning!"));
        QCOMPARE(script.seen()[0].informative,
                 QStringLiteral("Are you sure you want to upgrade, please contact corvel support before "
                                "performing a upgrade."));
        QCOMPARE(script.seen()[1].title, QStringLiteral("Select File"));
        QCOMPARE(offered, QStringList{QStringLiteral("*.fmrz *.fm")});
        QVERIFY(hiddenShown);
    }

    void updateFails()
    {
        qputenv("TAPESIM_FAIL", "tape0:ucode=7");
        const QString file = firmwareFile(QStringLiteral("old.fm"));
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        DialogScript script;
        script.press(QStringLiteral("OK")).then([&](QWidget *d, const SeenDialog &) { choose(d, file); });
        vc.btnUpgrade(vc.ui.btnUpgrade);
        QVERIFY(waitForPane(vc, QStringLiteral("Firmware Update Failed - Contact Corvel Support")));
        QVERIFY(waitForIdle(vc));
        QCoreApplication::processEvents();
        QCOMPARE(vc.engine.lastExitCode.get(), QStringLiteral("7"));
        // The error texts for code 7 follow the verdict.
        const QStringList lines = paneText(vc).split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines[1], QStringLiteral("Firmware Update Failed - Contact Corvel Support"));
        QVERIFY(!lines[2].isEmpty() && !lines[3].isEmpty());
        QCOMPARE(statusOf(vc.ui.btnUpgrade), QStringLiteral("Fail Button"));
        QCOMPARE(ucodeRuns().size(), 1);
    }

    void pickerCancelled()
    {
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        DialogScript script;
        script.press(QStringLiteral("OK")).cancelPicker();
        vc.btnUpgrade(vc.ui.btnUpgrade);
        QVERIFY(waitForPane(vc, QStringLiteral("no firmware to update")));
        QCOMPARE(paneText(vc), QStringLiteral("\nno firmware to update"));
        QVERIFY(waitForStatus(vc.ui.btnUpgrade, QStringLiteral("In Process Button")));
        QCOMPARE(vc.engine.firmwareFileAndPath.get(), QString());
        QVERIFY(ucodeRuns().isEmpty());
    }

    void warningCancelled()
    {
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        DialogScript script;
        script.press(QStringLiteral("Cancel"));
        vc.btnUpgrade(vc.ui.btnUpgrade);
        QVERIFY(waitForStatus(vc.ui.btnUpgrade, QStringLiteral("In Process Button")));
        QCOMPARE(script.seen().size(), 1);
        QVERIFY(script.unexpected().isEmpty());
        QCOMPARE(paneText(vc), QStringLiteral("\nReady \ntape0 Selected"));
    }

    void mountedVolumeRefused()
    {
        QVERIFY(mountWithSimulator(QStringLiteral("0")));
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        DialogScript script;
        script.press(QStringLiteral("OK"));
        vc.btnUpgrade(vc.ui.btnUpgrade);
        QCOMPARE(script.seen().size(), 1);
        QCOMPARE(script.seen()[0].title, QStringLiteral("Update Firmware"));
        QCOMPARE(script.seen()[0].informative, QStringLiteral(" Please unmount tape before updating"));
        QCOMPARE(script.seen()[0].buttons, QStringList{QStringLiteral("OK")});
        QVERIFY(waitForPane(vc, QStringLiteral("Error: Tape needs to be un-mounted")));
        QCOMPARE(paneText(vc),
                 QStringLiteral("\nReady \ntape0 Selected\nError: Tape needs to be un-mounted"));
        QCOMPARE(statusOf(vc.ui.btnUpgrade), QString());
        QVERIFY(ucodeRuns().isEmpty());
    }

    // Both refusals append to what the pane already shows.
    void refusedWithoutPathsOrDrive()
    {
        ViewController vc;
        vc.ui.rightScrollView->setPlainText(QStringLiteral("earlier"));
        vc.btnUpgrade(vc.ui.btnUpgrade);
        QVERIFY(waitForPane(vc, QStringLiteral("Error: No Drive Selected")));
        QCOMPARE(paneText(vc), QStringLiteral("earlier\nError: No Drive Selected"));
        OUTPUT_FOLDER.set(std::nullopt);
        vc.btnUpgrade(vc.ui.btnUpgrade);
        QVERIFY(waitForPane(vc, QStringLiteral("WARNING: No preferences set for paths")));
        QCOMPARE(paneText(vc),
                 QStringLiteral("earlier\nError: No Drive Selected\nWARNING: No preferences set for paths"));
        QCOMPARE(statusOf(vc.ui.btnUpgrade), QString());
    }
};

TAPEDESK_TEST_MAIN(FirmwareTest)
#include "tst_firmware.moc"

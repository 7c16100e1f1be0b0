// ctest-timeout: 120
// Formatting a cartridge as the operator does it: press Format, name the
// volume, and answer the questions that follow; the simulated mkltfs records
// what it was asked to do.

#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "support/WorkflowFixture.h"
#include "tools/ToolPaths.h"
#include "ui/ViewController.h"

#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QTableView>
#include <QTimer>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QString kNameQuestion = QStringLiteral("Assign tape name (6 character alphanumeric: EG: KT1234)");
const QString kReformatTitle =
    QStringLiteral("Tape already Formatted: Reformat tape - this will destroy all existing data on tape");

QStringList mkltfsArgs(const QString &device, const QString &name, bool force = false)
{
    QStringList args{QStringLiteral("--device=") + device};
    if (force)
        args << QStringLiteral("--force");
    return args << QStringLiteral("--tape-serial=") + name << QStringLiteral("--volume-name=") + name;
}

QString simState()
{
    return QString::fromUtf8(readFile(qEnvironmentVariable("TAPESIM_HOME") + QStringLiteral("/state.ini")));
}

int countKind(const DialogScript &script, const QString &kind)
{
    return static_cast<int>(std::count_if(script.seen().cbegin(), script.seen().cend(),
                                          [&](const SeenDialog &d) { return d.kind == kind; }));
}

// What "mount" lists now.

} // namespace

class FormatTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { freshWorkflowCase(); }
    void cleanup() { endWorkflowCase(); }

    // tape1 holds a blank cartridge in an HH9 drive, which asks to proceed.
    void blankTapeFormattedUpperCasedThenEjected()
    {
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 1));
        DialogScript script;
        script.press(QStringLiteral("Proceed")).type(QStringLiteral("abcdef")).press(QStringLiteral("Eject"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitUntil([&] { return script.pending() == 0; }));
        QVERIFY(waitUntil([&] {
            return !simRunsOf(QStringLiteral("itdt")).isEmpty() &&
                   simRunsOf(QStringLiteral("itdt")).constLast().contains(QStringLiteral("unload"));
        }));
        QVERIFY(waitForIdle(vc));

        QCOMPARE(paneText(vc), QStringLiteral("\nFormatting Tape - This May Take Several Minutes"
                                              "\n--device= 1\n--tape-serial= ABCDEF\n--volume-name= ABCDEF"));
        QCOMPARE(simRunsOf(QStringLiteral("mkltfs")),
                 QList<QStringList>{mkltfsArgs(QStringLiteral("1"), QStringLiteral("ABCDEF"))});
        QCOMPARE(simRunsOf(QStringLiteral("itdt")).constLast(),
                 itdtArgs(QStringLiteral("tape1"), {QStringLiteral("unload")}));
        QVERIFY(simState().contains(QStringLiteral("volume = ABCDEF")));
        QCOMPARE(vc.engine.selectedDrive.get()->record().barCode, QStringLiteral("ABCDEF"));
        QCOMPARE(vc.engine.volume_name.get(), QStringLiteral("ABCDEF"));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Complete Button"));
        QCOMPARE(statusOf(vc.ui.btnFormat), QStringLiteral("In Process Button"));

        const QList<SeenDialog> &seen = script.seen();
        QCOMPARE(seen.size(), 3);
        QCOMPARE(seen[0].buttons, (QStringList{QStringLiteral("Proceed"), QStringLiteral("Cancel")}));
        QCOMPARE(seen[1].title, QStringLiteral("Format Drive"));
        QCOMPARE(seen[1].informative, kNameQuestion);
        QCOMPARE(seen[2].title, QStringLiteral("Tape Format Complete"));
        QCOMPARE(seen[2].informative, QStringLiteral("Mount or Eject tape"));
        QCOMPARE(seen[2].buttons, (QStringList{QStringLiteral("Eject"), QStringLiteral("Mount")}));
        QVERIFY(script.unexpected().isEmpty());
    }

    void formattedTapeMountedAfterwards()
    {
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 1));
        DialogScript script;
        script.press(QStringLiteral("Proceed")).type(QStringLiteral("KT1234")).press(QStringLiteral("Mount"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitForPane(vc, QStringLiteral("Mount Complete")));
        QVERIFY(waitForIdle(vc));
        QCOMPARE(simRunsOf(QStringLiteral("mkltfs")),
                 QList<QStringList>{mkltfsArgs(QStringLiteral("1"), QStringLiteral("KT1234"))});
        QCOMPARE(simRunsOf(QStringLiteral("ltfs")).size(), 1);
        QVERIFY(paneText(vc).startsWith(QStringLiteral("\nMounting Tape")));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("UNMOUNT"));
        QCOMPARE(vc.engine.selectedDrive.get()->record().label, QStringLiteral("KT1234"));
        QVERIFY(waitForStatus(vc.ui.btnMount, QStringLiteral("Complete Button")));
        QVERIFY(script.unexpected().isEmpty());
        QCOMPARE(countKind(script, QStringLiteral("message")), 2);
    }

    void namingCancelled()
    {
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        DialogScript script;
        script.press(QStringLiteral("Cancel")).type(QStringLiteral("-1"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitForPane(vc, QStringLiteral("Format Canceled")));
        QCOMPARE(paneText(vc),
                 QStringLiteral("\nReady \ntape0 Selected\nRemoving Mounted Record\nFormat Canceled"));
        QCOMPARE(vc.engine.volume_name.get(), QStringLiteral("-1"));
        QVERIFY(!vc.engine.formatTapeEnabled.load());

        // "-1" typed as a name cancels the same way.
        vc.ui.rightScrollView->clear();
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitForPane(vc, QStringLiteral("Format Canceled")));
        QCOMPARE(paneText(vc), QStringLiteral("\nRemoving Mounted Record\nFormat Canceled"));
        QVERIFY(simRunsOf(QStringLiteral("mkltfs")).isEmpty());
        QCOMPARE(countKind(script, QStringLiteral("input")), 2);
        QVERIFY(script.unexpected().isEmpty());
    }

    void invalidNamesAskedAgain()
    {
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        const QStringList bad{QStringLiteral("ABCDE"),  QStringLiteral("ABCDEFG"), QString(),
                              QStringLiteral("      "), QStringLiteral("AB-CDE"),  QStringLiteral("AB_CDE"),
                              QStringLiteral("AB CDE")};
        DialogScript script;
        for (const QString &name : bad)
            script.type(name).press(QStringLiteral("OK"));
        script.press(QStringLiteral("Cancel"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitForPane(vc, QStringLiteral("Format Canceled")));

        const QList<SeenDialog> &seen = script.seen();
        QCOMPARE(seen.size(), 2 * bad.size() + 1);
        for (qsizetype i = 0; i < bad.size(); ++i) {
            QCOMPARE(seen[2 * i].title, QStringLiteral("Format Drive"));
            QCOMPARE(seen[2 * i + 1].kind, QStringLiteral("message"));
            QCOMPARE(seen[2 * i + 1].title, QStringLiteral("Invalid Name"));
            QCOMPARE(seen[2 * i + 1].informative, QStringLiteral("name entered is invalid"));
            QCOMPARE(seen[2 * i + 1].buttons, QStringList{QStringLiteral("OK")});
        }
        QCOMPARE(seen.constLast().title, QStringLiteral("Format Drive"));
        QVERIFY(simRunsOf(QStringLiteral("mkltfs")).isEmpty());
        QVERIFY(script.unexpected().isEmpty());
    }

    // The rule takes any letters; what mkltfs makes of them is its own
    // business, so a stand-in records what it was handed and succeeds.
    void accentedLettersAccepted()
    {
        const QString argsFile = TestHome::path() + QStringLiteral("/mkltfs-args");
        const QString mk =
            writeScript(makeDir(QStringLiteral("fakemk")), QStringLiteral("mkltfs"),
                        QStringLiteral("for a in \"$@\"; do printf '%s\\n' \"$a\" >> '") + argsFile +
                            QStringLiteral("'; done\n"
                                           "echo 'LTFS15024I Medium formatted successfully.' >&2\n"));
        MKLTFS_PATH.set(mk);
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        DialogScript script;
        script.type(QStringLiteral("éàüñçö")).press(QStringLiteral("Eject"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitUntil([&] { return script.pending() == 0; }));
        QVERIFY(waitForIdle(vc));
        QCOMPARE(QString::fromUtf8(readFile(argsFile)),
                 QStringLiteral("--device=0\n--tape-serial=ÉÀÜÑÇÖ\n--volume-name=ÉÀÜÑÇÖ\n"));
        QVERIFY(paneText(vc).endsWith(QStringLiteral("--volume-name= ÉÀÜÑÇÖ")));
        QCOMPARE(countKind(script, QStringLiteral("input")), 1);
        QVERIFY(script.unexpected().isEmpty());
    }

    // tape0 holds a formatted cartridge: mkltfs refuses, the operator says no.
    void alreadyFormattedReformatCancelled()
    {
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        DialogScript script;
        script.type(QStringLiteral("new001")).press(QStringLiteral("Cancel"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitUntil([&] { return script.pending() == 0; }));
        QVERIFY(waitForIdle(vc));
        QCoreApplication::processEvents();
        QCOMPARE(paneText(vc), QStringLiteral("\nTape is already formated"));
        QCOMPARE(script.seen()[1].title, kReformatTitle);
        QCOMPARE(script.seen()[1].informative, QStringLiteral("Reformat tape?"));
        QCOMPARE(script.seen()[1].buttons, (QStringList{QStringLiteral("OK"), QStringLiteral("Cancel")}));
        QCOMPARE(simRunsOf(QStringLiteral("mkltfs")),
                 QList<QStringList>{mkltfsArgs(QStringLiteral("0"), QStringLiteral("NEW001"))});
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Fail Button"));
        QCOMPARE(statusOf(vc.ui.btnFormat), QStringLiteral("In Process Button"));
        QVERIFY(simState().contains(QStringLiteral("volume = ARCHIVE01")));
        QVERIFY(script.unexpected().isEmpty());
    }

    void alreadyFormattedReformatForced()
    {
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        DialogScript script;
        script.type(QStringLiteral("NEW001")).press(QStringLiteral("OK")).press(QStringLiteral("Eject"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitUntil([&] { return script.pending() == 0; }));
        QVERIFY(waitForIdle(vc));
        QCOMPARE(paneText(vc), QStringLiteral("\nTape Format Complete"));
        QCOMPARE(simRunsOf(QStringLiteral("mkltfs")),
                 (QList<QStringList>{mkltfsArgs(QStringLiteral("0"), QStringLiteral("NEW001")),
                                     mkltfsArgs(QStringLiteral("0"), QStringLiteral("NEW001"), true)}));
        QVERIFY(simState().contains(QStringLiteral("volume = NEW001")));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Complete Button"));
        QCOMPARE(script.seen().constLast().title, QStringLiteral("Tape Format Complete"));
        QVERIFY(simRunsOf(QStringLiteral("itdt")).constLast().contains(QStringLiteral("unload")));
        QVERIFY(script.unexpected().isEmpty());
    }

    // A forced run takes minutes on a real cartridge: the window shows it is
    // busy and takes no action until mkltfs ends. The stand-in waits for the
    // test to let it go, so the state is read while it runs.
    void forcedRunKeepsWindowBusy()
    {
        const QString started = TestHome::path() + QStringLiteral("/forced-started");
        const QString release = TestHome::path() + QStringLiteral("/release-forced");
        const QString mk = writeScript(
            makeDir(QStringLiteral("fakemk2")), QStringLiteral("mkltfs"),
            QStringLiteral("case \"$2\" in\n"
                           "--force) : > '") +
                started + QStringLiteral("'\n  while [ ! -e '") + release +
                QStringLiteral("' ]; do sleep 0.02; done\n"
                               "  echo 'LTFS15024I Medium formatted successfully.' >&2; exit 0;;\n"
                               "*) echo 'LTFS15047E Medium is already formatted (0).' >&2\n"
                               "  echo 'LTFS15023I Formatting failed.' >&2; exit 16;;\n"
                               "esac\n"));
        MKLTFS_PATH.set(mk);
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        bool sawBusy = false;
        bool sawPainting = false;
        QTimer watch;
        watch.setInterval(10);
        QObject::connect(&watch, &QTimer::timeout, [&] {
            if (!vc.engine.isWaitingResponsive() || !QFile::exists(started) || QFile::exists(release))
                return;
            sawBusy = !vc.ui.progressIndicator->isHidden() && !vc.ui.btnScan->isEnabled() &&
                      !vc.ui.btnFormat->isEnabled() && !vc.ui.tableView->isEnabled();
            sawPainting = true; // this timer ran while mkltfs was still running
            QFile f(release);
            f.open(QIODevice::WriteOnly);
        });
        watch.start();
        DialogScript script;
        script.type(QStringLiteral("NEW001")).press(QStringLiteral("OK")).press(QStringLiteral("Eject"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitUntil([&] { return script.pending() == 0; }));
        QVERIFY(waitForIdle(vc));
        QVERIFY(sawPainting);
        QVERIFY(sawBusy);
        QCOMPARE(paneText(vc), QStringLiteral("\nTape Format Complete"));
    }

    // mkltfs prints nothing on standard output, so the verdict is its
    // "Formatting failed", whatever code an earlier tool left behind.
    void formattingFailedDespiteExitCodeZero()
    {
        qputenv("TAPESIM_FAIL", "tape1:mkltfs=8");
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 1));
        QCOMPARE(vc.engine.lastExitCode.get(), QStringLiteral("0"));
        DialogScript script;
        script.press(QStringLiteral("Proceed")).type(QStringLiteral("ABC123"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitForPane(vc, QStringLiteral("Tape Format Failed")));
        QVERIFY(waitForIdle(vc));
        QCoreApplication::processEvents();
        QCOMPARE(paneText(vc), QStringLiteral("\nTape Format Failed"));
        QCOMPARE(vc.engine.lastExitCode.get(), QStringLiteral("0"));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Fail Button"));
        QCOMPARE(simRunsOf(QStringLiteral("mkltfs")).size(), 1);
        QVERIFY(script.unexpected().isEmpty());
        QCOMPARE(script.seen().size(), 2);
    }

    // mkltfs takes only ASCII digits and capitals as a tape serial and stops
    // before formatting, without "Formatting failed"; the accepted accented
    // name must not end in a reported success.
    void serialRefusedByMkltfsIsAFailure()
    {
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 1));
        QCOMPARE(vc.engine.lastExitCode.get(), QStringLiteral("0"));
        DialogScript script;
        script.press(QStringLiteral("Proceed")).type(QStringLiteral("éàüñçö"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitForPane(vc, QStringLiteral("Tape Format Failed")));
        QVERIFY(waitForIdle(vc));
        QCoreApplication::processEvents();
        // Counted in bytes the name is too long, in characters it is not ASCII.
        QVERIFY(
            vc.engine.lastErrorOutput.get().contains(QRegularExpression(QStringLiteral("LTFS150(29|30)E"))));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Fail Button"));
        QVERIFY(!simState().contains(QStringLiteral("volume = ÉÀÜÑÇÖ")));
        QCOMPARE(countKind(script, QStringLiteral("message")), 1); // Proceed only, no completion question
        QVERIFY(script.unexpected().isEmpty());
    }

    // The forced run is judged by the same phrase.
    void forcedRunFailing()
    {
        const QString mk =
            writeScript(makeDir(QStringLiteral("fakemk3")), QStringLiteral("mkltfs"),
                        QStringLiteral("[ \"$2\" = --force ] || echo 'LTFS15047E Medium is already "
                                       "formatted (0).' >&2\n"
                                       "echo 'LTFS15023I Formatting failed.' >&2; exit 8\n"));
        MKLTFS_PATH.set(mk);
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        DialogScript script;
        script.type(QStringLiteral("NEW001")).press(QStringLiteral("OK"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitUntil([&] { return script.pending() == 0; }));
        QVERIFY(waitForPane(vc, QStringLiteral("Tape Format Failed")));
        QVERIFY(waitForIdle(vc));
        QCOMPARE(paneText(vc), QStringLiteral("\nTape Format Failed"));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Fail Button"));
        QVERIFY(script.unexpected().isEmpty());
    }

    void hh9AndTd9AskToProceed()
    {
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 1)); // Corvel HH9
        DialogScript script;
        script.press(QStringLiteral("Cancel"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitUntil([&] { return script.pending() == 0; }));
        QCoreApplication::processEvents();
        QCOMPARE(paneText(vc), QStringLiteral("\nReady \ntape1 Selected"));
        QCOMPARE(script.seen().constLast().title, QString());
        QCOMPARE(script.seen().constLast().informative, QString());
        QCOMPARE(script.seen().constLast().buttons,
                 (QStringList{QStringLiteral("Proceed"), QStringLiteral("Cancel")}));

        DriveRecord td9;
        td9.id = QStringLiteral("tape2");
        td9.name = QStringLiteral("2");
        td9.info1 = QStringLiteral("Corvel LTO9");
        td9.info3 = QStringLiteral("TD9");
        vc.engine.selectedDrive.set(makeDrive(td9));
        script.press(QStringLiteral("Cancel"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitUntil([&] { return script.pending() == 0; }));
        QCOMPARE(script.seen().constLast().buttons,
                 (QStringList{QStringLiteral("Proceed"), QStringLiteral("Cancel")}));
        script.press(QStringLiteral("Proceed")).press(QStringLiteral("Cancel"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitForPane(vc, QStringLiteral("Format Canceled")));
        QCOMPARE(script.seen().constLast().title, QStringLiteral("Format Drive"));
        QCOMPARE(script.seen().size(), 4);
        QVERIFY(simRunsOf(QStringLiteral("mkltfs")).isEmpty());
        QVERIFY(script.unexpected().isEmpty());
    }

    // The volume goes away first; only then is the name asked, once.
    // The naming, and so mkltfs, comes only once the unmount is complete: the
    // volume unlisted and its ltfs daemon gone (here it lingers 4 s writing
    // the index). mkltfs then gets the cartridge's own answer, not the busy
    // drive's.
    void mountedTapeUnmountedFirst()
    {
        QVERIFY(mountWithSimulator(QStringLiteral("0")));
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        QVERIFY(vc.engine.isTapeMounted());
        qputenv("TAPESIM_UNMOUNT_DELAY", "4");
        bool waited = false;
        QObject::connect(vc.ui.rightScrollView, &QPlainTextEdit::textChanged, &vc, [&] {
            waited = waited || paneText(vc).contains(QStringLiteral("Waiting for un-mount to complete"));
        });
        bool releasedWhenNamed = false;
        DialogScript script;
        script.press(QStringLiteral("OK"))
            .then([&](QWidget *d, const SeenDialog &) {
                releasedWhenNamed =
                    paneText(vc).contains(QStringLiteral("Unmounting Tape Complete")) &&
                    !readFile(TestHome::path() + QStringLiteral("/tapesim/state.ini")).contains("[mount]");
                d->findChild<QLineEdit *>()->setText(QStringLiteral("FRESH1"));
                clickButton(d, QStringLiteral("OK"));
            })
            .press(QStringLiteral("Cancel"));
        vc.btnFormat(vc.ui.btnFormat);
        QCOMPARE(script.seen().size(), 1);
        QCOMPARE(script.seen()[0].title, QStringLiteral("Warning!"));
        QCOMPARE(script.seen()[0].informative,
                 QStringLiteral("Tape is mounted and may contain data that will be lost, continue?"));
        QVERIFY(waitForPane(vc, QStringLiteral("Tape is already formated"), 20000));
        QVERIFY(waitForIdle(vc));
        QVERIFY(waited);
        QVERIFY(releasedWhenNamed);
        QVERIFY(!vc.engine.formatTapeEnabled.load());
        QCOMPARE(simRunsOf(QStringLiteral("mkltfs")),
                 (QList<QStringList>{{QStringLiteral("--device=0"), QStringLiteral("--tape-serial=FRESH1"),
                                      QStringLiteral("--volume-name=FRESH1")}}));
        QVERIFY(waitUntil([&] { return script.pending() == 0; }));
        // Another poll's worth of time: the naming is not asked again.
        QTest::qWait(3500);
        QCOMPARE(countKind(script, QStringLiteral("input")), 1);
        QVERIFY(script.unexpected().isEmpty());
        QVERIFY(!vc.engine.isTapeMounted());
    }

    // After the unmount the format runs with the window held: the unmount's
    // own end must not hand the actions back while mkltfs runs.
    void formatAfterUnmountHoldsWindow()
    {
        const QString started = TestHome::path() + QStringLiteral("/after-unmount-started");
        const QString release = TestHome::path() + QStringLiteral("/after-unmount-release");
        const QString argsFile = TestHome::path() + QStringLiteral("/after-unmount-args");
        MKLTFS_PATH.set(
            writeScript(makeDir(QStringLiteral("fakemk4")), QStringLiteral("mkltfs"),
                        QStringLiteral("echo \"$*\" >> '") + argsFile + QStringLiteral("'\n: > '") + started +
                            QStringLiteral("'\nwhile [ ! -e '") + release +
                            QStringLiteral("' ]; do sleep 0.02; done\n"
                                           "echo 'LTFS15024I Medium formatted successfully.' >&2\n")));
        QVERIFY(mountWithSimulator(QStringLiteral("0")));
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        int busyChecks = 0;
        bool everIdle = false;
        QTimer watch;
        watch.setInterval(10);
        QObject::connect(&watch, &QTimer::timeout, [&] {
            if (!QFile::exists(started) || QFile::exists(release))
                return;
            everIdle = everIdle || vc.ui.progressIndicator->isHidden() || vc.ui.btnScan->isEnabled();
            // Long enough for a stray endProgress to have come through.
            if (++busyChecks == 10) {
                QFile f(release);
                QVERIFY(f.open(QIODevice::WriteOnly));
            }
        });
        watch.start();
        DialogScript script;
        script.press(QStringLiteral("OK")).type(QStringLiteral("TAPE01")).press(QStringLiteral("Eject"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitUntil([&] { return script.pending() == 0; }, 20000));
        QVERIFY(waitForIdle(vc));
        QCOMPARE(busyChecks, 10);
        QVERIFY(!everIdle);
        QCOMPARE(readFile(argsFile), QByteArray("--device=0 --tape-serial=TAPE01 --volume-name=TAPE01\n"));
        QCOMPARE(paneText(vc), QStringLiteral("\nFormatting Tape - This May Take Several Minutes"
                                              "\n--device= 0\n--tape-serial= TAPE01\n--volume-name= TAPE01"));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Complete Button"));
        QVERIFY(script.unexpected().isEmpty());
    }

    void mountedTapeWarningCancelled()
    {
        QVERIFY(mountWithSimulator(QStringLiteral("0")));
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        DialogScript script;
        script.press(QStringLiteral("Cancel"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitForPane(vc, QStringLiteral("Removing Mounted Record")));
        QCOMPARE(script.seen().size(), 1);
        QVERIFY(!vc.engine.formatTapeEnabled.load());
        QVERIFY(vc.engine.isTapeMounted());
        QVERIFY(simRunsOf(QStringLiteral("umount")).isEmpty());
    }

    void refusedBeforeAnythingRuns()
    {
        ViewController vc;
        DialogScript script;
        // No drive selected.
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitForPane(vc, QStringLiteral("Error: No drive selected")));
        QCOMPARE(paneText(vc), QStringLiteral("\nError: No drive selected"));
        QVERIFY(waitForStatus(vc.ui.btnFormat, QStringLiteral("Fail Button")));

        // A drive whose name cannot name a device.
        DriveRecord odd;
        odd.id = QStringLiteral("changer0");
        vc.engine.selectedDrive.set(makeDrive(odd));
        vc.ui.rightScrollView->clear();
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitForPane(vc, QStringLiteral("Format Error")));
        QVERIFY(paneText(vc).contains(QStringLiteral("drive name \"\"")));

        // A mount table that cannot be read: whether the tape is mounted is
        // unknown, so nothing is asked and nothing runs.
        QVERIFY(scanAndSelectRow(vc, 0));
        vc.ui.rightScrollView->clear();
        qputenv("TAPESIM_FAIL", "*:mount=silent");
        vc.btnFormat(vc.ui.btnFormat);
        qunsetenv("TAPESIM_FAIL");
        QVERIFY(waitForPane(vc, QStringLiteral("the format was not started.")));
        QVERIFY(paneText(vc).startsWith(
            QStringLiteral("\nRemoving Mounted Record\nThe mount table could not be read ")));
        QVERIFY(waitForStatus(vc.ui.btnFormat, QStringLiteral("Fail Button")));

        // No preferences.
        ITDT_PATH.set(std::nullopt);
        vc.ui.rightScrollView->appendPlainText(QStringLiteral("old"));
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitForPane(vc, QStringLiteral("WARNING: No preferences set for paths")));
        QCOMPARE(paneText(vc), QStringLiteral("\nWARNING: No preferences set for paths"));
        QVERIFY(script.seen().isEmpty());
        QVERIFY(simRunsOf(QStringLiteral("mkltfs")).isEmpty());
    }

    // The format acts on the drive Format was pressed on, and only while it
    // is still selected.
    void selectionChangedDuringNaming()
    {
        ViewController vc;
        QVERIFY(scanAndSelectRow(vc, 0));
        const DrivePtr other = driveList.snapshot().at(3);
        DialogScript script;
        script.then([&](QWidget *d, const SeenDialog &) {
            vc.engine.selectedDrive.set(other);
            if (auto *field = d->findChild<QLineEdit *>())
                field->setText(QStringLiteral("ABC123"));
            clickButton(d, QStringLiteral("OK"));
        });
        vc.btnFormat(vc.ui.btnFormat);
        QVERIFY(waitForPane(vc, QStringLiteral("Format Canceled - tape0 is no longer the selected drive")));
        QCoreApplication::processEvents();
        QVERIFY(simRunsOf(QStringLiteral("mkltfs")).isEmpty());
        QCOMPARE(other->record().barCode, QString());
        QCOMPARE(driveList.snapshot().at(0)->record().barCode, QString());

        // Nothing selected when the unmount hands over.
        vc.engine.selectedDrive.set(nullptr);
        vc.ui.rightScrollView->clear();
        vc.engine.formatTapeEnabled = true;
        vc.engine.executeFormatTape();
        QVERIFY(waitForPane(vc, QStringLiteral("Format Canceled - no drive selected")));
        QVERIFY(!vc.engine.formatTapeEnabled.load());
        QCOMPARE(countKind(script, QStringLiteral("input")), 1);
        QVERIFY(script.unexpected().isEmpty());
    }
};

TAPEDESK_TEST_MAIN(FormatTest)
#include "tst_format.moc"

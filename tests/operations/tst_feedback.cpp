// ctest-timeout: 90
// What every workflow leans on: the pane, exit codes found in tool text, error
// texts, button images, progress, the OK/Cancel question, posting order from a
// background thread, and each action's refusal without preferences.

#include "drives/DriveStateStore.h"
#include "operations/Texts.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "support/WorkflowFixture.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/DriveTableModel.h"
#include "ui/ViewController.h"

#include <QDynamicPropertyChangeEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QTableView>
#include <QTextBlock>
#include <QThreadPool>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

// Runs every post made so far: a marker posted last shows up only after them.
[[nodiscard]] bool flushPosts(ViewController &vc)
{
    static int n = 0;
    const QString marker = QStringLiteral("<flush %1>").arg(++n);
    QPlainTextEdit *pane = vc.ui.rightScrollView;
    vc.engine.showResults(false, marker);
    if (!waitForPane(vc, marker))
        return false;
    // Take the marker back out so the pane holds only what the test produced.
    QTextCursor c(pane->document());
    c.movePosition(QTextCursor::End);
    c.movePosition(QTextCursor::PreviousCharacter, QTextCursor::KeepAnchor,
                   static_cast<int>(marker.size() + 1));
    c.removeSelectedText();
    return true;
}

QList<QWidget *> actionControls(ViewController &vc)
{
    return {vc.ui.btnScan,           vc.ui.btnMount,   vc.ui.btnRetriveLog, vc.ui.btnTest,
            vc.ui.btnHostValidation, vc.ui.btnUpgrade, vc.ui.btnFormat,     vc.ui.tableView};
}

// Records each status image change with the number of pane blocks at that
// moment, so the order of image changes against pane appends is visible.
class StatusWatcher : public QObject
{
public:
    explicit StatusWatcher(QPlainTextEdit *pane) : m_pane(pane) {}
    QList<QPair<QString, int>> changes;

protected:
    bool eventFilter(QObject *o, QEvent *e) override
    {
        if (e->type() == QEvent::DynamicPropertyChange &&
            static_cast<QDynamicPropertyChangeEvent *>(e)->propertyName() == "statusImage")
            changes << qMakePair(o->property("statusImage").toString(), m_pane->document()->blockCount());
        return false;
    }

private:
    QPlainTextEdit *m_pane;
};

using Action = void (ViewController::*)(QAbstractButton *);
struct ActionRow
{
    const char *name;
    Action action;
    bool clears;
};
const ActionRow kActions[] = {
    {"Scan", &ViewController::btnScan, true},
    {"Mount", &ViewController::btnMount, true},
    {"Retrieve Log", &ViewController::btnRetrieveLog, true},
    {"Test", &ViewController::btnRunTest, true},
    {"Upgrade", &ViewController::btnUpgrade, false}, // the firmware update appends its refusal
    {"Host Validation", &ViewController::btnHostValidation, true},
    {"Format", &ViewController::btnFormat, true},
};

} // namespace

class FeedbackTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        clearStore();
        lastStatusFeedBack.set(QString());
    }

    void setExitCodeTakesTheLastWord_data()
    {
        QTest::addColumn<QString>("previous");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("expected");
        QTest::newRow("itdt's closing line") << "7"
                                             << "Scanning...\nExit with code: 0\n"
                                             << "0";
        QTest::newRow("number mid-text, other last word") << ""
                                                          << "Exit with code: 4 while reading tape0"
                                                          << "tape0";
        // Only blanks split words: the line end inside the last word goes.
        QTest::newRow("line end inside the last word") << ""
                                                       << "code: 3 see\nlog"
                                                       << "seelog";
        QTest::newRow("tab, carriage return and line end stripped") << ""
                                                                    << "code: \t5\t\r\n"
                                                                    << "5";
        QTest::newRow("ends with a space") << "0"
                                           << "Exit with code: 0 "
                                           << "";
        QTest::newRow("errno alone") << "0"
                                     << "open /dev/IBMtape0 failed: errno 5\n"
                                     << "99";
        QTest::newRow("errno and code: last word wins") << ""
                                                        << "ioctl errno 5\nExit with code: 2\n"
                                                        << "2";
        QTest::newRow("neither keeps an earlier success") << "0"
                                                          << "Loading...\nDone\n"
                                                          << "0";
        QTest::newRow("neither keeps an earlier failure") << "6"
                                                          << "no marker here"
                                                          << "6";
        QTest::newRow("Code: is not code:") << "0"
                                            << "Exit with Code: 5"
                                            << "0";
        QTest::newRow("code: needs its blank") << "0"
                                               << "Exit with code:5"
                                               << "0";
        QTest::newRow("ERRNO is not errno") << "0"
                                            << "ERRNO 5"
                                            << "0";
        QTest::newRow("errno needs its blank") << "0"
                                               << "errno=5"
                                               << "0";
    }

    void setExitCodeTakesTheLastWord()
    {
        QFETCH(QString, previous);
        QFETCH(QString, output);
        QFETCH(QString, expected);
        ViewController vc;
        vc.engine.lastExitCode.set(previous);
        vc.engine.setExitCode(output);
        QCOMPARE(vc.engine.lastExitCode.get(), expected);
    }

    void recordingAnEmptyOutputKeepsTheCode()
    {
        ViewController vc;
        vc.engine.recordResult(QStringLiteral("Exit with code: 0\n"));
        QCOMPARE(vc.engine.lastExitCode.get(), QStringLiteral("0"));
        QCOMPARE(lastStatusFeedBack.get(), QStringLiteral("Exit with code: 0\n"));
        QVERIFY(vc.engine.lastRunSucceeded());

        vc.engine.recordResult(QString());
        QCOMPARE(lastStatusFeedBack.get(), QString());
        QCOMPARE(vc.engine.lastExitCode.get(), QStringLiteral("0"));

        vc.engine.recordResult(QStringLiteral("Exit with code: 4\n"));
        QVERIFY(!vc.engine.lastRunSucceeded());
    }

    void paneStartsEveryMessageOnANewLine()
    {
        ViewController vc;
        vc.ui.rightScrollView->setPlainText(QStringLiteral("left over"));
        vc.engine.showResults(true, QStringLiteral("Ready"));
        // Posted, not written on the spot.
        QCOMPARE(paneText(vc), QStringLiteral("left over"));
        QVERIFY(flushPosts(vc));
        QCOMPARE(paneText(vc), QStringLiteral("\nReady"));

        vc.engine.showResults(false, QStringLiteral("Loading...\n"));
        vc.engine.showResults(false, QStringLiteral("Done"));
        vc.engine.showResults(false, QString());
        QVERIFY(flushPosts(vc));
        QCOMPARE(paneText(vc), QStringLiteral("\nReady\nLoading...\n\nDone\n"));

        // White text every time, also after a clear.
        for (QTextBlock b = vc.ui.rightScrollView->document()->begin(); b.isValid(); b = b.next())
            for (auto it = b.begin(); !it.atEnd(); ++it)
                QCOMPARE(it.fragment().charFormat().foreground().color(), QColor(Qt::white));
    }

    void messagesReachThePaneOnTheNextTurn()
    {
        ViewController vc;
        vc.engine.showResults(false, QStringLiteral("one"));
        QCoreApplication::processEvents();
        QCOMPARE(paneText(vc), QStringLiteral("\none"));

        // A burst with a button change in its middle: the change sees the
        // messages posted before it, and a clear drops what came before.
        for (int i = 0; i < 50; ++i)
            vc.engine.showResults(i == 10, QStringLiteral("m%1").arg(i));
        vc.engine.changeButtonStatus(tapedesk::Action::Scan, 0, false);
        vc.engine.showResults(false, QStringLiteral("after"));
        QCoreApplication::processEvents();
        QStringList expected;
        for (int i = 10; i < 50; ++i)
            expected << QStringLiteral("m%1").arg(i);
        QCOMPARE(paneText(vc),
                 QStringLiteral("\n") + expected.join(QLatin1Char('\n')) + QStringLiteral("\nafter"));
    }

    void aClosedWindowsMessagesGoNowhere()
    {
        {
            ViewController first;
            for (int i = 0; i < 5; ++i)
                first.engine.showResults(false, QStringLiteral("from the first window"));
        }
        ViewController second;
        second.engine.showResults(false, QStringLiteral("second"));
        QVERIFY(flushPosts(second));
        QCOMPARE(paneText(second), QStringLiteral("\nsecond"));
    }

    void paneFollowsTheNewestLine()
    {
        ViewController vc;
        QVERIFY(showSettled(vc));
        QScrollBar *bar = vc.ui.rightScrollView->verticalScrollBar();
        for (int i = 0; i < 300; ++i)
            vc.engine.showResults(false, QStringLiteral("line %1").arg(i));
        QVERIFY(flushPosts(vc));
        QVERIFY(bar->maximum() > 0);
        QCOMPARE(bar->value(), bar->maximum());

        bar->setValue(0); // the operator scrolled back to read
        vc.engine.showResults(false, QStringLiteral("one more"));
        QVERIFY(flushPosts(vc));
        QCOMPARE(bar->value(), bar->maximum());
    }

    void displayErrorShowsTitleThenMessage()
    {
        ViewController vc;

        vc.engine.lastExitCode.set(QStringLiteral("0"));
        vc.engine.displayError();
        QVERIFY(flushPosts(vc));
        QCOMPARE(paneText(vc), QString());

        vc.engine.lastExitCode.set(QString());
        vc.engine.displayError();
        QVERIFY(flushPosts(vc));
        QCOMPARE(paneText(vc), QStringLiteral("\nerror_code__title\nerror_code_"));

        vc.ui.rightScrollView->clear();
        vc.engine.lastExitCode.set(QStringLiteral("5"));
        vc.engine.displayError();
        QVERIFY(flushPosts(vc));
        const QString title = vc.engine.localizedString(QStringLiteral("error_code_5_title"));
        const QString message = vc.engine.localizedString(QStringLiteral("error_code_5"));
        QVERIFY(title != QStringLiteral("error_code_5_title"));
        QVERIFY(message != QStringLiteral("error_code_5"));
        QCOMPARE(paneText(vc), QStringLiteral("\n") + title + QStringLiteral("\n") + message);
        // displayError never touches the code it reports.
        QCOMPARE(vc.engine.lastExitCode.get(), QStringLiteral("5"));
    }

    void unknownKeysComeBackUnchanged()
    {
        ViewController vc;
        for (const QString &key : {QStringLiteral("error_code_12345"), QStringLiteral("no such key"),
                                   QString(), QStringLiteral("error_code_5 ")})
            QCOMPARE(vc.engine.localizedString(key), key);

        vc.engine.lastExitCode.set(QStringLiteral("4711"));
        vc.engine.displayError();
        QVERIFY(flushPosts(vc));
        QCOMPARE(paneText(vc), QStringLiteral("\nerror_code_4711_title\nerror_code_4711"));
    }

    // Regression: the tables live in the static core library and once never
    // reached the programs linking it, so every error showed its bare keys.
    void everySimulatorCodeHasItsTexts()
    {
        ViewController vc;
        QStringList titles;
        for (const char *code : {"1", "2", "3", "4", "5", "6", "7", "8", "99"}) {
            const QString key = QStringLiteral("error_code_") + QLatin1String(code);
            const QString title = vc.engine.localizedString(key + QStringLiteral("_title"));
            const QString message = vc.engine.localizedString(key);
            QVERIFY2(title != key + QStringLiteral("_title") && !title.trimmed().isEmpty(), code);
            QVERIFY2(message != key && !message.trimmed().isEmpty(), code);
            QVERIFY2(title != message, code);
            titles << title;
        }
        titles.removeDuplicates();
        QCOMPARE(titles.size(), 9);
    }

    void buttonStatusImages_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("image");
        QTest::newRow("0") << 0 << "Complete Button";
        QTest::newRow("1") << 1 << "Fail Button";
        QTest::newRow("2") << 2 << "In Process Button";
        QTest::newRow("3") << 3 << "Ready Button";
        QTest::newRow("7") << 7 << "";
        QTest::newRow("-1") << -1 << "";
        QTest::newRow("4") << 4 << "";
    }

    void buttonStatusImages()
    {
        QFETCH(int, status);
        QFETCH(QString, image);
        ViewController vc;
        vc.engine.lastExitCode.set(QStringLiteral("5")); // a failure with error texts to show
        vc.engine.changeButtonStatus(tapedesk::Action::Test, 2, false);
        QVERIFY(flushPosts(vc));
        QVERIFY(!vc.ui.btnTest->icon().isNull());

        vc.engine.changeButtonStatus(tapedesk::Action::Test, status, false);
        QVERIFY(flushPosts(vc));
        QCOMPARE(statusOf(vc.ui.btnTest), image);
        QCOMPARE(vc.ui.btnTest->icon().isNull(), image.isEmpty());
        // Without showError nothing reaches the pane, not even for a failure.
        QCOMPARE(paneText(vc), QString());
    }

    void failureWithShowErrorAddsTheErrorTexts()
    {
        ViewController vc;
        vc.engine.lastExitCode.set(QStringLiteral("4"));
        vc.engine.changeButtonStatus(tapedesk::Action::Mount, 1, true);
        QVERIFY(flushPosts(vc));
        QCOMPARE(statusOf(vc.ui.btnMount), QStringLiteral("Fail Button"));
        QCOMPARE(paneText(vc),
                 QStringLiteral("\n") + vc.engine.localizedString(QStringLiteral("error_code_4_title")) +
                     QStringLiteral("\n") + vc.engine.localizedString(QStringLiteral("error_code_4")));

        // Other statuses never show error texts.
        vc.ui.rightScrollView->clear();
        for (int status : {0, 2, 3, 7})
            vc.engine.changeButtonStatus(tapedesk::Action::Mount, status, true);
        QVERIFY(flushPosts(vc));
        QCOMPARE(paneText(vc), QString());
    }

    void progressDisablesExactlyTheActions()
    {
        ViewController vc;
        QVERIFY(showSettled(vc));
        QCOMPARE(vc.ui.progressIndicator->minimum(), 0);
        QCOMPARE(vc.ui.progressIndicator->maximum(), 0); // busy, not a percentage
        const QList<QWidget *> actions = actionControls(vc);
        QList<QWidget *> others;
        for (QWidget *w : vc.findChildren<QWidget *>()) {
            const bool partOfAnAction = std::any_of(actions.begin(), actions.end(),
                                                    [w](QWidget *a) { return a == w || a->isAncestorOf(w); });
            if (!partOfAnAction && !w->isWindow() && w->isEnabled())
                others << w;
        }
        QVERIFY(others.contains(vc.ui.btnClearPreferences));
        QVERIFY(others.contains(vc.ui.rightScrollView));

        vc.engine.startProgress();
        QVERIFY(!vc.ui.progressIndicator->isVisible()); // posted
        QVERIFY(flushPosts(vc));
        QVERIFY(vc.ui.progressIndicator->isVisible());
        for (QWidget *w : actions)
            QVERIFY2(!w->isEnabled(), qPrintable(w->objectName()));
        for (QWidget *w : others)
            QVERIFY2(w->isEnabled(), qPrintable(w->objectName()));

        vc.engine.endProgress();
        QVERIFY(flushPosts(vc));
        QVERIFY(!vc.ui.progressIndicator->isVisible());
        for (QWidget *w : actions)
            QVERIFY2(w->isEnabled(), qPrintable(w->objectName()));
        for (QWidget *w : others)
            QVERIFY2(w->isEnabled(), qPrintable(w->objectName()));
    }

    void postsFromABackgroundThreadKeepTheirOrder()
    {
        ViewController vc;
        StatusWatcher watcher(vc.ui.rightScrollView);
        vc.ui.btnScan->installEventFilter(&watcher);
        QThreadPool::globalInstance()->start([&vc] {
            for (int i = 0; i < 1000; ++i) {
                vc.engine.showResults(false, QStringLiteral("line %1").arg(i));
                if (i % 100 == 99)
                    vc.engine.changeButtonStatus(tapedesk::Action::Scan, (i / 100) % 4, false);
            }
        });
        QVERIFY(waitUntil([&] {
            return watcher.changes.size() == 10 && paneText(vc).endsWith(QStringLiteral("line 999"));
        }));
        QThreadPool::globalInstance()->waitForDone();
        QVERIFY(flushPosts(vc));

        const QStringList lines = paneText(vc).split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 1001);
        QCOMPARE(lines.first(), QString());
        for (int i = 0; i < 1000; ++i)
            QCOMPARE(lines.at(i + 1), QStringLiteral("line %1").arg(i));
        // Each image change landed right after the line posted before it.
        const QStringList names{QStringLiteral("Complete Button"), QStringLiteral("Fail Button"),
                                QStringLiteral("In Process Button"), QStringLiteral("Ready Button")};
        for (int k = 0; k < 10; ++k)
            QCOMPARE(watcher.changes.at(k), qMakePair(names.at(k % 4), 1 + (k + 1) * 100));
    }

    void closeAlertRunsTheCompletionOnlyOnOK()
    {
        ViewController vc;
        int calls = 0;
        bool value = false;
        auto completion = [&](bool v) {
            ++calls;
            value = v;
        };

        {
            DialogScript script;
            QMessageBox::Icon icon = QMessageBox::NoIcon;
            script.then([&](QWidget *d, const SeenDialog &) {
                icon = qobject_cast<QMessageBox *>(d)->icon();
                clickButton(d, QStringLiteral("Cancel"));
            });
            vc.engine.showCloseAlert(ALERT_WARNING, ALERT_DESTRUCTIVE, completion);
            QCOMPARE(calls, 0);
            QCOMPARE(script.seen().size(), 1);
            const SeenDialog seen = script.seen().constFirst();
            QCOMPARE(seen.kind, QStringLiteral("message"));
            QCOMPARE(seen.title, ALERT_WARNING);
            QCOMPARE(seen.informative, ALERT_DESTRUCTIVE);
            QCOMPARE(seen.buttons, (QStringList{QStringLiteral("OK"), QStringLiteral("Cancel")}));
            QCOMPARE(icon, QMessageBox::Warning);
        }
        {
            DialogScript script;
            script.then([](QWidget *d, const SeenDialog &) { QTest::keyClick(d, Qt::Key_Escape); });
            vc.engine.showCloseAlert(ALERT_WARNING, ALERT_FIRMWARE_SURE, completion);
            QCOMPARE(calls, 0);
            QCOMPARE(script.pending(), 0);
        }
        {
            DialogScript script;
            script.press(QStringLiteral("OK"));
            vc.engine.showCloseAlert(ALERT_WARNING, ALERT_DESTRUCTIVE_RUN_TEST, completion);
            QCOMPARE(calls, 1);
            QVERIFY(value);
            QVERIFY(script.unexpected().isEmpty());
        }
        QCOMPARE(QApplication::activeModalWidget(), nullptr);
    }

    void everyActionRefusesWithoutPaths_data()
    {
        QTest::addColumn<int>("action");
        QTest::addColumn<bool>("onlyOutputMissing");
        for (int i = 0; i < int(std::size(kActions)); ++i) {
            QTest::addRow("%s, no paths", kActions[i].name) << i << false;
            QTest::addRow("%s, output folder unset, drive selected", kActions[i].name) << i << true;
        }
    }

    void everyActionRefusesWithoutPaths()
    {
        QFETCH(int, action);
        QFETCH(bool, onlyOutputMissing);
        const ActionRow &row = kActions[action];
        const QString calls = TestHome::path() + QStringLiteral("/tool-calls");
        QFile::remove(calls);

        ViewController vc;
        if (onlyOutputMissing) {
            // Tools that would leave a trace if anything ran.
            const QString bin = makeDir(QStringLiteral("tracebin"));
            const QString trace =
                QStringLiteral("echo \"$0 $*\" >> \"$HOME/tool-calls\"\necho 'Exit with code: 0'");
            ITDT_PATH.set(writeScript(bin, QStringLiteral("itdt"), trace));
            LTFS_PATH.set(writeScript(bin, QStringLiteral("ltfs"), trace));
            MKLTFS_PATH.set(writeScript(bin, QStringLiteral("mkltfs"), trace));
            DriveRecord r;
            r.id = QStringLiteral("tape0");
            r.name = QStringLiteral("0");
            r.serialNumber = QStringLiteral("1111111111");
            r.info1 = QStringLiteral("Corvel LTO8 HH");
            vc.driveModel()->reload({makeDrive(r)});
            vc.ui.tableView->selectRow(0);
            QVERIFY(waitForPane(vc, QStringLiteral("tape0 Selected")));
            QVERIFY(vc.engine.selectedDrive.get());
        }
        vc.ui.rightScrollView->setPlainText(QStringLiteral("earlier line"));

        DialogScript script; // no dialog is expected
        (vc.*row.action)(nullptr);
        QVERIFY(waitForPane(vc, MSG_NO_PREFERENCES));
        QTest::qWait(200); // room for anything a broken action might still start
        QVERIFY(waitForIdle(vc));
        QVERIFY(flushPosts(vc));

        const QString expected = row.clears ? QStringLiteral("\n") + MSG_NO_PREFERENCES
                                            : QStringLiteral("earlier line\n") + MSG_NO_PREFERENCES;
        QCOMPARE(paneText(vc), expected);
        QCOMPARE(script.seen().size(), 0);
        QVERIFY2(!QFile::exists(calls), readFile(calls).constData());
    }
};

TAPEDESK_TEST_MAIN(FeedbackTest)
#include "tst_feedback.moc"

// ctest-timeout: 120
// An operation while it runs: the tool's output live, the clock, the
// desktop notification at its end, and Stop as the only input a tool's hold
// lets through.

#include "app/DarkLook.h"
#include "operations/PaneText.h"
#include "support/EngineHarness.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/ProcessRunner.h"
#include "tools/ToolPaths.h"
#include "ui/LiveOutputView.h"
#include "ui/MainWindow.h"
#include "ui/OperationWatch.h"

#include <QAccessible>
#include <QDBusConnection>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTimer>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

// A notification service as a desktop runs one, on a private bus.
class NotificationService : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    QStringList received; // "summary | body"

public Q_SLOTS:
    uint Notify(const QString &, uint, const QString &, const QString &summary, const QString &body,
                const QStringList &, const QVariantMap &, int)
    {
        received << summary + QStringLiteral(" | ") + body;
        return 7;
    }

Q_SIGNALS:
    void ActionInvoked(uint id, const QString &key);
};

// tape44 alone, with a formatted cartridge.
const QByteArray kTape44 = "[drive]\nid = tape44\nmodel = ULTRIUM-HH9\nserial = 1013000144\ncartridge = yes\n"
                           "barcode = TD0044\nformatted = yes\n";

QTextCharFormat formatAt(const QTextDocument *document, const QString &text)
{
    QTextCursor found = document->find(text);
    found.setPosition(found.selectionStart() + 1);
    return found.charFormat();
}

} // namespace

class LiveOutputTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { applyDarkLook(*qobject_cast<QApplication *>(QCoreApplication::instance())); }
    void init() { freshCase(); }
    // A case's scripted answers point into it: the real dialogs come back.
    void cleanup() { setDialogProvider(std::make_unique<WidgetDialogs>()); }

    void liveOperation_data()
    {
        QTest::addColumn<bool>("bus");
        QTest::addColumn<bool>("service");
        QTest::addColumn<int>("notifyAfterMs");
        QTest::addColumn<bool>("notified");
        QTest::newRow("long enough: notified") << true << true << 0 << true;
        QTest::newRow("shorter than the threshold") << true << true << 60000 << false;
        QTest::newRow("no service on the bus") << true << false << 0 << false;
        QTest::newRow("no bus") << false << false << 0 << false;
    }

    // A dump that prints, waits for the test, then prints on its error
    // stream: the live view has the command line and the first line while the
    // tool still runs, the clock counts, the second line follows in the error
    // colour, and the transcript shows neither the command nor the colours.
    // The end is notified on a private session bus, with the service
    // registered by the test or not. The window stays in the background
    // (never shown); a click on the notification brings it up.
    void liveOperation()
    {
        QFETCH(bool, bus);
        QFETCH(bool, service);
        QFETCH(int, notifyAfterMs);
        QFETCH(bool, notified);
        QProcess daemon;
        QString address = QStringLiteral("unix:path=") + TestHome::path() + QStringLiteral("/no-bus");
        if (bus) {
            daemon.start(QStringLiteral("dbus-daemon"),
                         // Its socket in the test home: the session default, in /tmp,
                         // outlives the daemon's kill.
                         {QStringLiteral("--session"), QStringLiteral("--nofork"),
                          QStringLiteral("--print-address"),
                          QStringLiteral("--address=unix:dir=") + TestHome::path()});
            QVERIFY(daemon.waitForReadyRead(5000));
            address = QString::fromUtf8(daemon.readLine().trimmed());
        }
        const auto stopDaemon = qScopeGuard([&] {
            QDBusConnection::disconnectFromBus(QStringLiteral("service"));
            QDBusConnection::disconnectFromBus(QStringLiteral("window"));
            daemon.kill();
            daemon.waitForFinished();
        });
        QDBusConnection serviceBus = QDBusConnection::connectToBus(address, QStringLiteral("service"));
        NotificationService notifications;
        if (service) {
            QVERIFY(serviceBus.registerObject(
                QStringLiteral("/org/freedesktop/Notifications"), &notifications,
                QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals));
            QVERIFY(serviceBus.registerService(QStringLiteral("org.freedesktop.Notifications")));
        }
        const QString flag = TestHome::path() + QStringLiteral("/dump-may-end");
        QFile::remove(flag);
        freshCase(kTape44);
        ITDT_PATH.set(
            writeScript(makeDir(QStringLiteral("slow")), QStringLiteral("itdt"),
                        QStringLiteral("case \"$*\" in *dump*) ;; *) exec '%1/itdt' \"$@\";; esac\n"
                                       "echo 'dump begun'\nwhile [ ! -e '%2' ]; do sleep 0.05; done\n"
                                       "echo 'dump done' >&2\necho 'Exit with code: 0'\n")
                            .arg(simBinDir(), flag)));
        MainWindow mainWindow;
        mainWindow.watch().notifier().setConnection(
            QDBusConnection::connectToBus(address, QStringLiteral("window")));
        mainWindow.watch().notifyAfterMs = notifyAfterMs;
        // The offscreen platform warns that it cannot raise a window.
        if (!notified)
            QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
        test::selectDrive(mainWindow, QStringLiteral("tape44"), QStringLiteral("44"));
        QStringList asked;
        answerWith({}, &asked);
        mainWindow.retrieveLog();
        const LiveOutputView &live = *mainWindow.watch().liveView();
        QTRY_VERIFY(live.toPlainText().contains(QStringLiteral("dump begun")));
        QVERIFY(QRegularExpression(
                    QStringLiteral("^\\$ \\S+/slow/itdt -R \\S+ -LP \\S+ -f tape44 dump\ndump begun"))
                    .match(live.toPlainText())
                    .hasMatch());
        QLabel &clock = *mainWindow.watch().elapsedLabel();
        QCOMPARE(clock.text(), QStringLiteral("Retrieving the log of tape44 — 00:00"));
        QTRY_COMPARE_WITH_TIMEOUT(clock.text(), QStringLiteral("Retrieving the log of tape44 — 00:01"), 3000);
        QCOMPARE(accessibleText(&clock, QAccessible::Name), clock.text()); // the clock is read as it ticks
        QFile(flag).open(QIODevice::WriteOnly);
        QTRY_VERIFY(live.toPlainText().contains(QStringLiteral("\ndump done\n")));
        QVERIFY(formatAt(live.document(), QStringLiteral("dump done")).foreground() !=
                formatAt(live.document(), QStringLiteral("dump begun")).foreground());
        QVERIFY(waitUntil([&] { return !mainWindow.engine.isOperating(); }));
        QVERIFY(!paneText(mainWindow).contains(QStringLiteral("$ ")));
        QTest::qWait(300); // for a notification that should not come
        QCOMPARE(notifications.received.size(), notified ? 1 : 0);
        if (!notified)
            return;
        // The fake dump saves no file, so the operation failed.
        QVERIFY2(QRegularExpression(QStringLiteral("^Retrieving the log of tape44: Failed \\| Retrieve Log "
                                                   "on tape44 ended after 00:0\\d: Failed$"))
                     .match(notifications.received.first())
                     .hasMatch(),
                 qPrintable(notifications.received.first()));
        Q_EMIT notifications.ActionInvoked(6, QStringLiteral("default")); // another program's
        QTest::qWait(200);
        QVERIFY(!mainWindow.isVisible());
        Q_EMIT notifications.ActionInvoked(7, QStringLiteral("default"));
        QTRY_VERIFY(mainWindow.isVisible());
    }

    // While a tool runs on the GUI thread's turn, the window takes no input
    // but Stop: a click elsewhere is held back, Stop ends the run.
    void stopIsTheOnlyInputWhileAToolHolds()
    {
        freshCase(kTape44);
        MainWindow mainWindow;
        mainWindow.show();
        // The start-up scan first, so no click meets it still running.
        QVERIFY(waitForPane(mainWindow, QStringLiteral("Scan Complete")) && waitForIdle(mainWindow));
        test::selectDrive(mainWindow, QStringLiteral("tape44"), QStringLiteral("44"));
        QStringList asked;
        answerWith({QStringLiteral("0")}, &asked);
        mainWindow.ui.mountButton->click();
        QVERIFY(waitForPane(mainWindow, QStringLiteral("Mount Complete")) && waitForIdle(mainWindow));
        qputenv("TAPESIM_FAIL", "tape44:umount=hang");
        QSignalSpy cleared(mainWindow.ui.clearMountedDrivesButton, &QPushButton::clicked);
        QTimer presser;
        QObject::connect(&presser, &QTimer::timeout, [&] {
            if (!mainWindow.engine.isWaitingResponsive() || children::liveCount() == 0)
                return;
            presser.stop();
            QTest::mouseClick(mainWindow.ui.clearMountedDrivesButton, Qt::LeftButton);
            QTest::mouseClick(mainWindow.ui.stopButton, Qt::LeftButton);
        });
        presser.start(20);
        mainWindow.ui.mountButton->click();
        QVERIFY2(waitForPane(mainWindow, QStringLiteral("Stopped by the operator: the wait for the unmount")),
                 qPrintable(paneText(mainWindow)));
        QVERIFY(waitForIdle(mainWindow));
        qunsetenv("TAPESIM_FAIL");
        QCOMPARE(cleared.size(), 0);
        QVERIFY(mainWindow.engine.selectedDrive()->mounted());
    }

    // A flood shows only what could be read: the last lines, whether they
    // came in one chunk or in many, and a long line cut as the pane cuts it.
    void liveOutputKeepsTheLastLines()
    {
        LiveOutputView view;
        view.showToolStarted(QStringLiteral("itdt"), {QStringLiteral("dump")});
        QByteArray big;
        for (int i = 0; i < LiveOutputView::kMaxLines + 500; ++i)
            big += "out " + QByteArray::number(i) + '\n';
        view.showOutput(OutputStream::Stdout, big);
        for (int i = 0; i < 2 * LiveOutputView::kMaxLines + 10; ++i)
            view.showOutput(OutputStream::Stderr, "err " + QByteArray::number(i) + '\n');
        view.showOutput(OutputStream::Stdout, QByteArray(2 * kLongestPaneLine + 5, 'x') + '\n');
        QTRY_COMPARE(view.pendingLines(), 0);
        const QStringList lines = view.toPlainText().split(QLatin1Char('\n'));
        QVERIFY(lines.size() <= LiveOutputView::kMaxLines + 1);
        QCOMPARE(
            lines.mid(lines.size() - 5),
            (QStringList{QStringLiteral("err %1").arg(2 * LiveOutputView::kMaxLines + 9),
                         QString(kLongestPaneLine, QLatin1Char('x')),
                         QString(kLongestPaneLine, QLatin1Char('x')), QStringLiteral("xxxxx"), QString()}));
    }
};

TAPEDESK_TEST_MAIN(LiveOutputTest)
#include "tst_live_output.moc"

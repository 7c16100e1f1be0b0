// ctest-timeout: 60
// The engine without a window: a whole mount and unmount against the
// simulator through a face that only records, in a program that links no
// widget library (checked by the test engine_links_no_widgets).

#include "drives/Drive.h"
#include "drives/DriveStateStore.h"
#include "operations/TapeEngine.h"
#include "support/Dialogs.h"
#include "support/TestEnv.h"

#include <QCoreApplication>
#include <QTest>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

// What the engine showed, in the order it showed it.
class RecordingFace final : public Face
{
public:
    QString pane;
    QStringList events; // statuses, captions, progress, drive lists
    bool busy = false;

    void clearPane() override { pane.clear(); }
    void appendToPane(const QString &text) override { pane += text; }
    void setStatus(Action action, int status) override
    {
        events << QStringLiteral("status %1 %2").arg(static_cast<int>(action)).arg(status);
    }
    void setMountCaption(const QString &caption) override { events << QStringLiteral("caption ") + caption; }
    void progressStarted() override
    {
        busy = true;
        events << QStringLiteral("progress started");
    }
    void progressEnded() override
    {
        busy = false;
        events << QStringLiteral("progress ended");
    }
    void drivesChanged(const QList<DrivePtr> &drives, const DrivePtr &) override
    {
        listed = drives;
        events << QStringLiteral("drives %1").arg(drives.size());
    }
    QList<DrivePtr> listed;
};

// Answers every question with its first button and records the titles.
class FirstButton final : public DialogProvider
{
public:
    QStringList *asked;
    explicit FirstButton(QStringList *log) : asked(log) {}
    QString getString(const QString &title, const QString &, const QString &) override
    {
        *asked << title;
        return QStringLiteral("-1");
    }
    int userOptionPrompt(const QString &title, const QString &, const QString &, const QString &) override
    {
        *asked << title;
        return 0;
    }
    QString pickFile(const QStringList &) override { return {}; }
    QString pickFolder() override { return QStringLiteral("-1"); }
    bool confirm(const QString &title, const QString &) override
    {
        *asked << title;
        return true;
    }
    void inform(const QString &title, const QString &) override { *asked << title; }
};

} // namespace

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
        setDialogProvider(std::make_unique<FirstButton>(&asked));
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

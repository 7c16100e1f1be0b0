// ctest-timeout: 60
// The Retrieve Log button against the simulator: the dump is taken, the
// newest "blz" of the output folder is copied where the operator points, and
// every way out (cancel, failed dump, no dump, replace refused, mounted
// volume) ends with the window idle.

#include "operations/Texts.h"
#include "support/Dialogs.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "support/WorkflowFixture.h"
#include "tools/ToolPaths.h"
#include "ui/ViewController.h"

#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QThread>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

QString output()
{
    return OUTPUT_FOLDER.get().value_or(QString());
}

// Dumps written before the run, one after the other so their creation dates
// differ. Their names sort on either side of the simulator's, so only the
// dates can pick the newest.
void writeOlderDumps(const QStringList &names)
{
    for (const QString &name : names) {
        QFile f(output() + QLatin1Char('/') + name);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(name.toUtf8());
        f.close();
        QThread::msleep(20);
    }
}

QString supportLine()
{
    return QStringLiteral("\nContact Corvel Support At ") + supportEmail() +
           QStringLiteral(" For Further Instructions");
}

QString filesIn(const QString &folder)
{
    return QDir(folder)
        .entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name)
        .join(QLatin1Char(' '));
}

int g_targets = 0;

// The folder picker opened on `folder` and confirmed, the way an operator
// picks the folder the panel shows.
DialogScript::Handler chooseFolder(const QString &folder)
{
    return [folder](QWidget *dialog, const SeenDialog &) {
        auto *panel = qobject_cast<QFileDialog *>(dialog);
        if (!panel)
            return;
        panel->setDirectory(folder);
        QMetaObject::invokeMethod(panel, "accept", Qt::QueuedConnection);
    };
}

} // namespace

class RetrieveLogTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        freshWorkflowCase();
        QDir(output()).removeRecursively();
        QDir().mkpath(output());
    }
    void cleanup() { endWorkflowCase(); }

    void newDumpIsTakenAndSaved()
    {
        writeOlderDumps({QStringLiteral("0.blz"), QStringLiteral("zzz.blz")});
        const QString target = makeDir(QStringLiteral("target%1").arg(++g_targets));
        ViewController vc;
        selectDrive(vc);
        DialogScript script;
        script.then(chooseFolder(target));
        vc.btnRetrieveLog();
        QVERIFY(waitForPane(vc, supportLine()));
        QVERIFY(waitForIdle(vc));

        const QString out = output();
        QCOMPARE(simRunsOf(QStringLiteral("itdt")),
                 QList<QStringList>{itdtArgs(QStringLiteral("tape0"), {QStringLiteral("dump")})});
        QCOMPARE(script.seen().size(), 1);
        QCOMPARE(script.seen().first().title, kPickFolderTitle);
        // The one new file in the output folder is the one saved.
        QStringList fresh = QDir(out).entryList({QStringLiteral("*.blz")}, QDir::Files);
        fresh.removeAll(QStringLiteral("0.blz"));
        fresh.removeAll(QStringLiteral("zzz.blz"));
        QCOMPARE(fresh.size(), 1);
        QCOMPARE(filesIn(target), fresh.first());
        QCOMPARE(readFile(target + QLatin1Char('/') + fresh.first()),
                 readFile(out + QLatin1Char('/') + fresh.first()));

        const QString pane = paneText(vc);
        QVERIFY2(pane.startsWith(QStringLiteral("\n") + STATUS_LOG_GATHERING +
                                 QStringLiteral("\nInitializing device...")),
                 qPrintable(pane));
        QVERIFY(pane.contains(QStringLiteral("Exit with code: 0\n") + supportLine()));
        QVERIFY(pane.endsWith(supportLine()));
        QCOMPARE(statusOf(vc.ui.btnRetriveLog), QStringLiteral("Complete Button"));
    }

    void cancelledPickerSavesNothing()
    {
        ViewController vc;
        selectDrive(vc);
        DialogScript script;
        script.cancelPicker();
        vc.btnRetrieveLog();
        QVERIFY(waitForPane(vc, QStringLiteral("User canceled retrieve log")));
        QVERIFY(waitForIdle(vc));
        QVERIFY(paneText(vc).endsWith(QStringLiteral("Exit with code: 0\n\nUser canceled retrieve log")));
        // The dump stays where itdt put it.
        QCOMPARE(QDir(output()).entryList({QStringLiteral("*.blz")}, QDir::Files).size(), 1);
        QCOMPARE(script.seen().size(), 1);
    }

    void failedDumpOffersTheNewestEarlierOne()
    {
        writeOlderDumps({QStringLiteral("zzz.blz"), QStringLiteral("0.blz")});
        qputenv("TAPESIM_FAIL", "tape0:dump=1");
        const QString target = makeDir(QStringLiteral("target%1").arg(++g_targets));
        ViewController vc;
        selectDrive(vc);
        DialogScript script;
        script.then(chooseFolder(target));
        vc.btnRetrieveLog();
        QVERIFY(waitForPane(vc, supportLine()));
        QVERIFY(waitForIdle(vc));
        QVERIFY(paneText(vc).contains(QStringLiteral("Exit with code: 1\n")));
        QCOMPARE(filesIn(target), QStringLiteral("0.blz"));
        QCOMPARE(readFile(target + QStringLiteral("/0.blz")), QByteArray("0.blz"));
        QCOMPARE(statusOf(vc.ui.btnRetriveLog), QStringLiteral("Complete Button"));
    }

    void refusedReplacementKeepsTheSavedFile()
    {
        writeOlderDumps({QStringLiteral("drive.blz")});
        qputenv("TAPESIM_FAIL", "tape0:dump=1");
        const QString target = makeDir(QStringLiteral("target%1").arg(++g_targets));
        QFile old(target + QStringLiteral("/drive.blz"));
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write("saved last week");
        old.close();
        ViewController vc;
        selectDrive(vc);
        DialogScript script;
        script.then(chooseFolder(target)).press(QStringLiteral("Cancel"));
        vc.btnRetrieveLog();
        QVERIFY(waitForPane(vc, supportLine()));
        QVERIFY(waitForIdle(vc));
        QCOMPARE(script.seen().size(), 2);
        QCOMPARE(script.seen().at(1).title, QStringLiteral("Replace \"drive.blz\" in \"%1\" with new file?")
                                                .arg(QFileInfo(target).fileName()));
        QCOMPARE(readFile(target + QStringLiteral("/drive.blz")), QByteArray("saved last week"));
        QCOMPARE(filesIn(target), QStringLiteral("drive.blz"));
    }

    // Nothing to offer: no picker, the progress ends, and the pane says why.
    void withoutAnyDumpNothingIsOffered_data()
    {
        QTest::addColumn<bool>("unreadable");
        QTest::addColumn<QString>("line");
        QTest::newRow("empty folder") << false << QStringLiteral("No drive dump (.blz) found in ");
        QTest::newRow("folder is a file") << true << QStringLiteral("Cannot read the output folder (");
    }
    void withoutAnyDumpNothingIsOffered()
    {
        QFETCH(bool, unreadable);
        QFETCH(QString, line);
        qputenv("TAPESIM_FAIL", "tape0:dump=1");
        if (unreadable) {
            const QString file = TestHome::path() + QStringLiteral("/not-a-folder");
            QFile f(file);
            QVERIFY(f.open(QIODevice::WriteOnly));
            OUTPUT_FOLDER.set(file);
        }
        ViewController vc;
        selectDrive(vc);
        DialogScript script;
        vc.btnRetrieveLog();
        QVERIFY(waitForPane(vc, line));
        QVERIFY(waitForIdle(vc));
        QVERIFY(script.seen().isEmpty());
        QVERIFY(!paneText(vc).contains(supportLine()));
        QCOMPARE(statusOf(vc.ui.btnRetriveLog), QStringLiteral("Fail Button"));
    }

    void refusalsRunNothing()
    {
        ViewController vc;
        DialogScript script;
        vc.btnRetrieveLog();
        QVERIFY(waitForPane(vc, QStringLiteral("Error: No Drive Selected")));
        QCOMPARE(paneText(vc), QStringLiteral("\nError: No Drive Selected"));
        selectDrive(vc);
        MKLTFS_PATH.set(std::nullopt);
        vc.btnRetrieveLog();
        QVERIFY(waitForPane(vc, MSG_NO_PREFERENCES));
        QCOMPARE(paneText(vc), QStringLiteral("\n") + MSG_NO_PREFERENCES);
        QVERIFY(script.seen().isEmpty());
        QVERIFY(simRunsOf(QStringLiteral("itdt")).isEmpty());
    }

    void mountedVolumeIsRefused()
    {
        const QList<SeenDialog> seen = startOnMountedTape0([](ViewController &vc) { vc.btnRetrieveLog(); });
        QCOMPARE(seen.size(), 1);
        QCOMPARE(seen.first().title, QStringLiteral("Update Retrieve Log"));
        QCOMPARE(seen.first().informative, QStringLiteral("Please unmount tape before retrieving log"));
        QCOMPARE(seen.first().buttons, QStringList{QStringLiteral("OK")});
        QVERIFY(simRunsOf(QStringLiteral("itdt")).isEmpty());
    }
};

TAPEDESK_TEST_MAIN(RetrieveLogTest)
#include "tst_retrievelog.moc"

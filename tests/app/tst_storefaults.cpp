// ctest-timeout: 60
// A settings file that cannot be read and a settings folder that cannot be
// written: TapeDesk starts, says what it can in its pane, and loses nothing
// that was in the file.

#include "drives/DriveStateStore.h"
#include "operations/FaultMatrix.h"
#include "support/TestMain.h"
#include "tools/ToolPaths.h"

#include <QDir>
#include <QFileInfo>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

// Root writes through any permission bits. Without these capabilities it
// meets a read-only folder as an operator does. Threads inherit them when
// they are created, so this runs before any thread of the test exists.
void dropFileAccessOverride()
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    if (::syscall(SYS_capget, &header, data) != 0)
        return;
    const unsigned mask = (1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH) | (1u << CAP_FOWNER);
    data[0].effective &= ~mask;
    ::syscall(SYS_capset, &header, data);
}

void setWritable(const QString &path, bool writable)
{
    const bool folder = QFileInfo(path).isDir();
    QFileDevice::Permissions p = QFileDevice::ReadOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther;
    if (folder)
        p |= QFileDevice::ExeOwner | QFileDevice::ExeGroup | QFileDevice::ExeOther;
    if (writable)
        p |= QFileDevice::WriteOwner;
    QFile::setPermissions(path, p);
}

bool openWindow(ViewController &vc, const QString &firstWords)
{
    vc.viewDidLoad({QStringLiteral("tapedesk")});
    vc.show();
    return waitForPane(vc, firstWords) && waitForIdle(vc);
}

} // namespace

class StoreFaultsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { dropFileAccessOverride(); }

    void init()
    {
        freshSimulator();
        rememberAnotherDrive();
    }

    // Junk in the middle of the file (a crash while it was written): no path
    // can be trusted, so the window says the preferences look wrong; the
    // first write keeps the operator's bytes aside and says where.
    void aCorruptFileIsKeptAsideAndNamed()
    {
        const QString file = SettingsStore::fileName();
        QByteArray damaged = readFile(file);
        static const char junk[] = "\0\x01\x02 half-written line\n";
        damaged.insert(damaged.indexOf('\n') + 1, QByteArray(junk, sizeof junk - 1));
        {
            QFile f(file);
            QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
            f.write(damaged);
        }

        ViewController vc;
        QVERIFY(openWindow(vc, QStringLiteral("Looks like preferences settings could be wrong.")));
        QCOMPARE(vc.ui.tableView->model()->rowCount(), 0);
        QCOMPARE(readFile(file), damaged); // reading changed nothing

        vc.ui.btnClearPreferences->click();
        QVERIFY(waitForPane(vc, QStringLiteral("Mounted drives reset")));
        const QString kept = SettingsStore::preservedCopy();
        QVERIFY(!kept.isEmpty());
        QCOMPARE(readFile(kept), damaged);
        QVERIFY(paneText(vc).contains(QStringLiteral("The settings file ") + file +
                                      QStringLiteral(" could not be read; it was kept as ") + kept +
                                      QStringLiteral(" and a new one started.")));
    }

    // The folder cannot be written: the scan and the mount still work from
    // what can be read, each failed write is named in the pane, and the file
    // stays as it was.
    void aReadOnlyFolderSaysWhatCouldNotBeSaved()
    {
        const QString file = SettingsStore::fileName();
        const QString folder = QFileInfo(file).absolutePath();
        const QByteArray before = readFile(file);
        setWritable(file, false);
        setWritable(folder, false);
        QFile probe(folder + QStringLiteral("/probe"));
        const bool protectedFolder = !probe.open(QIODevice::WriteOnly);
        probe.remove();

        {
            ViewController vc;
            QVERIFY(openWindow(vc, QStringLiteral("Scan Complete")));
            if (!protectedFolder) {
                setWritable(folder, true);
                setWritable(file, true);
                QSKIP("this user writes through read-only folders");
            }
            // The remembered drive was read from the file.
            QCOMPARE(vc.ui.tableView->model()->rowCount(), 6);
            vc.ui.tableView->selectRow(0);
            QVERIFY(waitForPane(vc, QStringLiteral("tape0 Selected")));

            DialogScript script;
            script.press(QStringLiteral("Ok"));
            vc.ui.btnMount->click();
            QVERIFY(waitForPane(vc, QStringLiteral("Mount Complete")));
            QVERIFY(waitForIdle(vc));
            const QString cannotSave = QStringLiteral("Could not save settings to ") + file +
                                       QStringLiteral(" - check that its folder can be written to.");
            QVERIFY(paneText(vc).contains(cannotSave));
            QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("UNMOUNT"));
            // A write that failed takes nothing from what is read: the paths
            // are still there for the next operation and the next start.
            QCOMPARE(SettingsStore::text(PreferenceKeys::itdt), std::optional<QString>(ITDT_PATH.get()));
            QVERIFY(vc.engine.support.preferencesValid());

            vc.ui.rightScrollView->clear();
            vc.ui.btnClearPreferences->click();
            QVERIFY(waitForPane(vc, QStringLiteral("Mounted drives reset")));
            QCOMPARE(paneLines(vc), (QStringList{cannotSave, QStringLiteral("Mounted drives reset")}));
        }
        setWritable(folder, true);
        setWritable(file, true);
        QCOMPARE(readFile(file), before);
    }
};

TAPEDESK_TEST_MAIN(StoreFaultsTest)
#include "tst_storefaults.moc"

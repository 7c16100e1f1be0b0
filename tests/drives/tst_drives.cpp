// ctest-timeout: 60
// The scan report as itdt prints it, read into drives; and the store that
// remembers across runs which drives this system mounted.

#include "drives/DriveParser.h"
#include "drives/DriveStateStore.h"
#include "support/TestMain.h"
#include "tools/Console.h"
#include "tools/SettingsStore.h"

#include <thread>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

// A drive as a scan listed it when a mount recorded it.
DriveRecord mountedAs(const QString &scanLine)
{
    DriveList scanned;
    parseDriveTextToDrive(scanLine, scanned);
    DriveRecord r = scanned.snapshot().constFirst()->record();
    r.barcode = QStringLiteral("ABC123");
    r.tapeSerial = QStringLiteral("ABC123L8");
    r.mounted = true;
    return r;
}

// The same, the fields that are never stored filled too.
DriveRecord mountedTape(const QString &serial)
{
    DriveRecord r = mountedAs(QStringLiteral("#0 tape%1 - [HH8]-[F1A2] S/N:%1 x").arg(serial));
    r.info4 = r.label = r.textData = QStringLiteral("never stored");
    return r;
}

// What comes back of it: the seven stored fields, mounted.
DriveRecord asRestored(DriveRecord r)
{
    r.info4 = r.label = r.textData = QString();
    return r;
}

void save(const DriveRecord &r)
{
    DriveStateStore::saveDriveInfo(Drive(r));
}

QList<DriveRecord> restored(const DrivePtr &scanned = nullptr)
{
    DriveList list;
    if (scanned)
        list.append(scanned);
    DriveStateStore::loadMountedDrives(list);
    QList<DriveRecord> out;
    for (const DrivePtr &d : list.snapshot())
        out << d->record();
    return out;
}

} // namespace

class DrivesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { setConsoleStream(nullptr); }
    void init()
    {
        QFile::remove(SettingsStore::fileName());
        mountedDrives.set({});
    }

    // What a scan lists: the report's drives, then the ones this system
    // mounted (`remembered`, as the scan listed each when it was mounted).
    void scanReports_data()
    {
        QTest::addColumn<QString>("report");
        QTest::addColumn<QStringList>("remembered");
        QTest::addColumn<QStringList>("expected");
        const auto row = [](const char *tag, const QString &line, const QStringList &expected,
                            const QStringList &remembered = {}) {
            QTest::newRow(tag) << line << remembered << expected;
        };
        row("itdt's own ids and a device path",
            QStringLiteral(
                "Scanning SCSI Bus ...\n#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1234567890 H1-B0-T0-L0\n"
                "#1 /dev/IBMtape1 - [ULTRIUM-TD9]-[N1K0] S/N:1097000123 H1-B0-T1-L0\nExit with code: 0\n"),
            {"tape0|0|Corvel LTO8 HH|S/N:1234567890|F1A2|1234567890",
             "/dev/IBMtape1|IBMtape1|Corvel TD9|S/N:1097000123|N1K0|1097000123"});
        row("extra trailing fields",
            QStringLiteral(
                "#2 tape2 - [ULTRIUM-HH8]-[Q3F4] S/N:10WT001089 H2-B0-T4-L0 (IBMtape) 0000078A1234"),
            {"tape2|2|Corvel LTO8 HH|S/N:10WT001089|Q3F4|10WT001089"});
        row("id without tape", QStringLiteral("#0 st0 - [ULTRIUM-TD9]-[F1A2] S/N:7 x"),
            {"st0||Corvel TD9|S/N:7|F1A2|7"});
        // A blank splits a token: the later ones move up one place.
        row("model with a blank",
            QStringLiteral("#0 tape0 - [ULTRIUM 8-HH8]-[F1A2] S/N:1234567890 H1-B0-T0-L0"),
            {"tape0|0|Corvel|8-HH8]-[F1A2]||8-HH8]-[F1A2]"});
        row("two blanks after the number", QStringLiteral("#0  tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1"),
            {"|| |[Corvel-HH8]-[F1A2]||[Corvel-HH8]-[F1A2]"});
        row("model without brackets: no firmware", QStringLiteral("#0 tape0 - ULTRIUM-HH8 S/N:55 H1"),
            {"tape0|0|Corvel LTO8 HH|S/N:55||55"});
        row("carriage return in the last token", QStringLiteral("#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:55\r\n"),
            {"tape0|0|Corvel LTO8 HH|S/N:55\r|F1A2|55\r"});
        row("four tokens", QStringLiteral("#0 tape0 - [ULTRIUM-HH8]-[F1A2]"), {"|||||"});

        const QString tape0 = QStringLiteral("#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1234567890 H1-B0-T0-L0");
        const QString tape1 = QStringLiteral("#1 tape1 - [ULTRIUM-TD9]-[N1K0] S/N:1097000123 H1-B0-T1-L0");
        const char *scanned0 = "tape0|0|Corvel LTO8 HH|S/N:1234567890|F1A2|1234567890";
        const char *mounted0 =
            "tape0|0|Corvel LTO8 HH|S/N:1234567890|F1A2|1234567890 mounted ABC123L8 ABC123";
        const char *scanned1 = "tape1|1|Corvel TD9|S/N:1097000123|N1K0|1097000123";
        const char *mounted1 = "tape1|1|Corvel TD9|S/N:1097000123|N1K0|1097000123 mounted ABC123L8 ABC123";
        // The firmware was updated since the mount: the scan's word wins.
        row("mounted and scanned: one drive, the scan's", tape0, {mounted0},
            {QStringLiteral("#0 tape0 - [ULTRIUM-HH8]-[E0A1] S/N:1234567890 H1-B0-T0-L0")});
        row("mounted, not scanned: after the scanned ones", tape1, {scanned1, mounted0}, {tape0});
        row("two scanned, one of them mounted", tape0 + QLatin1Char('\n') + tape1, {scanned0, mounted1},
            {tape1});
        row("mounted under another id: the scan's id", tape0, {mounted0},
            {QStringLiteral("#3 tape3 - [ULTRIUM-HH8]-[F1A2] S/N:1234567890 H1-B0-T3-L0")});
        row("another drive under the same id: two", tape0,
            {scanned0, "tape0|0|Corvel LTO8 HH|S/N:77|F1A2|77 mounted ABC123L8 ABC123"},
            {QStringLiteral("#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:77 H1-B0-T0-L0")});
        // Every mount adds the serial number to the list, and an unmount
        // takes one away.
        row("mounted twice, not scanned: one", QString(), {mounted1}, {tape1, tape1});
    }

    void scanReports()
    {
        QFETCH(QString, report);
        QFETCH(QStringList, remembered);
        QFETCH(QStringList, expected);
        for (const QString &line : remembered)
            save(mountedAs(line));
        DriveList list;
        parseDriveTextToDrive(report, list);
        DriveStateStore::loadMountedDrives(list);
        QStringList seen;
        for (const DrivePtr &d : list.snapshot()) {
            const DriveRecord r = d->record();
            QString shown =
                QStringList{r.id, r.name, r.info1, r.info2, r.info3, r.serialNumber}.join(QLatin1Char('|'));
            if (r.mounted)
                shown += QStringLiteral(" mounted %1 %2").arg(r.tapeSerial, r.barcode);
            seen << shown;
        }
        QCOMPARE(seen, expected);
    }

    void mountedDrivesComeBackInTheirOrder()
    {
        const DriveRecord a = mountedTape(QStringLiteral("A1"));
        const DriveRecord b = mountedTape(QStringLiteral("B2"));
        save(b);
        save(a);
        save(a);
        QVERIFY(!readFile(SettingsStore::fileName()).contains("never stored"));
        // Saved twice, removed once: still remembered, after what was scanned.
        DriveStateStore::removeMountedDrive(QStringLiteral("A1"));
        QCOMPARE(restored(makeDrive()), (QList<DriveRecord>{DriveRecord{}, asRestored(b), asRestored(a)}));
        QCOMPARE(mountedDrives.get(), (QStringList{"B2", "A1"}));
    }

    void recordsThatCannotBeRestoredAreSkipped_data()
    {
        QTest::addColumn<QByteArray>("file");
        const QByteArray keys = "S1_name=0\nS1_id=tape0\nS1_i1=m\nS1_i2=S/N:S1\nS1_i3=f\nS1_a=\nS1_b=\n";
        QTest::newRow("list of bytes") << "[General]\nMOUNTED_DRIVES=@ByteArray(S1)\n" + keys;
        QTest::newRow("list as a group") << "[MOUNTED_DRIVES]\n1=S1\n[General]\n" + keys;
    }

    void recordsThatCannotBeRestoredAreSkipped()
    {
        QFETCH(QByteArray, file);
        QFile f(SettingsStore::fileName());
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(file);
        f.close();
        QCOMPARE(restored(), QList<DriveRecord>{});
    }

    void clearForgetsEveryRecordButNotThePaths()
    {
        QVERIFY(SettingsStore::setText(QStringLiteral("ITDT_PATH"), QStringLiteral("/opt/itdt")));
        save(mountedTape(QStringLiteral("OLD")));
        DriveStateStore::resetMountedDrives();
        // A mount before the next scan puts the old serial back without its keys.
        save(mountedTape(QStringLiteral("NEW")));
        QCOMPARE(restored(), QList<DriveRecord>{asRestored(mountedTape(QStringLiteral("NEW")))});
        DriveStateStore::resetMountedDrives();
        QCOMPARE(restored(), QList<DriveRecord>{});
        QVERIFY(!readFile(SettingsStore::fileName()).contains("NEW"));
        QCOMPARE(SettingsStore::text(QStringLiteral("ITDT_PATH")), QStringLiteral("/opt/itdt"));
    }

    // The clear button works on the GUI thread while a scan or a mount works
    // on the same store from the thread pool.
    void clearWhileScanAndMountRun()
    {
        const DriveRecord s = mountedTape(QStringLiteral("CC1"));
        std::atomic<bool> stop{false};
        std::atomic<int> torn{0};
        std::thread worker([&] {
            for (int i = 0; i < 25; ++i) {
                save(s);
                for (const DriveRecord &d : restored())
                    torn += d != asRestored(s) ? 1 : 0;
            }
            stop = true;
        });
        while (!stop) {
            DriveStateStore::resetMountedDrives();
            std::this_thread::yield();
        }
        worker.join();
        QCOMPARE(torn.load(), 0);
        QCOMPARE(SettingsStore::preservedCopy(), QString());
    }
};

TAPEDESK_TEST_MAIN(DrivesTest)
#include "tst_drives.moc"

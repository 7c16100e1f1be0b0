// ctest-timeout: 60
// The scan report as itdt prints it, read into drives; and the store that
// remembers across runs which drives this system mounted.

#include "drives/DriveParser.h"
#include "drives/DriveStateStore.h"
#include "support/TestMain.h"
#include "tools/SettingsStore.h"

#include <sys/stat.h>
#include <thread>

Q_DECLARE_METATYPE(tapedesk::DriveRecord)

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

DriveRecord scanned(const QString &id, const QString &name, const QString &model, const QString &serialToken,
                    const QString &firmware)
{
    DriveRecord r;
    r.id = id;
    r.name = name;
    r.info1 = model;
    r.info2 = serialToken;
    r.info3 = firmware;
    r.serialNumber = QString(serialToken).remove(QStringLiteral("S/N:"));
    return r;
}

QList<DriveRecord> records(const DriveList &list)
{
    QList<DriveRecord> out;
    for (const DrivePtr &d : list.snapshot())
        out << d->record();
    return out;
}

// A drive as a mount records it, with the fields that are never stored filled too.
DriveRecord mountedTape(const QString &serial, const QString &name)
{
    DriveRecord r = scanned(QStringLiteral("tape") + name, name, QStringLiteral("Corvel LTO8 HH"),
                            QStringLiteral("S/N:") + serial, QStringLiteral("F1A2"));
    r.address = QStringLiteral("ABC123");
    r.barCode = QStringLiteral("ABC123L8");
    r.info4 = QStringLiteral("spare-4");
    r.label = QStringLiteral("VOLUME-LABEL");
    r.textData = QStringLiteral("spare-text");
    r.mounted = true;
    return r;
}

// What comes back of it: the seven stored fields, mounted.
DriveRecord asRestored(DriveRecord r)
{
    r.info4.clear();
    r.label.clear();
    r.textData.clear();
    return r;
}

void save(const DriveRecord &r)
{
    DriveStateStore::saveDriveInfo(Drive(r));
}

QList<DriveRecord> restored()
{
    DriveList list;
    DriveStateStore::loadMountedDrives(list);
    return records(list);
}

} // namespace

class DrivesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QFile::remove(SettingsStore::fileName());
        mountedDrives.set({});
    }

    void scanReportIsAppendedAfterWhatIsListed()
    {
        DriveList list;
        list.append(makeDrive(scanned(QStringLiteral("tape9"), QStringLiteral("9"), {}, {}, {})));
        parseDriveTextToDrive(
            QStringLiteral("Scanning SCSI Bus ...\n"
                           "#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1234567890 H1-B0-T0-L0\n"
                           "#1 /dev/IBMtape1 - [ULTRIUM-TD9]-[N1K0] S/N:1097000123 H1-B0-T1-L0\n"
                           "Exit with code: 0\n"),
            list);
        const QList<DriveRecord> drives = records(list);
        QCOMPARE(drives.size(), 3);
        QCOMPARE(drives.at(0).id, QStringLiteral("tape9"));
        QCOMPARE(drives.at(1), scanned("tape0", "0", "Corvel LTO8 HH", "S/N:1234567890", "F1A2"));
        QCOMPARE(drives.at(2), scanned("/dev/IBMtape1", "IBMtape1", "Corvel TD9", "S/N:1097000123", "N1K0"));
        QCOMPARE(ltfsDevice(drives.at(2)), QStringLiteral("/dev/IBMtape1"));
        QCOMPARE(ltfsDevice(drives.at(1)), QStringLiteral("0"));
    }

    void linesRealScansCanHold_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<DriveRecord>("expected");
        QTest::newRow("extra trailing fields")
            << "#2 tape2 - [ULTRIUM-HH8]-[Q3F4] S/N:10WT001089 H2-B0-T4-L0 (IBMtape) 0000078A1234"
            << scanned("tape2", "2", "Corvel LTO8 HH", "S/N:10WT001089", "Q3F4");
        QTest::newRow("id without tape")
            << "#0 st0 - [ULTRIUM-TD9]-[F1A2] S/N:7 x" << scanned("st0", "", "Corvel TD9", "S/N:7", "F1A2");
        QTest::newRow("firmware with a dash") << "#0 tape0 - [ULTRIUM-HH8]-[F1-A2] S/N:7"
                                              << scanned("tape0", "0", "Corvel LTO8 HH", "S/N:7", "F1A2");
        // The blank splits the model token; later tokens move up one place.
        QTest::newRow("model with a blank") << "#0 tape0 - [ULTRIUM 8-HH8]-[F1A2] S/N:1234567890 H1-B0-T0-L0"
                                            << scanned("tape0", "0", "Corvel", "8-HH8]-[F1A2]", "");
        QTest::newRow("two blanks after the number")
            << "#0  tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1" << scanned("", "", " ", "[Corvel-HH8]-[F1A2]", "");
        QTest::newRow("model without brackets: no firmware")
            << "#0 tape0 - ULTRIUM-HH8 S/N:55 H1" << scanned("tape0", "0", "Corvel LTO8 HH", "S/N:55", "");
        QTest::newRow("carriage return in the last token")
            << "#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:55\r\n"
            << scanned("tape0", "0", "Corvel LTO8 HH", "S/N:55\r", "F1A2");
        QTest::newRow("four tokens") << "#0 tape0 - [ULTRIUM-HH8]-[F1A2]" << DriveRecord{};
        QTest::newRow("control bytes") << QStringLiteral("#\u0001 \u0000 ] ]]]] \uFFFD")
                                       << scanned(QStringLiteral("\u0000"), "", "", "\uFFFD", "");
    }

    void linesRealScansCanHold()
    {
        QFETCH(QString, line);
        QFETCH(DriveRecord, expected);
        DriveList list;
        parseDriveTextToDrive(line, list);
        QCOMPARE(records(list), QList<DriveRecord>{expected});
    }

    void mountedDrivesComeBackInTheirOrder()
    {
        const DriveRecord a = mountedTape(QStringLiteral("A1"), QStringLiteral("0"));
        const DriveRecord b = mountedTape(QStringLiteral("B2"), QStringLiteral("1"));
        save(b);
        save(a);
        save(a);
        QCOMPARE(SettingsStore::textList(DriveStateStore::kMountedDrivesKey),
                 (QStringList{"B2", "A1", "A1"}));
        QCOMPARE(SettingsStore::text(QStringLiteral("A1_b")), QStringLiteral("ABC123L8"));
        QVERIFY(!readFile(SettingsStore::fileName()).contains("spare"));
        // Saved twice, removed once: still remembered.
        DriveStateStore::removeMountedDrive(QStringLiteral("A1"));
        mountedDrives.set({QStringLiteral("stale")});

        DriveList list;
        list.append(makeDrive(scanned(QStringLiteral("tape3"), QStringLiteral("3"), {}, {}, {})));
        DriveStateStore::loadMountedDrives(list);
        QCOMPARE(records(list).mid(1), (QList<DriveRecord>{asRestored(b), asRestored(a)}));
        QCOMPARE(mountedDrives.get(), (QStringList{"B2", "A1"}));
    }

    void recordsThatCannotBeRestoredAreSkipped_data()
    {
        QTest::addColumn<QByteArray>("file");
        const QByteArray keys = "S1_name=0\nS1_id=tape0\nS1_i1=m\nS1_i2=S/N:S1\nS1_i3=f\nS1_a=\nS1_b=\n";
        QTest::newRow("one of the seven keys missing")
            << "[General]\nMOUNTED_DRIVES=S1\n" + keys.left(keys.size() - 6);
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
        save(mountedTape(QStringLiteral("OLD"), QStringLiteral("0")));
        DriveStateStore::resetMountedDrives();
        // A mount before the next scan puts the old serial back without its keys.
        const DriveRecord fresh = mountedTape(QStringLiteral("NEW"), QStringLiteral("1"));
        save(fresh);
        QCOMPARE(restored(), QList<DriveRecord>{asRestored(fresh)});
        DriveStateStore::resetMountedDrives();
        QCOMPARE(restored(), QList<DriveRecord>{});
        QVERIFY(!readFile(SettingsStore::fileName()).contains("NEW"));
        QCOMPARE(SettingsStore::text(QStringLiteral("ITDT_PATH")), QStringLiteral("/opt/itdt"));
    }

    void removingWhatIsNotListedWritesNothing()
    {
        save(mountedTape(QStringLiteral("S12"), QStringLiteral("0")));
        struct stat before = {};
        QCOMPARE(::stat(QFile::encodeName(SettingsStore::fileName()).constData(), &before), 0);
        for (const QString &serial :
             {QStringLiteral("S1"), QStringLiteral("s12"), QStringLiteral("S12 "), QString()})
            DriveStateStore::removeMountedDrive(serial);
        struct stat after = {};
        QCOMPARE(::stat(QFile::encodeName(SettingsStore::fileName()).constData(), &after), 0);
        // Every write replaces the file: the same inode means no write.
        QCOMPARE(after.st_ino, before.st_ino);
        QCOMPARE(mountedDrives.get(), QStringList{"S12"});
    }

    // The clear button works on the GUI thread while a scan or a mount works
    // on the same store from the thread pool.
    void clearWhileScanAndMountRun()
    {
        const DriveRecord s = mountedTape(QStringLiteral("CC1"), QStringLiteral("0"));
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
        mountedDrives.set({});
        DriveStateStore::resetMountedDrives();
        save(s);
        QCOMPARE(restored(), QList<DriveRecord>{asRestored(s)});
    }
};

TAPEDESK_TEST_MAIN(DrivesTest)
#include "tst_drives.moc"

// ctest-timeout: 60
#include "drives/DriveStateStore.h"
#include "support/TestMain.h"
#include "tools/SettingsStore.h"

#include <QFile>
#include <QFileInfo>
#include <QObject>
#include <sys/stat.h>
#include <thread>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QString kList = QStringLiteral("MOUNTED_DRIVES");

DriveRecord mountedTape(const QString &serial, const QString &name)
{
    DriveRecord r;
    r.id = QStringLiteral("tape") + name;
    r.name = name;
    r.info1 = QStringLiteral("Corvel LTO8 HH");
    r.info2 = QStringLiteral("S/N:") + serial;
    r.info3 = QStringLiteral("F1A2");
    r.serialNumber = serial;
    r.address = QStringLiteral("ABC123");
    r.barCode = QStringLiteral("ABC123L8");
    // Never stored:
    r.info4 = QStringLiteral("spare-4");
    r.label = QStringLiteral("VOLUME-LABEL");
    r.textData = QStringLiteral("spare-text");
    r.mounted = true;
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
    QList<DriveRecord> out;
    const QList<DrivePtr> drives = list.snapshot();
    for (const DrivePtr &d : drives)
        out << d->record();
    return out;
}

// What a restored drive holds: the seven stored fields, mounted, nothing else.
DriveRecord asRestored(DriveRecord r)
{
    r.info4.clear();
    r.label.clear();
    r.textData.clear();
    r.mounted = true;
    return r;
}

void writeSettingsFile(const QByteArray &bytes)
{
    QFile f(SettingsStore::fileName());
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
}

} // namespace

class TestDriveStateStore : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QFile::remove(SettingsStore::fileName());
        mountedDrives.set({});
    }

    void savingRecordsTheListAndSevenKeys()
    {
        const DriveRecord s = mountedTape(QStringLiteral("1013000101"), QStringLiteral("0"));
        save(s);
        QCOMPARE(SettingsStore::textList(kList), QStringList{"1013000101"});
        QCOMPARE(mountedDrives.get(), QStringList{"1013000101"});
        const QList<std::pair<QString, QString>> keys{{"1013000101_name", "0"},
                                                      {"1013000101_id", "tape0"},
                                                      {"1013000101_i1", "Corvel LTO8 HH"},
                                                      {"1013000101_i2", "S/N:1013000101"},
                                                      {"1013000101_i3", "F1A2"},
                                                      {"1013000101_a", "ABC123"},
                                                      {"1013000101_b", "ABC123L8"}};
        for (const auto &[key, value] : keys)
            QCOMPARE(SettingsStore::text(key), value);
        const QByteArray onDisk = readFile(SettingsStore::fileName());
        QVERIFY(!onDisk.contains("VOLUME-LABEL"));
        QVERIFY(!onDisk.contains("spare"));
    }

    void savedTwiceRemovedOnceStillRestored()
    {
        const DriveRecord s = mountedTape(QStringLiteral("SER1"), QStringLiteral("1"));
        save(s);
        save(s);
        QCOMPARE(SettingsStore::textList(kList), (QStringList{"SER1", "SER1"}));
        DriveStateStore::removeMountedDrive(QStringLiteral("SER1"));
        QCOMPARE(SettingsStore::textList(kList), QStringList{"SER1"});

        mountedDrives.set({QStringLiteral("stale")});
        QCOMPARE(restored(), QList<DriveRecord>{asRestored(s)});
        QCOMPARE(mountedDrives.get(), QStringList{"SER1"});
    }

    void drivesAreRestoredInTheirRecordedOrder()
    {
        const DriveRecord a = mountedTape(QStringLiteral("A1"), QStringLiteral("0"));
        const DriveRecord b = mountedTape(QStringLiteral("B2"), QStringLiteral("1"));
        save(b);
        save(a);
        DriveList list;
        list.append(makeDrive(mountedTape(QStringLiteral("scanned"), QStringLiteral("3"))));
        DriveStateStore::loadMountedDrives(list);
        QCOMPARE(list.size(), 3);
        QCOMPARE(list.snapshot().at(0)->serialNumber(), QStringLiteral("scanned"));
        QCOMPARE(list.snapshot().at(1)->record(), asRestored(b));
        QCOMPARE(list.snapshot().at(2)->record(), asRestored(a));
    }

    void serialWithoutItsKeysIsSkipped()
    {
        // The clear button, then a mount before the next scan: the old serial
        // goes back into the list without its per-drive keys.
        const DriveRecord old = mountedTape(QStringLiteral("OLD"), QStringLiteral("0"));
        const DriveRecord fresh = mountedTape(QStringLiteral("NEW"), QStringLiteral("1"));
        save(old);
        DriveStateStore::resetMountedDrives();
        save(fresh);
        QCOMPARE(SettingsStore::textList(kList), (QStringList{"OLD", "NEW"}));
        QCOMPARE(restored(), QList<DriveRecord>{asRestored(fresh)});
        QCOMPARE(mountedDrives.get(), (QStringList{"OLD", "NEW"}));

        // One key of seven missing is enough to skip it.
        QVERIFY(SettingsStore::remove(QStringLiteral("NEW_b")));
        QCOMPARE(restored(), QList<DriveRecord>{});
    }

    void malformedListCountsAsEmpty_data()
    {
        QTest::addColumn<QByteArray>("file");
        const QByteArray keys = "S1_name=0\nS1_id=tape0\nS1_i1=m\nS1_i2=S/N:S1\nS1_i3=f\nS1_a=\nS1_b=\n";
        QTest::newRow("byte array") << "[General]\nMOUNTED_DRIVES=@ByteArray(S1)\n" + keys;
        QTest::newRow("invalid") << "[General]\nMOUNTED_DRIVES=@Invalid()\n" + keys;
        QTest::newRow("a group") << "[MOUNTED_DRIVES]\n1=S1\n[General]\n" + keys;
    }

    void malformedListCountsAsEmpty()
    {
        QFETCH(QByteArray, file);
        writeSettingsFile(file);
        mountedDrives.set({QStringLiteral("S1")});
        QCOMPARE(restored(), QList<DriveRecord>{});
        QCOMPARE(mountedDrives.get(), QStringList{});
    }

    void resetRemovesEveryRecordButKeepsToolPaths()
    {
        QVERIFY(SettingsStore::setText(QStringLiteral("ITDT_PATH"), QStringLiteral("/opt/itdt")));
        QVERIFY(SettingsStore::setText(QStringLiteral("OUTPUT_FOLDER"), QStringLiteral("/srv/out")));
        save(mountedTape(QStringLiteral("A1"), QStringLiteral("0")));
        save(mountedTape(QStringLiteral("B2"), QStringLiteral("1")));
        DriveStateStore::resetMountedDrives();

        QVERIFY(!SettingsStore::contains(kList));
        for (const QString &serial : {QStringLiteral("A1"), QStringLiteral("B2")}) {
            for (const QString &suffix : DriveStateStore::keySuffixes())
                QVERIFY2(!SettingsStore::contains(serial + suffix), qPrintable(serial + suffix));
        }
        QCOMPARE(SettingsStore::text(QStringLiteral("ITDT_PATH")), QStringLiteral("/opt/itdt"));
        QCOMPARE(SettingsStore::text(QStringLiteral("OUTPUT_FOLDER")), QStringLiteral("/srv/out"));
        // Memory keeps the serials until the next scan loads the empty store.
        QCOMPARE(mountedDrives.get(), (QStringList{"A1", "B2"}));
        QCOMPARE(restored(), QList<DriveRecord>{});
        QCOMPARE(mountedDrives.get(), QStringList{});
    }

    void removingWhatIsNotListedWritesNothing()
    {
        save(mountedTape(QStringLiteral("S12"), QStringLiteral("0")));
        const QString file = SettingsStore::fileName();
        struct stat before = {};
        QCOMPARE(::stat(QFile::encodeName(file).constData(), &before), 0);
        const QByteArray bytes = readFile(file);

        DriveStateStore::removeMountedDrive(QStringLiteral("S1"));
        DriveStateStore::removeMountedDrive(QStringLiteral("s12"));
        DriveStateStore::removeMountedDrive(QStringLiteral("S12 "));
        DriveStateStore::removeMountedDrive(QString());

        struct stat after = {};
        QCOMPARE(::stat(QFile::encodeName(file).constData(), &after), 0);
        // Every write replaces the file, so the same inode means no write.
        QCOMPARE(after.st_ino, before.st_ino);
        QCOMPARE(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
        QCOMPARE(readFile(file), bytes);
        QCOMPARE(mountedDrives.get(), QStringList{"S12"});
    }

    void clearWhileScanAndMountRun()
    {
        // The clear button works on the GUI thread while a scan or a mount
        // works on the same store from the thread pool.
        const DriveRecord s = mountedTape(QStringLiteral("CC1"), QStringLiteral("0"));
        std::atomic<bool> stop{false};
        std::atomic<int> torn{0};
        std::thread worker([&] {
            for (int i = 0; i < 25; ++i) {
                save(s);
                const QList<DriveRecord> drives = restored();
                for (const DriveRecord &d : drives) {
                    if (d != asRestored(s))
                        ++torn;
                }
            }
            stop = true;
        });
        int resets = 0;
        while (!stop) {
            DriveStateStore::resetMountedDrives();
            ++resets;
            std::this_thread::yield();
        }
        worker.join();
        QCOMPARE(torn.load(), 0);
        QVERIFY(resets > 0);
        QCOMPARE(SettingsStore::preservedCopy(), QString());

        // The store is still whole: one more save reads back as expected.
        mountedDrives.set({});
        DriveStateStore::resetMountedDrives();
        save(s);
        QCOMPARE(restored(), QList<DriveRecord>{asRestored(s)});
    }
};

TAPEDESK_TEST_MAIN(TestDriveStateStore)
#include "tst_drivestatestore.moc"

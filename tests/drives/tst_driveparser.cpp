// ctest-timeout: 30
#include "drives/DriveParser.h"
#include "support/TestMain.h"

#include <QObject>

Q_DECLARE_METATYPE(tapedesk::DriveRecord)

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

QList<DriveRecord> parse(const QString &report)
{
    DriveList list;
    parseDriveTextToDrive(report, list);
    QList<DriveRecord> out;
    const QList<DrivePtr> drives = list.snapshot();
    for (const DrivePtr &d : drives)
        out << d->record();
    return out;
}

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

} // namespace

class TestDriveParser : public QObject
{
    Q_OBJECT

private slots:
    void reportWithTwoDrives()
    {
        // As printed by itdt scan.
        const QString report = QStringLiteral("Scanning SCSI Bus ...\n"
                                              "#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1234567890 H1-B0-T0-L0\n"
                                              "#1 tape1 - [ULTRIUM-TD9]-[N1K0] S/N:1097000123 H1-B0-T1-L0\n"
                                              "Exit with code: 0\n");
        const QList<DriveRecord> drives = parse(report);
        QCOMPARE(drives.size(), 2);
        QCOMPARE(drives.at(0), scanned("tape0", "0", "Corvel LTO8 HH", "S/N:1234567890", "F1A2"));
        QCOMPARE(drives.at(1), scanned("tape1", "1", "Corvel TD9", "S/N:1097000123", "N1K0"));
    }

    void fiveConsoleLinesPerDrive()
    {
        DrivePtr d;
        const QList<QByteArray> printed = consoleOf([&] {
            d = getSingleDrive(QStringLiteral("#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1234567890 H1-B0-T0-L0"));
        });
        // Without the whole-report pass, "ULTRIUM" stays.
        QCOMPARE(d->record(), scanned("tape0", "0", "ULTRIUM LTO8 HH", "S/N:1234567890", "F1A2"));
        QCOMPARE(printed, (QList<QByteArray>{"[ULTRIUM-HH8]-[F1A2]", "S/N:1234567890", "", "ULTRIUM LTO8 HH",
                                             "F1A2"}));
    }

    void driveLinesAreAppendedAfterWhatIsThere()
    {
        DriveList list;
        list.append(makeDrive(scanned("tape9", "9", "kept", "S/N:9", "")));
        parseDriveTextToDrive(QString(), list);
        parseDriveTextToDrive(QStringLiteral("Scanning SCSI Bus ...\nExit with code: 0\n"), list);
        QCOMPARE(list.size(), 1);
        parseDriveTextToDrive(QStringLiteral("#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1 H1-B0-T0-L0"), list);
        QCOMPARE(list.size(), 2);
        QCOMPARE(list.snapshot().at(0)->id(), QStringLiteral("tape9"));
        QCOMPARE(list.snapshot().at(1)->id(), QStringLiteral("tape0"));
    }

    void simulatorReportWithDevicePath()
    {
        // tapesim's default library: three itdt ids and one kernel-driver path.
        const QList<DriveRecord> drives =
            parse(QStringLiteral("Scanning SCSI Bus ...\n"
                                 "#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1013000101 H1-B0-T0-L0\n"
                                 "#1 tape1 - [ULTRIUM-HH9]-[N2B4] S/N:1013000102 H1-B0-T1-L0\n"
                                 "#2 tape2 - [ULTRIUM-TD9]-[N2B4] S/N:1013000103 H1-B0-T2-L0\n"
                                 "#3 /dev/IBMtape3 - [ULTRIUM-HH8]-[F1A2] S/N:1013000104 H1-B0-T3-L0\n"
                                 "Exit with code: 0\n"));
        QCOMPARE(drives.size(), 4);
        QCOMPARE(drives.at(1), scanned("tape1", "1", "Corvel HH9", "S/N:1013000102", "N2B4"));
        QCOMPARE(drives.at(3),
                 scanned("/dev/IBMtape3", "IBMtape3", "Corvel LTO8 HH", "S/N:1013000104", "F1A2"));
        QCOMPARE(ltfsDevice(drives.at(3)), QStringLiteral("/dev/IBMtape3"));
        QCOMPARE(ltfsDevice(drives.at(0)), QStringLiteral("0"));
    }

    void linesRealScansCanHold_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<DriveRecord>("expected");

        QTest::newRow("extra trailing fields")
            << "#2 tape2 - [ULTRIUM-HH8]-[Q3F4] S/N:10WT001089 H2-B0-T4-L0 (IBMtape) 0000078A1234"
            << scanned("tape2", "2", "Corvel LTO8 HH", "S/N:10WT001089", "Q3F4");
        QTest::newRow("device path") << "#0 /dev/IBMtape0 - [ULTRIUM-HH8]-[F1A2] S/N:1 H1-B0-T0-L0"
                                     << scanned("/dev/IBMtape0", "IBMtape0", "Corvel LTO8 HH", "S/N:1",
                                                "F1A2");
        QTest::newRow("id without tape")
            << "#0 st0 - [ULTRIUM-TD9]-[F1A2] S/N:7 x" << scanned("st0", "", "Corvel TD9", "S/N:7", "F1A2");
        QTest::newRow("only the first tape goes")
            << "#0 tapetape1 - [ULTRIUM-TD9]-[F1A2] S/N:7"
            << scanned("tapetape1", "tape1", "Corvel TD9", "S/N:7", "F1A2");
        QTest::newRow("case-sensitive ULTRIUM") << "#0 tape0 - [Ultrium-HH8]-[F1A2] S/N:7"
                                                << scanned("tape0", "0", "Ultrium LTO8 HH", "S/N:7", "F1A2");
        QTest::newRow("firmware with dash and brackets")
            << "#0 tape0 - [ULTRIUM-HH8]-[F1-A2] S/N:7"
            << scanned("tape0", "0", "Corvel LTO8 HH", "S/N:7", "F1A2");
        // The blank splits the model token; later tokens move up one place.
        QTest::newRow("model with a blank") << "#0 tape0 - [ULTRIUM 8-HH8]-[F1A2] S/N:1234567890 H1-B0-T0-L0"
                                            << scanned("tape0", "0", "Corvel", "8-HH8]-[F1A2]", "");
        QTest::newRow("two blanks after the number")
            << "#0  tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1" << scanned("", "", " ", "[Corvel-HH8]-[F1A2]", "");
        QTest::newRow("fourth token without ]")
            << "#0 tape0 - ULTRIUM-HH8 S/N:55 H1" << scanned("tape0", "0", "Corvel LTO8 HH", "S/N:55", "");
        QTest::newRow("carriage return stays in the last token")
            << "#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:55\r\n"
            << scanned("tape0", "0", "Corvel LTO8 HH", "S/N:55\r", "F1A2");
        QTest::newRow("carriage return after the address")
            << "#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:55 H1-B0-T0-L0\r\n"
            << scanned("tape0", "0", "Corvel LTO8 HH", "S/N:55", "F1A2");
        QTest::newRow("four tokens") << "#0 tape0 - [ULTRIUM-HH8]-[F1A2]" << DriveRecord{};
        QTest::newRow("only a #") << "#" << DriveRecord{};
        QTest::newRow("control bytes and no brackets")
            << QStringLiteral("#\u0001 \u0000 ] ]]]] \uFFFD")
            << scanned(QStringLiteral("\u0000"), "", "", "\uFFFD", "");
    }

    void linesRealScansCanHold()
    {
        QFETCH(QString, line);
        QFETCH(DriveRecord, expected);
        const QList<DriveRecord> drives = parse(line);
        QCOMPARE(drives.size(), 1);
        QCOMPARE(drives.at(0), expected);
        QVERIFY(!drives.at(0).mounted);
    }
};

TAPEDESK_TEST_MAIN(TestDriveParser)
#include "tst_driveparser.moc"

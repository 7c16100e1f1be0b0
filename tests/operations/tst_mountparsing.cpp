// ctest-timeout: 10
// The three texts the mount reads back, on the odd inputs the tools can give.

#include "operations/MountCheck.h"
#include "operations/MountParsing.h"
#include "support/TestMain.h"

using namespace tapedesk;

class MountParsingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void barcodeIsSecondWordOfSecondLine_data()
    {
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("barcode");
        QTest::newRow("padded attribute") << QStringLiteral("Initializing device...\nBarcode: TD0001      \n"
                                                            "Exit with code: 0\n")
                                          << QStringLiteral("TD0001");
        QTest::newRow("double blank gives an empty word")
            << QStringLiteral("x\nBarcode:  TD0001\n") << QString();
        QTest::newRow("carriage return is kept")
            << QStringLiteral("x\r\nBarcode: TD0001\r\n") << QStringLiteral("TD0001\r");
        QTest::newRow("one line") << QStringLiteral("Exit with code: 0") << QString();
        QTest::newRow("second line of one word") << QStringLiteral("x\nTD0001\n") << QString();
        QTest::newRow("empty second line") << QStringLiteral("x\n") << QString();
        QTest::newRow("nothing") << QString() << QString();
    }

    void barcodeIsSecondWordOfSecondLine()
    {
        QFETCH(QString, output);
        QFETCH(QString, barcode);
        QCOMPARE(barcodeFromAttributeRead(output), barcode);
    }

    void volumeLiesBetweenMarkerAndColon_data()
    {
        QTest::addColumn<QString>("stderrText");
        QTest::addColumn<bool>("found");
        QTest::addColumn<QString>("volume");
        QTest::newRow("real ltfs lines")
            << QStringLiteral(
                   "5ec0 LTFS11005I Mounting the volume.\n"
                   "5ec0 LTFS11031I Volume mounted successfully. ABC123 : Gen = 1 / (a, 5) -> (b, 5) / "
                   "10WT001089.\n5ec0 LTFS14111I Initial setup completed successfully.\n")
            << true << QStringLiteral("ABC123");
        QTest::newRow("blanks kept") << QStringLiteral("Volume mounted successfully.  AB 12  : x") << true
                                     << QStringLiteral(" AB 12 ");
        QTest::newRow("empty volume")
            << QStringLiteral("Volume mounted successfully.  : x") << true << QString();
        QTest::newRow("colon only before the marker")
            << QStringLiteral("a : b\nVolume mounted successfully. ABC123\n") << false << QString();
        QTest::newRow("colon on a later line")
            << QStringLiteral("Volume mounted successfully. ABC123\nnext : line") << true
            << QStringLiteral("ABC123\nnext");
        QTest::newRow("first marker counts")
            << QStringLiteral("Volume mounted successfully. A : 1\nVolume mounted successfully. B : 2")
            << true << QStringLiteral("A");
        QTest::newRow("marker without its blank")
            << QStringLiteral("Volume mounted successfully.") << false << QString();
        QTest::newRow("failure") << QStringLiteral("5ec0 LTFS14013E Cannot mount the volume.") << false
                                 << QString();
    }

    void volumeLiesBetweenMarkerAndColon()
    {
        QFETCH(QString, stderrText);
        QFETCH(bool, found);
        QFETCH(QString, volume);
        const std::optional<QString> got = volumeFromLtfsStderr(stderrText);
        QCOMPARE(got.has_value(), found);
        if (found)
            QCOMPARE(*got, volume);
    }

    // A drive's volume counts as mounted only on a FUSE line whose mount
    // point is exactly /tmp/ltfs/mnt/<name>.
    void mountTableListsTheExactMountPoint_data()
    {
        QTest::addColumn<QString>("table");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("mounted");
        const QString root = QStringLiteral("/dev/vda1 on / type ext4 (rw,relatime)\n");
        const QString ten =
            root + QStringLiteral("ltfs:/dev/sg3 on /tmp/ltfs/mnt/10 type fuse (rw,nosuid,nodev,"
                                  "relatime,user_id=0,group_id=0,default_permissions,allow_other)\n");
        QTest::newRow("root user's mount") << ten << QStringLiteral("10") << true;
        QTest::newRow("1 is not 10") << ten << QStringLiteral("1") << false;
        QTest::newRow("empty name") << ten << QString() << false;
        QTest::newRow("ordinary user's mount")
            << QStringLiteral("ltfs:/dev/sg3 on /tmp/ltfs/mnt/IBMtape12 type fuse (rw,nosuid,nodev,relatime,"
                              "user_id=1001,group_id=1001,default_permissions)")
            << QStringLiteral("IBMtape12") << true;
        QTest::newRow("IBMtape1 is not IBMtape12")
            << QStringLiteral("ltfs:/dev/sg3 on /tmp/ltfs/mnt/IBMtape12 type fuse (rw)")
            << QStringLiteral("IBMtape1") << false;
        QTest::newRow("not FUSE") << QStringLiteral("/dev/sdb1 on /tmp/ltfs/mnt/1 type ext4 (rw)")
                                  << QStringLiteral("1") << false;
        QTest::newRow("another parent path")
            << QStringLiteral("ltfs:0 on /srv/tmp/ltfs/mnt/1 type fuse (rw)") << QStringLiteral("1") << false;
        QTest::newRow("blank escaped by mount")
            << QStringLiteral("ltfs:/dev/sg3 on /tmp/ltfs/mnt/my\\040drive type fuse (rw)")
            << QStringLiteral("my drive") << true;
        QTest::newRow("unreadable line")
            << QStringLiteral("ltfs /tmp/ltfs/mnt/1 fuse") << QStringLiteral("1") << false;
    }

    void mountTableListsTheExactMountPoint()
    {
        QFETCH(QString, table);
        QFETCH(QString, name);
        QFETCH(bool, mounted);
        QCOMPARE(mountOutputShows(table, name), mounted);
        QCOMPARE(mountAnswerFor(table, name), mounted ? MountAnswer::Yes : MountAnswer::No);
    }
};

TAPEDESK_TEST_MAIN(MountParsingTest)
#include "tst_mountparsing.moc"

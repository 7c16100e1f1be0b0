// ctest-timeout: 30
// The text rules the workflows judge by, on the odd inputs the tools and the
// operator can give: what the mount reads back, the volume name, and long
// lines on their way to the pane.

#include "operations/MountCheck.h"
#include "operations/MountParsing.h"
#include "operations/PaneText.h"
#include "operations/VolumeName.h"
#include "support/Dialogs.h"
#include "support/EngineHarness.h"
#include "support/TestEnv.h"
#include "tools/Console.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTest>

using namespace tapedesk;
using namespace tapedesk::test;

class RulesTest : public QObject
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
        QTest::newRow("second line of one word") << QStringLiteral("x\nTD0001\n") << QString();
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
        QTest::newRow("ordinary user's mount")
            << QStringLiteral("ltfs:/dev/sg3 on /tmp/ltfs/mnt/IBMtape12 type fuse (rw,nosuid,nodev,relatime,"
                              "user_id=1001,group_id=1001,default_permissions)")
            << QStringLiteral("IBMtape12") << true;
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

    // A process holding a file of the volume open is named as what keeps it
    // busy (one working inside it: tst_real_ltfs).
    void busyVolumeNamesItsHolder()
    {
        const QString point = makeDir(QStringLiteral("volume"));
        QProcess open;
        open.start(QStringLiteral("sh"),
                   {QStringLiteral("-c"), QStringLiteral("exec 3>%1/f; echo; exec sleep 30").arg(point)});
        QVERIFY(open.waitForReadyRead());
        const QStringList lines = volumeUsersLines(volumeUsersOf(point));
        const QString holder = QStringLiteral(" (pid %1) holds %2/f").arg(open.processId()).arg(point);
        open.kill();
        open.waitForFinished();
        QCOMPARE(lines.size(), 1);
        // (the shell may not have become sleep yet)
        QVERIFY2(lines.first().startsWith(QStringLiteral("The volume is busy: ")) &&
                     lines.first().endsWith(holder),
                 qPrintable(lines.first()));
    }

    void rule_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QString>("upper");

        QTest::newRow("lower case and digits")
            << QStringLiteral("ab12cd") << true << QStringLiteral("AB12CD");
        QTest::newRow("seven") << QStringLiteral("ABCDEFG") << false << QStringLiteral("ABCDEFG");
        QTest::newRow("empty") << QString() << false << QString();
        QTest::newRow("inner blank") << QStringLiteral("AB CDE") << false << QStringLiteral("AB CDE");
        QTest::newRow("surrounding blanks")
            << QStringLiteral(" ABCDEF ") << false << QStringLiteral(" ABCDEF ");
        QTest::newRow("accented letters") << QStringLiteral("éèàüñç") << true << QStringLiteral("ÉÈÀÜÑÇ");
        QTest::newRow("Arabic-Indic digits") << QStringLiteral("١٢٣٤٥٦") << true << QStringLiteral("١٢٣٤٥٦");
        // e + combining acute is one character on screen.
        QTest::newRow("combining marks count once")
            << QStringLiteral("e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301") << true
            << QStringLiteral("E\u0301E\u0301E\u0301E\u0301E\u0301E\u0301");
        // Judged after upper-casing: "ß" becomes "SS".
        QTest::newRow("sharp s grows to six") << QStringLiteral("ßabcd") << true << QStringLiteral("SSABCD");
        QTest::newRow("letter outside the BMP")
            << QStringLiteral("\U00010400BCDEF") << true << QStringLiteral("\U00010400BCDEF");
        QTest::newRow("emoji") << QStringLiteral("ABCDE\U0001F600") << false
                               << QStringLiteral("ABCDE\U0001F600");
        QTest::newRow("lone surrogate") << (QStringLiteral("ABCDE") + QChar(0xD800)) << false
                                        << (QStringLiteral("ABCDE") + QChar(0xD800));
    }

    void rule()
    {
        QFETCH(QString, entry);
        QFETCH(bool, valid);
        QFETCH(QString, upper);
        QCOMPARE(volumeNameFromEntry(entry), upper);
        QCOMPARE(isValidVolumeName(entry), valid);
    }

    // With no one to ask (before a face installs its answers), every question
    // is declined, and the console says what was not asked.
    void noOneToAskDeclinesAll()
    {
        QVERIFY(!hasDialogProvider());
        setConsoleStream(stdout);
        const QList<QByteArray> console = consoleOf([] {
            DialogProvider &d = dialogs();
            QCOMPARE(d.getString(QStringLiteral("Name"), QStringLiteral("Six letters?"), QString()), "-1");
            QCOMPARE(d.userOptionPrompt(QStringLiteral("Go?"), {}, {}, {}), 1);
            QCOMPARE(d.pickFile({}), QString());
            QCOMPARE(d.pickFolder(), QStringLiteral("-1"));
            QVERIFY(!d.confirm(QStringLiteral("Sure?"), QStringLiteral("It erases.")));
            d.inform(QStringLiteral("Done"), QStringLiteral("all of it"));
        });
        setConsoleStream(nullptr);
        QCOMPARE(console.size(), 6);
        QCOMPARE(console.first(), "Declined (no one to ask): Name Six letters?");
        QCOMPARE(console.last(), "Done all of it");
    }

    void aMegabyteLineArrivesWholeInShortLines()
    {
        RecordingFace face;
        TapeEngine engine(face);
        // What QString::fromUtf8 makes of the garbage: replacement characters.
        const QString garbage = QString(1 << 20, QChar(0xFFFD)) + QStringLiteral("garbage end");
        engine.showMessage(true,
                           QStringLiteral("Mount Error: Please check that a formated tape was inserted"));
        engine.showMessage(false, garbage);
        engine.showMessage(false, QStringLiteral("after"));
        QVERIFY(QTest::qWaitFor([&] { return face.pane.endsWith(QStringLiteral("\nafter")); }));

        const QStringList lines = face.pane.split(QLatin1Char('\n'));
        for (const QString &line : lines)
            QVERIFY(line.size() <= kLongestPaneLine);
        QCOMPARE(lines.at(1), QStringLiteral("Mount Error: Please check that a formated tape was inserted"));
        QCOMPARE(lines.constLast(), QStringLiteral("after"));
        const QString rest = lines.mid(2, lines.size() - 3).join(QString());
        QCOMPARE(rest, garbage);
    }

    void shortLinesAndPairsStayAsTheyAre()
    {
        const QString ordinary =
            QStringLiteral("Exit with code: 0\n") + QString(kLongestPaneLine, QLatin1Char('x'));
        QCOMPARE(withLongLinesCut(ordinary), ordinary);

        // A pair that would straddle the cut moves to the next line whole.
        const QString smile = QString::fromUtf8("\xF0\x9F\x98\x80");
        const QString text = QString(kLongestPaneLine - 1, QLatin1Char('a')) + smile + QStringLiteral("b");
        const QStringList cut = withLongLinesCut(text).split(QLatin1Char('\n'));
        QCOMPARE(cut.size(), 2);
        QCOMPARE(cut.at(0), QString(kLongestPaneLine - 1, QLatin1Char('a')));
        QCOMPARE(cut.at(1), smile + QStringLiteral("b"));
    }
};

TAPEDESK_ENGINE_TEST_MAIN(RulesTest)

#include "tst_engine_rules.moc"

// ctest-timeout: 40
// What the operator learns of a mounted tape, read from the attributes LTFS
// publishes, and why no drive is listed, against fake device folders.

#include "operations/MissingDrive.h"
#include "operations/VolumeDetails.h"
#include "support/TestEnv.h"

#include <QFile>
#include <QTest>
#include <ctime>
#include <sys/stat.h>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

void writeFile(const QString &path, const QByteArray &content, mode_t mode = 0600)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly) && f.write(content) == content.size());
    f.close();
    QCOMPARE(::chmod(path.toLocal8Bit().constData(), mode), 0);
}

} // namespace

class EngineVolumeTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The format time is shown in local time.
    void initTestCase()
    {
        qputenv("TZ", "UTC");
        ::tzset();
    }
    // Each column "|"-separated: the attributes as name=value, and the rows shown.
    void attributes_data()
    {
        QTest::addColumn<QString>("attributes");
        QTest::addColumn<qint64>("statvfsTotal"); // -1: statvfs failed
        QTest::addColumn<QString>("expected");
        QTest::newRow("a real run on a 3 GB virtual cartridge")
            << "volumeName=QA9999|mamBarcode=QA9999                          |indexGeneration=1|"
               "volumeFormatTime=2026-11-23T11:39:48.393093672Z|mediaDataPartitionTotalCapacity=2842|"
               "mediaDataPartitionAvailableSpace=2839|mediaLoads=-1|mediaStorageAlert=0x0000000000000000"
            << qint64(-1)
            << "Barcode=QA9999|Formatted=2026-11-23 11:39:48 UTC|Index generation=1|Capacity=3.0 GB|"
               "Used=0.0 GB|Free=3.0 GB|Media loads=not reported|Alerts=none (0x0000000000000000)";
        QTest::newRow("absent and -1 are not reported, even with statvfs failing")
            << "indexGeneration=-1|mediaStorageAlert=-1|volumeName=" << qint64(-1)
            << "Volume name=not reported|UUID=not reported|Formatted=not reported|Index generation=not "
               "reported|Capacity=not reported|Used=not reported|Alerts=not reported";
        QTest::newRow("garbage is not reported; the size falls back on statvfs")
            << "volumeFormatTime=yesterday|mediaLoads=12abc|mediaStorageAlert=banana|"
               "mediaDataPartitionTotalCapacity=99999999999999999999"
            << qint64(2'500'000'000'000)
            << "Formatted=not reported|Media loads=not reported|Alerts=not reported|Capacity=2.5 TB|"
               "Used=500.0 GB|Free=2.0 TB";
        QTest::newRow("cleaning and media flags decoded, raw value kept")
            << "mediaLoads=37|mediaStorageAlert=0x0000000000080008|mediaDataPartitionTotalCapacity=11444224|"
               "mediaDataPartitionAvailableSpace=0"
            << qint64(-1)
            << "Media loads=37|Capacity=12.0 TB|Free=0.0 GB|Alerts=media error: the tape may be damaged, "
               "copy "
               "its data off; cleaning required now (0x0000000000080008)";
    }

    void attributes()
    {
        QFETCH(QString, attributes);
        QFETCH(qint64, statvfsTotal);
        QFETCH(QString, expected);
        VolumeAttributes read;
        for (const QString &a : attributes.split('|'))
            read.insert(a.section('=', 0, 0), a.section('=', 1).toUtf8());
        std::optional<FileSystemSize> size;
        if (statvfsTotal >= 0)
            size = FileSystemSize{statvfsTotal, statvfsTotal / 5 * 4};
        QStringList rows; // "Label=value"
        for (const auto &[label, value] : volumeDetailRows(volumeDetailsFrom(read, size)))
            rows << label + QLatin1Char('=') + value;
        for (const QString &row : expected.split('|'))
            QVERIFY2(rows.contains(row), qPrintable(row + QStringLiteral("\n in ") + rows.join('\n')));
    }

    void missingDrive_data()
    {
        QTest::addColumn<QStringList>("nodes"); // in the device folder; a leading "!" makes it 0660
        QTest::addColumn<QByteArray>("modules");
        QTest::addColumn<QList<uint>>("configuredGroups"); // the group database's for the user
        QTest::addColumn<QStringList>("expected");         // each in one line, "$DEV" the device folder
        const QByteArray both("st 94208 0 - Live 0x0\nsg 40960 0 - Live 0x0\n");
        const QString notInGroup(
            "Problem: $DEV/%1 is not readable and writable by operator (group root). operator "
            "is not in group root. What to do: sudo usermod -aG root operator, then log out");
        const QString modprobe("Problem: Kernel module %1 is not loaded. What to do: sudo modprobe %1 (");
        QTest::newRow("no nodes, no modules")
            << QStringList() << QByteArray("ext4 1 0 - Live 0x0\n") << QList<uint>{4242}
            << QStringList{
                   "Problem: No tape device node in $DEV (IBMtape*, nst*, sg*). What to do: Check the",
                   modprobe.arg("st"), modprobe.arg("sg")};
        QTest::newRow("nodes without permission, the user not in the group")
            << QStringList{"!nst0", "!sg1"} << both << QList<uint>{4242}
            << QStringList{notInGroup.arg("nst0"), notInGroup.arg("sg1")};
        QTest::newRow("added to the group after the session began")
            << QStringList{"!nst0"} << both << QList<uint>{0}
            << QStringList{
                   "Problem: $DEV/nst0 is not readable and writable by operator (group root). operator was "
                   "added to group root after this session began. What to do: Log out"};
        QTest::newRow("all fine") << QStringList{"nst0", "sg0", "IBMtape0"}
                                  << both + "lin_tape 1 0 - Live 0x0\n"
                                  << QList<uint>{4242}
                                  << QStringList{"OK: Nothing on this host stands in the way"};
    }

    void missingDrive()
    {
        QFETCH(QStringList, nodes);
        QFETCH(QByteArray, modules);
        QFETCH(QList<uint>, configuredGroups);
        QFETCH(QStringList, expected);
        static int row = 0;
        const HostRoots roots{makeDir(QStringLiteral("dev%1").arg(row)),
                              makeDir(QStringLiteral("proc%1").arg(row))};
        ++row;
        for (QString node : nodes) {
            writeFile(roots.devices + '/' + QString(node).remove('!'), {},
                      node.startsWith('!') ? 0660 : 0666);
        }
        writeFile(roots.proc + QStringLiteral("/modules"), modules);
        // An ordinary user, whatever runs the test: the nodes belong to it
        // (owner and group) only when it is root.
        const Identity who{4242, QStringLiteral("operator"), {4242}, configuredGroups};
        const QString itdt = writeScript(makeDir(QStringLiteral("bin")), QStringLiteral("itdt"), {});
        QStringList lines;
        for (const Finding &f : missingDriveFindings(itdt, roots, who))
            lines << f.line();
        QCOMPARE(lines.first(), QStringLiteral("OK: itdt is set and executable: %1.").arg(itdt));
        for (QString line : expected) {
            line.replace(QStringLiteral("$DEV"), roots.devices);
            QVERIFY2(!lines.filter(line).isEmpty(),
                     qPrintable(line + QStringLiteral("\n in:\n") + lines.join('\n')));
        }
        // Each problem is one the row set up, nothing more.
        const auto problems = [](const QStringList &l) {
            return l.filter(QRegularExpression("^Problem: ")).size();
        };
        QCOMPARE(problems(lines), problems(expected));
    }
};

TAPEDESK_ENGINE_TEST_MAIN(EngineVolumeTest)

#include "tst_engine_volume.moc"

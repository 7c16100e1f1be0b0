// ctest-timeout: 120
// The fleet playbook (docs/fleet/tapedesk.yml) run by ansible-playbook against
// the simulator: it sets the paths, finds the drive, mounts and unmounts it.

#include "support/TestMain.h"
#include "support/WorkflowFixture.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>

using namespace tapedesk::test;

class FleetTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void playbookMountsAndUnmountsTheDrive()
    {
        const QString ansible = QStandardPaths::findExecutable(QStringLiteral("ansible-playbook"));
        if (ansible.isEmpty())
            QSKIP("ansible-playbook is not on PATH (Debian package ansible-core)");

        // A library of one drive named 3: no other test mounts /tmp/ltfs/mnt/3.
        const QString sim = QDir(makeDir(QStringLiteral("tapesim"))).filePath(QStringLiteral("state.ini"));
        QFile state(sim);
        QVERIFY(state.open(QIODevice::WriteOnly));
        state.write("[drive]\nid = tape3\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 1013000303\n"
                    "address = H1-B0-T3-L0\nloaded = no\ncartridge = yes\nbarcode = TD0303\n"
                    "formatted = yes\nvolume = FLEET\n");
        state.close();
        qputenv("TAPESIM_LOG", QFile::encodeName(simLogPath()));
        // The CLI finds mount and umount as an operator's shells would: on PATH.
        installLoginProfile({simBinDir()});
        qputenv("PATH", QFile::encodeName(simBinDir()) + ':' + qgetenv("PATH"));

        const QString bin = simBinDir() + QLatin1Char('/');
        const QJsonObject vars{{QStringLiteral("tapedesk_cli"), QStringLiteral(TAPEDESK_BIN "/tapedesk-cli")},
                               {QStringLiteral("tapedesk_itdt"), bin + QStringLiteral("itdt")},
                               {QStringLiteral("tapedesk_ltfs"), bin + QStringLiteral("ltfs")},
                               {QStringLiteral("tapedesk_mkltfs"), bin + QStringLiteral("mkltfs")},
                               {QStringLiteral("tapedesk_output"), makeDir(QStringLiteral("output"))},
                               {QStringLiteral("tapedesk_drive"), QStringLiteral("tape3")}};
        QProcess playbook;
        playbook.setProcessChannelMode(QProcess::MergedChannels);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8")); // ansible refuses other encodings
        playbook.setProcessEnvironment(env);
        playbook.start(ansible, {QStringLiteral("-i"), QStringLiteral("localhost,"), QStringLiteral("-c"),
                                 QStringLiteral("local"),
                                 QStringLiteral(TAPEDESK_SOURCE_DIR "/docs/fleet/tapedesk.yml"),
                                 QStringLiteral("-e"), QString::fromUtf8(QJsonDocument(vars).toJson())});
        QVERIFY(playbook.waitForFinished(100000));
        const QByteArray output = playbook.readAll();
        QVERIFY2(playbook.exitStatus() == QProcess::NormalExit && playbook.exitCode() == 0,
                 output.constData());

        // It really mounted the tape, and left it unmounted.
        const QList<QStringList> ltfs = simRunsOf(QStringLiteral("ltfs"));
        QCOMPARE(ltfs.size(), 1);
        QCOMPARE(ltfs.first().value(0), QStringLiteral("/tmp/ltfs/mnt/3"));
        QCOMPARE(simRunsOf(QStringLiteral("umount")).size(), 1);
        QProcess table;
        table.start(bin + QStringLiteral("mount"), {});
        QVERIFY(table.waitForFinished(10000));
        QVERIFY(!table.readAllStandardOutput().contains(" on /tmp/ltfs/mnt/3 type"));
    }
};

TAPEDESK_TEST_MAIN(FleetTest)
#include "tst_fleet.moc"

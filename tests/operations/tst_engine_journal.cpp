// ctest-timeout: 60
// The journal: a whole operation as the engine ran it against the simulator,
// what a tapedesk-cli killed in the middle of a tool run leaves behind, and
// the oldest days going once the folder outgrows its bound.

#include "operations/Journal.h"
#include "support/EngineHarness.h"
#include "support/TestEnv.h"

#include <QDate>
#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <csignal>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

QString todaysJournal()
{
    return Journal::folder() + QLatin1Char('/') + QDate::currentDate().toString(Qt::ISODate) +
           QStringLiteral(".log");
}

} // namespace

class EngineJournalTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QDir(Journal::folder()).removeRecursively();
        QVERIFY(resetSimulatorTo(
            "[drive]\nid = tape44\nmodel = ULTRIUM-HH9\nserial = 1013000144\ncartridge = yes\n"
            "barcode = TD0044\nformatted = yes\n"));
        useSimulator();
    }
    void cleanup() { qunsetenv("TAPESIM_FAIL"); }

    void wholeOperation_data()
    {
        QTest::addColumn<QByteArray>("fault");
        QTest::addColumn<QString>("record"); // a pattern the operation's record matches whole
        const QString start = "==== [-0-9]{10} [:0-9]{8} start: Retrieving the log of tape44\n"
                              "pane: Gathering Log Info - This May Take Several Minutes\n"
                              "tool: \\S+/itdt -R \\S+/output -LP \\S+/output -f tape44 dump\n";
        QTest::newRow("save declined")
            << QByteArray()
            << start + "(out: .*\n)+exit: status 0, code 0\n"
                       "(pane: .*\n)+==== .* end: Retrieving the log of "
                       "tape44 - Cancelled: User canceled retrieve log after 00:0\\d\n";
        QTest::newRow("failed")
            << QByteArray("tape44:dump=3")
            << start +
                   "(out: .*\n)+out:  Exit with code: 3\nexit: status 3, code 3\n"
                   "(pane: .*\n)*pane: No drive dump .*\n==== .* - Failed: No drive dump .* after 00:0\\d\n";
    }

    // The record Save Transcript keeps is the journal's last part, word for word.
    void wholeOperation()
    {
        QFETCH(QByteArray, fault);
        QFETCH(QString, record);
        RecordingFace face;
        TapeEngine engine(face);
        QVERIFY(scanAndSelect(engine, face, QStringLiteral("tape44")));
        qputenv("TAPESIM_FAIL", fault);
        QDir(makeDir(QStringLiteral("output"))).removeRecursively();
        makeDir(QStringLiteral("output"));
        QStringList asked;
        answerWith({}, &asked);
        QVERIFY(performToEnd(engine, Action::RetrieveLog));
        const QString saved = QString::fromUtf8(engine.journal().record());
        QVERIFY2(QRegularExpression(QRegularExpression::anchoredPattern(record)).match(saved).hasMatch(),
                 qPrintable(saved));
        const QString day = QString::fromUtf8(readFile(todaysJournal()));
        QVERIFY(day.startsWith(QStringLiteral("==== ")) && day.contains(QStringLiteral("start: Scanning")));
        QVERIFY(day.endsWith(saved));
    }

    // SIGKILL while the dump still runs: the lines written so far are whole.
    void survivesKill()
    {
        const QString flag = TestHome::path() + QStringLiteral("/dump-may-end");
        const QString itdt =
            writeScript(makeDir(QStringLiteral("slow")), QStringLiteral("itdt"),
                        QStringLiteral("case \"$*\" in *dump*) ;; *) exec '%1/itdt' \"$@\";; esac\n"
                                       "echo 'dump begun'\necho 'still reading' >&2\n"
                                       "while [ ! -e '%2' ]; do sleep 0.05; done\n")
                            .arg(simBinDir(), flag));
        setPaths(itdt, simBinDir() + QStringLiteral("/ltfs"), simBinDir() + QStringLiteral("/mkltfs"),
                 makeDir(QStringLiteral("output")));
        QProcess cli;
        cli.start(QStringLiteral(TAPEDESK_BIN "/tapedesk-cli"),
                  {QStringLiteral("dump"), QStringLiteral("tape44"), QStringLiteral("--to"),
                   makeDir(QStringLiteral("dumps")), QStringLiteral("--yes")});
        QVERIFY(cli.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(readFile(todaysJournal()).contains("err:  still reading\n"), 15000);
        ::kill(static_cast<pid_t>(cli.processId()), SIGKILL);
        QVERIFY(cli.waitForFinished());
        QFile(flag).open(QIODevice::WriteOnly);
        const QString day = QString::fromUtf8(readFile(todaysJournal()));
        const QString pattern =
            "==== .* start: Retrieving the log of tape44\npane: Gathering Log Info - This May Take Several "
            "Minutes\ntool: \\S+/itdt .*-f tape44 dump\nout:  dump begun\nerr:  still reading\n";
        QVERIFY2(QRegularExpression(pattern + "$").match(day).hasMatch(), qPrintable(day));
    }

    // Sparse day files: the sizes count, the disk stays empty.
    void oldestDaysGo()
    {
        QDir().mkpath(Journal::folder());
        const qint64 mb = 1024 * 1024;
        const QList<std::pair<QString, qint64>> files{{QStringLiteral("2020-01-01.log"), 60 * mb},
                                                      {QStringLiteral("2020-01-02.log"), 30 * mb},
                                                      {QStringLiteral("2020-01-03.log"), 30 * mb},
                                                      {QStringLiteral("notes.txt"), 200 * mb}};
        for (const auto &[name, size] : files) {
            QFile f(Journal::folder() + QLatin1Char('/') + name);
            QVERIFY(f.open(QIODevice::WriteOnly) && f.resize(size));
        }
        RecordingFace face;
        TapeEngine engine(face);
        QVERIFY(performToEnd(engine, Action::Scan));
        QCOMPARE(QDir(Journal::folder()).entryList(QDir::Files, QDir::Name),
                 (QStringList{"2020-01-02.log", "2020-01-03.log", QFileInfo(todaysJournal()).fileName(),
                              "notes.txt"}));
    }
};

TAPEDESK_ENGINE_TEST_MAIN(EngineJournalTest)

#include "tst_engine_journal.moc"

// ctest-timeout: 600
// Every workflow against the simulator (or a tiny fake tool), through the
// engine and a recording face: each case of tests/data/workflows.scn sets up
// the library, the faults and the operator's answers, performs actions and
// checks the pane, the questions, the statuses, the tools that ran and the
// records left behind. The format is described at the top of that file.

#include "drives/DriveStateStore.h"
#include "operations/MountCheck.h"
#include "support/EngineHarness.h"
#include "support/ScenarioFile.h"
#include "support/TestEnv.h"
#include "tools/Console.h"
#include "tools/ProcessRunner.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QTest>
#include <QTimer>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

QString logPath()
{
    return TestHome::path() + QStringLiteral("/sim.log");
}

// Every simulated run since the log was emptied: the tool, then its arguments.
QList<QStringList> runs()
{
    return simInvocations(logPath());
}

// "tool" or "tool:word" (the run's arguments hold `word` or one starting with it).
bool runMatches(const QStringList &argv, const QString &token)
{
    const QString tool = token.section(QLatin1Char(':'), 0, 0);
    const QString word = token.section(QLatin1Char(':'), 1);
    if (argv.constFirst() != tool)
        return false;
    return word.isEmpty() || std::any_of(argv.cbegin() + 1, argv.cend(),
                                         [&](const QString &a) { return a == word || a.startsWith(word); });
}

QMap<QString, QVariant> storeContents()
{
    QSettings s(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("TapeDesk"),
                QStringLiteral("TapeDesk"));
    s.sync();
    QMap<QString, QVariant> all;
    for (const QString &k : s.allKeys())
        all.insert(k, s.value(k));
    return all;
}

const QMap<QString, Action> kActions{
    {QStringLiteral("scan"), Action::Scan},
    {QStringLiteral("mount"), Action::Mount},
    {QStringLiteral("format"), Action::Format},
    {QStringLiteral("test"), Action::Test},
    {QStringLiteral("validate"), Action::HostValidation},
    {QStringLiteral("dump"), Action::RetrieveLog},
    {QStringLiteral("upgrade"), Action::Upgrade},
    {QStringLiteral("clear"), Action::ClearMountedDrives},
    {QStringLiteral("recover"), Action::Recover},
};

const QStringList kStatusNames{QStringLiteral("complete"), QStringLiteral("fail"),
                               QStringLiteral("inprocess"), QStringLiteral("ready")};

QString expand(QString s)
{
    return s.replace(QStringLiteral("$HOME"), TestHome::path())
        .replace(QStringLiteral("\\n"), QStringLiteral("\n"));
}

// Kills the running tools, once, after the simulator has started a run
// matching `token` and that run has shown its first output (a hung tool
// prints its first line, then waits) or two seconds have passed: what
// quitting does to a tool that hangs, at a moment that does not depend on the
// machine's speed. With an engine to stop, the operator's Stop comes first,
// as soon as the run has started; once the face has shown its answer, the
// action `next` is asked for if any, and only a refused stop is followed by
// the kill.
class HangKiller
{
public:
    HangKiller(const QString &token, const RecordingFace &face, TapeEngine *stopper, QString *stopped,
               std::optional<Action> next)
    {
        const qsizetype before = face.toolBytes.size();
        QObject::connect(&m_timer, &QTimer::timeout, [=, this, &face] {
            const QList<QStringList> all = runs();
            if (!m_seen.isValid() && std::any_of(all.cbegin(), all.cend(),
                                                 [&](const QStringList &r) { return runMatches(r, token); }))
                m_seen.start();
            if (!m_seen.isValid())
                return;
            if (stopper && stopped->isEmpty()) {
                m_shownAtStop = face.shown.size();
                const TapeEngine::StopResult r = stopper->stop();
                *stopped = r == TapeEngine::StopResult::Refused   ? QStringLiteral("refused")
                           : r == TapeEngine::StopResult::Stopped ? QStringLiteral("stopped")
                                                                  : QStringLiteral("nothing to stop");
                return;
            }
            // The next action comes once the stop's end is shown, while the
            // stopped tool may still be on its way out.
            if (stopper && face.shown.size() == m_shownAtStop)
                return;
            if (next && !m_nextAsked) {
                m_nextAsked = true;
                stopper->perform(*next);
            }
            if (*stopped != QStringLiteral("stopped")) {
                if (children::liveCount() == 0 ||
                    (face.toolBytes.size() == before && m_seen.elapsed() < 2000))
                    return;
                children::killAll();
            }
            m_timer.stop();
        });
        m_timer.start(20);
    }

private:
    QTimer m_timer;
    QElapsedTimer m_seen;
    qsizetype m_shownAtStop = 0;
    bool m_nextAsked = false;
};

} // namespace

class WorkflowTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup()
    {
        qunsetenv("TAPESIM_FAIL");
        qunsetenv("TAPESIM_UNMOUNT_DELAY");
        QVERIFY(QTest::qWaitFor([] { return children::liveCount() == 0; }, 15000));
        resetSimulator();
    }

    void workflow_data()
    {
        QTest::addColumn<QStringList>("lines");
        const QList<Scenario> all = loadScenarios(
            QString::fromUtf8(readFile(QStringLiteral(TAPEDESK_SOURCE_DIR "/tests/data/workflows.scn"))));
        QVERIFY(!all.isEmpty());
        for (const Scenario &s : all)
            QTest::newRow(qPrintable(s.name)) << s.lines;
    }

    void workflow()
    {
        QFETCH(QStringList, lines);
        QString failures;
        runScenario(lines, failures);
        QVERIFY2(failures.isEmpty(), qPrintable(failures));
    }

private:
    static void runScenario(const QStringList &lines, QString &failures)
    {
        resetSimulator();
        QFile::remove(logPath());
        for (const char *folder : {"output", "saved", "fw", "fake"})
            QDir(TestHome::path() + QLatin1Char('/') + QLatin1String(folder)).removeRecursively();
        // the mount points of this test's own drives (tape51, tape91)
        for (const char *point : {"/tmp/ltfs/mnt/51", "/tmp/ltfs/mnt/91"}) {
            QDir(QLatin1String(point)).removeRecursively();
            QFile::remove(QLatin1String(point));
        }
        qputenv("TAPESIM_LOG", QFile::encodeName(logPath()));
        SettingsStore::remove(DriveStateStore::kMountedDrivesKey);
        mountedDrives.set({});
        driveList.clear();
        useSimulator();

        RecordingFace face;
        QStringList asked;
        answerWith({}, &asked);
        TapeEngine engine(face);
        engine.setLiveOutput(true); // what a hung tool printed tells the killer it is under way
        std::unique_ptr<QTimer> healer;
        QMap<QString, QVariant> storeBefore;
        QString stopped; // what the last Stop got: "stopped" or "refused"
        // Where a case failed: its line, what was expected and what was found.
        const auto fail = [&](const QString &line, const QString &actual) {
            failures += QStringLiteral("%1\n    found: %2\n").arg(line, actual);
        };
        const auto forget = [&] {
            face.pane.clear();
            face.events.clear();
            face.status.clear();
            QFile::remove(logPath());
        };

        // The checks that read one thing back: what was found, in the form the
        // case's line expects it.
        const auto yesNo = [](bool b) { return b ? QStringLiteral("yes") : QStringLiteral("no"); };
        const auto runText = [](const QList<QStringList> &all) {
            QStringList got;
            for (const QStringList &r : all)
                got << r.join(QLatin1Char(' '));
            return got.join(QStringLiteral(" | "));
        };
        const QHash<QString, std::function<QString(const QString &)>> checks{
            {QStringLiteral("asked"), [&](const QString &) { return asked.join(QLatin1Char(';')); }},
            {QStringLiteral("status"),
             [&](const QString &want) {
                 const QString name = want.section(QLatin1Char(' '), 0, 0);
                 if (!kActions.contains(name))
                     return QStringLiteral("no such action: ") + name;
                 const Action a = kActions.value(name);
                 return name + QLatin1Char(' ') +
                        (face.status.contains(a) ? kStatusNames.value(face.status.value(a))
                                                 : QStringLiteral("-"));
             }},
            {QStringLiteral("caption"),
             [&](const QString &) {
                 const QStringList captions =
                     face.events.filter(QRegularExpression(QStringLiteral("^caption ")));
                 return captions.isEmpty() ? QStringLiteral("-") : captions.last().mid(8);
             }},
            {QStringLiteral("runs"),
             [&](const QString &want) {
                 const QList<QStringList> all = runs();
                 const QStringList tokens = want.isEmpty() ? QStringList() : want.split(QLatin1Char(' '));
                 bool same = all.size() == tokens.size();
                 for (int r = 0; same && r < all.size(); ++r)
                     same = runMatches(all[r], tokens[r]);
                 return same ? want : runText(all);
             }},
            {QStringLiteral("last-run"), // nothing ran after it
             [&](const QString &want) {
                 const QList<QStringList> all = runs();
                 return !all.isEmpty() && runMatches(all.constLast(), want) ? want : runText(all);
             }},
            {QStringLiteral("ran"),
             [&](const QString &want) {
                 return runs().contains(want.split(QLatin1Char(' '))) ? want : runText(runs());
             }},
            {QStringLiteral("stop-was"), [&](const QString &) { return stopped; }},
            {QStringLiteral("record"), // the serials recorded as mounted, "-" for none
             [&](const QString &) {
                 const QStringList serials =
                     SettingsStore::textList(DriveStateStore::kMountedDrivesKey).value_or(QStringList());
                 return serials.isEmpty() ? QStringLiteral("-") : serials.join(QLatin1Char(' '));
             }},
            {QStringLiteral("key"),
             [&](const QString &want) {
                 const QString key = want.section(QLatin1Char('='), 0, 0);
                 return key + QLatin1Char('=') + SettingsStore::text(key).value_or(QStringLiteral("-"));
             }},
            {QStringLiteral("store-unchanged"),
             [&](const QString &) {
                 return storeContents() == storeBefore ? QString() : QStringLiteral("changed");
             }},
            {QStringLiteral("mounted"),
             [&](const QString &) {
                 const DrivePtr d = engine.selectedDrive();
                 const bool listed = d && mountAnswerFor(readMountTable(), d->name()) == MountAnswer::Yes;
                 return yesNo(d && d->mounted()) + QStringLiteral(" table ") + yesNo(listed);
             }},
            {QStringLiteral("verdict"), // the last operation's: "verdict failed[: REASON]"
             [&](const QString &want) {
                 const std::optional<Verdict> &v = engine.lastOperation().verdict;
                 if (!v)
                     return QStringLiteral("none");
                 const QString outcome = outcomeName(v->outcome).toLower();
                 return want.contains(QLatin1Char(':')) ? outcome + QStringLiteral(": ") + v->reason
                                                        : outcome;
             }},
            {QStringLiteral("file-is"),
             [&](const QString &want) {
                 const QString path = want.section(QLatin1Char(' '), 0, 0);
                 return path + QLatin1Char(' ') + QString::fromUtf8(readFile(path));
             }},
            {QStringLiteral("listed"), [&](const QString &) { return QString::number(face.listed.size()); }},
            {QStringLiteral("tool-output-has"), // what reached the face as the tools printed it
             [&](const QString &want) { return face.toolBytes.contains(want.toUtf8()) ? want : QString(); }},
        };

        for (int i = 0; i < lines.size(); ++i) {
            const QString &line = lines[i];
            const QString word = line.section(QLatin1Char(' '), 0, 0);
            const QString rest = expand(line.section(QLatin1Char(' '), 1));
            // Blocks: "state" and "fake TOOL" up to "end"; "pane" then "| " lines.
            if (word == QStringLiteral("state")) {
                QByteArray stateIni;
                while (++i < lines.size() && lines[i] != QStringLiteral("end"))
                    stateIni += lines[i].toUtf8() + '\n';
                QVERIFY(resetSimulatorTo(stateIni));
            } else if (word == QStringLiteral("fake")) {
                QString body;
                while (++i < lines.size() && lines[i] != QStringLiteral("end"))
                    body += expand(lines[i]) + QLatin1Char('\n');
                const QString path = writeScript(makeDir(QStringLiteral("fake")), rest, body);
                OptionalPath &target = rest == QStringLiteral("itdt")   ? ITDT_PATH
                                       : rest == QStringLiteral("ltfs") ? LTFS_PATH
                                                                        : MKLTFS_PATH;
                target.set(path);
            } else if (word == QStringLiteral("env")) {
                qputenv(qPrintable(rest.section(QLatin1Char('='), 0, 0)),
                        rest.section(QLatin1Char('='), 1).toUtf8());
            } else if (word == QStringLiteral("holders")) {
                engine.setHolderReportInterval(rest.toInt());
            } else if (word == QStringLiteral("heal-when")) {
                // drops the fault once the pane shows `rest`
                healer = std::make_unique<QTimer>();
                QObject::connect(healer.get(), &QTimer::timeout, [&face, rest] {
                    if (face.pane.contains(rest))
                        qunsetenv("TAPESIM_FAIL");
                });
                healer->start(20);
            } else if (word == QStringLiteral("sh")) {
                // a command run with the simulator first on PATH
                if (QProcess::execute(QStringLiteral("/bin/sh"),
                                      {QStringLiteral("-c"),
                                       QStringLiteral("PATH=%1:$PATH; %2").arg(simBinDir(), rest)}) != 0)
                    fail(line, QStringLiteral("failed"));
            } else if (word == QStringLiteral("fault")) {
                qputenv("TAPESIM_FAIL", rest.toUtf8());
            } else if (word == QStringLiteral("path")) {
                // "path itdt" unsets it, "path itdt VALUE" sets it
                const QString key = rest.section(QLatin1Char(' '), 0, 0);
                const QString value = rest.section(QLatin1Char(' '), 1);
                OptionalPath &p = key == QStringLiteral("itdt")     ? ITDT_PATH
                                  : key == QStringLiteral("ltfs")   ? LTFS_PATH
                                  : key == QStringLiteral("mkltfs") ? MKLTFS_PATH
                                                                    : OUTPUT_FOLDER;
                p.set(value.isEmpty() ? std::nullopt : std::optional<QString>(value));
            } else if (word == QStringLiteral("file")) {
                // "file FOLDER/" makes the folder only
                QFile f(rest.section(QLatin1Char(' '), 0, 0));
                QDir().mkpath(QFileInfo(f).absolutePath());
                if (!rest.endsWith(QLatin1Char('/')) && f.open(QIODevice::WriteOnly))
                    f.write(rest.section(QLatin1Char(' '), 1).toUtf8());
            } else if (word == QStringLiteral("drive")) {
                if (!scanAndSelect(engine, face, rest))
                    fail(line, QStringLiteral("not listed"));
                forget();
            } else if (word == QStringLiteral("select")) {
                // "select ID NAME [mounted]": a drive chosen without a scan
                DriveRecord r;
                r.id = rest.section(QLatin1Char(' '), 0, 0);
                r.name = rest.section(QLatin1Char(' '), 1, 1);
                r.name.replace(QStringLiteral("<none>"), QString());
                r.serialNumber = QStringLiteral("1013000777");
                r.mounted = rest.endsWith(QStringLiteral(" mounted"));
                engine.selectDrive(makeDrive(r));
                QCoreApplication::processEvents();
                forget();
            } else if (word == QStringLiteral("answers")) {
                answerWith(rest.split(QLatin1Char(';')), &asked);
            } else if (word == QStringLiteral("clear")) {
                forget();
                asked.clear();
            } else if (word == QStringLiteral("do")) {
                if (storeBefore.isEmpty())
                    storeBefore = storeContents();
                // "TOOL:WORD" kills at that run; "stop:TOOL:WORD[+ACTION]" stops
                // there first, then asks for ACTION
                QString hangAt = rest.section(QLatin1Char(' '), 1).section(QLatin1Char('+'), 0, 0);
                const QString next = rest.section(QLatin1Char(' '), 1).section(QLatin1Char('+'), 1);
                const bool stopFirst = hangAt.startsWith(QStringLiteral("stop:"));
                hangAt.remove(QRegularExpression(QStringLiteral("^stop:")));
                stopped.clear();
                std::unique_ptr<HangKiller> killer;
                if (!hangAt.isEmpty())
                    killer = std::make_unique<HangKiller>(
                        hangAt, face, stopFirst ? &engine : nullptr, &stopped,
                        next.isEmpty() ? std::nullopt : std::optional<Action>(kActions.value(next)));
                // "a+b": b is asked for while a runs
                const QStringList asks = rest.section(QLatin1Char(' '), 0, 0).split(QLatin1Char('+'));
                // A misspelt action would otherwise run as a scan.
                if (!std::all_of(asks.cbegin(), asks.cend(),
                                 [](const QString &a) { return kActions.contains(a); }) ||
                    (!next.isEmpty() && !kActions.contains(next))) {
                    fail(line, QStringLiteral("no such action"));
                    continue;
                }
                for (int k = 1; k < asks.size(); ++k) {
                    if (k == 1) {
                        // The gate closes before perform() returns: nothing
                        // of the first action has reached the GUI thread yet.
                        engine.perform(kActions.value(asks.first()));
                        if (!engine.isBusy())
                            fail(line, QStringLiteral("not busy once perform() returned"));
                    }
                    engine.perform(kActions.value(asks[k]));
                }
                if (!(asks.size() == 1 ? performToEnd(engine, kActions.value(asks.first()), 60000)
                                       : settle(engine, 60000)))
                    fail(line, QStringLiteral("still running after a minute"));
            } else if (word == QStringLiteral("pane")) {
                QStringList expected;
                while (i + 1 < lines.size() && lines[i + 1].startsWith(QLatin1Char('|')))
                    expected << expand(lines[++i].mid(2));
                const QString want =
                    expected.isEmpty() ? QString() : QLatin1Char('\n') + expected.join(QLatin1Char('\n'));
                if (face.pane != want)
                    fail(QStringLiteral("pane\n") + want, face.pane);
            } else if (word == QStringLiteral("pane-has") || word == QStringLiteral("pane-lacks")) {
                if (face.pane.contains(rest) != (word == QStringLiteral("pane-has")))
                    fail(line, face.pane);
            } else if (word == QStringLiteral("shown")) {
                // shown at some time, though cleared since
                if (!face.shown.contains(rest))
                    fail(line, face.shown);
            } else if (word == QStringLiteral("pane-ends")) {
                if (!face.pane.endsWith(rest))
                    fail(line, face.pane);
            } else if (const auto check = checks.find(word); check != checks.end()) {
                if (const QString got = (*check)(rest); got != rest)
                    fail(line, got);
            } else {
                fail(line, QStringLiteral("unknown step"));
            }
        }
    }
};

TAPEDESK_ENGINE_TEST_MAIN(WorkflowTest)

#include "tst_engine_workflows.moc"

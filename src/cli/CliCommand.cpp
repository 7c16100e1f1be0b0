// tapedesk-cli: the engine's workflows behind a command line. Each command
// runs the same action the window's button runs, with the same checks and
// lines; the questions are answered from the flags (CliAnswers), and the
// exit status is the operation's verdict.

#include "cli/CliCommand.h"

#include "cli/CliAnswers.h"
#include "cli/CliFace.h"
#include "cli/CliUsage.h"
#include "drives/Drive.h"
#include "operations/TapeEngine.h"
#include "operations/VolumeName.h"
#include "tools/Console.h"
#include "tools/ProcessRunner.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>
#include <atomic>
#include <cstdio>

namespace tapedesk {

namespace {

std::atomic<int> g_signalStatus{0};

// How long a stopped operation may take to end: the tool's grace between
// SIGTERM and SIGKILL, and a margin.
constexpr qint64 kStoppedEndMs = 7000;

// Runs the event loop until the engine's operation is over. A signal stops it
// as the window's Stop does (not in the handler: the stop takes locks); where
// the stop is refused, the operation goes on to its own verdict.
void waitForOperation(TapeEngine &engine)
{
    QEventLoop loop;
    QObject::connect(&engine, &TapeEngine::operationEnded, &loop, &QEventLoop::quit);
    QTimer signalWatch;
    QElapsedTimer stopped;
    QObject::connect(&signalWatch, &QTimer::timeout, &loop, [&loop, &engine, &stopped] {
        if (g_signalStatus.load() == 0)
            return;
        if (!stopped.isValid()) {
            switch (engine.stop()) {
            case TapeEngine::StopResult::Stopped:
                stopped.start();
                return;
            case TapeEngine::StopResult::Refused:
                // A later signal asks again.
                g_signalStatus.store(0);
                return;
            case TapeEngine::StopResult::NothingToStop:
                break;
            }
        } else if (stopped.elapsed() < kStoppedEndMs) {
            return;
        }
        // Nothing to stop, or a tool that outlives even SIGKILL (stuck in the
        // kernel): the program does not wait for it.
        engine.abandon();
        loop.quit();
    });
    signalWatch.start(50);
    if (engine.isOperating() && g_signalStatus.load() == 0)
        loop.exec();
    // What an action that never began (a refusal) still has on its way.
    QCoreApplication::processEvents();
}

QJsonObject driveJson(const DrivePtr &drive)
{
    const DriveRecord r = drive->record();
    return {{QStringLiteral("id"), r.id},
            {QStringLiteral("name"), r.name},
            {QStringLiteral("serial"), r.serialNumber},
            {QStringLiteral("mounted"), r.mounted}};
}

class Run
{
public:
    Run(const Command &command, QCommandLineParser &parser, const CliFlags &flags)
        : m_command(command), m_parser(parser), m_answers(new CliAnswers(flags)), m_engine(m_face)
    {
        setDialogProvider(std::unique_ptr<DialogProvider>(m_answers));
        m_json = parser.isSet(QStringLiteral("json"));
        m_face.printing = !m_json;
        m_face.liveToStderr = parser.isSet(QStringLiteral("verbose"));
        m_engine.setLiveOutput(m_face.liveToStderr);
        // The window's console (tool banners, parser values) is for --verbose
        // only, and never on standard output, which carries the answer.
        setConsoleStream(m_face.liveToStderr ? stderr : nullptr);
        QObject::connect(&m_engine, &TapeEngine::toolRan, &m_engine,
                         [this](const QString &program, const QStringList &arguments, const QString &code) {
                             m_tools.append(QJsonObject{
                                 {QStringLiteral("program"), program},
                                 {QStringLiteral("arguments"), QJsonArray::fromStringList(arguments)},
                                 {QStringLiteral("code"), code}});
                         });
        QObject::connect(&m_engine, &TapeEngine::operationRefused, &m_engine,
                         [this](const QString &reason) { m_refusal = reason; });
        m_started = QDateTime::currentDateTime();
        m_clock.start();
    }

    int execute()
    {
        const int status = m_command.name == QStringLiteral("paths") ? paths() : operation();
        const int final = g_signalStatus.load() != 0 ? g_signalStatus.load() : status;
        if (m_json)
            printJson(final);
        return final;
    }

private:
    int refuse(const QString &why)
    {
        m_face.transcript << why;
        if (!m_json)
            out(why + QLatin1Char('\n'), stderr);
        return CliStatus::refused;
    }

    int usageError(const QString &why)
    {
        m_face.transcript << why;
        out(why + QLatin1Char('\n'), stderr);
        return CliStatus::usage;
    }

    int paths()
    {
        const std::pair<QString, QString> fields[] = {{QStringLiteral("itdt"), PreferenceKeys::itdt},
                                                      {QStringLiteral("ltfs"), PreferenceKeys::ltfs},
                                                      {QStringLiteral("mkltfs"), PreferenceKeys::mkltfs},
                                                      {QStringLiteral("output"), PreferenceKeys::output}};
        bool changed = false;
        for (const auto &[option, key] : fields) {
            if (!m_parser.isSet(option))
                continue;
            changed = true;
            if (!SettingsStore::setText(key, m_parser.value(option)))
                return fail(
                    QStringLiteral("Preferences could not be saved to %1.").arg(SettingsStore::fileName()));
        }
        const bool valid = preferencesValid();
        if (changed && OUTPUT_FOLDER.get())
            QDir().mkpath(*OUTPUT_FOLDER.get());
        for (const auto &[option, key] : fields)
            say(QStringLiteral("%1: %2").arg(option,
                                             SettingsStore::text(key).value_or(QStringLiteral("(not set)"))));
        if (valid)
            return CliStatus::ok;
        say(QStringLiteral("Looks like preferences settings could be wrong."));
        if (!noToolPathSet())
            say(preferencesProblem());
        return changed ? CliStatus::failed : CliStatus::refused;
    }

    int fail(const QString &why)
    {
        say(why);
        return CliStatus::failed;
    }

    void say(const QString &line)
    {
        m_face.transcript << line;
        if (!m_json)
            out(line + QLatin1Char('\n'));
    }

    int operation()
    {
        if (!preferencesValid()) {
            const QString problem = noToolPathSet()
                                        ? QStringLiteral("no tool path is set (tapedesk-cli paths --help)")
                                        : preferencesProblem();
            return refuse(QStringLiteral("Looks like preferences settings could be wrong: ") + problem);
        }
        if (m_command.action == Action::ClearMountedDrives || m_command.name == QStringLiteral("scan")) {
            m_engine.perform(m_command.action);
            waitForOperation(m_engine);
            if (m_command.name == QStringLiteral("scan")) {
                for (const DrivePtr &d : m_face.drives)
                    m_drives.append(driveJson(d));
            }
            return verdictStatus();
        }
        if (const int flagsStatus = checkFlagsFirst(); flagsStatus != CliStatus::ok)
            return flagsStatus;

        // The drive is found the way the operator finds it: by a scan.
        m_face.quiet = true;
        m_engine.perform(Action::Scan);
        waitForOperation(m_engine);
        m_face.quiet = false;
        if (g_signalStatus.load() != 0)
            return CliStatus::failed;
        const QString wanted = m_parser.positionalArguments().value(1);
        const QList<DrivePtr> drives = driveList.snapshot();
        QList<DrivePtr> matches;
        for (const DrivePtr &d : drives) {
            const DriveRecord r = d->record();
            if (r.id == wanted || r.name == wanted || r.serialNumber == wanted)
                matches << d;
        }
        if (matches.size() != 1) {
            QString why =
                QStringLiteral("%1 drive \"%2\". The drives are:")
                    .arg(matches.isEmpty() ? QStringLiteral("No") : QStringLiteral("More than one"), wanted);
            for (const DrivePtr &d : drives) {
                const DriveRecord r = d->record();
                why += QStringLiteral("\n  %1  name %2  serial %3%4")
                           .arg(r.id, r.name, r.serialNumber,
                                r.mounted ? QStringLiteral("  (mounted)") : QString());
            }
            return usageError(why);
        }
        m_drive = matches.constFirst();
        // The Mount action unmounts a mounted drive: each command asks for
        // the one it means.
        const bool mounted = m_drive->mounted();
        if (m_command.name == QStringLiteral("mount") && mounted)
            return refuse(m_drive->id() + QStringLiteral(" is already mounted; unmount it first."));
        if (m_command.name == QStringLiteral("unmount") && !mounted)
            return refuse(m_drive->id() + QStringLiteral(" is not mounted by TapeDesk."));
        if (m_command.name == QStringLiteral("recover") && mounted)
            return refuse(m_drive->id() + QStringLiteral(" is mounted; unmount it first."));

        m_face.quiet = true;
        m_engine.selectDrive(m_drive);
        QCoreApplication::processEvents(); // the selection's own lines stay unshown
        m_face.quiet = false;

        m_face.verdict.reset();
        m_engine.perform(m_command.action);
        waitForOperation(m_engine);
        if (g_signalStatus.load() != 0)
            return CliStatus::failed;
        if (!m_refusal.isEmpty())
            return CliStatus::refused;
        if (!m_answers->missingFlag().isEmpty()) {
            out(QStringLiteral("Refused: the question above needs %1.\n").arg(m_answers->missingFlag()),
                stderr);
            return CliStatus::refused;
        }
        if (!m_answers->refusal().isEmpty())
            return CliStatus::refused;
        return verdictStatus();
    }

    // The exit status the operation's verdict stands for; an operation that
    // gave none (it never ended) is no success either.
    int verdictStatus() const
    {
        if (!m_face.verdict)
            return CliStatus::failed;
        switch (m_face.verdict->outcome) {
        case Outcome::Complete:
            return CliStatus::ok;
        case Outcome::Refused:
        case Outcome::Cancelled:
            return CliStatus::refused;
        case Outcome::Failed:
        case Outcome::Stopped:
            break;
        }
        return CliStatus::failed;
    }

    // Flags whose question would only come after something has changed are
    // demanded before anything runs.
    int checkFlagsFirst()
    {
        if (m_parser.positionalArguments().size() < 2)
            return usageError(
                QStringLiteral("%1 needs a DRIVE: tapedesk-cli %1 %2").arg(m_command.name, m_command.usage));
        if (m_command.name != QStringLiteral("format"))
            return CliStatus::ok;
        if (!m_parser.isSet(QStringLiteral("name")))
            return refuse(
                QStringLiteral("Refused: format needs --name NAME (6 character alphanumeric: EG: KT1234)."));
        if (!isValidVolumeName(m_parser.value(QStringLiteral("name"))))
            return usageError(
                QStringLiteral("name entered is invalid: %1 (6 character alphanumeric: EG: KT1234)")
                    .arg(m_parser.value(QStringLiteral("name"))));
        const QString then = m_parser.value(QStringLiteral("then"));
        if (then.isEmpty())
            return refuse(
                QStringLiteral("Refused: format needs --then mount or --then eject (what follows it)."));
        if (then != QStringLiteral("mount") && then != QStringLiteral("eject"))
            return usageError(QStringLiteral("--then takes mount or eject, not %1").arg(then));
        return CliStatus::ok;
    }

    void printJson(int status)
    {
        static const QHash<int, QString> verdicts{{CliStatus::ok, QStringLiteral("success")},
                                                  {CliStatus::failed, QStringLiteral("failed")},
                                                  {CliStatus::usage, QStringLiteral("usage")},
                                                  {CliStatus::refused, QStringLiteral("refused")}};
        QJsonObject o{{QStringLiteral("command"), m_command.name},
                      {QStringLiteral("verdict"), verdicts.value(status, QStringLiteral("interrupted"))},
                      {QStringLiteral("exitStatus"), status},
                      {QStringLiteral("reason"), m_face.verdict ? m_face.verdict->reason : QString()},
                      {QStringLiteral("drive"), m_drive ? QJsonValue(driveJson(m_drive)) : QJsonValue()},
                      {QStringLiteral("transcript"), QJsonArray::fromStringList(m_face.transcript)},
                      {QStringLiteral("tools"), m_tools},
                      {QStringLiteral("startedAt"), m_started.toString(Qt::ISODateWithMs)},
                      {QStringLiteral("seconds"), static_cast<double>(m_clock.elapsed()) / 1000.0}};
        if (m_command.name == QStringLiteral("scan"))
            o.insert(QStringLiteral("drives"), m_drives);
        out(QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact)) + QLatin1Char('\n'));
    }

    const Command &m_command;
    QCommandLineParser &m_parser;
    CliFace m_face;
    CliAnswers *m_answers; // owned by the dialog slot
    TapeEngine m_engine;
    bool m_json = false;
    DrivePtr m_drive;
    QJsonArray m_tools;
    QJsonArray m_drives;
    QString m_refusal;
    QDateTime m_started;
    QElapsedTimer m_clock;
};

} // namespace

void noteSignal(int signalNumber)
{
    g_signalStatus.store(128 + signalNumber);
}

int runCli(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("TapeDesk's tape workflows without a display."));
    addCliOptions(parser);
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help."));
    const QCommandLineOption version(QStringLiteral("version"), QStringLiteral("Show the version."));
    parser.addOption(help);
    parser.addOption(version);
    parser.addPositionalArgument(QStringLiteral("COMMAND"), QStringLiteral("What to do."));
    parser.addPositionalArgument(QStringLiteral("DRIVE"),
                                 QStringLiteral("The drive: id, name or serial number."));

    if (!parser.parse(QStringList{QStringLiteral("tapedesk-cli")} + arguments)) {
        out(parser.errorText() + QStringLiteral("\nSee tapedesk-cli --help.\n"), stderr);
        return CliStatus::usage;
    }
    const QString name = parser.positionalArguments().value(0);
    const Command *command = nullptr;
    for (const Command &c : commands())
        if (c.name == name)
            command = &c;
    if (parser.isSet(version)) {
        out(QStringLiteral("tapedesk-cli %1\n").arg(QCoreApplication::applicationVersion()));
        return CliStatus::ok;
    }
    if (parser.isSet(help)) {
        out(helpText(parser, command));
        return CliStatus::ok;
    }
    if (!command) {
        out((name.isEmpty() ? QStringLiteral("No command given.")
                            : QStringLiteral("Unknown command: ") + name) +
                QStringLiteral("\nSee tapedesk-cli --help.\n"),
            stderr);
        return CliStatus::usage;
    }
    CliFlags flags;
    flags.yes = parser.isSet(QStringLiteral("yes"));
    flags.force = parser.isSet(QStringLiteral("force"));
    flags.name = parser.value(QStringLiteral("name"));
    flags.then = parser.value(QStringLiteral("then"));
    flags.file = parser.value(QStringLiteral("file"));
    flags.to = parser.value(QStringLiteral("to"));
    flags.recover = command->action == Action::Recover;
    Run run(*command, parser, flags);
    return run.execute();
}

} // namespace tapedesk

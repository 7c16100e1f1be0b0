// What tapedesk-cli says of itself: its subcommands, options and help.

#include "cli/CliUsage.h"

namespace tapedesk {

const QList<Command> &commands()
{
    static const QList<Command> list{
        {QStringLiteral("scan"), Action::Scan, false, QString(), QStringLiteral("List the drives.")},
        {QStringLiteral("mount"), Action::Mount, true, QStringLiteral("DRIVE --yes"),
         QStringLiteral("Load the tape and mount its volume on /tmp/ltfs/mnt/<name>.")},
        {QStringLiteral("unmount"), Action::Mount, true, QStringLiteral("DRIVE"),
         QStringLiteral("Unmount the volume; ends once ltfs has released the drive.")},
        {QStringLiteral("recover"), Action::Recover, true, QStringLiteral("DRIVE --yes"),
         QStringLiteral("Roll an unclosed volume back to its last index (ltfsck).")},
        {QStringLiteral("format"), Action::Format, true,
         QStringLiteral("DRIVE --name NAME --then mount|eject [--yes] [--force]"),
         QStringLiteral("Format the tape under a six-character name.")},
        {QStringLiteral("firmware"), Action::Upgrade, true, QStringLiteral("DRIVE --file FILE --yes"),
         QStringLiteral("Update the drive's firmware.")},
        {QStringLiteral("dump"), Action::RetrieveLog, true, QStringLiteral("DRIVE --to DIR [--yes]"),
         QStringLiteral("Take a diagnostic dump and save it into DIR.")},
        {QStringLiteral("test"), Action::Test, true, QStringLiteral("DRIVE --yes"),
         QStringLiteral("Run the drive's standard test (destroys the tape's data).")},
        {QStringLiteral("validate"), Action::HostValidation, true, QStringLiteral("DRIVE --yes"),
         QStringLiteral("Run the host validation (destroys the tape's data).")},
        {QStringLiteral("clear-mounted"), Action::ClearMountedDrives, false, QString(),
         QStringLiteral("Forget the mounted-drive records.")},
        {QStringLiteral("paths"), Action::Scan, false,
         QStringLiteral("[--itdt P --ltfs P --mkltfs P --output DIR]"),
         QStringLiteral("Show the tool paths, or set them.")},
    };
    return list;
}

namespace {

const char *const kExitText =
    "Exit status:\n"
    "  0    the operation succeeded\n"
    "  1    the operation failed\n"
    "  2    usage error (unknown command, option or drive)\n"
    "  3    refused: a question's flag is missing, the drive is in use by another\n"
    "       process, mounted where it must not be (or not where it must), or the\n"
    "       paths are not set, or a question was declined\n"
    "  130  ended by SIGINT, 143 ended by SIGTERM: the operation was stopped as the\n"
    "       window's Stop does; a firmware update is never stopped, and a format\n"
    "       only with --yes (the cartridge is left unformatted)\n";

} // namespace

void out(const QString &text, FILE *stream)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
    std::fflush(stream);
}

QString helpText(const QCommandLineParser &parser, const Command *command)
{
    QString text;
    if (command) {
        text = QStringLiteral("Usage: tapedesk-cli [--json] [--verbose] %1 %2\n\n%3\n\n")
                   .arg(command->name, command->usage, command->summary);
    } else {
        text = QStringLiteral("Usage: tapedesk-cli [--json] [--verbose] COMMAND [DRIVE] [OPTIONS]\n\n"
                              "Runs TapeDesk's tape workflows without a display. DRIVE is a drive's id,\n"
                              "name or serial number as a scan lists it.\n\nCommands:\n");
        for (const Command &c : commands()) {
            const QString call = c.usage.isEmpty() ? c.name : c.name + QLatin1Char(' ') + c.usage;
            text += QStringLiteral("  %1\n%2%3\n").arg(call, QString(24, QLatin1Char(' ')), c.summary);
        }
        text += QLatin1Char('\n');
    }
    // The option list without Qt's own usage line.
    QString options = parser.helpText();
    options = options.mid(options.indexOf(QStringLiteral("Options:")));
    text += options + QLatin1Char('\n') + QString::fromLatin1(kExitText);
    return text;
}

void addCliOptions(QCommandLineParser &parser)
{
    parser.addOptions({
        {QStringLiteral("json"),
         QStringLiteral("Print one JSON object at the end, and nothing else on standard output.")},
        {QStringLiteral("verbose"),
         QStringLiteral("Show the running tool's output on standard error as it arrives.")},
        {QStringLiteral("yes"),
         QStringLiteral("Answer OK to the confirmations (mount, recover, test, validate, firmware, replace, "
                        "stopping a format on a signal).")},
        {QStringLiteral("force"),
         QStringLiteral("Reformat a tape that already holds a volume (its data is lost).")},
        {QStringLiteral("name"), QStringLiteral("The volume name of a format (6 letters or digits)."),
         QStringLiteral("NAME")},
        {QStringLiteral("then"), QStringLiteral("After a format: mount the new volume or eject the tape."),
         QStringLiteral("mount|eject")},
        {QStringLiteral("file"), QStringLiteral("The firmware file (.fmrz or .fm)."), QStringLiteral("FILE")},
        {QStringLiteral("to"), QStringLiteral("The folder the dump is saved into."), QStringLiteral("DIR")},
        {QStringLiteral("itdt"), QStringLiteral("Set the path of itdt."), QStringLiteral("P")},
        {QStringLiteral("ltfs"), QStringLiteral("Set the path of ltfs."), QStringLiteral("P")},
        {QStringLiteral("mkltfs"), QStringLiteral("Set the path of mkltfs."), QStringLiteral("P")},
        {QStringLiteral("output"), QStringLiteral("Set the folder itdt writes its reports to."),
         QStringLiteral("DIR")},
    });
}

} // namespace tapedesk

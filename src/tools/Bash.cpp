#include "tools/Bash.h"

#include "tools/ProcessRunner.h"

namespace tapedesk {

ProcessResult Bash::run(const QString &command, const QStringList &arguments, StreamMode mode, int timeoutMs)
{
    ProcessResult r = runProcess(command, arguments, mode, {}, timeoutMs);
    if (!r.started)
        throw BashError::commandNotFound(command);
    return r;
}

QString Bash::resolve(const QString &command)
{
    try {
        return QString::fromUtf8(
                   run(QStringLiteral("/bin/bash"),
                       {QStringLiteral("-l"), QStringLiteral("-c"), QStringLiteral("which ") + command},
                       StreamMode::StdoutOnly)
                       .out)
            .trimmed();
    } catch (const BashError &) {
        throw BashError::commandNotFound(command);
    }
}

QString Bash::execute(const QString &commandName, const QStringList &arguments)
{
    const QString path = resolve(commandName);
    if (path.isEmpty())
        throw BashError::commandNotFound(commandName);
    try {
        return QString::fromUtf8(run(path, arguments, StreamMode::StdoutOnly).out);
    } catch (const BashError &) {
        // What "which" printed cannot be started (a login profile that prints
        // a banner, a stale path): the error names what the caller asked for.
        throw BashError::commandNotFound(commandName);
    }
}

ProcessResult Bash::executeCollectingErrors(const QString &commandName, const QStringList &arguments,
                                            int timeoutMs)
{
    const QString path = resolve(commandName);
    if (path.isEmpty())
        throw BashError::commandNotFound(commandName);
    try {
        return run(path, arguments, StreamMode::Separate, timeoutMs);
    } catch (const BashError &) {
        // What "which" printed cannot be started (a login profile that prints
        // a banner, a stale path): the error names what the caller asked for.
        throw BashError::commandNotFound(commandName);
    }
}

} // namespace tapedesk

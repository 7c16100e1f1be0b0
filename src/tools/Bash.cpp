#include "tools/Bash.h"

#include "tools/ProcessRunner.h"

namespace tapedesk {

QString Bash::run(const QString &command, const QStringList &arguments)
{
    ProcessResult r = runProcess(command, arguments, StreamMode::StdoutOnly);
    if (!r.started)
        throw BashError::commandNotFound(command);
    return QString::fromUtf8(r.out);
}

QString Bash::resolve(const QString &command)
{
    try {
        return run(QStringLiteral("/bin/bash"),
                   {QStringLiteral("-l"), QStringLiteral("-c"), QStringLiteral("which ") + command})
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
        return run(path, arguments);
    } catch (const BashError &) {
        // What "which" printed cannot be started (a login profile that prints
        // a banner, a stale path): the error names what the caller asked for.
        throw BashError::commandNotFound(commandName);
    }
}

} // namespace tapedesk

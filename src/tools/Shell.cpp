#include "tools/Shell.h"

#include "tools/Console.h"

#include <QFileInfo>

namespace tapedesk {

ToolResult shellLaunch(const QString &launchPath, const QStringList &arguments, const ChunkObserver &observer)
{
    ProcessResult r;
    if (!launchPath.isEmpty() && QFileInfo::exists(launchPath))
        r = runProcess(launchPath, arguments, StreamMode::Separate, observer);
    // The raw bytes go to the console: one write each, and the same text the
    // operator's support would see from the tool itself.
    consoleLine(QByteArrayView("(*********** START ERROR ************************)"));
    consoleLine(QByteArrayView(r.err));
    consoleLine(QByteArrayView("(*********** END ERROR ********************)"));
    consoleLine(QByteArrayView("(*********** START ************************)"));
    consoleLine(QByteArrayView(r.out));
    consoleLine(QByteArrayView("(*********** END ********************)"));
    ToolResult result;
    result.program = launchPath;
    result.arguments = arguments;
    result.started = r.started;
    result.out = QString::fromUtf8(r.out);
    r.out = QByteArray(); // the text is what is kept: the bytes go before the next copy is made
    result.err = QString::fromUtf8(r.err);
    r.err = QByteArray();
    if (r.exitStatus >= 0)
        result.exitStatus = r.exitStatus;
    result.signal = r.signal;
    result.stopped = r.stopped;
    result.timedOut = r.timedOut;
    return result;
}

QString commandShell()
{
    static const QString shell = QFileInfo(QStringLiteral("/bin/zsh")).isExecutable()
                                     ? QStringLiteral("/bin/zsh")
                                     : QStringLiteral("/bin/sh");
    return shell;
}

QString shellCommand(const QString &command, const ChunkObserver &observer, int *exitStatus)
{
    ProcessResult r =
        runProcess(commandShell(), {QStringLiteral("-c"), command}, StreamMode::Merged, observer);
    if (exitStatus)
        *exitStatus = r.exitStatus;
    return QString::fromUtf8(r.out);
}

} // namespace tapedesk

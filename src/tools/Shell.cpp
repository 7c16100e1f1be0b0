#include "tools/Shell.h"

#include "tools/Console.h"

#include <QFileInfo>

namespace tapedesk {

QString shellLaunch(const QString &launchPath, const QStringList &arguments,
                    Synchronized<QString> &lastErrorOutput, const ChunkObserver &observer, int *exitStatus)
{
    ProcessResult r;
    if (!launchPath.isEmpty() && QFileInfo::exists(launchPath))
        r = runProcess(launchPath, arguments, StreamMode::Separate, observer);
    if (exitStatus)
        *exitStatus = r.exitStatus;
    QString output;
    if (r.started) {
        output = QString::fromUtf8(r.out);
        lastErrorOutput.set(QString::fromUtf8(r.err));
    }
    // The raw bytes go to the console: one write each, and the same text the
    // operator's support would see from the tool itself. A run that started
    // nothing prints the error text it left in place.
    consoleLine(QByteArrayView("(*********** START ERROR ************************)"));
    if (r.started)
        consoleLine(QByteArrayView(r.err));
    else
        consoleLine(QStringView(lastErrorOutput.get()));
    consoleLine(QByteArrayView("(*********** END ERROR ********************)"));
    consoleLine(QByteArrayView("(*********** START ************************)"));
    consoleLine(QByteArrayView(r.out));
    consoleLine(QByteArrayView("(*********** END ********************)"));
    return output;
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

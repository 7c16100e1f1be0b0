#include "tools/Shell.h"

#include "tools/Console.h"

#include <QFileInfo>

namespace tapedesk {

QString shellLaunch(const QString &launchPath, const QStringList &arguments,
                    Synchronized<QString> &lastErrorOutput, const ChunkObserver &observer)
{
    QByteArray output;
    if (!launchPath.isEmpty() && QFileInfo::exists(launchPath)) {
        ProcessResult r = runProcess(launchPath, arguments, StreamMode::Separate, observer);
        if (r.started) {
            output = std::move(r.out);
            lastErrorOutput.set(QString::fromUtf8(r.err));
        }
    }
    // The raw bytes go to the console: one write, and the same text the
    // operator's support would see from the tool itself.
    consoleLine(QByteArrayView("(*********** START ERROR ************************)"));
    consoleLine(QStringView(lastErrorOutput.get()));
    consoleLine(QByteArrayView("(*********** END ERROR ********************)"));
    consoleLine(QByteArrayView("(*********** START ************************)"));
    consoleLine(QByteArrayView(output));
    consoleLine(QByteArrayView("(*********** END ********************)"));
    return QString::fromUtf8(output);
}

QString commandShell()
{
    static const QString shell = QFileInfo(QStringLiteral("/bin/zsh")).isExecutable()
                                     ? QStringLiteral("/bin/zsh")
                                     : QStringLiteral("/bin/sh");
    return shell;
}

QString shellCommand(const QString &command)
{
    ProcessResult r = runProcess(commandShell(), {QStringLiteral("-c"), command}, StreamMode::Merged);
    return QString::fromUtf8(r.out);
}

} // namespace tapedesk

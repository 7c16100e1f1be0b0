#include "tools/Shell.h"

#include "tools/Console.h"

#include <QFileInfo>
#include <QStringDecoder>
#include <algorithm>

namespace tapedesk {

namespace {

// Decodes one stream as it passes, into the text the result keeps: the raw
// bytes are never held, so a flood costs its text and nothing more.
class TextCollector
{
public:
    void add(QByteArrayView chunk)
    {
        const qsizetype needed = m_used + m_decoder.requiredSpace(chunk.size());
        if (m_text.size() < needed)
            m_text.resize(std::max(needed, m_text.size() * 2));
        m_used = m_decoder.appendToBuffer(m_text.data() + m_used, chunk) - m_text.data();
    }
    QString take()
    {
        m_text.truncate(m_used);
        return std::move(m_text);
    }

private:
    // Invalid UTF-8 becomes U+FFFD, and a byte order mark stays, as with QString::fromUtf8.
    QStringDecoder m_decoder{QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom};
    QString m_text;
    qsizetype m_used = 0;
};

} // namespace

ToolResult shellLaunch(const QString &launchPath, const QStringList &arguments, const ChunkObserver &observer)
{
    TextCollector out;
    TextCollector err;
    const ChunkObserver collect = [&](OutputStream stream, QByteArrayView chunk) {
        if (observer)
            observer(stream, chunk);
        (stream == OutputStream::Stdout ? out : err).add(chunk);
    };
    ProcessResult r;
    if (!launchPath.isEmpty() && QFileInfo::exists(launchPath))
        r = runProcess(launchPath, arguments, StreamMode::Separate, collect, -1, Keep::Nothing);
    ToolResult result;
    result.program = launchPath;
    result.arguments = arguments;
    result.started = r.started;
    result.out = out.take();
    result.err = err.take();
    if (r.exitStatus >= 0)
        result.exitStatus = r.exitStatus;
    result.signal = r.signal;
    result.stopped = r.stopped;
    result.timedOut = r.timedOut;
    // The text goes to the console as the tool's support would read it.
    consoleLine(QByteArrayView("(*********** START ERROR ************************)"));
    consoleText(result.err);
    consoleLine(QByteArrayView("(*********** END ERROR ********************)"));
    consoleLine(QByteArrayView("(*********** START ************************)"));
    consoleText(result.out);
    consoleLine(QByteArrayView("(*********** END ********************)"));
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
    TextCollector merged;
    const ChunkObserver collect = [&](OutputStream stream, QByteArrayView chunk) {
        if (observer)
            observer(stream, chunk);
        merged.add(chunk);
    };
    const ProcessResult r = runProcess(commandShell(), {QStringLiteral("-c"), command}, StreamMode::Merged,
                                       collect, -1, Keep::Nothing);
    if (exitStatus)
        *exitStatus = r.exitStatus;
    return merged.take();
}

} // namespace tapedesk

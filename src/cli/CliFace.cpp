#include "cli/CliFace.h"

#include <cstdio>

namespace tapedesk {

void CliFace::appendToPane(const QString &text)
{
    if (quiet)
        return;
    // Every message arrives as a newline and its text.
    QStringList lines = text.split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.constFirst().isEmpty())
        lines.removeFirst();
    transcript << lines;
    if (!printing)
        return;
    for (const QString &line : std::as_const(lines)) {
        const QByteArray bytes = line.toUtf8();
        std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
        std::fputc('\n', stdout);
    }
    std::fflush(stdout);
}

void CliFace::toolOutput(OutputStream, QByteArrayView chunk)
{
    if (!liveToStderr)
        return;
    std::fwrite(chunk.data(), 1, static_cast<size_t>(chunk.size()), stderr);
    std::fflush(stderr);
}

} // namespace tapedesk

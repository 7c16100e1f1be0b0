#include "tools/Console.h"

#include <QByteArray>
#include <QString>
#include <QStringEncoder>
#include <cstdio>
#include <mutex>

namespace tapedesk {

namespace {
std::mutex &consoleMutex()
{
    static std::mutex m;
    return m;
}

std::FILE *g_stream = stdout; // guarded by consoleMutex()
} // namespace

void setConsoleStream(std::FILE *stream)
{
    std::lock_guard lock(consoleMutex());
    g_stream = stream;
}

void consoleLine(QByteArrayView utf8)
{
    std::lock_guard lock(consoleMutex());
    if (!g_stream)
        return;
    if (!utf8.isEmpty())
        std::fwrite(utf8.data(), 1, static_cast<size_t>(utf8.size()), g_stream);
    std::fputc('\n', g_stream);
    std::fflush(g_stream);
}

void consoleText(QStringView text)
{
    constexpr qsizetype kPiece = qsizetype(16) * 1024;
    std::lock_guard lock(consoleMutex());
    if (!g_stream)
        return;
    QStringEncoder encoder(QStringEncoder::Utf8);
    QByteArray bytes(kPiece * 3, Qt::Uninitialized);
    for (qsizetype at = 0; at < text.size(); at += kPiece) {
        // A surrogate pair cut in two is carried over by the encoder's state.
        const char *end = encoder.appendToBuffer(bytes.data(), text.mid(at, kPiece));
        std::fwrite(bytes.constData(), 1, static_cast<size_t>(end - bytes.constData()), g_stream);
    }
    std::fputc('\n', g_stream);
    std::fflush(g_stream);
}

void consoleLine(QStringView text)
{
    consoleLine(QByteArrayView(text.toUtf8()));
}

} // namespace tapedesk

#include "tools/Console.h"

#include <QByteArray>
#include <QString>
#include <cstdio>
#include <mutex>

namespace tapedesk {

namespace {
std::mutex &consoleMutex()
{
    static std::mutex m;
    return m;
}
} // namespace

void consoleLine(QByteArrayView utf8)
{
    std::lock_guard lock(consoleMutex());
    if (!utf8.isEmpty())
        std::fwrite(utf8.data(), 1, static_cast<size_t>(utf8.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void consoleLine(QStringView text)
{
    consoleLine(QByteArrayView(text.toUtf8()));
}

} // namespace tapedesk

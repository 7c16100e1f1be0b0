#include "Context.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <unistd.h>

namespace tapesim {

Context::Context(double speed, bool dry) : m_speed(speed), m_dry(dry), m_store(defaultStateFolder(), dry) {}

Context Context::live(double speed)
{
    return Context(speed, false);
}

Context Context::dry()
{
    return Context(0.0, true);
}

void Context::out(std::string_view line)
{
    emit(1, line);
}

void Context::err(std::string_view line)
{
    emit(2, line);
}

void Context::emit(int fd, std::string_view line)
{
    if (m_dry) {
        m_lines.push_back({fd, std::string(line)});
        return;
    }
    std::string whole(line);
    whole += '\n';
    writeFully(fd, whole);
}

void Context::wait(double seconds) const
{
    if (m_dry || m_speed <= 0.0 || seconds <= 0.0)
        return;
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds * m_speed));
}

void writeFully(int fd, std::string_view data)
{
    while (!data.empty()) {
        const ssize_t n = ::write(fd, data.data(), data.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        data.remove_prefix(static_cast<size_t>(n));
    }
}

double speedFromEnvironment()
{
    const char *text = std::getenv("TAPESIM_SPEED");
    if (!text || !*text)
        return 1.0;
    char *end = nullptr;
    const double value = std::strtod(text, &end);
    if (end == text)
        return 1.0;
    return value < 0.0 ? 0.0 : value;
}

} // namespace tapesim

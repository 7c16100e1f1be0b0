#include "InvocationLog.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace tapesim {

namespace {

void appendJsonString(std::string &out, const std::string &s)
{
    out += '"';
    for (const char c : s) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (byte < 0x20) {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\u%04x", byte);
            out += esc;
        } else {
            out += c;
        }
    }
    out += '"';
}

} // namespace

void logInvocation(const std::string &tool, const Args &args)
{
    const char *path = std::getenv("TAPESIM_LOG");
    if (!path || !*path)
        return;
    std::string line = "[";
    appendJsonString(line, tool);
    for (const std::string &a : args) {
        line += ',';
        appendJsonString(line, a);
    }
    line += "]\n";
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0)
        return;
    writeFully(fd, line);
    ::close(fd);
}

} // namespace tapesim

#include "Faults.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace tapesim {

namespace {

std::string_view trimmed(std::string_view s)
{
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
        s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t'))
        s.remove_suffix(1);
    return s;
}

// "tape0", "0" and "/dev/tape0"-style names of one drive all match each other;
// for umount the mount point's last component counts as the short name, so
// "tape0:umount=..." hits /tmp/ltfs/mnt/0.
bool deviceMatches(std::string_view wanted, const std::string &given)
{
    if (wanted == "*")
        return true;
    if (given.empty())
        return false;
    const std::string wantedShort = shortName(wanted);
    const std::string givenShort = shortName(given);
    return wanted == given || wantedShort == given || wanted == givenShort || wantedShort == givenShort;
}

Fault parseMode(std::string_view mode)
{
    if (mode == "hang")
        return {Fault::Kind::Hang, 0};
    if (mode == "crash")
        return {Fault::Kind::Crash, 0};
    if (mode == "garbage")
        return {Fault::Kind::Garbage, 0};
    if (mode == "silent")
        return {Fault::Kind::Silent, 0};
    const std::string text(mode);
    char *end = nullptr;
    const long code = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || code < 0 || code > 255)
        return {};
    return {Fault::Kind::Code, static_cast<int>(code)};
}

std::vector<Line> dryRun(const Tool &tool)
{
    Context dry = Context::dry();
    try {
        tool.run(dry);
    } catch (const std::exception &) {
        // The lines so far are all a fault needs.
    }
    return dry.lines();
}

void replay(const std::vector<Line> &lines, size_t count)
{
    for (size_t i = 0; i < count && i < lines.size(); ++i)
        writeFully(lines[i].fd, lines[i].text + "\n");
}

[[noreturn]] void crash()
{
    // A test box full of core files helps nobody.
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    std::signal(SIGSEGV, SIG_DFL);
    std::raise(SIGSEGV);
    std::abort();
}

void writeGarbage(int fd)
{
    writeFully(fd, "\xc3\x28 \xff\xfe broken \xed\xa0\x80 output\n");
    std::string line;
    const std::string_view chunk = "\xff\xfe\x80garbage\xc0\xaf";
    while (line.size() < (1u << 20) + 64)
        line += chunk;
    writeFully(fd, line);
}

} // namespace

Fault findFault(const Tool &tool, std::string_view faults)
{
    while (!faults.empty()) {
        const auto comma = faults.find(',');
        const std::string_view entry = trimmed(faults.substr(0, comma));
        faults = comma == std::string_view::npos ? std::string_view() : faults.substr(comma + 1);
        const auto eq = entry.find('=');
        if (eq == std::string_view::npos)
            continue;
        const std::string_view target = entry.substr(0, eq);
        const auto colon = target.rfind(':');
        if (colon == std::string_view::npos)
            continue;
        const std::string_view device = trimmed(target.substr(0, colon));
        const std::string_view command = trimmed(target.substr(colon + 1));
        if ((command == tool.command || command == "*") && deviceMatches(device, tool.device))
            return parseMode(trimmed(entry.substr(eq + 1)));
    }
    return {};
}

int runWithFault(const Tool &tool, const Fault &fault, double speed)
{
    switch (fault.kind) {
    case Fault::Kind::Silent:
        return 0;
    case Fault::Kind::Garbage:
        writeGarbage(1);
        writeGarbage(2);
        return 0;
    case Fault::Kind::Hang:
        replay(dryRun(tool), 1);
        for (;;)
            ::pause();
    case Fault::Kind::Crash: {
        const std::vector<Line> lines = dryRun(tool);
        replay(lines, std::max<size_t>(1, lines.size() / 2));
        crash();
    }
    case Fault::Kind::Code: {
        const std::vector<Line> lines = dryRun(tool);
        Context live = Context::live(speed);
        return tool.fail(live, lines, fault.code);
    }
    case Fault::Kind::None:
        break;
    }
    Context live = Context::live(speed);
    try {
        return tool.run(live);
    } catch (const std::exception &e) {
        writeFully(2, tool.name + ": " + e.what() + "\n");
        return 1;
    }
}

} // namespace tapesim

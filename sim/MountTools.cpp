#include "Tool.h"

#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace tapesim {

namespace {

constexpr const char *kFuseOptions =
    "rw,nosuid,nodev,relatime,user_id=0,group_id=0,default_permissions,allow_other";

// /proc/self/mounts: "proc /proc proc rw,nosuid,nodev,noexec,relatime 0 0";
// mount prints it as "proc on /proc type proc (rw,nosuid,nodev,noexec,relatime)".
void printHostMounts(Context &ctx)
{
    std::ifstream in("/proc/self/mounts");
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string dev, dir, type, opts;
        if (fields >> dev >> dir >> type >> opts) {
            std::string entry = dev;
            entry.append(" on ").append(dir).append(" type ").append(type).append(" (").append(opts).append(
                ")");
            ctx.out(entry);
        }
    }
}

int listMounts(Context &ctx)
{
    printHostMounts(ctx);
    for (const MountState &m : ctx.store().snapshot().mounts) {
        if (m.listed)
            ctx.out("ltfs:" + m.device + " on " + m.point + " type fuse (" + kFuseOptions + ")");
    }
    return 0;
}

// The real daemon takes about 1.3 s on a virtual cartridge to write the
// index after umount; a real tape takes far longer.
double unmountDelay()
{
    const char *text = std::getenv("TAPESIM_UNMOUNT_DELAY");
    return text && *text ? std::max(0.0, std::strtod(text, nullptr)) : 1.0;
}

std::string normalized(const std::string &path)
{
    char resolved[PATH_MAX];
    if (::realpath(path.c_str(), resolved))
        return resolved;
    std::string p = path;
    while (p.size() > 1 && p.back() == '/')
        p.pop_back();
    return p;
}

struct UmountCall
{
    Args args;
    std::string target; // the one non-option argument, or "" when there is not exactly one
    bool verbose = false;
};

UmountCall parseUmount(const Args &args)
{
    UmountCall c{args, {}, false};
    int targets = 0;
    for (const std::string &a : args) {
        if (a.size() > 1 && a.front() == '-' && a[1] != '-')
            c.verbose = c.verbose || a.find('v') != std::string::npos;
        else if (a == "--verbose")
            c.verbose = true;
        else if (a.front() != '-' && ++targets == 1)
            c.target = a;
    }
    if (targets != 1)
        c.target.clear();
    return c;
}

// The line leaves the table at once; the daemon then finishes within
// TAPESIM_UNMOUNT_DELAY seconds and releases the drive. A second umount finds
// nothing listed and goes to the system's umount ("not mounted"), as for real.
int umountRun(const UmountCall &c, Context &ctx)
{
    bool simulated = false;
    if (!c.target.empty()) {
        const std::string point = normalized(c.target);
        const long long lingerMs = static_cast<long long>(unmountDelay() * 1000.0);
        ctx.store().update([&](State &s) {
            MountState *m = s.mountAt(point);
            if (!m)
                return;
            simulated = true;
            withdrawVolumeAttributes(point);
            if (processAlive(m->daemonPid)) {
                m->listed = false;
                m->releaseAtMs = nowMs() + lingerMs;
            } else {
                s.removeMount(point);
            }
        });
    }
    if (!simulated) {
        if (ctx.isDry())
            return 0;
        execSystemTool("umount", c.args);
    }
    if (c.verbose)
        ctx.err("umount: " + c.target + " unmounted");
    return 0;
}

} // namespace

[[noreturn]] void execSystemTool(const std::string &name, const Args &args)
{
    std::vector<char *> argv;
    std::string arg0 = name;
    argv.push_back(arg0.data());
    std::vector<std::string> copies(args);
    for (std::string &a : copies)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    for (const std::string dir : {"/usr/bin/", "/bin/"}) {
        const std::string path = dir + name;
        ::execv(path.c_str(), argv.data());
    }
    writeFully(2, name + ": the system's " + name + " is missing\n");
    std::_Exit(1);
}

Tool mountTool(const Args &args)
{
    auto run = [args](Context &ctx) {
        if (args.empty())
            return listMounts(ctx);
        if (ctx.isDry())
            return 0;
        execSystemTool("mount", args);
    };
    auto fail = [](Context &ctx, const std::vector<Line> &, int code) {
        ctx.err("mount: cannot read the mount table: Input/output error");
        return code;
    };
    return Tool{"mount", "mount", "", run, fail};
}

Tool umountTool(const Args &args)
{
    const UmountCall c = parseUmount(args);
    auto fail = [c](Context &ctx, const std::vector<Line> &, int code) {
        ctx.err("umount: " + c.target + ": target is busy.");
        return code;
    };
    return Tool{"umount", "umount", c.target, [c](Context &ctx) { return umountRun(c, ctx); }, fail};
}

} // namespace tapesim

// What stays behind a successful ltfs mount: the daemon that serves the
// volume. After umount it goes on writing the index for a while and holds the
// drive until it exits, as the real one does.
#include "Faults.h"
#include "Tool.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace tapesim {

namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(100);
// How long a daemon waits for its launcher to record its pid.
constexpr long long kAdoptionMs = 5000;

[[noreturn]] void serve(const std::string &folder, const std::string &point)
{
    // The launcher's pipes belong to whoever started ltfs: they must reach end
    // of file when the launcher exits, as with the real daemon.
    ::setsid();
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null >= 0) {
        ::dup2(null, 0);
        ::dup2(null, 1);
        ::dup2(null, 2);
    }
    const long long self = ::getpid();
    const long long started = nowMs();
    StateStore store(folder, false);
    for (;;) {
        std::this_thread::sleep_for(kPollInterval);
        bool done = false;
        // The state disappears with the test (or demo reset) that made it; so
        // does its daemon.
        const bool present = store.updateExisting([&](State &s) {
            const auto it = std::find_if(s.mounts.begin(), s.mounts.end(),
                                         [&](const MountState &m) { return m.point == point; });
            if (it == s.mounts.end() || (it->daemonPid != 0 && it->daemonPid != self)) {
                done = true;
                return;
            }
            if (it->daemonPid == 0) {
                done = nowMs() - started > kAdoptionMs;
                return;
            }
            if (it->listed || nowMs() < it->releaseAtMs)
                return;
            s.removeMount(point);
            done = true;
        });
        if (!present || done)
            std::_Exit(0); // no exit handlers: the launcher's belong to it alone
    }
}

} // namespace

void startLtfsDaemon(StateStore &store, const std::string &point, const std::string &device)
{
    const pid_t pid = ::fork();
    if (pid < 0)
        return; // without a daemon, umount ends the mount at once
    if (pid == 0) {
        // "DEVICE:daemon=crash": killed as an out-of-memory kill would, with
        // the volume still listed and its last index unwritten.
        const char *faults = std::getenv("TAPESIM_FAIL");
        if (findFault(Tool{"ltfs", "daemon", device, {}, {}}, faults ? faults : "").kind ==
            Fault::Kind::Crash)
            ::kill(::getpid(), SIGKILL);
        serve(store.folder(), point);
    }
    store.update([&](State &s) {
        if (MountState *m = s.mountAt(point))
            m->daemonPid = pid;
    });
}

} // namespace tapesim

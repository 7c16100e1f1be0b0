#pragma once

#include "Context.h"

#include <functional>
#include <string>
#include <vector>

namespace tapesim {

using Args = std::vector<std::string>;

// One parsed run of a simulated tool: what faults are matched against, the
// normal behaviour, and how an injected exit code N makes the run fail.
struct Tool
{
    std::string name;    // "itdt", "mkltfs", "ltfs", "ltfsck", "mount", "umount"
    std::string command; // itdt subcommand; the tool name for the others
    std::string device;  // as given on the command line; "" when none
    std::function<int(Context &)> run;
    // Prints a failed run of the usual shape, given the lines a dry run
    // produced, and returns the exit status.
    std::function<int(Context &, const std::vector<Line> &, int)> fail;
};

Tool itdtTool(const Args &args);
Tool mkltfsTool(const Args &args);
Tool ltfsTool(const Args &args);
Tool mountTool(const Args &args);
Tool umountTool(const Args &args);
Tool ltfsckTool(const Args &args);

// Leaves the daemon of a mount at `point` of `device` running in the background.
void startLtfsDaemon(StateStore &store, const std::string &point, const std::string &device);

// The user.ltfs.* attributes a real mount publishes on its root, set on the
// mount point where its file system takes user extended attributes (quietly
// nothing elsewhere), and taken off when the mount table lets go of it.
void publishVolumeAttributes(const std::string &point, const DriveState &drive);
void withdrawVolumeAttributes(const std::string &point);
// "2026-11-23T11:39:48.393093672Z", as LTFS writes a format time.
std::string isoTimeNow();

// Replaces this process with the system's own `name` from /usr/bin or /bin,
// never through PATH, which may lead back to the simulator.
[[noreturn]] void execSystemTool(const std::string &name, const Args &args);

} // namespace tapesim

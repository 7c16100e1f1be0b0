#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tapesim {

struct Cartridge
{
    bool present = false;
    std::string barcode; // empty: formatted without a tape serial (NO_BARCODE)
    bool formatted = false;
    std::string volume;
    bool writeProtected = false;
    // False once an ltfs daemon died with the volume mounted: its last index
    // was never written, and ltfs refuses it until ltfsck has run.
    bool consistent = true;
    // What the mounted volume publishes as user.ltfs.* attributes: when it
    // was formatted (empty: not reported), how often it was loaded, and the
    // megabytes written to it.
    std::string formattedAt{};
    // How many indexes the volume has had: 1 after the format, one more
    // for each ltfsck that wrote a recovered one.
    long long generation = 1;
    long long loads = 0;
    long long usedMb = 0;
};

struct DriveState
{
    std::string id;       // as itdt prints it: "tape0" or "/dev/IBMtape3"
    std::string model;    // "ULTRIUM-HH8"
    std::string firmware; // "F1A2"
    std::string serial;   // ten digits
    std::string address;  // "H1-B0-T0-L0"
    bool loaded = false;
    std::string tapeAlert = "0x0000000000000000"; // the drive's TapeAlert flags, as LTFS shows them
    Cartridge cartridge;
};

struct MountState
{
    std::string point;  // canonical path, as the mount table shows it
    std::string device; // devname as given to ltfs
    std::string driveId;
    bool eject = false;
    // Whether the mount table lists it. umount takes it out at once; the
    // record stays, and the drive busy, until the ltfs daemon has exited.
    bool listed = true;
    long long daemonPid = 0;   // the ltfs daemon that serves it; 0 before it is known
    long long releaseAtMs = 0; // after umount: when the daemon is done writing the index
};

struct State
{
    std::vector<DriveState> drives;
    std::vector<MountState> mounts;

    static State defaults();
    static State parse(std::string_view text);
    std::string serialize() const;

    // Exact id only: itdt refuses anything but the id it printed at scan.
    DriveState *driveById(std::string_view id);
    // The id or its short name ("0" for "tape0"), as ltfs and mkltfs accept.
    DriveState *driveByName(std::string_view name);
    // The listed mount at `point`, as the mount table shows it.
    MountState *mountAt(std::string_view point);
    // Any record of the drive, listed or still held by its daemon: the drive is busy.
    const MountState *mountOf(std::string_view driveId) const;

    // Drops the unlisted mounts whose daemon is gone (it exited or was killed),
    // ejecting where asked, and marks the cartridge of a listed mount whose
    // daemon died as inconsistent (the mount stays listed, as a dead FUSE
    // mount does). Returns whether anything changed.
    bool pruneMounts();
    // Ends a mount at once, ejecting if it was mounted with -o eject.
    void removeMount(std::string_view point);
};

// Whether process `pid` still runs (a zombie no longer counts).
bool processAlive(long long pid);

// "tape0" -> "0", "/dev/IBMtape3" -> "IBMtape3": the name TapeDesk hands to
// ltfs and mkltfs for a drive, and the key faults may use.
std::string shortName(std::string_view id);

} // namespace tapesim

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
};

struct DriveState
{
    std::string id;       // as itdt prints it: "tape0" or "/dev/IBMtape3"
    std::string model;    // "ULTRIUM-HH8"
    std::string firmware; // "F1A2"
    std::string serial;   // ten digits
    std::string address;  // "H1-B0-T0-L0"
    bool loaded = false;
    Cartridge cartridge;
};

struct MountState
{
    std::string point;  // canonical path, as the mount table shows it
    std::string device; // devname as given to ltfs
    std::string driveId;
    bool eject = false;
    long long listedUntilMs = 0; // 0: mounted; else umount ran and the line lingers until then
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
    MountState *mountAt(std::string_view point);
    const MountState *mountOf(std::string_view driveId) const;

    // Drops mounts whose linger time is over, ejecting where asked. Returns
    // whether anything changed.
    bool pruneMounts(long long nowMs);
    // Ends a mount at once, ejecting if it was mounted with -o eject.
    void removeMount(std::string_view point);
};

// "tape0" -> "0", "/dev/IBMtape3" -> "IBMtape3": the name TapeDesk hands to
// ltfs and mkltfs for a drive, and the key faults may use.
std::string shortName(std::string_view id);

} // namespace tapesim

#include "State.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <sstream>

namespace tapesim {

namespace {

std::string trim(std::string_view s)
{
    const auto first = s.find_first_not_of(" \t\r");
    if (first == std::string_view::npos)
        return {};
    const auto last = s.find_last_not_of(" \t\r");
    return std::string(s.substr(first, last - first + 1));
}

bool yes(const std::string &value)
{
    return value == "yes" || value == "true" || value == "1";
}

const char *yesNo(bool value)
{
    return value ? "yes" : "no";
}

void setDriveField(DriveState &d, const std::string &key, const std::string &value)
{
    if (key == "id")
        d.id = value;
    else if (key == "model")
        d.model = value;
    else if (key == "firmware")
        d.firmware = value;
    else if (key == "serial")
        d.serial = value;
    else if (key == "address")
        d.address = value;
    else if (key == "loaded")
        d.loaded = yes(value);
    else if (key == "cartridge")
        d.cartridge.present = yes(value);
    else if (key == "barcode")
        d.cartridge.barcode = value;
    else if (key == "formatted")
        d.cartridge.formatted = yes(value);
    else if (key == "volume")
        d.cartridge.volume = value;
    else if (key == "write-protected")
        d.cartridge.writeProtected = yes(value);
    else if (key == "consistent")
        d.cartridge.consistent = yes(value);
    else if (key == "formatted-at")
        d.cartridge.formattedAt = value;
    else if (key == "generation")
        d.cartridge.generation = std::max(1LL, std::atoll(value.c_str()));
    else if (key == "loads")
        d.cartridge.loads = std::atoll(value.c_str());
    else if (key == "used-mb")
        d.cartridge.usedMb = std::atoll(value.c_str());
    else if (key == "tape-alert")
        d.tapeAlert = value;
}

void setMountField(MountState &m, const std::string &key, const std::string &value)
{
    if (key == "point")
        m.point = value;
    else if (key == "device")
        m.device = value;
    else if (key == "drive")
        m.driveId = value;
    else if (key == "eject")
        m.eject = yes(value);
    else if (key == "listed")
        m.listed = yes(value);
    else if (key == "daemon")
        m.daemonPid = std::atoll(value.c_str());
    else if (key == "release-at")
        m.releaseAtMs = std::atoll(value.c_str());
}

DriveState drive(const char *id, const char *model, const char *firmware, const char *serial, int target,
                 Cartridge cartridge)
{
    DriveState d;
    d.id = id;
    d.model = model;
    d.firmware = firmware;
    d.serial = serial;
    d.address = "H1-B0-T" + std::to_string(target) + "-L0";
    d.loaded = cartridge.present;
    d.cartridge = std::move(cartridge);
    return d;
}

} // namespace

State State::defaults()
{
    State s;
    s.drives.push_back(drive("tape0", "ULTRIUM-HH8", "F1A2", "1013000101", 0,
                             Cartridge{true, "TD0001", true, "ARCHIVE01", false}));
    s.drives.push_back(
        drive("tape1", "ULTRIUM-HH9", "N2B4", "1013000102", 1, Cartridge{true, "", false, "", false}));
    s.drives.push_back(drive("tape2", "ULTRIUM-TD9", "N2B4", "1013000103", 2, Cartridge{}));
    s.drives.push_back(drive("/dev/IBMtape3", "ULTRIUM-HH8", "F1A2", "1013000104", 3,
                             Cartridge{true, "TD0004", true, "ARCHIVE04", false}));
    // Named so that one drive's mount point is a prefix of another's
    // (/tmp/ltfs/mnt/1 and /tmp/ltfs/mnt/10), as in any library of ten drives.
    s.drives.push_back(drive("tape10", "ULTRIUM-HH9", "N2B4", "1013000110", 10,
                             Cartridge{true, "TD0010", true, "ARCHIVE10", false}));
    return s;
}

// Sections "[drive]" and "[mount]" each start a new record; "key = value"
// lines fill the latest one. Unknown keys are ignored so a hand edit with a
// typo degrades to a default rather than a refusal.
State State::parse(std::string_view text)
{
    State s;
    enum { None, Drive, Mount } section = None;
    std::istringstream in{std::string(text)};
    std::string raw;
    while (std::getline(in, raw)) {
        const std::string line = trim(raw);
        if (line.empty() || line.front() == '#')
            continue;
        if (line == "[drive]") {
            s.drives.emplace_back();
            section = Drive;
            continue;
        }
        if (line == "[mount]") {
            s.mounts.emplace_back();
            section = Mount;
            continue;
        }
        const auto eq = line.find('=');
        if (eq == std::string::npos)
            continue;
        const std::string key = trim(std::string_view(line).substr(0, eq));
        const std::string value = trim(std::string_view(line).substr(eq + 1));
        if (section == Drive)
            setDriveField(s.drives.back(), key, value);
        else if (section == Mount)
            setMountField(s.mounts.back(), key, value);
    }
    return s;
}

std::string State::serialize() const
{
    std::ostringstream out;
    out << "# tapesim state. Edit only while no simulated tool runs; see sim/README.md.\n";
    for (const DriveState &d : drives) {
        out << "\n[drive]\n"
            << "id = " << d.id << "\nmodel = " << d.model << "\nfirmware = " << d.firmware
            << "\nserial = " << d.serial << "\naddress = " << d.address << "\nloaded = " << yesNo(d.loaded)
            << "\ntape-alert = " << d.tapeAlert << "\ncartridge = " << yesNo(d.cartridge.present) << "\n";
        if (d.cartridge.present) {
            out << "barcode = " << d.cartridge.barcode << "\nformatted = " << yesNo(d.cartridge.formatted)
                << "\nvolume = " << d.cartridge.volume
                << "\nwrite-protected = " << yesNo(d.cartridge.writeProtected)
                << "\nconsistent = " << yesNo(d.cartridge.consistent)
                << "\nformatted-at = " << d.cartridge.formattedAt
                << "\ngeneration = " << d.cartridge.generation << "\nloads = " << d.cartridge.loads
                << "\nused-mb = " << d.cartridge.usedMb << "\n";
        }
    }
    for (const MountState &m : mounts) {
        out << "\n[mount]\n"
            << "point = " << m.point << "\ndevice = " << m.device << "\ndrive = " << m.driveId
            << "\neject = " << yesNo(m.eject) << "\nlisted = " << yesNo(m.listed)
            << "\ndaemon = " << m.daemonPid << "\nrelease-at = " << m.releaseAtMs << "\n";
    }
    return out.str();
}

DriveState *State::driveById(std::string_view id)
{
    for (DriveState &d : drives) {
        if (d.id == id)
            return &d;
    }
    return nullptr;
}

DriveState *State::driveByName(std::string_view name)
{
    if (DriveState *exact = driveById(name))
        return exact;
    for (DriveState &d : drives) {
        if (!name.empty() && shortName(d.id) == name)
            return &d;
    }
    return nullptr;
}

MountState *State::mountAt(std::string_view point)
{
    for (MountState &m : mounts) {
        if (m.listed && m.point == point)
            return &m;
    }
    return nullptr;
}

const MountState *State::mountOf(std::string_view driveId) const
{
    for (const MountState &m : mounts) {
        if (m.driveId == driveId)
            return &m;
    }
    return nullptr;
}

bool processAlive(long long pid)
{
    if (pid <= 0 || (::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH))
        return false;
    // "1234 (ltfs) Z ...": a daemon that exited but whose parent has not
    // reaped it yet is gone for every purpose here.
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(stat, text);
    const auto close = text.rfind(") ");
    return close == std::string::npos || close + 2 >= text.size() || text[close + 2] != 'Z';
}

bool State::pruneMounts()
{
    const auto gone = [](const MountState &m) { return !m.listed && !processAlive(m.daemonPid); };
    const auto before = mounts.size();
    bool died = false;
    for (const MountState &m : mounts) {
        DriveState *d = driveById(m.driveId);
        if (gone(m) && m.eject && d)
            d->loaded = false;
        // A daemon leaves while listed only when it is killed.
        if (m.listed && m.daemonPid != 0 && d && d->cartridge.consistent && !processAlive(m.daemonPid)) {
            d->cartridge.consistent = false;
            died = true;
        }
    }
    std::erase_if(mounts, gone);
    return died || mounts.size() != before;
}

void State::removeMount(std::string_view point)
{
    for (const MountState &m : mounts) {
        if (m.point == point && m.eject) {
            if (DriveState *d = driveById(m.driveId))
                d->loaded = false;
        }
    }
    std::erase_if(mounts, [&](const MountState &m) { return m.point == point; });
}

std::string shortName(std::string_view id)
{
    if (!id.empty() && id.front() == '/')
        return std::string(id.substr(id.rfind('/') + 1));
    std::string name(id);
    if (const auto at = name.find("tape"); at != std::string::npos)
        name.erase(at, 4);
    return name;
}

} // namespace tapesim

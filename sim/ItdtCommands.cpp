#include "ItdtCommands.h"

#include "ExitCodes.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace tapesim::itdt {

namespace {

// Each level includes the ones above it.
enum class Needs { Device, Idle, Cartridge, Loaded, Writable };

// Checks the drive under the lock and prints why it cannot go ahead.
int check(ItdtCall &call, Needs needs)
{
    int code = exitcode::Ok;
    std::string why;
    call.ctx.store().update([&](State &s) {
        const DriveState *d = s.driveById(call.device);
        if (!d) {
            code = exitcode::NoDevice;
            why = "Device " + call.device + " not found or not accessible.";
        } else if (needs >= Needs::Idle && s.mountOf(d->id)) {
            code = exitcode::Busy;
            why = "Device " + call.device + " is busy: an LTFS volume is mounted.";
        } else if (needs >= Needs::Cartridge && !d->cartridge.present) {
            code = exitcode::NoCartridge;
            why = "No cartridge in drive " + call.device + ".";
        } else if (needs >= Needs::Loaded && !d->loaded) {
            code = exitcode::NoCartridge;
            why = "No cartridge loaded in drive " + call.device + ".";
        } else if (needs >= Needs::Writable && d->cartridge.writeProtected) {
            code = exitcode::WriteProtected;
            why = "The cartridge is write-protected.";
        }
    });
    if (code != exitcode::Ok)
        call.ctx.out(why);
    return code;
}

void changeDrive(ItdtCall &call, const std::function<void(DriveState &)> &change)
{
    call.ctx.store().update([&](State &s) {
        if (DriveState *d = s.driveById(call.device))
            change(*d);
    });
}

DriveState currentDrive(ItdtCall &call)
{
    DriveState copy;
    changeDrive(call, [&](DriveState &d) { copy = d; });
    return copy;
}

// Waits `seconds` in `steps` pieces, printing "label NN%" after each one.
void progress(ItdtCall &call, const std::string &label, double seconds, int steps)
{
    for (int i = 1; i <= steps; ++i) {
        call.ctx.wait(seconds / steps);
        call.ctx.out(label + " " + std::to_string(i * 100 / steps) + "%");
    }
}

std::string argAfter(const Args &args, const std::string &option)
{
    for (size_t i = 0; i + 1 < args.size(); ++i) {
        if (args[i] == option)
            return args[i + 1];
    }
    return {};
}

// "F1A2" -> "F1A3", "F1AZ" -> "F1B0": base 36, like the drive makers' levels.
std::string bumpLevel(std::string level)
{
    for (auto it = level.rbegin(); it != level.rend(); ++it) {
        if (*it == 'Z') {
            *it = '0';
            continue;
        }
        *it = *it == '9' ? 'A' : static_cast<char>(*it + 1);
        return level;
    }
    return "1" + level;
}

// A file named like "HH8_G3C1.fmrz" carries its level; any other name bumps.
std::string levelFromFile(const std::filesystem::path &file, const std::string &current)
{
    std::string stem = file.stem().string();
    for (char &c : stem) {
        if (c == '-' || c == '.')
            c = '_';
    }
    std::string token;
    for (size_t start = 0; start <= stem.size();) {
        const size_t end = std::min(stem.find('_', start), stem.size());
        token = stem.substr(start, end - start);
        const bool ok = token.size() == 4 && std::all_of(token.begin(), token.end(), [](char c) {
                            return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z');
                        });
        if (ok && token != current)
            return token;
        start = end + 1;
    }
    return bumpLevel(current);
}

std::string timestamp()
{
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    ::localtime_r(&now.tv_sec, &local);
    char text[64];
    std::snprintf(text, sizeof text, "%04d%02d%02d-%02d%02d%02d-%03ld", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  now.tv_nsec / 1000000);
    return text;
}

std::string dumpContent(const DriveState &d)
{
    std::string data("TAPESIM-DUMP\0\1\2\3", 16);
    data += d.id + '\0' + d.model + '\0' + d.firmware + '\0' + d.serial + '\0';
    unsigned int x = 2463534242u ^ static_cast<unsigned int>(::getpid());
    while (data.size() < 4096) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        data += static_cast<char>(x & 0xff);
    }
    return data;
}

// Creates a dump file that no earlier run wrote, even within one millisecond.
std::string writeDump(const std::string &folder, const DriveState &d)
{
    std::filesystem::create_directories(folder);
    const std::string base = folder + "/" + d.serial + "_" + timestamp();
    const std::string data = dumpContent(d);
    for (int n = 0; n < 1000; ++n) {
        // Appended piece by piece: GCC 12 at -O3 (the Release build) reports
        // a false -Wrestrict overlap for "literal" + std::string.
        std::string path = base;
        if (n)
            path.append("_").append(std::to_string(n));
        path.append(".blz");
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0 && errno == EEXIST)
            continue;
        if (fd < 0)
            break;
        writeFully(fd, data);
        ::close(fd);
        return path;
    }
    throw std::runtime_error("cannot write a dump file in " + folder);
}

} // namespace

int scan(ItdtCall &call)
{
    call.ctx.out("Scanning SCSI Bus ...");
    const State s = call.ctx.store().snapshot();
    for (size_t i = 0; i < s.drives.size(); ++i) {
        const DriveState &d = s.drives[i];
        std::string line = "#";
        line.append(std::to_string(i));
        call.ctx.out(line + " " + d.id + " - [" + d.model + "]-[" + d.firmware + "] S/N:" + d.serial + " " +
                     d.address);
    }
    return exitcode::Ok;
}

int load(ItdtCall &call)
{
    call.ctx.out("Initializing device...");
    if (const int code = check(call, Needs::Cartridge))
        return code;
    call.ctx.out("Loading cartridge ...");
    call.ctx.wait(1.0);
    changeDrive(call, [](DriveState &d) {
        d.cartridge.loads += d.cartridge.present && !d.loaded ? 1 : 0;
        d.loaded = d.cartridge.present;
    });
    call.ctx.out("Cartridge loaded.");
    return exitcode::Ok;
}

int unload(ItdtCall &call)
{
    call.ctx.out("Initializing device...");
    if (const int code = check(call, Needs::Cartridge))
        return code;
    call.ctx.out("Rewinding and unloading cartridge ...");
    call.ctx.wait(1.0);
    changeDrive(call, [](DriveState &d) { d.loaded = false; });
    call.ctx.out("Cartridge unloaded.");
    return exitcode::Ok;
}

// Line 2 carries the attribute as "Barcode: " plus its 32 bytes, so the
// barcode is the second blank-separated word.
int readattr(ItdtCall &call)
{
    call.ctx.out("Initializing device...");
    const std::string partition = argAfter(call.args, "-p");
    const std::string attribute = argAfter(call.args, "-a");
    std::string dest = argAfter(call.args, "-d");
    if ((partition != "0" && partition != "1") || attribute.empty()) {
        call.ctx.out("Usage: readattr -p partition -a attribute [-d file]");
        return exitcode::Usage;
    }
    if (std::strtol(attribute.c_str(), nullptr, 16) != 0x806) {
        call.ctx.out("Attribute " + attribute + " is not available.");
        return exitcode::General;
    }
    if (const int code = check(call, Needs::Device))
        return code;
    const DriveState d = currentDrive(call);
    if (!d.loaded || !d.cartridge.present || !d.cartridge.formatted) {
        call.ctx.out("Attribute 0806h not available: no formatted cartridge loaded.");
        return exitcode::NotFormatted;
    }
    std::string padded = d.cartridge.barcode;
    padded.resize(32, ' ');
    const std::string line = "Barcode: " + padded;
    if (dest.empty() || dest == "/dev/stdout" || dest == "-") {
        call.ctx.out(line);
    } else if (!call.ctx.isDry()) {
        const int fd = ::open(dest.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0) {
            call.ctx.out("Cannot write " + dest + ".");
            return exitcode::General;
        }
        writeFully(fd, line + "\n");
        ::close(fd);
        call.ctx.out("Attribute written to " + dest + ".");
    }
    return exitcode::Ok;
}

int ucode(ItdtCall &call)
{
    call.ctx.out("Initializing device...");
    if (call.args.empty()) {
        call.ctx.out("Usage: ucode file");
        return exitcode::Usage;
    }
    const std::filesystem::path file = call.args.front();
    std::string ext = file.extension().string();
    for (char &c : ext)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (ext != ".fmrz" && ext != ".fm") {
        call.ctx.out("Invalid firmware file " + file.string() + ": expected a .fmrz or .fm file.");
        return exitcode::BadFirmware;
    }
    std::error_code ec;
    if (!std::filesystem::is_regular_file(file, ec)) {
        call.ctx.out("Firmware file " + file.string() + " not found.");
        return exitcode::BadFirmware;
    }
    if (const int code = check(call, Needs::Idle))
        return code;
    const DriveState d = currentDrive(call);
    const std::string level = levelFromFile(file, d.firmware);
    call.ctx.out("Downloading microcode " + file.filename().string() + " to " + d.id + " ...");
    progress(call, "Downloading", 3.0, 4);
    call.ctx.out("Activating microcode ...");
    call.ctx.wait(1.0);
    changeDrive(call, [&](DriveState &drive) { drive.firmware = level; });
    call.ctx.out("Microcode level " + d.firmware + " -> " + level + ".");
    return exitcode::Ok;
}

int dump(ItdtCall &call)
{
    call.ctx.out("Initializing device...");
    if (const int code = check(call, Needs::Device))
        return code;
    const DriveState d = currentDrive(call);
    call.ctx.out("Forcing drive dump ...");
    call.ctx.wait(1.0);
    call.ctx.out("Reading drive dump ...");
    call.ctx.wait(1.0);
    const std::string folder = call.resultDir.empty() ? "." : call.resultDir;
    const std::string path = call.ctx.isDry() ? folder + "/" + d.serial + ".blz" : writeDump(folder, d);
    call.ctx.out("Dump saved to " + path);
    return exitcode::Ok;
}

int rmp(ItdtCall &call)
{
    call.ctx.out("Initializing device...");
    if (const int code = check(call, Needs::Writable))
        return code;
    call.ctx.out("Removing partitions ...");
    call.ctx.wait(2.0);
    changeDrive(call, [](DriveState &d) {
        d.cartridge.formatted = false;
        d.cartridge.volume.clear();
    });
    call.ctx.out("Partitions removed.");
    return exitcode::Ok;
}

int standardtest(ItdtCall &call)
{
    call.ctx.out("Initializing device...");
    if (const int code = check(call, Needs::Writable))
        return code;
    call.ctx.out("Running standard test on " + call.device + " ...");
    progress(call, "Standard test", 8.0, 8);
    changeDrive(call, [](DriveState &d) {
        d.cartridge.formatted = false;
        d.cartridge.volume.clear();
    });
    call.ctx.out("Result: PASSED");
    call.ctx.out("Code: OK");
    return exitcode::Ok;
}

int systemtest(ItdtCall &call)
{
    call.ctx.out("Initializing device...");
    if (const int code = check(call, Needs::Writable))
        return code;
    const DriveState d = currentDrive(call);
    const double top = d.model.find('9') != std::string::npos ? 400.0 : 360.0;
    call.ctx.out("Running system test on " + call.device + " ...");
    call.ctx.out("Block Size   Write (MB/s)   Read (MB/s)");
    const int sizes[] = {32, 64, 128, 256, 512};
    for (const int kib : sizes) {
        call.ctx.wait(0.8);
        const double share = 0.35 + 0.13 * std::log2(kib / 32.0) + 0.1;
        char row[80];
        std::snprintf(row, sizeof row, "%6d KiB %12.2f %13.2f", kib, top * std::min(share, 0.98),
                      top * std::min(share + 0.02, 1.0));
        call.ctx.out(row);
    }
    call.ctx.out("Result: PASSED");
    call.ctx.out("Code: OK");
    return exitcode::Ok;
}

} // namespace tapesim::itdt

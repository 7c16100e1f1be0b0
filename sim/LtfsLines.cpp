#include "LtfsLines.h"

#include <cstdint>
#include <fstream>
#include <sys/utsname.h>

namespace tapesim {

namespace {

std::string firstLineOf(const char *path, const std::string &prefix)
{
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind(prefix, 0) == 0)
            return line;
    }
    return {};
}

std::string padded(std::string text, size_t width)
{
    if (text.size() < width)
        text.resize(width, ' ');
    return text;
}

} // namespace

void printBuildAndHost(const LineSink &log, const std::string &commandLine, const char *launchedId,
                       const char *platformId, const char *compilerId)
{
    utsname host{};
    ::uname(&host);
    log(std::string(launchedId) + " Launched by \"" + commandLine + "\".");
    log(std::string(platformId) + " This binary is built for Linux (" + host.machine + ").");
    log(std::string(compilerId) + " GCC version is " + __VERSION__ + ".");
    // "Linux version 6.1.0-18-amd64 (debian-kernel@lists.debian.org) ... #1 SMP ...", as /proc/version has it
    log("LTFS17087I Kernel version: " + firstLineOf("/proc/version", "Linux") + ".");
    log("LTFS17089I Distribution: " + firstLineOf("/etc/os-release", "PRETTY_NAME=") + ".");
}

void printLoad(const LineSink &log, const char *mode)
{
    log("LTFS17160I Maximum device block size is 1048576.");
    log("LTFS11330I Loading cartridge.");
    log("LTFS11332I Load successful.");
    log(std::string("LTFS17157I Changing the drive setting to ") + mode + " mode.");
}

void printTapeAttributes(const LineSink &log, const Cartridge &cartridge)
{
    log("LTFS17227I Tape attribute: Vendor = TAPESIM .");
    log("LTFS17227I Tape attribute: Application Name = " + padded("LTFS", 32) + ".");
    log("LTFS17227I Tape attribute: Application Version = " + padded("2.4.8.4", 8) + ".");
    log("LTFS17227I Tape attribute: Medium Label = " + cartridge.volume + ".");
    log("LTFS17228I Tape attribute: Text Localization ID = 0x81.");
    log("LTFS17227I Tape attribute: Barcode = " + padded(cartridge.barcode, 32) + ".");
    log("LTFS17227I Tape attribute: Application Format Version = " + padded("2.4.0", 16) + ".");
    log("LTFS17228I Tape attribute: Volume Lock Status = 0x00.");
    log("LTFS17227I Tape attribute: Media Pool name = .");
}

std::string barcodeOf(const Cartridge &cartridge)
{
    return cartridge.barcode.empty() ? "NO_BARCODE" : cartridge.barcode;
}

void printIndexWrite(const LineSink &log, const DriveState &drive, char partition, const char *reason,
                     long long generation, long long position)
{
    const std::string barcode = barcodeOf(drive.cartridge);
    log("LTFS17235I Writing index of " + barcode + " to " + partition + " (Reason: " + reason +
        ", 0 files) " + drive.serial + ".");
    log("LTFS17236I Wrote index of " + barcode + " (Gen = " + std::to_string(generation) +
        ", Part = " + partition + ", Pos = " + std::to_string(position) + ", " + drive.serial + ").");
}

void printDirtyFlag(const LineSink &log, const Cartridge &cartridge, bool dirty)
{
    // The real line names the volume's structure in memory; any address will do.
    static const std::string address = [] {
        char text[32];
        std::snprintf(text, sizeof text, "0x0x%llx",
                      static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(&text)));
        return std::string(text);
    }();
    log(std::string("LTFS11337I Update index-dirty flag (") + (dirty ? "1" : "0") + ") - " +
        barcodeOf(cartridge) + " (" + address + ").");
}

std::string mountedLine(const DriveState &drive)
{
    return "LTFS11031I Volume mounted successfully. " + barcodeOf(drive.cartridge) +
           " : Gen = " + std::to_string(drive.cartridge.generation) + " / (a, 5) -> (b, 5) / " +
           drive.serial + ".";
}

std::string uuidOf(const DriveState &d)
{
    unsigned long long h = 14695981039346656037ULL; // FNV-1a
    for (const char c : d.serial + d.cartridge.barcode + d.cartridge.volume + d.cartridge.formattedAt)
        h = (h ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
    const unsigned long long g = h * 6364136223846793005ULL + 1442695040888963407ULL;
    char text[40];
    std::snprintf(text, sizeof text, "%08llx-%04llx-4%03llx-a%03llx-%012llx", h >> 32, (h >> 16) & 0xffff,
                  h & 0xfff, (g >> 52) & 0xfff, g & 0xffffffffffffULL);
    return text;
}

} // namespace tapesim

#pragma once

// The lines every run of the real mkltfs, ltfs and ltfsck prints about
// itself, the host, the loading of the cartridge and its attributes, in the
// real programs' order and wording.

#include "State.h"

#include <functional>
#include <string>

namespace tapesim {

using LineSink = std::function<void(const std::string &)>;

// The LTFS these programs stand for, as they report it.
inline constexpr const char *kLtfsVersion = "2.4.8.4 (Prelim)";

// "Launched by", the platform, the compiler, the kernel and the distribution,
// under each program's own message ids ("LTFS15041I", "LTFS15042I", "LTFS15043I").
void printBuildAndHost(const LineSink &log, const std::string &commandLine, const char *launchedId,
                       const char *platformId, const char *compilerId);

// The drive opened and the cartridge loaded (`mode`: "write-anywhere" or "append-only").
void printLoad(const LineSink &log, const char *mode);

// The medium auxiliary memory as LTFS reads it at a mount.
void printTapeAttributes(const LineSink &log, const Cartridge &cartridge);

// "RLTC01", or NO_BARCODE for a cartridge formatted without a serial.
std::string barcodeOf(const Cartridge &cartridge);

// The drive's serial where LTFS reports the drive that wrote an index.
// "Writing index of TD0001 to b (Reason: Format, 0 files) 1013000101."
void printIndexWrite(const LineSink &log, const DriveState &drive, char partition, const char *reason,
                     long long generation, long long position);

// "Update index-dirty flag (1) - TD0001 (0x0x55d16d84dca0)."
void printDirtyFlag(const LineSink &log, const Cartridge &cartridge, bool dirty);

// "Volume mounted successfully. TD0001 : Gen = 1 / (a, 5) -> (b, 5) / 1013000101."
std::string mountedLine(const DriveState &drive);

// The volume's UUID as mkltfs wrote it (stable per cartridge and format).
std::string uuidOf(const DriveState &drive);

} // namespace tapesim

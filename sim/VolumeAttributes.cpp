// What a mounted volume tells about itself. The real ltfs answers these from
// its index and the drive's cartridge memory; here they come from the state.
#include "LtfsLines.h"
#include "Tool.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <sys/xattr.h>

namespace tapesim {

namespace {

// Binary megabytes, as LTFS counts its partition sizes.
constexpr long long kMegabyte = 1024LL * 1024;

// The data partition of each generation's cartridge: what is left of its
// native size after the index partition and the guard wraps.
long long capacityMb(const std::string &model)
{
    const long long nativeBytes = model.find('9') != std::string::npos   ? 18'000'000'000'000LL
                                  : model.find('8') != std::string::npos ? 12'000'000'000'000LL
                                                                         : 3'000'000'000LL;
    return nativeBytes / 100 * 97 / kMegabyte;
}

const char *const kNames[] = {"volumeName",
                              "mamBarcode",
                              "volumeUUID",
                              "volumeFormatTime",
                              "indexGeneration",
                              "indexLocation",
                              "mediaDataPartitionTotalCapacity",
                              "mediaDataPartitionAvailableSpace",
                              "mediaLoads",
                              "mediaEfficiency",
                              "mediaBeginningMediumPasses",
                              "mediaStorageAlert"};

} // namespace

void publishVolumeAttributes(const std::string &point, const DriveState &drive)
{
    const Cartridge &c = drive.cartridge;
    std::string barcode = c.barcode;
    barcode.resize(32, ' ');
    const long long total = capacityMb(drive.model);
    const std::string values[] = {c.volume,
                                  barcode,
                                  uuidOf(drive),
                                  c.formattedAt,
                                  std::to_string(c.generation),
                                  "a:5",
                                  std::to_string(total),
                                  std::to_string(std::max(0LL, total - 3 - c.usedMb)),
                                  std::to_string(c.loads > 0 ? c.loads : -1),
                                  "-1",
                                  "-1",
                                  drive.tapeAlert};
    for (size_t i = 0; i < std::size(kNames); ++i) {
        // Absent, as the real backend leaves what it cannot supply; a volume
        // formatted without a name has an empty one.
        if (values[i].empty() && i != 0)
            continue;
        const std::string key = std::string("user.ltfs.") + kNames[i];
        if (::setxattr(point.c_str(), key.c_str(), values[i].data(), values[i].size(), 0) != 0)
            return; // this file system takes no user attributes
    }
}

void withdrawVolumeAttributes(const std::string &point)
{
    for (const char *name : kNames)
        ::removexattr(point.c_str(), (std::string("user.ltfs.") + name).c_str());
}

std::string isoTimeNow()
{
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    ::gmtime_r(&now.tv_sec, &utc);
    char text[48];
    const size_t n = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text + n, sizeof text - n, ".%09ldZ", now.tv_nsec);
    return text;
}

} // namespace tapesim

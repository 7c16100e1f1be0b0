#include "LtfsLines.h"
#include "Tool.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tapesim {

namespace {

struct Options
{
    std::string mountPoint;
    std::string device;
    bool eject = false;
    bool listDevices = false;
    bool nonempty = false; // FUSE's "nonempty": mount over files in the mount point
    std::string commandLine;
};

// "-o a,b" and "-oa,b" both carry comma-separated FUSE/LTFS options.
Options parse(const Args &args)
{
    Options o;
    o.commandLine = "ltfs";
    for (const std::string &a : args)
        o.commandLine += " " + a;
    for (size_t i = 0; i < args.size(); ++i) {
        std::string list;
        if (args[i] == "-o" && i + 1 < args.size())
            list = args[++i];
        else if (args[i].rfind("-o", 0) == 0 && args[i].size() > 2)
            list = args[i].substr(2);
        else if (!args[i].empty() && args[i].front() != '-' && o.mountPoint.empty())
            o.mountPoint = args[i];
        for (size_t start = 0; !list.empty() && start <= list.size();) {
            const size_t end = std::min(list.find(',', start), list.size());
            const std::string option = list.substr(start, end - start);
            if (option.rfind("devname=", 0) == 0)
                o.device = option.substr(8);
            else if (option == "eject")
                o.eject = true;
            else if (option == "noeject")
                o.eject = false;
            else if (option == "device_list")
                o.listDevices = true;
            else if (option == "nonempty")
                o.nonempty = true;
            start = end + 1;
        }
    }
    return o;
}

// Real ltfs prefixes every line with the id of the thread that logged it.
std::string threadTag()
{
    char tag[16];
    std::snprintf(tag, sizeof tag, "%x ", 0x1000 + static_cast<unsigned>(::getpid()) % 0xefff);
    return tag;
}

bool holdsAnything(const std::string &dir)
{
    DIR *d = ::opendir(dir.c_str());
    if (!d)
        return false;
    bool any = false;
    while (const dirent *e = ::readdir(d)) {
        const std::string name = e->d_name;
        if (name != "." && name != "..") {
            any = true;
            break;
        }
    }
    ::closedir(d);
    return any;
}

std::string canonical(const std::string &path)
{
    char resolved[PATH_MAX];
    return ::realpath(path.c_str(), resolved) ? std::string(resolved) : path;
}

class Log
{
public:
    explicit Log(Context &ctx) : m_ctx(ctx), m_tag(threadTag()) {}
    void operator()(const std::string &line) { m_ctx.err(m_tag + line); }

private:
    Context &m_ctx;
    std::string m_tag;
};

int listDevices(Context &ctx, Log &log)
{
    log("LTFS17073I Device list:");
    for (const DriveState &d : ctx.store().snapshot().drives)
        log("LTFS17074I Device Name = " + d.id + ", Vendor ID = TAPESIM, Product ID = " + d.model +
            ", Serial Number = " + d.serial + ".");
    return 0;
}

int run(const Options &o, Context &ctx)
{
    Log log(ctx);
    const LineSink sink = [&log](const std::string &line) { log(line); };
    log(std::string("LTFS14000I LTFS starting, LTFS version ") + kLtfsVersion + ", log level 2.");
    log("LTFS14058I LTFS Format version 2.4.0.");
    printBuildAndHost(sink, o.commandLine, "LTFS14104I", "LTFS14105I", "LTFS14106I");
    if (o.listDevices)
        return listDevices(ctx, log);
    struct stat st
    {
    };
    if (o.mountPoint.empty() || ::stat(o.mountPoint.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        const bool exists = !o.mountPoint.empty() && ::stat(o.mountPoint.c_str(), &st) == 0;
        ctx.err("fuse: bad mount point `" + o.mountPoint +
                "': " + (exists ? "Not a directory" : "No such file or directory"));
        return 1;
    }
    const std::string point = canonical(o.mountPoint);
    // The real ltfs notices only after it has reported the volume mounted:
    // FUSE then refuses, and nothing is mounted.
    const bool fuseRefuses = !o.nonempty && holdsAnything(o.mountPoint);

    std::string refusal;
    bool needsLoad = false;
    bool blank = false;
    bool unclosed = false;
    DriveState drive;
    ctx.store().update([&](State &s) {
        DriveState *d = s.driveByName(o.device);
        if (o.device.empty() || !d) {
            refusal = "LTFS10004E Cannot open device '" + o.device + "'.";
        } else if (s.mountOf(d->id)) {
            refusal = "LTFS30205E RESERVE (6) returns Device or resource busy.";
        } else if (s.mountAt(point)) {
            refusal = "LTFS14013E Cannot mount the volume: " + point + " is already a mount point.";
        } else if (!d->cartridge.present) {
            refusal = "LTFS11006E Cannot load the medium: no medium present.";
        } else {
            needsLoad = !d->loaded;
            d->cartridge.loads += needsLoad ? 1 : 0;
            d->loaded = true;
            blank = !d->cartridge.formatted;
            unclosed = !d->cartridge.consistent;
            drive = *d;
            if (!blank && !unclosed && !fuseRefuses)
                s.mounts.push_back(MountState{point, o.device, d->id, o.eject, true, 0, 0});
        }
    });
    log("LTFS14063I Sync type is \"time\", Sync time is 300 sec.");
    log("LTFS17085I Plugin: Loading \"sg\" tape backend.");
    log("LTFS17085I Plugin: Loading \"unified\" iosched backend.");
    // Append-only mode is cleared only by an eject, so without one it stays off.
    if (!o.eject)
        log("LTFS14095I Set the tape device write-anywhere mode to avoid cartridge ejection.");
    if (!refusal.empty()) {
        log(refusal);
        return 1;
    }
    printLoad(sink, o.eject ? "append-only" : "write-anywhere");
    log("LTFS11005I Mounting the volume.");
    if (blank) {
        log("LTFS17168E Cannot read volume: medium is not partitioned.");
        log("LTFS14013E Cannot mount the volume.");
        return 1;
    }
    if (unclosed) {
        // The data written after the last index, which the dead daemon never wrote.
        log("LTFS11026I Performing a full medium consistency check.");
        log("LTFS17037E XML parser: failed to read from XML stream.");
        log("LTFS17016E Cannot parse index direct from medium (-5000).");
        log("LTFS11194W Cannot read index: failed to read and parse XML data (-5000).");
        log("LTFS11220E Medium check failed: extra blocks detected. Run ltfsck.");
        log("LTFS11027E Cannot mount volume: medium consistency check failed.");
        log("LTFS14013E Cannot mount the volume.");
        return 1;
    }
    printTapeAttributes(sink, drive.cartridge);
    log(mountedLine(drive));
    log("LTFS14111I Initial setup completed successfully.");
    log("LTFS14112I Invoke 'mount' command to check the result of final setup.");
    log("LTFS14113I Specified mount point is listed if succeeded.");
    if (fuseRefuses) {
        ctx.err("fuse: mountpoint is not empty");
        ctx.err("fuse: if you are sure this is safe, use the 'nonempty' mount option");
        log("LTFS14123W The main function of FUSE returned error (1).");
        if (o.eject) {
            log("LTFS11289I Ejecting cartridge.");
            log("LTFS12022I Unloading medium.");
            log("LTFS11291I Eject successful.");
        }
        return 0;
    }
    if (!ctx.isDry()) {
        publishVolumeAttributes(point, drive);
        startLtfsDaemon(ctx.store(), point, o.device);
    }
    return 0;
}

int fail(Context &ctx, const std::vector<Line> &dryLines, int code)
{
    for (size_t i = 0; i < dryLines.size() && i < 3; ++i)
        ctx.err(dryLines[i].text);
    const std::string tag = threadTag();
    ctx.err(tag + "LTFS12035E Cannot read the medium: medium error.");
    ctx.err(tag + "LTFS14013E Cannot mount the volume.");
    return code;
}

} // namespace

Tool ltfsTool(const Args &args)
{
    const Options o = parse(args);
    return Tool{"ltfs", "ltfs", o.device, [o](Context &ctx) { return run(o, ctx); }, fail};
}

} // namespace tapesim

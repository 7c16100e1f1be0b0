#include "LtfsLines.h"
#include "Tool.h"

namespace tapesim {

namespace {

// mkltfs's exit statuses.
constexpr int kFormatted = 0;
constexpr int kWiped = 1;
constexpr int kOperational = 8;
constexpr int kUsage = 16;

struct Options
{
    std::string device;
    std::string serial;
    std::string volume;
    bool serialGiven = false;
    bool force = false;
    bool wipe = false;
    std::string error; // a usage error line, or ""
};

// Accepts "--name=value", "--name value", "-x value" and "-xvalue".
Options parse(const Args &args)
{
    Options o;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        const auto eq = a.find('=');
        const std::string key =
            a.rfind("--", 0) == 0 ? a.substr(0, eq) : a.substr(0, std::min<size_t>(2, a.size()));
        const bool inlineValue = a.rfind("--", 0) == 0 ? eq != std::string::npos : a.size() > 2;
        auto value = [&]() -> std::string {
            if (inlineValue)
                return a.rfind("--", 0) == 0 ? a.substr(eq + 1) : a.substr(2);
            return i + 1 < args.size() ? args[++i] : std::string();
        };
        if (key == "--device" || key == "-d")
            o.device = value();
        else if (key == "--tape-serial" || key == "-s") {
            o.serial = value();
            o.serialGiven = true;
        } else if (key == "--volume-name" || key == "-n")
            o.volume = value();
        else if (key == "--backend" || key == "-e")
            value();
        else if (a == "--force" || a == "-f")
            o.force = true;
        else if (a == "--wipe" || a == "-w")
            o.wipe = true;
        else if (o.error.empty())
            o.error = "LTFS15021E Unrecognized option '" + a + "'.";
    }
    if (o.error.empty() && o.device.empty())
        o.error = "LTFS15022E A device name must be specified with --device.";
    return o;
}

std::string serialError(const Options &o)
{
    if (!o.serialGiven)
        return {};
    if (o.serial.size() != 6)
        return "LTFS15029E Tape serial must be 6 characters.";
    for (const char c : o.serial) {
        if (!((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z')))
            return "LTFS15030E Tape serial must contain only ASCII digits and capital letters.";
    }
    return {};
}

std::string capacityOf(const std::string &model)
{
    if (model.find('9') != std::string::npos)
        return "17 TB";
    if (model.find('8') != std::string::npos)
        return "11 TB";
    return "5 TB";
}

int failed(Context &ctx, int status)
{
    ctx.err("LTFS15023I Formatting failed.");
    return status;
}

// What the real mkltfs prints after a command-line error, program name and all.
void printUsage(Context &ctx)
{
    static const std::string usage = R"(
Usage: mkltfs <options>

Available options are:
  -d, --device=<name>       Tape device (required)
  -f, --force               Force to format medium
  -s, --tape-serial=<id>    Tape serial number (6 alphanumeric ASCII characters)
  -n, --volume-name=<name>  Tape volume name (empty by default)
  -r, --rules=<rules>       Rules for choosing files to write to the index partition.
                            The syntax of the rule argument is:
                                size=1M
                                size=1M/name=pattern
                                size=1M/name=pattern1:pattern2:pattern3
                            A file is written to the index partition if it is no larger
                            than the given size AND matches at least one of the name
                            patterns (if specified). The size argument accepts K, M, and G
                            suffixes. Name patterns might contain the special characters
                            '?' (match any single character) and '*' (match zero or more
                            characters)
      --no-override         Disallow mount-time data placement policy changes
  -w, --wipe                Restore the LTFS medium to an unpartitioned medium (format to a legacy scratch medium)
  -q, --quiet               Suppress progress information and general messages
  -t, --trace               Enable function call tracing
      --syslogtrace               Enable diagnostic output to stderr and syslog
  -V, --version             Version information
  -h, --help                This help
  -p, --advanced-help       Full help, including advanced options

Usage example:
  mkltfs --device=/tmp/ltfs/tape --rules="size=100K"
  mkltfs --device=/tmp/ltfs/tape --rules="size=1M/name=*.jpg"
  mkltfs --device=/tmp/ltfs/tape --rules="size=1M/name=*.jpg:*.png")";
    for (size_t start = 0; start <= usage.size();) {
        const size_t end = std::min(usage.find('\n', start), usage.size());
        ctx.err(usage.substr(start, end - start));
        start = end + 1;
    }
}

int run(const Options &o, const std::string &commandLine, Context &ctx)
{
    const LineSink log = [&ctx](const std::string &line) { ctx.err(line); };
    ctx.err(std::string("LTFS15000I Starting mkltfs, LTFS version ") + kLtfsVersion + ", log level 2.");
    printBuildAndHost(log, commandLine, "LTFS15041I", "LTFS15042I", "LTFS15043I");
    if (!o.error.empty()) {
        ctx.err(o.error);
        return kUsage;
    }
    if (const std::string bad = serialError(o); !bad.empty()) {
        ctx.err(bad);
        ctx.err("LTFS17085I Plugin: Loading \"sg\" tape backend.");
        printUsage(ctx);
        return kUsage;
    }
    ctx.err("LTFS15003I Formatting device '" + o.device + "'.");
    ctx.err("LTFS15004I LTFS volume blocksize: 524288.");
    ctx.err("LTFS15005I Index partition placement policy: None.");
    ctx.err("");
    Cartridge target;
    target.barcode = o.serial;
    printDirtyFlag(log, target, true);
    ctx.err("LTFS17085I Plugin: Loading \"sg\" tape backend.");

    // Settle everything that can refuse before the long part starts.
    std::string refusal;
    int status = kOperational;
    bool needsLoad = false;
    DriveState drive;
    ctx.store().update([&](State &s) {
        const DriveState *d = s.driveByName(o.device);
        if (!d) {
            refusal = "LTFS10004E Cannot open device '" + o.device + "'.";
        } else if (s.mountOf(d->id)) {
            // A mounted volume's ltfs daemon holds the drive's SCSI reservation.
            refusal = "LTFS30205E RESERVE (6) returns Device or resource busy.";
        } else if (!d->cartridge.present) {
            refusal = "LTFS11006E Cannot load the medium: no medium present.";
        } else if (d->cartridge.writeProtected) {
            refusal = "LTFS15060E Cannot format: the medium is write-protected.";
            status = kUsage;
        } else {
            drive = *d;
            needsLoad = !d->loaded;
        }
    });
    if (!refusal.empty()) {
        ctx.err(refusal);
        return failed(ctx, status);
    }
    // The real tool prints this before a load, yet still succeeds; TapeDesk
    // must not take an E line alone for failure.
    if (needsLoad)
        ctx.err("LTFS30061E Cannot unlock medium: unit not ready.");
    printLoad(log, "write-anywhere");
    ctx.wait(needsLoad ? 1.0 : 0.0);
    ctx.err(o.force || o.wipe ? "LTFS15049I Checking the medium (load)."
                              : "LTFS15049I Checking the medium (mount).");
    if (!o.force && !o.wipe && drive.cartridge.formatted) {
        ctx.store().update([&](State &s) { s.driveById(drive.id)->loaded = true; });
        ctx.err("LTFS15047E Medium is already formatted (0).");
        ctx.err("LTFS15048I Need to specify -f or --force option to format this medium.");
        return failed(ctx, kUsage);
    }
    if (o.wipe) {
        ctx.err("LTFS15040I Unformatting the medium.");
        ctx.wait(2.0);
        ctx.store().update([&](State &s) {
            DriveState *d = s.driveById(drive.id);
            d->loaded = true;
            d->cartridge.formatted = false;
            d->cartridge.volume.clear();
        });
        ctx.err("LTFS15041I Medium unformatted successfully.");
        return kWiped;
    }
    // A blank cartridge has no LTFS attributes in its memory yet.
    const bool wasBlank = !drive.cartridge.formatted;
    DriveState formatted = drive;
    formatted.loaded = true;
    formatted.cartridge.formatted = true;
    formatted.cartridge.consistent = true;
    formatted.cartridge.barcode = o.serial;
    formatted.cartridge.volume = o.volume;
    formatted.cartridge.formattedAt = isoTimeNow();
    formatted.cartridge.generation = 1;
    formatted.cartridge.usedMb = 0;
    ctx.err("LTFS15010I Creating data partition b on SCSI partition 1.");
    ctx.err("LTFS15011I Creating index partition a on SCSI partition 0.");
    ctx.err("LTFS17165I Resetting the medium's capacity proportion.");
    ctx.err("LTFS11097I Partitioning the medium.");
    ctx.wait(3.0);
    for (const char partition : {'b', 'a'}) {
        ctx.err(std::string("LTFS11100I Writing label to partition ") + partition + ".");
        ctx.wait(0.5);
        ctx.err(std::string("LTFS11278I Writing index to partition ") + partition + ".");
        if (wasBlank)
            ctx.err("LTFS11336I The attribute does not exist. Ignore the expected error.");
        printIndexWrite(log, formatted, partition, "Format", 1, 5);
        if (partition == 'b')
            printDirtyFlag(log, formatted.cartridge, false);
        ctx.wait(0.5);
    }
    ctx.store().update([&](State &s) { *s.driveById(drive.id) = formatted; });
    ctx.err("LTFS15013I Volume UUID is: " + uuidOf(formatted) + ".");
    ctx.err("");
    ctx.err("LTFS15019I Volume capacity is " + capacityOf(drive.model) + ".");
    ctx.err("LTFS15024I Medium formatted successfully.");
    return kFormatted;
}

int fail(Context &ctx, const std::vector<Line> &dryLines, int code)
{
    for (size_t i = 0; i < dryLines.size() && i < 2; ++i)
        ctx.err(dryLines[i].text);
    ctx.err("LTFS12030E Cannot write to the medium: medium error.");
    ctx.err("LTFS15023I Formatting failed.");
    return code;
}

} // namespace

Tool mkltfsTool(const Args &args)
{
    const Options o = parse(args);
    std::string commandLine = "mkltfs";
    for (const std::string &a : args)
        commandLine += " " + a;
    return Tool{"mkltfs", "mkltfs", o.device,
                [o, commandLine](Context &ctx) { return run(o, commandLine, ctx); }, fail};
}

} // namespace tapesim

// ltfsck DEVICE: checks an LTFS volume and rolls one whose ltfs daemon died
// while it was mounted back to its last index. Standard output stays empty;
// the messages go to standard error without a thread id, as mkltfs's do. The
// exit status is the verdict, as with fsck.
#include "LtfsLines.h"
#include "Tool.h"

#include <algorithm>

namespace tapesim {

namespace {

// 2.4.8.4 answers "corrected" for a volume that was consistent already.
constexpr int kCorrected = 1;
constexpr int kNotCorrected = 4;
constexpr int kOperational = 8;
constexpr int kUsage = 16;

// Options (-g, -r, -z, ...) change nothing here; the first other word is the device.
std::string deviceOf(const Args &args)
{
    for (const std::string &a : args) {
        if (!a.empty() && a.front() != '-')
            return a;
    }
    return {};
}

// "2026-11-23T11:39:48.393093672Z" as ltfsck shows it: "2026-11-23 11:39:48.393093672 UTC".
std::string shownTime(std::string iso)
{
    if (iso.size() < 20)
        return iso;
    iso[10] = ' ';
    if (iso.back() == 'Z')
        iso.replace(iso.size() - 1, 1, " UTC");
    return iso;
}

int run(const std::string &device, const std::string &commandLine, Context &ctx)
{
    const LineSink log = [&ctx](const std::string &line) { ctx.err(line); };
    ctx.err(std::string("LTFS16000I Starting ltfsck, LTFS version ") + kLtfsVersion + ", log level 2.");
    printBuildAndHost(log, commandLine, "LTFS16088I", "LTFS16089I", "LTFS16090I");
    if (device.empty()) {
        ctx.err("LTFS16001E A device name must be specified.");
        return kUsage;
    }
    ctx.err("LTFS17085I Plugin: Loading \"sg\" tape backend.");
    std::string refusal;
    DriveState drive;
    ctx.store().update([&](State &s) {
        DriveState *d = s.driveByName(device);
        if (!d) {
            refusal = "LTFS10004E Cannot open device '" + device + "'.";
        } else if (s.mountOf(d->id)) {
            refusal = "LTFS30205E RESERVE (6) returns Device or resource busy.";
        } else if (!d->cartridge.present) {
            refusal = "LTFS11006E Cannot load the medium: no medium present.";
        } else {
            drive = *d;
            d->loaded = true;
            // The rolled-back volume gets a new index: the next generation.
            if (d->cartridge.formatted && !d->cartridge.consistent) {
                d->cartridge.consistent = true;
                ++d->cartridge.generation;
            }
        }
    });
    if (!refusal.empty()) {
        ctx.err(refusal);
        return kOperational;
    }
    printLoad(log, "write-anywhere");
    ctx.err("LTFS16014I Checking LTFS file system on '" + device + "'.");
    const Cartridge &c = drive.cartridge;
    if (!c.formatted) {
        ctx.err("LTFS17168E Cannot read volume: medium is not partitioned.");
        ctx.err("LTFS16080E Cannot check volume (8).");
        return kNotCorrected;
    }
    ctx.err("LTFS16023I LTFS volume information:.");
    // Six characters, blanks for a cartridge formatted without a serial.
    std::string volser = c.barcode;
    volser.resize(std::max<size_t>(volser.size(), 6), ' ');
    ctx.err("LTFS16024I Volser (bar code) : " + volser + ".");
    ctx.err("LTFS16025I Volume UUID     : " + uuidOf(drive) + ".");
    ctx.err("LTFS16026I Format time     : " + shownTime(c.formattedAt) + ".");
    ctx.err("LTFS16027I Block size      : 524288.");
    ctx.err("LTFS16028I Compression     : Enabled.");
    ctx.err("LTFS16029I Index partition : ID = a, SCSI Partition = 0.");
    ctx.err("LTFS16030I Data partition  : ID = b, SCSI Partition = 1.");
    ctx.err("");
    ctx.err("LTFS11005I Mounting the volume.");
    ctx.err("LTFS11026I Performing a full medium consistency check.");
    DriveState checked = drive;
    if (c.consistent) {
        ctx.err("LTFS11233I Updating MAM coherency data.");
    } else {
        // The blocks written after the last index stay, and a new index is written after them.
        ctx.err("LTFS17037E XML parser: failed to read from XML stream.");
        ctx.err("LTFS17016E Cannot parse index direct from medium (-5000).");
        ctx.err("LTFS11194W Cannot read index: failed to read and parse XML data (-5000).");
        ctx.err("LTFS11227I Preserve existing unreferred data blocks in the data partition, put the latest "
                "index at 7.");
        printDirtyFlag(log, c, true);
        ctx.err("LTFS11230I Writing index(es) to restore consistency.");
        ctx.wait(2.0);
        checked.cartridge.generation = c.generation + 1;
        ctx.err("LTFS17259I Recover an index on DP from (a, 5).");
        printIndexWrite(log, checked, 'b', "Recovery", checked.cartridge.generation, 8);
        printDirtyFlag(log, c, false);
        ctx.err("LTFS17259I Recover an index on IP from (b, 8).");
        printIndexWrite(log, checked, 'a', "Recovery", checked.cartridge.generation, 5);
    }
    printTapeAttributes(log, c);
    ctx.err(mountedLine(checked));
    ctx.err("LTFS17265I Skip writing the index because of the volume is not dirty and current self pointer "
            "points IP.");
    ctx.err("LTFS11034I Volume unmounted successfully.");
    ctx.err("LTFS16022I Volume is consistent.");
    return kCorrected;
}

int fail(Context &ctx, const std::vector<Line> &dryLines, int code)
{
    for (size_t i = 0; i < dryLines.size() && i < 2; ++i)
        ctx.err(dryLines[i].text);
    ctx.err(code == kOperational ? "LTFS12035E Cannot read the medium: medium error."
                                 : "LTFS16021E Volume is inconsistent and was not corrected.");
    ctx.err("LTFS16080E Cannot check volume (" + std::to_string(code) + ").");
    return code;
}

} // namespace

Tool ltfsckTool(const Args &args)
{
    const std::string device = deviceOf(args);
    std::string commandLine = "ltfsck";
    for (const std::string &a : args)
        commandLine += " " + a;
    return Tool{"ltfsck", "ltfsck", device,
                [device, commandLine](Context &ctx) { return run(device, commandLine, ctx); }, fail};
}

} // namespace tapesim

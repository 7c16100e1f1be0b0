// ltfsck DEVICE: checks an LTFS volume and rolls one whose ltfs daemon died
// while it was mounted back to its last index. Standard output stays empty;
// the messages go to standard error without a thread id, as mkltfs's do. The
// exit status is the verdict, as with fsck.
#include "Tool.h"

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

int run(const std::string &device, Context &ctx)
{
    ctx.err("LTFS16000I Starting ltfsck, LTFS version 2.4.8.4, log level 2.");
    if (device.empty()) {
        ctx.err("LTFS16001E A device name must be specified.");
        return kUsage;
    }
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
            if (d->cartridge.formatted)
                d->cartridge.consistent = true;
        }
    });
    if (!refusal.empty()) {
        ctx.err(refusal);
        return kOperational;
    }
    ctx.err("LTFS16014I Checking LTFS file system on '" + device + "'.");
    if (!drive.cartridge.formatted) {
        ctx.err("LTFS17168E Cannot read volume: medium is not partitioned.");
        ctx.err("LTFS16080E Cannot check volume (8).");
        return kNotCorrected;
    }
    ctx.err("LTFS16024I Volser (bar code) : " + drive.cartridge.barcode + ".");
    if (!drive.cartridge.consistent) {
        ctx.err("LTFS16023I Rolling back the volume to its last index.");
        ctx.wait(2.0);
    }
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
    return Tool{"ltfsck", "ltfsck", device, [device](Context &ctx) { return run(device, ctx); }, fail};
}

} // namespace tapesim

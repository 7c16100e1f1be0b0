#include "Tool.h"

#include <random>

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

std::string newUuid()
{
    std::random_device rd;
    std::mt19937_64 gen((static_cast<unsigned long long>(rd()) << 32) ^ rd());
    const char *hex = "0123456789abcdef";
    std::string id;
    for (int i = 0; i < 32; ++i) {
        if (i == 8 || i == 12 || i == 16 || i == 20)
            id += '-';
        id += hex[gen() & 15];
    }
    id[14] = '4';
    return id;
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

int run(const Options &o, Context &ctx)
{
    ctx.err("LTFS15000I Starting mkltfs, LTFS version 2.4.8.4, log level 2.");
    if (!o.error.empty()) {
        ctx.err(o.error);
        return kUsage;
    }
    if (const std::string bad = serialError(o); !bad.empty()) {
        ctx.err(bad);
        return kUsage;
    }
    ctx.err("LTFS15003I Formatting device '" + o.device + "'.");
    ctx.err("LTFS15004I LTFS volume blocksize: 524288.");
    ctx.err("LTFS15005I Index partition placement policy: None.");

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
    if (needsLoad) {
        ctx.err("LTFS11330I Loading cartridge.");
        ctx.wait(1.0);
        ctx.err("LTFS11332I Load successful.");
    }
    ctx.err("LTFS17160I Maximum device block size is 1048576.");
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
    ctx.err("LTFS15010I Creating data partition b on SCSI partition 1.");
    ctx.err("LTFS15011I Creating index partition a on SCSI partition 0.");
    ctx.err("LTFS11097I Partitioning the medium.");
    ctx.wait(3.0);
    for (const char *partition : {"b", "a"}) {
        ctx.err(std::string("LTFS11100I Writing label to partition ") + partition + ".");
        ctx.wait(0.5);
        ctx.err(std::string("LTFS11278I Writing index to partition ") + partition + ".");
        ctx.wait(0.5);
    }
    ctx.store().update([&](State &s) {
        DriveState *d = s.driveById(drive.id);
        d->loaded = true;
        d->cartridge.formatted = true;
        d->cartridge.consistent = true;
        d->cartridge.barcode = o.serial;
        d->cartridge.volume = o.volume;
        d->cartridge.formattedAt = isoTimeNow();
        d->cartridge.usedMb = 0;
    });
    // The real tool prints this after a load, yet still succeeds; TapeDesk must
    // not take an E line alone for failure.
    if (needsLoad)
        ctx.err("LTFS30061E Cannot unlock medium: unit not ready.");
    ctx.err("LTFS15013I Volume UUID is: " + newUuid() + ".");
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
    return Tool{"mkltfs", "mkltfs", o.device, [o](Context &ctx) { return run(o, ctx); }, fail};
}

} // namespace tapesim

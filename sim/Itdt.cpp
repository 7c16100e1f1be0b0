#include "ExitCodes.h"
#include "ItdtCommands.h"

#include <map>

namespace tapesim {

namespace {

using Command = int (*)(ItdtCall &);

const std::map<std::string, Command> &commands()
{
    static const std::map<std::string, Command> table{
        {"scan", itdt::scan},
        {"load", itdt::load},
        {"unload", itdt::unload},
        {"readattr", itdt::readattr},
        {"ucode", itdt::ucode},
        {"dump", itdt::dump},
        {"rmp", itdt::rmp},
        {"standardtest", itdt::standardtest},
        {"systemtest", itdt::systemtest},
    };
    return table;
}

struct Parsed
{
    std::string device;
    std::string resultDir;
    std::string command;
    Args rest;
    std::string error; // a usage error, or ""
};

Parsed parse(const Args &args)
{
    Parsed p;
    size_t i = 0;
    for (; i < args.size() && !args[i].empty() && args[i].front() == '-'; i += 2) {
        const std::string &option = args[i];
        if (option != "-R" && option != "-LP" && option != "-f" && option != "-w") {
            p.error = "Unknown option " + option;
            return p;
        }
        if (i + 1 >= args.size()) {
            p.error = "Option " + option + " needs a value";
            return p;
        }
        const std::string &value = args[i + 1];
        if (option == "-R")
            p.resultDir = value;
        else if (option == "-f")
            p.device = value;
        else if (option == "-w" && (value.size() != 1 || value[0] < '1' || value[0] > '4')) {
            p.error = "Invalid open mode " + value;
            return p;
        }
    }
    if (i >= args.size()) {
        p.error = "No subcommand given";
        return p;
    }
    p.command = args[i];
    p.rest.assign(args.begin() + static_cast<std::ptrdiff_t>(i) + 1, args.end());
    if (!commands().contains(p.command))
        p.error = "Unknown subcommand " + p.command;
    else if (p.command != "scan" && p.device.empty())
        p.error = "Subcommand " + p.command + " needs a device (-f)";
    return p;
}

int run(const Parsed &p, Context &ctx)
{
    int code = exitcode::Usage;
    if (!p.error.empty()) {
        ctx.out(p.error + ".");
        ctx.out("Usage: itdt [-R dir] [-LP dir] [-f device] [-w mode] subcommand [arguments]");
    } else {
        ItdtCall call{ctx, p.device, p.resultDir, p.rest};
        try {
            code = commands().at(p.command)(call);
        } catch (const std::exception &e) {
            ctx.out(std::string("Error: ") + e.what());
            code = exitcode::General;
        }
    }
    // Scripts and TapeDesk read the result from this line, so every path ends with it.
    ctx.out("Exit with code: " + std::to_string(code));
    return code;
}

int fail(Context &ctx, const std::vector<Line> &dryLines, int code)
{
    if (!dryLines.empty())
        ctx.out(dryLines.front().text);
    ctx.out("Operation failed: the drive reported a hardware error.");
    ctx.out("Exit with code: " + std::to_string(code));
    return code;
}

} // namespace

Tool itdtTool(const Args &args)
{
    const Parsed p = parse(args);
    return Tool{"itdt", p.command, p.device, [p](Context &ctx) { return run(p, ctx); }, fail};
}

} // namespace tapesim

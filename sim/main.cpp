// One executable behind six names: the name it was started under picks the
// tool, so the bin folder holds links only.
#include "Faults.h"
#include "InvocationLog.h"
#include "Tool.h"

#include <cstdlib>
#include <string>

int main(int argc, char **argv)
{
    using namespace tapesim;
    std::string name = argc > 0 ? argv[0] : "tapesim";
    name = name.substr(name.rfind('/') + 1);
    Args args(argv + (argc > 0 ? 1 : 0), argv + argc);
    if (name == "tapesim" && !args.empty()) {
        name = args.front();
        args.erase(args.begin());
    }
    logInvocation(name, args);

    Tool tool;
    if (name == "itdt")
        tool = itdtTool(args);
    else if (name == "mkltfs")
        tool = mkltfsTool(args);
    else if (name == "ltfs")
        tool = ltfsTool(args);
    else if (name == "mount")
        tool = mountTool(args);
    else if (name == "umount")
        tool = umountTool(args);
    else if (name == "ltfsck")
        tool = ltfsckTool(args);
    else {
        writeFully(2, "usage: tapesim {itdt|mkltfs|ltfs|ltfsck|mount|umount} [arguments]\n");
        return 2;
    }
    const char *faults = std::getenv("TAPESIM_FAIL");
    return runWithFault(tool, findFault(tool, faults ? faults : ""), speedFromEnvironment());
}

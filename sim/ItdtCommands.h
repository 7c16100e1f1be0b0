#pragma once

#include "Tool.h"

namespace tapesim {

// One itdt run after the global options are read.
struct ItdtCall
{
    Context &ctx;
    std::string device;    // -f
    std::string resultDir; // -R
    Args args;             // what follows the subcommand
};

namespace itdt {
int scan(ItdtCall &call);
int load(ItdtCall &call);
int unload(ItdtCall &call);
int readattr(ItdtCall &call);
int ucode(ItdtCall &call);
int dump(ItdtCall &call);
int rmp(ItdtCall &call);
int standardtest(ItdtCall &call);
int systemtest(ItdtCall &call);
} // namespace itdt

} // namespace tapesim

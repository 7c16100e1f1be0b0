#pragma once

#include "Tool.h"

#include <string_view>

namespace tapesim {

struct Fault
{
    enum class Kind { None, Code, Hang, Crash, Garbage, Silent };
    Kind kind = Kind::None;
    int code = 0;
};

// First entry of TAPESIM_FAIL ("DEVICE:COMMAND=MODE,...") that matches the run.
Fault findFault(const Tool &tool, std::string_view faults);

// Runs the tool as the fault demands and returns the exit status (Crash and
// Hang never return).
int runWithFault(const Tool &tool, const Fault &fault, double speed);

} // namespace tapesim

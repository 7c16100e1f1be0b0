#pragma once

#include "Tool.h"

namespace tapesim {

// With TAPESIM_LOG=FILE, appends one JSON array per run, tool name first:
// ["itdt","-f","tape0","load"]. One write(2) with O_APPEND per line, so
// concurrent runs never interleave inside a line.
void logInvocation(const std::string &tool, const Args &args);

} // namespace tapesim

#pragma once

#include <QString>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace tapedesk::fuzz {

// Tool output reaches the parsers as QString::fromUtf8 of the pipe's bytes, so
// the fuzzers decode their input the same way: broken UTF-8 included.
inline QString decode(const uint8_t *data, size_t size)
{
    return QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
}

// The parsers print diagnostic lines to standard output; libFuzzer reports on
// standard error, so the diagnostics go nowhere instead of flooding the run.
inline void silenceConsole()
{
    if (!std::freopen("/dev/null", "w", stdout))
        std::abort();
}

// A broken promise of the code under test is a finding like a crash.
inline void require(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace tapedesk::fuzz

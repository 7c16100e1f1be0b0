#pragma once

// itdt's exit codes. TapeDesk's error table is written from this list, so a
// new code needs a new entry there too.
namespace tapesim::exitcode {
constexpr int Ok = 0;
constexpr int General = 1;
constexpr int Usage = 2;
constexpr int NoDevice = 3;
constexpr int NoCartridge = 4;
constexpr int NotFormatted = 5;
constexpr int WriteProtected = 6;
constexpr int BadFirmware = 7;
constexpr int Busy = 8;
} // namespace tapesim::exitcode

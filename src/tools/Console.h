#pragma once

#include <QByteArrayView>
#include <QStringView>
#include <cstdio>

namespace tapedesk {

// The application's own standard output: diagnostics the operator never sees
// (command output, parser values, login traffic). One line per call; lines from
// different threads never interleave.
void consoleLine(QStringView text);
void consoleLine(QByteArrayView utf8);
// A line of any length, encoded piece by piece: a tool's whole output goes
// out without a second copy of it in memory.
void consoleText(QStringView text);

// Where the console goes: standard output (the window's default), standard
// error, or nowhere (nullptr). A command line keeps its standard output for
// its own answer.
void setConsoleStream(std::FILE *stream);

} // namespace tapedesk

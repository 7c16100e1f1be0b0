#pragma once

#include <QByteArrayView>
#include <QStringView>

namespace tapedesk {

// The application's own standard output: diagnostics the operator never sees
// (command output, parser values, login traffic). One line per call; lines from
// different threads never interleave.
void consoleLine(QStringView text);
void consoleLine(QByteArrayView utf8);

} // namespace tapedesk

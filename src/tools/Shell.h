#pragma once

#include "tools/ProcessRunner.h"
#include "tools/Synchronized.h"

#include <QString>
#include <QStringList>

namespace tapedesk {

// Runs the file at `launchPath` with `arguments` (no shell), returns its
// standard output as text and leaves its standard error in `lastErrorOutput`.
// A path with no file behind it, or one that cannot be started, yields "" and
// leaves `lastErrorOutput` as it was. Invalid UTF-8 becomes U+FFFD. Writes the
// six banner lines to the console either way. `exitStatus`, when given, gets
// the run's exit status (ProcessResult::exitStatus).
QString shellLaunch(const QString &launchPath, const QStringList &arguments,
                    Synchronized<QString> &lastErrorOutput, const ChunkObserver &observer = {},
                    int *exitStatus = nullptr);

// Runs `command` through /bin/zsh -c (or /bin/sh -c where zsh is not
// installed) with both streams on one pipe; returns the merged text.
QString shellCommand(const QString &command, const ChunkObserver &observer = {}, int *exitStatus = nullptr);

// The shell that shellCommand uses on this host.
QString commandShell();

} // namespace tapedesk

#pragma once

#include "tools/ProcessRunner.h"
#include "tools/ToolResult.h"

#include <QString>
#include <QStringList>

namespace tapedesk {

// Runs the file at `launchPath` with `arguments` (no shell) and hands back
// the run: both streams as text (invalid UTF-8 becomes U+FFFD), how it ended.
// A path with no file behind it, or one that cannot be started, is a run that
// did not start. Writes the six banner lines to the console either way.
ToolResult shellLaunch(const QString &launchPath, const QStringList &arguments,
                       const ChunkObserver &observer = {});

// Runs `command` through /bin/zsh -c (or /bin/sh -c where zsh is not
// installed) with both streams on one pipe; returns the merged text.
QString shellCommand(const QString &command, const ChunkObserver &observer = {}, int *exitStatus = nullptr);

// The shell that shellCommand uses on this host.
QString commandShell();

} // namespace tapedesk

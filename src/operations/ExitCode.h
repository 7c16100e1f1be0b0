#pragma once

#include "tools/ToolResult.h"

#include <QString>
#include <optional>

namespace tapedesk {

// The exit code a tool reported in its text, or nothing when the text says
// nothing about it. itdt ends with
//   Exit with code: 0
// and the code is taken as the text's last word, not the word after "code: ".
// A text without "code: " that holds "errno " means 99.
std::optional<QString> exitCodeFromOutput(const QString &results);

// What an LTFS program (ltfs, mkltfs) reported: its exit status, when it
// exited by itself after printing at least one of its message lines, such as
//   LTFS14013E Cannot mount the volume.
// A run killed half-way, or one that printed nothing of the kind, reported
// nothing, whatever its status.
std::optional<QString> ltfsReportedCode(const ToolResult &run);

// The tool as the operator names it: the program's file name, and for itdt
// its subcommand too ("itdt ucode", "mkltfs").
QString toolDisplayName(const QString &program, const QStringList &arguments, bool isItdt);

// What a run that left no verdict of its own did instead, as one pane line:
//   "itdt ucode ended without reporting a result"
//   "itdt standardtest was killed by signal 9"
//   "mkltfs could not be started: /usr/local/bin/mkltfs"
// `name` is toolDisplayName()'s.
QString unreportedReason(const ToolResult &run, const QString &name);

} // namespace tapedesk

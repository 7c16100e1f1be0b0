#pragma once

#include <QString>
#include <QStringList>
#include <optional>

namespace tapedesk {

// One tool run as it ended, handed back by value to the step that asked for
// it: nothing of it outlives the step, so no later step can mistake an
// earlier run's answer for its own.
struct ToolResult
{
    QString program;
    QStringList arguments;
    bool started = false; // false: nothing ran (missing, not executable, stopped before it began)
    QString out;          // standard output (the merged streams for a shell command)
    QString err;          // standard error
    // The status the tool exited with by itself; none when a signal ended it
    // or it was left running.
    std::optional<int> exitStatus;
    int signal = 0;        // the signal that ended it, when one did
    bool stopped = false;  // ended by the operator's Stop (or the front end going away)
    bool timedOut = false; // killed at its time limit
    // The code the tool reported in its text ("Exit with code: 0"), filled in
    // by whoever knows the tool's reporting rule; none when it reported none.
    std::optional<QString> reportedCode;

    bool reported() const { return reportedCode.has_value(); }
    bool succeeded() const { return reportedCode && *reportedCode == QStringLiteral("0"); }
};

} // namespace tapedesk

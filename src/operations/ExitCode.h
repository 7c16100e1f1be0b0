#pragma once

#include <QString>
#include <optional>

namespace tapedesk {

// The exit code a tool reported in its text, or nothing when the text says
// nothing about it (the previous code then stays in force). itdt ends with
//   Exit with code: 0
// and the code is taken as the text's last word, not the word after "code: ".
// A text without "code: " that holds "errno " means 99.
std::optional<QString> exitCodeFromOutput(const QString &results);

} // namespace tapedesk

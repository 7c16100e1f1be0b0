#pragma once

#include <QString>

namespace tapedesk {

// The longest line the output pane gets. Laying out one line of a megabyte (a
// tool that printed garbage without line ends) kept the GUI thread busy for
// over a minute; in lines of this length the same text takes milliseconds.
inline constexpr qsizetype kLongestPaneLine = 4096;

// `text` with every line longer than kLongestPaneLine cut into lines of at most
// that many characters. Nothing is dropped, and a surrogate pair is never cut.
QString withLongLinesCut(const QString &text);

} // namespace tapedesk

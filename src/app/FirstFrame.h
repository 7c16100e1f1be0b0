#pragma once

class QWidget;

namespace tapedesk {

// For the start-up benchmark (bench/startup): with TAPEDESK_REPORT_FIRST_FRAME=1
// in the environment, the first time `widget` is painted the process prints the
// line "first-frame" to its standard output. Without the variable it does
// nothing at all.
void reportFirstFrame(QWidget *widget);

} // namespace tapedesk

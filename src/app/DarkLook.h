#pragma once

class QApplication;

namespace tapedesk {

// Fusion with a dark palette, whatever the desktop is set to: the status
// colours and the yellow mounted rows are chosen against it.
void applyDarkLook(QApplication &app);

} // namespace tapedesk

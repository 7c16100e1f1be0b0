#pragma once

namespace tapedesk {

// SIGTERM and SIGINT (a logout, a service stop, Ctrl+C in a terminal) quit
// TapeDesk the orderly way instead of ending it on the spot: the tools still
// running are killed with their process groups, so a hung itdt or mkltfs never
// outlives TapeDesk, and the application quits from its event loop. A second
// signal ends the process at once. Call once, after the QApplication exists.
void installQuitOnSignals();

} // namespace tapedesk

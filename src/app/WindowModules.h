#pragma once

#include <QString>

class QWidget;

namespace tapedesk {

// The help window (the PDF engine) and the account window (the network) are
// libraries of their own, loaded when one of them is first opened: linked
// into the program, those Qt modules and everything they pull in would be
// mapped and relocated at every start, before the first frame. Each library
// sits in TapeDesk's private library folder, found from the program's own
// folder the same way in the build tree and installed (TAPEDESK_MODULE_DIR).
// What a library uses of the engine it takes from the program, which exports
// its symbols for it.
enum class WindowModule { Help, Account };

// The library file of `module`.
QString moduleFile(WindowModule module);

// A new content view of `module`'s window, or nullptr when its library cannot
// be loaded; the console then says why.
QWidget *makeModuleView(WindowModule module);

} // namespace tapedesk

// Tape unmount. (Being built.)

#include "ui/ViewController.h"

namespace tapedesk {

void ViewController::unMountDrive() {}
void ViewController::waitForUnMount() {}

} // namespace tapedesk

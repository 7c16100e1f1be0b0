// Tape mount: load, barcode read, ltfs. (Being built.)

#include "ui/ViewController.h"

namespace tapedesk {

void ViewController::btnMount(QAbstractButton *) {}
void ViewController::mountDrive() {}
bool ViewController::isTapeMounted()
{
    return false;
}
QString ViewController::getSelectedDriveAddress()
{
    return {};
}
void ViewController::loadTape() {}
void ViewController::unLoadTape() {}

} // namespace tapedesk

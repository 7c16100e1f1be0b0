// Firmware update. (Being built.)

#include "ui/ViewController.h"

namespace tapedesk {

void ViewController::btnUpgrade(QAbstractButton *) {}
void ViewController::updateFirmware() {}

} // namespace tapedesk

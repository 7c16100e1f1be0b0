// Host validation. (Being built.)

#include "ui/ViewController.h"

namespace tapedesk {

void ViewController::btnHostValidation(QAbstractButton *) {}
void ViewController::hostValidation() {}

} // namespace tapedesk

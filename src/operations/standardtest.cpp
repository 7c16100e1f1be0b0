// Standard drive test. (Being built.)

#include "ui/ViewController.h"

namespace tapedesk {

void ViewController::btnRunTest(QAbstractButton *) {}
void ViewController::standardTest() {}

} // namespace tapedesk

// Tape format. (Being built.)

#include "ui/ViewController.h"

namespace tapedesk {

void ViewController::btnFormat(QAbstractButton *) {}
void ViewController::executeFormatTape() {}
void ViewController::formatDrive() {}
void ViewController::controlTextDidChange(QLineEdit *) {}

} // namespace tapedesk

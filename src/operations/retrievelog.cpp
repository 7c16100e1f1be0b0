// Log retrieval. (Being built.)

#include "ui/ViewController.h"

namespace tapedesk {

void ViewController::btnRetrieveLog(QAbstractButton *) {}
void ViewController::retrieveLog() {}

} // namespace tapedesk

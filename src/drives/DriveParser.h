#pragma once

#include "drives/Drive.h"

namespace tapedesk {

// One line of `itdt scan`, for example
//   #0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1234567890 H1-B0-T0-L0
// Always returns a record; a line of fewer than five tokens gives all defaults.
DrivePtr getSingleDrive(const QString &driveTextLine);

// Appends one drive to `target` per line holding "#"; other lines are skipped.
// "ULTRIUM" becomes "Corvel" in the whole report first.
void parseDriveTextToDrive(const QString &inDriveText, DriveList &target);

} // namespace tapedesk

#pragma once

#include "drives/Drive.h"
#include "tools/Synchronized.h"

#include <QStringList>

namespace tapedesk {

// Serial numbers of the drives this system has mounted, in the order they were
// mounted, mirrored under "MOUNTED_DRIVES" in the per-user store. Duplicates
// are allowed.
extern Synchronized<QStringList> mountedDrives;

// Remembers, across runs, which drives TapeDesk mounted and enough of each to
// list it again. Every operation holds one lock, so the clear button can never
// interleave with a scan or a mount running in the background.
namespace DriveStateStore {

inline const QString kMountedDrivesKey = QStringLiteral("MOUNTED_DRIVES");

// The seven per-drive keys: the serial number immediately followed by these.
QStringList keySuffixes();

void saveDriveInfo(const Drive &drive);
// nullptr when a per-drive key is missing or not text (a record written back
// by a mount after the clear button, or a store edited by hand).
DrivePtr loadDriveInfo(const QString &serialNumber);
// Adds the remembered drives to the scanned ones in `target`. A drive the scan
// listed under the same serial number stays, marked mounted and given what
// only the record knows; the others are appended, mounted, once each.
void loadMountedDrives(DriveList &target);
void resetMountedDrives();
void removeMountedDrive(const QString &serialNumber);

} // namespace DriveStateStore
} // namespace tapedesk

#pragma once

#include "drives/Drive.h"

#include <QString>
#include <QStringList>

namespace tapedesk {

// The helper each controller holds in its `support` field. It keeps no state:
// it is the one front door to the tool paths, the scan parser, the drive state
// store, the dialogs and the file helpers, each of which lives in its own layer.
class Support
{
public:
    // Tool paths
    bool isPreferencesSet() const;
    bool preferencesValid() const;

    // Scan report parser (appends to the process-wide driveList)
    void parseDriveTextToDrive(const QString &inDriveText) const;
    DrivePtr getSingleDrive(const QString &driveTextLine) const;

    // Drive state store
    void saveDriveInfo(const Drive &drive) const;
    DrivePtr loadDriveInfo(const QString &serialNumber) const;
    void loadMountedDrives() const;
    void resetMountedDrives() const;
    void removeMountedDrive(const QString &serialNumber) const;
    // Some drive models need the operator's word before a format.
    bool driveOk(const Drive &drive) const;

    // Dialogs (GUI thread only)
    QString getString(const QString &title, const QString &question, const QString &defaultValue) const;
    int userOptionPrompt(const QString &title, const QString &question, const QString &t1,
                         const QString &t2) const;
    QString pickFile(const QStringList &fileTypes) const;
    QString pickFolder() const;

    // Copies `file` into the folder `locationToSave`, asking before it replaces
    // a file of the same name. GUI thread only. Returns false when the copy
    // failed (the reason went to the console).
    bool copyFile(const QString &file, const QString &locationToSave) const;
};

} // namespace tapedesk

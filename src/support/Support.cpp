#include "support/Support.h"

#include "drives/DriveParser.h"
#include "drives/DriveStateStore.h"
#include "support/Dialogs.h"
#include "tools/ToolPaths.h"

namespace tapedesk {

bool Support::isPreferencesSet() const
{
    return tapedesk::isPreferencesSet();
}

bool Support::preferencesValid() const
{
    return tapedesk::preferencesValid();
}

void Support::parseDriveTextToDrive(const QString &inDriveText) const
{
    tapedesk::parseDriveTextToDrive(inDriveText, driveList);
}

DrivePtr Support::getSingleDrive(const QString &driveTextLine) const
{
    return tapedesk::getSingleDrive(driveTextLine);
}

void Support::saveDriveInfo(const Drive &drive) const
{
    DriveStateStore::saveDriveInfo(drive);
}

DrivePtr Support::loadDriveInfo(const QString &serialNumber) const
{
    return DriveStateStore::loadDriveInfo(serialNumber);
}

void Support::loadMountedDrives() const
{
    DriveStateStore::loadMountedDrives(driveList);
}

void Support::resetMountedDrives() const
{
    DriveStateStore::resetMountedDrives();
}

void Support::removeMountedDrive(const QString &serialNumber) const
{
    DriveStateStore::removeMountedDrive(serialNumber);
}

bool Support::driveOk(const Drive &drive) const
{
    const DriveRecord d = drive.record();
    if (d.info1.contains(QStringLiteral("HH9")) || d.info3.contains(QStringLiteral("TD9")))
        return userOptionPrompt(QString(), QString(), QStringLiteral("Proceed"), QStringLiteral("Cancel")) ==
               0;
    return true;
}

QString Support::getString(const QString &title, const QString &question, const QString &defaultValue) const
{
    return dialogs().getString(title, question, defaultValue);
}

int Support::userOptionPrompt(const QString &title, const QString &question, const QString &t1,
                              const QString &t2) const
{
    return dialogs().userOptionPrompt(title, question, t1, t2);
}

QString Support::pickFile(const QStringList &fileTypes) const
{
    return dialogs().pickFile(fileTypes);
}

QString Support::pickFolder() const
{
    return dialogs().pickFolder();
}

} // namespace tapedesk

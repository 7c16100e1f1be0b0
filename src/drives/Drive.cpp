#include "drives/Drive.h"

namespace tapedesk {

DriveList driveList;

QString ltfsDevice(const DriveRecord &drive)
{
    return drive.id.startsWith(QLatin1Char('/')) ? drive.id : drive.name;
}

bool isSafeMountName(const QString &name)
{
    if (name.isEmpty() || name == QStringLiteral(".") || name == QStringLiteral(".."))
        return false;
    for (QChar c : name) {
        if (c == QLatin1Char('/') || c.category() == QChar::Other_Control)
            return false;
    }
    return true;
}

void DriveList::clear()
{
    m_drives.with([](QList<DrivePtr> &l) { l.clear(); });
}

void DriveList::append(DrivePtr drive)
{
    m_drives.with([&](QList<DrivePtr> &l) { l.append(std::move(drive)); });
}

QList<DrivePtr> DriveList::snapshot() const
{
    return m_drives.get();
}

qsizetype DriveList::size() const
{
    return m_drives.with([](const QList<DrivePtr> &l) { return l.size(); });
}

} // namespace tapedesk

#include "ui/DriveTableModel.h"

namespace tapedesk {

void DriveTableModel::reload(QList<DrivePtr> drives)
{
    beginResetModel();
    m_drives = std::move(drives);
    endResetModel();
}

DrivePtr DriveTableModel::driveAt(int row) const
{
    if (row < 0 || row >= m_drives.size())
        return nullptr;
    return m_drives.at(row);
}

int DriveTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_drives.size());
}

int DriveTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : 1;
}

QStringList DriveTableModel::linesFor(const DriveRecord &drive, int row)
{
    return {QStringLiteral("Drive") + QString::number(row + 1) + QStringLiteral(" (") + drive.id +
                QStringLiteral(")"),
            drive.info1, QStringLiteral("FW: ") + drive.info3, drive.info2,
            drive.ltfsStopped ? QStringLiteral("TAPE: LTFS stopped unexpectedly")
                              : QStringLiteral("TAPE: ") + drive.label};
}

QVariant DriveTableModel::data(const QModelIndex &index, int role) const
{
    const DrivePtr drive = driveAt(index.row());
    if (!drive)
        return {};
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
        return linesFor(drive->record(), index.row()).join(QLatin1Char('\n'));
    case LinesRole:
        return linesFor(drive->record(), index.row());
    case MountedRole:
        return drive->mounted();
    case LtfsStoppedRole:
        return drive->record().ltfsStopped;
    default:
        return {};
    }
}

} // namespace tapedesk

#pragma once

#include "drives/Drive.h"

#include <QAbstractTableModel>
#include <QList>

namespace tapedesk {

// The drive table's rows: the driveList snapshot taken at the last reload. The
// view never reads the live list, so a scan rebuilding it in the background
// cannot change what the view believes it has.
class DriveTableModel final : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Roles { MountedRole = Qt::UserRole + 1, LinesRole, LtfsStoppedRole };

    using QAbstractTableModel::QAbstractTableModel;

    void reload(QList<DrivePtr> drives);
    DrivePtr driveAt(int row) const;
    const QList<DrivePtr> &drives() const { return m_drives; }

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;

    // The five labels of row `row` (counted from 0).
    static QStringList linesFor(const DriveRecord &drive, int row);

private:
    QList<DrivePtr> m_drives;
};

} // namespace tapedesk

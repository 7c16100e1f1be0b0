#pragma once

#include <QStyledItemDelegate>

namespace tapedesk {

// Paints one drive row: five labels (title to title5) on yellow when the drive
// is mounted, orange when its LTFS stopped under the mounted volume, and light
// grey otherwise, in dark text so all read well in the dark window. A painter, not a widget per row, so ten
// thousand drives scroll as smoothly as ten.
class DriveCell final : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    static QColor mountedColor();
    static QColor unmountedColor();
    static QColor ltfsStoppedColor();
    static int rowHeight(const QFont &font);

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
};

} // namespace tapedesk

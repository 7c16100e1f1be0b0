#include "ui/DriveCell.h"

#include "ui/DriveTableModel.h"

#include <QFontMetrics>
#include <QPainter>

namespace tapedesk {

namespace {
constexpr int kPadding = 6;
constexpr int kLines = 5;
} // namespace

QColor DriveCell::mountedColor()
{
    return QColor(Qt::yellow);
}

QColor DriveCell::unmountedColor()
{
    return QColor(Qt::lightGray);
}

QColor DriveCell::ltfsStoppedColor()
{
    return QColor(0xff, 0x9a, 0x3c);
}

int DriveCell::rowHeight(const QFont &font)
{
    return QFontMetrics(font).lineSpacing() * kLines + 2 * kPadding + 2;
}

void DriveCell::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const bool mounted = index.data(DriveTableModel::MountedRole).toBool();
    const QStringList lines = index.data(DriveTableModel::LinesRole).toStringList();

    painter->save();
    const QRect card = option.rect.adjusted(2, 1, -2, -1);
    const bool stopped = index.data(DriveTableModel::LtfsStoppedRole).toBool();
    painter->fillRect(card, stopped ? ltfsStoppedColor() : mounted ? mountedColor() : unmountedColor());
    if (option.state & QStyle::State_Selected) {
        painter->setPen(QPen(option.palette.color(QPalette::Highlight), 3));
        painter->drawRect(card.adjusted(1, 1, -2, -2));
    }

    const QFontMetrics fm(option.font);
    QFont titleFont = option.font;
    titleFont.setBold(true);
    painter->setPen(QColor(0x1a, 0x1a, 0x1a));
    int y = card.top() + kPadding;
    for (int i = 0; i < lines.size() && i < kLines; ++i) {
        painter->setFont(i == 0 ? titleFont : option.font);
        const QRect lineRect(card.left() + kPadding, y, card.width() - 2 * kPadding, fm.lineSpacing());
        painter->drawText(lineRect, Qt::AlignLeft | Qt::AlignVCenter,
                          fm.elidedText(lines.at(i), Qt::ElideRight, lineRect.width()));
        y += fm.lineSpacing();
    }
    painter->restore();
}

QSize DriveCell::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &) const
{
    return {240, rowHeight(option.font)};
}

} // namespace tapedesk

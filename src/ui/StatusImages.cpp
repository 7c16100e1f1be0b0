#include "ui/StatusImages.h"

#include <QHash>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace tapedesk::StatusImages {

namespace {

// Drawn rather than shipped as files: crisp at any scale, and the colours are
// chosen to read on the dark window.
QPixmap draw(int status)
{
    const int size = 64;
    QPixmap pm(size, size);
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF disc(4, 4, size - 8, size - 8);
    QColor fill;
    switch (status) {
    case 0:
        fill = QColor(0x2e, 0xa0, 0x43);
        break;
    case 1:
        fill = QColor(0xd1, 0x3b, 0x3b);
        break;
    case 2:
        fill = QColor(0xe0, 0x9b, 0x1a);
        break;
    default:
        fill = QColor(0x3b, 0x82, 0xd1);
        break;
    }
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawEllipse(disc);
    QPen mark(Qt::white, 6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(mark);
    p.setBrush(Qt::NoBrush);
    switch (status) {
    case 0: { // check mark
        QPainterPath path;
        path.moveTo(18, 33);
        path.lineTo(28, 43);
        path.lineTo(46, 22);
        p.drawPath(path);
        break;
    }
    case 1: // cross
        p.drawLine(QPointF(22, 22), QPointF(42, 42));
        p.drawLine(QPointF(42, 22), QPointF(22, 42));
        break;
    case 2: // hourglass dots
        p.setPen(Qt::NoPen);
        p.setBrush(Qt::white);
        for (int i = 0; i < 3; ++i)
            p.drawEllipse(QPointF(20 + i * 12, 32), 4, 4);
        break;
    default: // play triangle: ready
        p.setPen(Qt::NoPen);
        p.setBrush(Qt::white);
        p.drawPolygon(QPolygonF({QPointF(25, 19), QPointF(25, 45), QPointF(46, 32)}));
        break;
    }
    return pm;
}

} // namespace

QString imageName(int status)
{
    switch (status) {
    case 0:
        return QStringLiteral("Complete Button");
    case 1:
        return QStringLiteral("Fail Button");
    case 2:
        return QStringLiteral("In Process Button");
    case 3:
        return QStringLiteral("Ready Button");
    default:
        return {};
    }
}

QString spokenName(int status)
{
    switch (status) {
    case 0:
        return QStringLiteral("Complete");
    case 1:
        return QStringLiteral("Failed");
    case 2:
        return QStringLiteral("In Progress");
    case 3:
        return QStringLiteral("Ready");
    default:
        return {};
    }
}

QIcon icon(int status)
{
    if (imageName(status).isEmpty())
        return {};
    static QHash<int, QIcon> cache; // GUI thread only
    auto it = cache.find(status);
    if (it == cache.end())
        it = cache.insert(status, QIcon(draw(status)));
    return *it;
}

QIcon stopIcon(const QColor &colour)
{
    QPixmap square(16, 16);
    square.fill(Qt::transparent);
    QPainter painter(&square);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawRoundedRect(QRectF(3, 3, 10, 10), 1.5, 1.5);
    painter.end();
    return QIcon(square);
}

} // namespace tapedesk::StatusImages

#include "app/DarkLook.h"

#include <QApplication>
#include <QGroupBox>
#include <QIconEngine>
#include <QImageReader>
#include <QPainter>
#include <QPalette>
#include <QPointer>
#include <QProxyStyle>
#include <QStyleFactory>
#include <QStyleOption>
#include <qdrawutil.h>

namespace tapedesk {

namespace {

// A standard icon of the style, read only when something first draws or
// measures it. Qt reads every file of an icon when the icon is made, and
// finding the files' format loads each image plugin.
class DeferredStandardIcon : public QIconEngine
{
public:
    DeferredStandardIcon(QStyle *style, QStyle::StandardPixmap which) : m_style(style), m_which(which) {}

    void paint(QPainter *painter, const QRect &rect, QIcon::Mode mode, QIcon::State state) override
    {
        icon().paint(painter, rect, Qt::AlignCenter, mode, state);
    }
    QPixmap pixmap(const QSize &size, QIcon::Mode mode, QIcon::State state) override
    {
        return icon().pixmap(size, mode, state);
    }
    QPixmap scaledPixmap(const QSize &size, QIcon::Mode mode, QIcon::State state, qreal scale) override
    {
        return icon().pixmap(size, scale, mode, state);
    }
    QSize actualSize(const QSize &size, QIcon::Mode mode, QIcon::State state) override
    {
        return icon().actualSize(size, mode, state);
    }
    QList<QSize> availableSizes(QIcon::Mode mode, QIcon::State state) override
    {
        return icon().availableSizes(mode, state);
    }
    bool isNull() override { return icon().isNull(); }
    QString key() const override { return QStringLiteral("DeferredStandardIcon"); }
    QIconEngine *clone() const override { return new DeferredStandardIcon(m_style, m_which); }

private:
    const QIcon &icon()
    {
        if (!m_read && m_style)
            m_icon = m_style->standardIcon(m_which);
        m_read = true;
        return m_icon;
    }

    QPointer<QStyle> m_style;
    QStyle::StandardPixmap m_which;
    QIcon m_icon;
    bool m_read = false;
};

// Fusion, but nothing in the main window's first frame makes Qt look for an
// image's format, which loads every image plugin (several libraries): the menu
// bar's overflow button (which TapeDesk's fixed width never shows) gets its
// icon only when it is drawn, and a titled group box's frame is Fusion's own
// picture read as the PNG it is, drawn where Fusion (Qt 6.4) draws it.
class DarkStyle : public QProxyStyle
{
public:
    DarkStyle() : QProxyStyle(QStyleFactory::create(QStringLiteral("Fusion"))) {}

    QIcon standardIcon(StandardPixmap which, const QStyleOption *option, const QWidget *widget) const override
    {
        if (which == SP_ToolBarHorizontalExtensionButton && !option)
            return QIcon(new DeferredStandardIcon(baseStyle(), which));
        return QProxyStyle::standardIcon(which, option, widget);
    }

    void drawPrimitive(PrimitiveElement element, const QStyleOption *option, QPainter *painter,
                       const QWidget *widget) const override
    {
        const auto *box = qobject_cast<const QGroupBox *>(widget);
        if (element != PE_FrameGroupBox || !box || (box->title().isEmpty() && !box->isCheckable())) {
            QProxyStyle::drawPrimitive(element, option, painter, widget);
            return;
        }
        if (m_groupBoxFrame.isNull()) {
            QImageReader reader(
                QStringLiteral(":/qt-project.org/styles/commonstyle/images/fusion_groupbox.png"), "png");
            reader.setAutoDetectImageFormat(false);
            m_groupBoxFrame = QPixmap::fromImage(reader.read());
        }
        // Below the title: as high as its text or a check box, and 3 more.
        const int top = qMax(pixelMetric(PM_ExclusiveIndicatorHeight), option->fontMetrics.height()) + 3;
        qDrawBorderPixmap(painter, option->rect.adjusted(0, top, 0, 0), QMargins(6, 6, 6, 6),
                          m_groupBoxFrame);
    }

private:
    mutable QPixmap m_groupBoxFrame;
};

} // namespace

void applyDarkLook(QApplication &app)
{
    app.setStyle(new DarkStyle);
    QPalette p;
    const QColor window(0x2b, 0x2d, 0x31);
    const QColor base(0x1e, 0x1f, 0x22);
    const QColor text(0xe8, 0xe8, 0xe8);
    const QColor disabled(0x80, 0x80, 0x80);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, disabled);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, QColor(0x3a, 0x3d, 0x42));
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::red);
    p.setColor(QPalette::Link, QColor(0x5a, 0xa9, 0xe6));
    p.setColor(QPalette::Highlight, QColor(0x2f, 0x7d, 0xd1));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Disabled, QPalette::Text, disabled);
    p.setColor(QPalette::Disabled, QPalette::WindowText, disabled);
    p.setColor(QPalette::Disabled, QPalette::ButtonText, disabled);
    app.setPalette(p);
}

} // namespace tapedesk

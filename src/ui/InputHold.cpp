#include "ui/InputHold.h"

#include "tools/HandOff.h"

#include <QApplication>
#include <QEvent>
#include <QWidget>

namespace tapedesk {

InputHold::InputHold(QWidget *stopButton, QObject *parent) : QObject(parent), m_stopButton(stopButton) {}

void InputHold::setHeld(bool held)
{
    m_holds += held ? 1 : -1;
    if (held && m_holds == 1)
        qApp->installEventFilter(this);
    else if (!held && m_holds == 0)
        qApp->removeEventFilter(this);
}

bool InputHold::eventFilter(QObject *watched, QEvent *event)
{
    seeHandOff(event);
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseButtonDblClick:
    case QEvent::Wheel:
    case QEvent::KeyPress:
    case QEvent::KeyRelease:
    case QEvent::Shortcut:
    case QEvent::ContextMenu:
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd:
    case QEvent::InputMethod:
        break;
    default:
        return false;
    }
    // A window hands its input on to the widget under it, which is judged here.
    auto *widget = qobject_cast<QWidget *>(watched);
    if (!widget && watched->isWindowType())
        return false;
    if (widget == m_stopButton)
        return false;
    // The stop's own question about mkltfs.
    QWidget *modal = QApplication::activeModalWidget();
    return !(widget && modal && (widget == modal || modal->isAncestorOf(widget)));
}

} // namespace tapedesk

#include "app/FirstFrame.h"

#include <QEvent>
#include <QTimer>
#include <QWidget>
#include <cstdio>

namespace tapedesk {

namespace {

// Prints once the first paint event has been handled, i.e. when the frame
// has been drawn, and then leaves the widget alone.
class FirstFrameReporter : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint) {
            watched->removeEventFilter(this);
            QTimer::singleShot(0, this, [this] {
                std::fputs("first-frame\n", stdout);
                std::fflush(stdout);
                deleteLater();
            });
        }
        return false;
    }
};

} // namespace

void reportFirstFrame(QWidget *widget)
{
    if (!widget || qgetenv("TAPEDESK_REPORT_FIRST_FRAME") != "1")
        return;
    widget->installEventFilter(new FirstFrameReporter(widget));
}

} // namespace tapedesk

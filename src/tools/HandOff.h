#pragma once

#include <QObject>
#include <functional>

namespace tapedesk {

// The two hand-offs between the GUI thread and the background: posting a call
// to an object of the GUI thread, and queuing a background part on the global
// thread pool. Both go through Qt's event queue and thread pool, whose locks
// live in Qt's prebuilt libraries; the hand-off is also declared to
// ThreadSanitizer here, so a build with it sees what the sender wrote before
// the hand-off as written before the receiver runs (and reports real races
// only).

// Runs `f` on the GUI thread, after everything posted before it from the same
// thread (first in, first out). Dropped when `context`, an object of the GUI
// thread, is destroyed first.
void postTo(QObject *context, std::function<void()> f);

// Queues `f` on QThreadPool::globalInstance().
void startInBackground(std::function<void()> f);

// Waits until every part queued with startInBackground() has finished.
void waitForBackground();

// For an application-wide event filter of the GUI thread, before it looks at
// an event: a posted call's event was written by the thread that posted it,
// and a filter installed after the one that delivers the calls sees it first.
void seeHandOff(QEvent *event);

} // namespace tapedesk

#include "tools/HandOff.h"

#include <QCoreApplication>
#include <QEvent>
#include <QRunnable>
#include <QThreadPool>

#if defined(__SANITIZE_THREAD__)
#define TAPEDESK_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TAPEDESK_TSAN 1
#endif
#endif

#ifdef TAPEDESK_TSAN
#include <sanitizer/tsan_interface.h>
#endif

namespace tapedesk {

namespace {

// Qt's queues synchronise inside libQt6Core, which ThreadSanitizer cannot
// see; these say the same thing to it. Nothing at all in other builds.
void handOffRelease([[maybe_unused]] void *token)
{
#ifdef TAPEDESK_TSAN
    __tsan_release(token);
#endif
}

void handOffAcquire([[maybe_unused]] void *token)
{
#ifdef TAPEDESK_TSAN
    __tsan_acquire(token);
#endif
}

const QEvent::Type kCallEvent = static_cast<QEvent::Type>(QEvent::registerEventType());

class CallEvent : public QEvent
{
public:
    explicit CallEvent(std::function<void()> f) : QEvent(kCallEvent), m_call(std::move(f)) {}
    // Also reached when the receiver dies before the event is delivered.
    ~CallEvent() override { handOffAcquire(this); }

    void run()
    {
        std::function<void()> call = std::move(m_call);
        call();
    }

private:
    std::function<void()> m_call;
};

// Delivers the calls to whichever object of the GUI thread they were posted
// to; installed on the application once, when it starts.
class CallFilter : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        // Even the type of a call event was written by the thread that posted it.
        handOffAcquire(event);
        if (event->type() != kCallEvent)
            return false;
        static_cast<CallEvent *>(event)->run();
        return true;
    }
};

} // namespace

void seeHandOff(QEvent *event)
{
    handOffAcquire(event);
}

namespace {

void installCallFilter()
{
    QCoreApplication *app = QCoreApplication::instance();
    app->installEventFilter(new CallFilter(app));
}
Q_COREAPP_STARTUP_FUNCTION(installCallFilter)

// One token for every background part: waitForBackground() acquires what all
// of them released when they ended.
char g_backgroundDone;

class BackgroundPart : public QRunnable
{
public:
    explicit BackgroundPart(std::function<void()> f) : m_work(std::move(f)) { setAutoDelete(true); }

    void run() override
    {
        handOffAcquire(this);
        {
            std::function<void()> work = std::move(m_work);
            work();
        } // the captures go before the release, so nothing of them outlives it
        handOffRelease(&g_backgroundDone);
    }

private:
    std::function<void()> m_work;
};

} // namespace

void postTo(QObject *context, std::function<void()> f)
{
    auto *event = new CallEvent(std::move(f));
    handOffRelease(event);
    QCoreApplication::postEvent(context, event);
}

void startInBackground(std::function<void()> f)
{
    auto *part = new BackgroundPart(std::move(f));
    handOffRelease(part);
    QThreadPool::globalInstance()->start(part);
}

void waitForBackground()
{
    QThreadPool::globalInstance()->waitForDone();
    handOffAcquire(&g_backgroundDone);
}

} // namespace tapedesk

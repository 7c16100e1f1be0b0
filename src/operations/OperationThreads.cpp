// See also ToolRunner (the runs these parts make) and TapeEngine::stop().

#include "operations/OperationThreads.h"

#include "operations/Face.h"
#include "tools/HandOff.h"
#include "tools/ProcessRunner.h"

#include <QEventLoop>
#include <QThread>
#include <QTimer>
#include <thread>

namespace tapedesk {

namespace {

// How long a stopped tool has to end after SIGTERM before SIGKILL follows.
constexpr int kStopGraceMs = 5000;

// A step on its way to the GUI thread: it leaves the count when it has run,
// or when it is dropped because its engine went first.
class QueuedStep
{
public:
    explicit QueuedStep(std::shared_ptr<std::atomic<int>> count) : m_count(std::move(count))
    {
        m_count->fetch_add(1);
    }
    ~QueuedStep() { m_count->fetch_sub(1); }
    QueuedStep(const QueuedStep &) = delete;
    QueuedStep &operator=(const QueuedStep &) = delete;

private:
    std::shared_ptr<std::atomic<int>> m_count;
};

} // namespace

OperationThreads::OperationThreads(QObject &home, const std::atomic<bool> &stop, Face &face)
    : m_home(home), m_stop(stop), m_face(face)
{}

void OperationThreads::setHooks(std::function<void()> beforePost, std::function<void()> afterStep)
{
    m_beforePost = std::move(beforePost);
    m_afterStep = std::move(afterStep);
}

void OperationThreads::post(std::function<void()> f)
{
    post(std::move(f), QThread::currentThread() != m_home.thread());
}

void OperationThreads::post(std::function<void()> f, bool dropWhenStopped)
{
    auto step = std::make_shared<QueuedStep>(m_queuedSteps);
    postTo(&m_home, [this, step = std::move(step), f = std::move(f), dropWhenStopped]() mutable {
        runStep([&] {
            if (!dropWhenStopped || !m_stop)
                f();
            step.reset();
        });
    });
}

void OperationThreads::postToMain(std::function<void()> f)
{
    post([this, f = std::move(f)] {
        if (m_beforePost)
            m_beforePost();
        f();
    });
}

void OperationThreads::postLater(int ms, std::function<void()> f)
{
    auto step = std::make_shared<QueuedStep>(m_queuedSteps);
    QTimer::singleShot(ms, &m_home, [this, step = std::move(step), f = std::move(f)]() mutable {
        runStep([&] {
            step.reset();
            f();
        });
    });
}

void OperationThreads::runInBackground(std::function<void()> f)
{
    ++m_backgroundParts;
    startInBackground([this, f = std::move(f)] {
        {
            const StopWatch watch(m_stop, kStopGraceMs);
            try {
                f();
            } catch (const OperationStopped &) {
                // The Stop has shown the end; nothing of the part is left to run.
            }
        }
        // Counted down on the GUI thread, behind every post the part made.
        post([this] { --m_backgroundParts; }, false);
    });
}

void OperationThreads::runResponsive(const std::function<void()> &work)
{
    QEventLoop loop;
    std::atomic<bool> done{false};
    ++m_responsiveDepth;
    std::thread worker([&] {
        {
            const StopWatch watch(m_stop, kStopGraceMs);
            try {
                work();
            } catch (const OperationStopped &) {
                // Thrown again on the GUI thread, below.
            }
        }
        done = true;
        postTo(&loop, [&loop] { loop.quit(); });
    });
    // Input reaches the Stop only where the face holds back the rest itself.
    const bool faceHoldsInput = m_face.holdInputButStop(true);
    while (!done)
        loop.exec(faceHoldsInput ? QEventLoop::AllEvents : QEventLoop::ExcludeUserInputEvents);
    m_face.holdInputButStop(false);
    worker.join();
    --m_responsiveDepth;
    throwIfStopped();
}

void OperationThreads::runStep(const std::function<void()> &f)
{
    // A dialog or a responsive wait inside the step turns the event loop, and
    // steps queued meanwhile run inside it: none of them may end the
    // operation while this one is still under way.
    ++m_stepDepth;
    try {
        f();
    } catch (const OperationStopped &) {
        // The Stop has shown the end; the rest of the step belongs to it.
    }
    --m_stepDepth;
    if (m_afterStep)
        m_afterStep();
}

void OperationThreads::throwIfStopped() const
{
    if (m_stop)
        throw OperationStopped{};
}

bool OperationThreads::onHomeThread() const
{
    return QThread::currentThread() == m_home.thread();
}

bool OperationThreads::idle() const
{
    return m_stepDepth == 0 && m_backgroundParts == 0 && m_queuedSteps->load() == 0;
}

} // namespace tapedesk

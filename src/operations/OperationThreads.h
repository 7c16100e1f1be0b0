#pragma once

#include <QObject>
#include <QString>
#include <atomic>
#include <functional>
#include <memory>

namespace tapedesk {

class Face;

// Thrown where a stopped operation would go on (a tool run, the end of a
// responsive wait) and caught where a step or a background part began: the
// rest of the workflow is skipped, and the Stop has already shown its end.
struct OperationStopped
{
};

// The hand-offs between the GUI thread and the background for one engine:
// steps posted to the GUI thread (first in, first out), background parts on
// the global thread pool, timed steps, and tool runs on the GUI thread's turn
// with the window painting. It counts what of the operation is still queued
// or running, so the engine knows when the operation is over.
class OperationThreads
{
public:
    // `home` is the engine (an object of the GUI thread); `stop` the flag the
    // operator's Stop sets; the face decides how input is held back during a
    // responsive wait.
    OperationThreads(QObject &home, const std::atomic<bool> &stop, Face &face);
    OperationThreads(const OperationThreads &) = delete;
    OperationThreads &operator=(const OperationThreads &) = delete;

    // Run before every post but the pane's own (the pane's batch goes out
    // first, so the order the operator sees is the order of the calls), and
    // after every step (the engine looks whether the operation is over).
    void setHooks(std::function<void()> beforePost, std::function<void()> afterStep);

    // Posts `f` to the GUI thread. A post from another thread is dropped once
    // the operation is stopped: a stopped background part shows nothing more.
    void post(std::function<void()> f);
    void post(std::function<void()> f, bool dropWhenStopped);
    // post() after the pane's batch.
    void postToMain(std::function<void()> f);
    // Runs `f` on the GUI thread after `ms` milliseconds.
    void postLater(int ms, std::function<void()> f);
    // Queues `f` on the global thread pool; its tool runs obey the stop.
    void runInBackground(std::function<void()> f);
    // Runs `work` off the GUI thread and waits for it while the event loop
    // keeps turning (the window painting, queued posts running); user input
    // is held back but for the face's Stop, so no second operation can start
    // meanwhile. After a stop it does not return but unwinds the step.
    void runResponsive(const std::function<void()> &work);
    // Runs `f` as one step of the operation, then lets the engine look
    // whether anything of the operation is left.
    void runStep(const std::function<void()> &f);

    void throwIfStopped() const;
    bool onHomeThread() const;
    // Nothing queued, running or waiting (GUI thread).
    bool idle() const;
    bool isWaitingResponsive() const { return m_responsiveDepth > 0; }

private:
    QObject &m_home;
    const std::atomic<bool> &m_stop;
    Face &m_face;
    std::function<void()> m_beforePost;
    std::function<void()> m_afterStep;
    // Steps still queued for the GUI thread (shared with the posts, which
    // may outlive the engine), and background parts still running.
    std::shared_ptr<std::atomic<int>> m_queuedSteps = std::make_shared<std::atomic<int>>(0);
    int m_backgroundParts = 0; // GUI thread only
    int m_stepDepth = 0;
    int m_responsiveDepth = 0;
};

} // namespace tapedesk

#pragma once

#include "drives/Drive.h"
#include "operations/Face.h"

#include <QHash>
#include <QString>
#include <atomic>
#include <functional>
#include <memory>

namespace tapedesk {

class Journal;
class OperationThreads;

// What the workflows show, from any thread: the output pane, each action's
// status image, the progress, the drive table. Every visible change is
// posted to the GUI thread in the order it was made; pane messages of a burst
// reach the face in one call.
class Feedback
{
public:
    Feedback(Face &face, OperationThreads &threads, Journal &journal,
             const Synchronized<DrivePtr> &selection);
    Feedback(const Feedback &) = delete;
    Feedback &operator=(const Feedback &) = delete;

    // One message in the pane, after emptying it when `clear`.
    void show(bool clear, const QString &text);
    // The error title and text of an exit code a tool reported ("" and "0" show nothing).
    void showErrorTexts(const QString &code);
    // Status 0 "Complete Button", 1 "Fail Button", 2 "In Process Button",
    // 3 "Ready Button" (ui/StatusImages).
    void status(Action action, int status);
    void startProgress();
    void endProgress();
    // startProgress() at once, for a tool run on the GUI thread's turn.
    void holdActions();
    bool progressShown() const { return m_busy; }
    // The operation is over: the face lets go of the actions. Until then it
    // holds them even between two stretches of progress (a question after a
    // format, the steps still queued after the last line), since the engine
    // takes no second action before.
    void operationOver();
    // The drive table as the drive list and the selection are when it is shown.
    void drivesChanged();
    // The last status each action's button was given (GUI thread), or -1.
    int shownStatus(Action action) const { return m_shown.value(action, -1); }
    // Hands the messages show() has collected to the face in one go (GUI
    // thread). Every other post runs it first.
    void flush();
    Face &face() { return m_face; }

private:
    void setBusy(bool busy);

    Face &m_face;
    OperationThreads &m_threads;
    Journal &m_journal;
    const Synchronized<DrivePtr> &m_selection;
    bool m_busy = false;
    bool m_faceBusy = false; // what the face was last told
    QHash<Action, int> m_shown;
    // Messages on their way to the pane: how many are still queued, shared
    // with the posts that carry them (which may outlive the engine), and the
    // text of those that arrived but are not yet shown.
    std::shared_ptr<std::atomic<int>> m_queuedMessages = std::make_shared<std::atomic<int>>(0);
    QString m_collected;
};

} // namespace tapedesk

#include "operations/Feedback.h"

#include "operations/Journal.h"
#include "operations/Localization.h"
#include "operations/OperationThreads.h"
#include "operations/PaneText.h"
#include "operations/Texts.h"
#include "tools/Console.h"

namespace tapedesk {

namespace {

// One message on its way to the pane. Handing each message to the face on its
// own lays out each new line and the view around it: 100,000 messages kept
// the GUI thread busy for about 20 s. The messages of a burst are collected on
// the GUI thread instead and go to the face in one call, as soon as no
// further message is queued behind them; a lone message goes at once. It
// leaves the count when it arrives, or when it is dropped because its engine
// went before it was delivered.
class QueuedMessage
{
public:
    explicit QueuedMessage(std::shared_ptr<std::atomic<int>> count) : m_count(std::move(count))
    {
        m_count->fetch_add(1);
    }
    ~QueuedMessage()
    {
        if (!m_arrived)
            m_count->fetch_sub(1);
    }
    QueuedMessage(const QueuedMessage &) = delete;
    QueuedMessage &operator=(const QueuedMessage &) = delete;

    // True when no other message is queued behind this one.
    bool arrive()
    {
        m_arrived = true;
        return m_count->fetch_sub(1) == 1;
    }

private:
    std::shared_ptr<std::atomic<int>> m_count;
    std::atomic<bool> m_arrived{false};
};

} // namespace

Feedback::Feedback(Face &face, OperationThreads &threads, Journal &journal,
                   const Synchronized<DrivePtr> &selection)
    : m_face(face), m_threads(threads), m_journal(journal), m_selection(selection)
{}

void Feedback::flush()
{
    if (m_collected.isEmpty())
        return;
    const QString text = withLongLinesCut(m_collected);
    m_collected.clear();
    m_face.appendToPane(text);
}

void Feedback::show(bool clear, const QString &text)
{
    // Journalled as it is said, on the thread that says it: the pane gets it
    // later, and a tool's output journalled meanwhile must not overtake it.
    m_journal.paneText(text);
    auto message = std::make_shared<QueuedMessage>(m_queuedMessages);
    m_threads.post([this, message = std::move(message), clear, text] {
        if (clear) {
            m_collected.clear();
            m_face.clearPane();
        }
        m_collected += QLatin1Char('\n');
        m_collected += text;
        if (message->arrive())
            flush();
    });
}

void Feedback::showErrorTexts(const QString &code)
{
    if (code.isEmpty() || code == ERROR_CODE_OK)
        return;
    const QString message = localizedString(QStringLiteral("error_code_") + code);
    const QString title = localizedString(QStringLiteral("error_code_") + code + QStringLiteral("_title"));
    show(false, title);
    show(false, message);
    consoleLine(QStringView(message));
    consoleLine(QStringView(title));
}

void Feedback::status(Action action, int status)
{
    m_threads.postToMain([this, action, status] {
        m_shown.insert(action, status);
        m_face.setStatus(action, status);
    });
}

void Feedback::startProgress()
{
    m_threads.postToMain([this] { setBusy(true); });
}

void Feedback::endProgress()
{
    m_threads.postToMain([this] { setBusy(false); });
}

void Feedback::holdActions()
{
    setBusy(true);
}

void Feedback::setBusy(bool busy)
{
    m_busy = busy;
    if (busy && !m_faceBusy) {
        m_faceBusy = true;
        m_face.progressStarted();
    }
}

void Feedback::operationOver()
{
    if (!m_faceBusy)
        return;
    m_faceBusy = false;
    m_face.progressEnded();
}

void Feedback::drivesChanged()
{
    m_threads.postToMain([this] { m_face.drivesChanged(driveList.snapshot(), m_selection.get()); });
}

} // namespace tapedesk

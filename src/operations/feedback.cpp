// Operation feedback: the output pane, exit codes, error texts, action
// statuses, progress, and the OK/Cancel confirmation. Every visible change is
// posted to the GUI thread, so the workflows may call these from anywhere.

#include "operations/ExitCode.h"
#include "operations/Localization.h"
#include "operations/PaneText.h"
#include "operations/TapeEngine.h"
#include "operations/Texts.h"
#include "support/Dialogs.h"
#include "tools/Console.h"

#include <atomic>
#include <memory>

namespace tapedesk {

Synchronized<QString> lastStatusFeedBack;

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

void TapeEngine::flushPendingOutput()
{
    if (m_collectedMessages.isEmpty())
        return;
    const QString text = withLongLinesCut(m_collectedMessages);
    m_collectedMessages.clear();
    m_face.appendToPane(text);
}

void TapeEngine::showResults(bool clear, const QString &result)
{
    // Journalled as it is said, on the thread that says it: the pane gets it
    // later, and a tool's output journalled meanwhile must not overtake it.
    journal.paneText(result);
    auto message = std::make_shared<QueuedMessage>(m_queuedMessages);
    post([this, message = std::move(message), clear, result] {
        if (clear) {
            m_collectedMessages.clear();
            m_face.clearPane();
        }
        m_collectedMessages += QLatin1Char('\n');
        m_collectedMessages += result;
        if (message->arrive())
            flushPendingOutput();
    });
}

void TapeEngine::setExitCode(const QString &results)
{
    if (std::optional<QString> code = exitCodeFromOutput(results))
        lastExitCode.set(*code);
}

QString TapeEngine::localizedString(const QString &key) const
{
    return tapedesk::localizedString(key);
}

void TapeEngine::displayError()
{
    const QString code = lastExitCode.get();
    if (code == ERROR_CODE_OK)
        return;
    const QString message = localizedString(QStringLiteral("error_code_") + code);
    const QString title = localizedString(QStringLiteral("error_code_") + code + QStringLiteral("_title"));
    showResults(false, title);
    showResults(false, message);
    consoleLine(QStringView(message));
    consoleLine(QStringView(title));
}

void TapeEngine::changeButtonStatus(Action action, int status, bool showError)
{
    if (status == 1 && showError)
        displayError();
    postToMain([this, action, status] {
        // The format is judged on the Mount button, as the operator sees it.
        const Action judged = m_action == Action::Format ? Action::Mount : m_action;
        if (m_operating && action == judged && (status == 0 || status == 1))
            m_record.status = status;
        m_face.setStatus(action, status);
    });
}

void TapeEngine::startProgress()
{
    postToMain([this] { setBusy(true); });
}

void TapeEngine::endProgress()
{
    postToMain([this] { setBusy(false); });
}

void TapeEngine::holdActions()
{
    setBusy(true);
}

void TapeEngine::setBusy(bool busy)
{
    m_busy = busy;
    if (busy)
        m_face.progressStarted();
    else
        m_face.progressEnded();
}

void TapeEngine::showCloseAlert(const QString &title, const QString &message,
                                const std::function<void(bool)> &completion)
{
    if (dialogs().confirm(title, message) && completion)
        completion(true);
}

void TapeEngine::recordResult(const QString &output)
{
    if (output.isEmpty()) {
        lastStatusFeedBack.set(QString());
        return;
    }
    setExitCode(output);
    lastStatusFeedBack.set(output);
}

QString TapeEngine::runTool(const QString &launchPath, const QStringList &arguments)
{
    QString output = shell(launchPath, arguments);
    recordResult(output);
    return output;
}

bool TapeEngine::lastRunSucceeded() const
{
    return lastExitCode.get() == ERROR_CODE_OK;
}

} // namespace tapedesk

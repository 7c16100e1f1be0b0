// Operation feedback: the output pane, exit codes, error texts, button status
// images, progress, and the OK/Cancel confirmation. Every visible change is
// posted to the GUI thread, so the workflows may call these from anywhere.

#include "operations/ExitCode.h"
#include "operations/Localization.h"
#include "operations/PaneText.h"
#include "operations/Texts.h"
#include "support/Dialogs.h"
#include "tools/Console.h"
#include "tools/HandOff.h"
#include "ui/StatusImages.h"
#include "ui/ViewController.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QTableView>
#include <QTextCursor>
#include <atomic>
#include <memory>

namespace tapedesk {

Synchronized<QString> lastStatusFeedBack;

namespace {
QPointer<QPlainTextEdit> &paneSlot()
{
    static QPointer<QPlainTextEdit> pane;
    return pane;
}

// Messages on their way to the pane. Inserting and scrolling once per message
// lays out each new line and the view around it: 100,000 messages kept the
// GUI thread busy for about 20 s. The messages of a burst are collected on
// the GUI thread instead and go in with one insertion and one scroll, as soon
// as no further message is queued behind them; a lone message goes in at once.
std::atomic<int> &queuedMessages()
{
    static std::atomic<int> count{0};
    return count;
}

QString &collectedMessages() // GUI thread only
{
    static QString text;
    return text;
}

// One message on its way to the pane. It leaves the count when it arrives, or
// when it is dropped because its window closed before it was delivered.
class QueuedMessage
{
public:
    QueuedMessage() { queuedMessages().fetch_add(1); }
    ~QueuedMessage()
    {
        if (!m_arrived)
            queuedMessages().fetch_sub(1);
    }
    QueuedMessage(const QueuedMessage &) = delete;
    QueuedMessage &operator=(const QueuedMessage &) = delete;

    // True when no other message is queued behind this one.
    bool arrive()
    {
        m_arrived = true;
        return queuedMessages().fetch_sub(1) == 1;
    }

private:
    std::atomic<bool> m_arrived{false};
};

} // namespace

QPlainTextEdit *outputView()
{
    QPointer<QPlainTextEdit> &pane = paneSlot();
    if (!pane)
        pane = new QPlainTextEdit; // shown nowhere until the window hands over its own
    return pane;
}

void setOutputView(QPlainTextEdit *pane)
{
    QPointer<QPlainTextEdit> &slot = paneSlot();
    if (slot != pane)
        collectedMessages().clear(); // they were meant for the pane that goes
    if (slot && slot != pane && !slot->parent())
        delete slot.data();
    slot = pane;
}

void flushPendingOutput()
{
    QString &text = collectedMessages();
    if (text.isEmpty())
        return;
    QPlainTextEdit *pane = outputView();
    QTextCursor cursor(pane->document());
    cursor.movePosition(QTextCursor::End);
    QTextCharFormat white;
    white.setForeground(Qt::white);
    cursor.insertText(withLongLinesCut(text), white);
    text.clear();
    pane->verticalScrollBar()->setValue(pane->verticalScrollBar()->maximum());
}

void ViewController::showResults(bool clear, const QString &result)
{
    auto message = std::make_shared<QueuedMessage>();
    postTo(this, [message = std::move(message), clear, result] {
        QString &text = collectedMessages();
        if (clear) {
            text.clear();
            outputView()->clear();
        }
        text += QLatin1Char('\n');
        text += result;
        if (message->arrive())
            flushPendingOutput();
    });
}

void ViewController::setExitCode(const QString &results)
{
    if (std::optional<QString> code = exitCodeFromOutput(results))
        lastExitCode.set(*code);
}

QString ViewController::localizedString(const QString &key) const
{
    return tapedesk::localizedString(key);
}

void ViewController::displayError()
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

void ViewController::changeButtonStatus(QAbstractButton *button, int status, bool showError)
{
    if (status == 1 && showError)
        displayError();
    QPointer<QAbstractButton> target(button);
    postToMain([target, status] {
        if (!target)
            return;
        target->setIcon(StatusImages::icon(status));
        // Tests and accessibility read the status without decoding pixels.
        target->setProperty("statusImage", StatusImages::imageName(status));
    });
}

void ViewController::startProgress()
{
    postToMain([this] {
        enableButtons(false);
        ui.progressIndicator->show();
    });
}

void ViewController::endProgress()
{
    postToMain([this] {
        enableButtons(true);
        ui.progressIndicator->hide();
    });
}

void ViewController::enableButtons(bool enabled)
{
    for (QWidget *w :
         std::initializer_list<QWidget *>{ui.btnScan, ui.btnMount, ui.btnRetriveLog, ui.btnTest,
                                          ui.btnHostValidation, ui.btnUpgrade, ui.btnFormat, ui.tableView})
        w->setEnabled(enabled);
}

void ViewController::showCloseAlert(const QString &title, const QString &message,
                                    const std::function<void(bool)> &completion)
{
    if (dialogs().confirm(title, message) && completion)
        completion(true);
}

void ViewController::recordResult(const QString &output)
{
    if (output.isEmpty()) {
        lastStatusFeedBack.set(QString());
        return;
    }
    setExitCode(output);
    lastStatusFeedBack.set(output);
}

QString ViewController::runTool(const QString &launchPath, const QStringList &arguments)
{
    QString output = shell(launchPath, arguments);
    recordResult(output);
    return output;
}

bool ViewController::lastRunSucceeded() const
{
    return lastExitCode.get() == ERROR_CODE_OK;
}

} // namespace tapedesk

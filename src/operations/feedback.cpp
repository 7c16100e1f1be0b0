// Operation feedback: the output pane, exit codes, error texts, button status
// images, progress, and the OK/Cancel confirmation. Every visible change is
// posted to the GUI thread, so the workflows may call these from anywhere.

#include "operations/ExitCode.h"
#include "operations/Localization.h"
#include "operations/Texts.h"
#include "support/Dialogs.h"
#include "tools/Console.h"
#include "ui/StatusImages.h"
#include "ui/ViewController.h"

#include <QAbstractButton>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QTableView>
#include <QTextCursor>

namespace tapedesk {

Synchronized<QString> lastStatusFeedBack;

namespace {
QPointer<QPlainTextEdit> &paneSlot()
{
    static QPointer<QPlainTextEdit> pane;
    return pane;
}
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
    if (slot && slot != pane && !slot->parent())
        delete slot.data();
    slot = pane;
}

void ViewController::showResults(bool clear, const QString &result)
{
    postToMain([clear, result] {
        QPlainTextEdit *pane = outputView();
        if (clear)
            pane->clear();
        QTextCursor cursor(pane->document());
        cursor.movePosition(QTextCursor::End);
        QTextCharFormat white;
        white.setForeground(Qt::white);
        cursor.insertText(QStringLiteral("\n") + result, white);
        pane->verticalScrollBar()->setValue(pane->verticalScrollBar()->maximum());
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

#pragma once

#include "support/TestEnv.h"

#include <QAccessible>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QWidget>
#include <functional>

class QFileDialog;

namespace tapedesk {
class MainWindow;
class ToolPathsPage;
} // namespace tapedesk

namespace tapedesk::test {

// What a test saw of one modal dialog.
struct SeenDialog
{
    QString title;       // QMessageBox text, else the window title
    QString informative; // QMessageBox informative text, or the input dialog's question
    QStringList buttons; // in on-screen order
};

// Answers the real modal dialogs a workflow opens, in the order they appear.
// Queue one handler per expected dialog before starting the action; a dialog
// nobody expected is recorded and closed, so a test never hangs on it.
class DialogScript
{
public:
    using Handler = std::function<void(QWidget *dialog, const SeenDialog &seen)>;

    DialogScript();

    DialogScript &then(Handler handler);
    // Presses the button with this text (accelerator '&' ignored).
    DialogScript &press(const QString &buttonText);
    // Chooses a path (file or folder) in a file dialog, or cancels it.
    DialogScript &choosePath(const QString &path);
    DialogScript &cancelPicker();

    const QList<SeenDialog> &seen() const { return m_seen; }
    QList<SeenDialog> unexpected() const { return m_unexpected; }
    int pending() const { return static_cast<int>(m_handlers.size()); }

private:
    void poll();

    QList<Handler> m_handlers;
    QList<SeenDialog> m_seen;
    QList<SeenDialog> m_unexpected;
    // Guarded: a dialog created on the stack right after the last one often
    // gets the same address, and must still count as a new dialog.
    QPointer<QWidget> m_current;
    QTimer m_timer;
};

bool clickButton(QWidget *dialog, const QString &text);
// Types `path` into the file dialog's name field, as the operator does, and
// accepts. `direct`: accepts at once and says whether the dialog refused.
bool typeAndAccept(QFileDialog *dialog, const QString &path, bool direct = false);

// Processes events until `condition` holds or `timeoutMs` passes.
bool waitUntil(const std::function<bool()> &condition, int timeoutMs = 10000);

// The pane's whole plain text.
QString paneText(MainWindow &mainWindow);
// Waits until the pane contains `text`.
bool waitForPane(MainWindow &mainWindow, const QString &text, int timeoutMs = 10000);
// Waits until the progress indicator is hidden and the buttons are enabled.
bool waitForIdle(MainWindow &mainWindow, int timeoutMs = 10000);

// The simulator with the library `stateIni` (its own when empty), paths on
// it, no fault, no mounted-drive record, no scanned drive, and every tool run
// logged afresh to simLogPath().
void freshCase(const QByteArray &stateIni = {});
QString simLogPath();
// Selects the drive (id, name) without a scan, as a workflow sees it.
// What assistive technology gets of `object` (its name, description...).
QString accessibleText(QObject *object, QAccessible::Text text);

// No tool path stored or loaded: a first start.
void forgetPaths();
// The four stored paths (itdt, ltfs, mkltfs, output), "<absent>" for one not stored.
QStringList storedPaths();
// The four fields of the paths page, in the same order.
QStringList pathFields(const ToolPathsPage &page);

void selectDrive(MainWindow &mainWindow, const QString &id = QStringLiteral("tape0"),
                 const QString &name = QStringLiteral("0"));

} // namespace tapedesk::test

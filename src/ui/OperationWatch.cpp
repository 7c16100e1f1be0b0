#include "ui/OperationWatch.h"

#include "operations/TapeEngine.h"
#include "ui/LiveOutputView.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QSaveFile>
#include <QUrl>

namespace tapedesk {

OperationWatch::OperationWatch(TapeEngine &engine, QWidget *window)
    : QObject(window), m_engine(engine), m_window(window), m_liveView(new LiveOutputView(window)),
      m_elapsed(new QLabel(window)), m_notifier(this)
{
    // The window gives the view its monospaced font after its first frame.
    QPalette pane = m_liveView->palette();
    pane.setColor(QPalette::Base, QColor(0x12, 0x14, 0x18));
    pane.setColor(QPalette::Text, QColor(0xe6, 0xe6, 0xe6));
    m_liveView->setPalette(pane);

    m_elapsed->setObjectName(QStringLiteral("lblElapsed"));
    m_elapsed->setAccessibleDescription(QStringLiteral("Running operation"));
    QSizePolicy keep = m_elapsed->sizePolicy();
    keep.setRetainSizeWhenHidden(true);
    m_elapsed->setSizePolicy(keep);
    m_elapsed->hide();

    m_clock.setInterval(1000);
    connect(&m_clock, &QTimer::timeout, this, [this] { tick(); });
    connect(&engine, &TapeEngine::operationEnded, this, [this] { operationEnded(); });
    connect(&m_notifier, &DesktopNotifier::activated, this, [this] {
        m_window->showNormal();
        m_window->raise();
        m_window->activateWindow();
    });
    engine.setLiveOutput(true);
}

void OperationWatch::addMenuCommands(QMenu *menu, QAction *before)
{
    auto *save = new QAction(QStringLiteral("Save Transcript…"), menu);
    save->setObjectName(QStringLiteral("actionSaveTranscript"));
    save->setShortcut(QKeySequence::Save);
    save->setStatusTip(QStringLiteral("Save what the current operation ran and printed"));
    connect(save, &QAction::triggered, this, [this] { askAndSaveTranscript(); });
    auto *open = new QAction(QStringLiteral("Open Journal Folder"), menu);
    open->setObjectName(QStringLiteral("actionOpenJournal"));
    open->setStatusTip(QStringLiteral("Show every operation's record in the file manager"));
    connect(open, &QAction::triggered, this, [] {
        QDir().mkpath(Journal::folder());
        QDesktopServices::openUrl(QUrl::fromLocalFile(Journal::folder()));
    });
    menu->insertAction(before, save);
    menu->insertAction(before, open);
    menu->insertSeparator(before);
}

void OperationWatch::progressShown(bool shown)
{
    if (!shown) {
        m_clock.stop();
        m_elapsed->hide();
        return;
    }
    // A new operation's tools replace the last one's; an operation shows its
    // progress more than once when one step waits for another (a format
    // after an unmount).
    if (m_engine.lastOperation().started != m_shownStart) {
        m_shownStart = m_engine.lastOperation().started;
        m_liveView->clearOutput();
    }
    tick();
    m_elapsed->show();
    m_clock.start();
}

void OperationWatch::tick()
{
    const TapeEngine::OperationRecord &op = m_engine.lastOperation();
    const QString text = op.title + QStringLiteral(" — ") + elapsedText(op.clock.elapsed());
    m_elapsed->setText(text);
    m_elapsed->setAccessibleName(text);
}

void OperationWatch::operationEnded()
{
    const TapeEngine::OperationRecord &op = m_engine.lastOperation();
    if (op.clock.elapsed() <= notifyAfterMs || m_window->isActiveWindow())
        return;
    m_notifier.notify(op.title + QStringLiteral(": ") + op.verdictName(),
                      QStringLiteral("%1 on %2 ended after %3: %4")
                          .arg(actionName(op.action),
                               op.drive.isEmpty() ? QStringLiteral("no drive") : op.drive,
                               elapsedText(op.clock.elapsed()), op.verdictName()));
}

bool OperationWatch::saveTranscript(const QString &path, QString *error) const
{
    const QByteArray record = m_engine.journal().record();
    if (record.isEmpty()) {
        *error = QStringLiteral("No operation has been recorded yet.");
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(record) != record.size() || !file.commit()) {
        *error = file.errorString();
        return false;
    }
    return true;
}

void OperationWatch::askAndSaveTranscript()
{
    const TapeEngine::OperationRecord &op = m_engine.lastOperation();
    const QString name = QStringLiteral("TapeDesk %1 %2.log")
                             .arg(op.title, op.started.toString(QStringLiteral("yyyy-MM-dd HHmmss")));
    const QString path =
        QFileDialog::getSaveFileName(m_window, QStringLiteral("Save Transcript"), QDir::home().filePath(name),
                                     QStringLiteral("Logs (*.log)"));
    if (path.isEmpty())
        return;
    QString error;
    if (!saveTranscript(path, &error))
        QMessageBox::warning(m_window, QStringLiteral("Transcript Not Saved"), error);
}

} // namespace tapedesk

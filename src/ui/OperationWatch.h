#pragma once

#include "ui/DesktopNotifier.h"

#include <QDateTime>
#include <QObject>
#include <QTimer>

class QAction;
class QLabel;
class QMenu;
class QWidget;

namespace tapedesk {

class LiveOutputView;
class TapeEngine;

// What the window shows of an operation beyond its transcript: the live
// view of the running tool, the clock beside the progress ("Formatting
// tape0 — 02:13"), a desktop notification when a long operation ends while
// the window is in the background, and the journal's menu commands.
class OperationWatch : public QObject
{
public:
    // Operations shorter than this end without a notification.
    static constexpr qint64 kNotifyAfterMs = 30000;

    OperationWatch(TapeEngine &engine, QWidget *window);

    LiveOutputView *liveView() const { return m_liveView; }
    QLabel *elapsedLabel() const { return m_elapsed; }
    DesktopNotifier &notifier() { return m_notifier; }
    qint64 notifyAfterMs = kNotifyAfterMs;

    // "Save Transcript…" and "Open Journal Folder", before `before`.
    void addMenuCommands(QMenu *menu, QAction *before);
    // The progress is shown (the operation holds the actions) or hidden.
    void progressShown(bool shown);
    // Saves the current operation's record to `path`; false, with the reason
    // in `error`, when it cannot.
    bool saveTranscript(const QString &path, QString *error) const;

private:
    void tick();
    void operationEnded();
    void askAndSaveTranscript();

    TapeEngine &m_engine;
    QWidget *m_window;
    LiveOutputView *m_liveView;
    QLabel *m_elapsed;
    QTimer m_clock;
    QDateTime m_shownStart;
    DesktopNotifier m_notifier;
};

} // namespace tapedesk

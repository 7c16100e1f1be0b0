#pragma once

// The engine as the workflow tests drive it: a face that records what the
// engine showed, answers to its questions read from a script, and waiting
// for an operation to end. Links the engine alone (no widgets).

#include "operations/Face.h"
#include "operations/TapeEngine.h"
#include "support/Dialogs.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>
#include <memory>

namespace tapedesk::test {

// What the engine showed, in the order it showed it.
class RecordingFace final : public Face
{
public:
    QString pane;
    QString shown;      // all the pane ever showed, clearing or not
    QStringList events; // "status <Action> <n>", "caption X"
    QHash<Action, int> status;
    QList<DrivePtr> listed;
    QByteArray toolBytes; // what toolOutput() received
    QList<VolumeReport> volumeReports;

    void clearPane() override { pane.clear(); }
    void appendToPane(const QString &text) override
    {
        pane += text;
        shown += text;
    }
    void setStatus(Action action, int s) override;
    void setMountCaption(const QString &caption) override { events << QStringLiteral("caption ") + caption; }
    void progressStarted() override {}
    void progressEnded() override {}
    void drivesChanged(const QList<DrivePtr> &drives, const DrivePtr &) override { listed = drives; }
    void toolOutput(OutputStream, QByteArrayView chunk) override { toolBytes += chunk.toByteArray(); }
    void volumeDetailsChanged(const VolumeReport &report) override { volumeReports << report; }
};

// Answers each question with the next entry of a script and records it as
// "<title>" (or "Select File" / the folder title for the pickers). An entry
// is the text typed, "0"/"1" for a two-button prompt's first/second button,
// "ok"/"cancel" for a confirmation, a path for a picker. When the script has
// run out every question is declined, and recorded with a leading "!".
class ScriptedAnswers final : public DialogProvider
{
public:
    explicit ScriptedAnswers(QStringList script, QStringList *asked)
        : m_script(std::move(script)), m_asked(asked)
    {}
    QString getString(const QString &title, const QString &, const QString &) override;
    int userOptionPrompt(const QString &title, const QString &, const QString &, const QString &) override;
    QString pickFile(const QStringList &) override;
    QString pickFolder() override;
    bool confirm(const QString &title, const QString &) override;
    void inform(const QString &title, const QString &) override;

private:
    // The next answer, or null when the script is used up.
    QString next(const QString &title);
    QStringList m_script;
    QStringList *m_asked;
};

// Installs ScriptedAnswers for `script`; the questions asked land in `asked`.
void answerWith(const QStringList &script, QStringList *asked);

// Performs `action` and waits until nothing of the operation is left (the
// engine is idle and no background part, step or unmount wait runs). False
// on a time-out.
[[nodiscard]] bool performToEnd(TapeEngine &engine, Action action, int timeoutMs = 20000);
// Waits until the engine has no operation left (after start(), selectDrive()).
[[nodiscard]] bool settle(TapeEngine &engine, int timeoutMs = 20000);
// Scans and selects the drive whose id is `id`; false when it is not listed.
[[nodiscard]] bool scanAndSelect(TapeEngine &engine, RecordingFace &face, const QString &id);

} // namespace tapedesk::test

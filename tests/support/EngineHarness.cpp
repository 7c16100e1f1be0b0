#include "support/EngineHarness.h"

#include <QTest>

namespace tapedesk::test {

void RecordingFace::setStatus(Action action, int s)
{
    status[action] = s;
    events << QStringLiteral("status %1 %2").arg(static_cast<int>(action)).arg(s);
}

QString ScriptedAnswers::next(const QString &title)
{
    if (m_script.isEmpty()) {
        *m_asked << QStringLiteral("!") + title;
        return {};
    }
    *m_asked << title;
    return m_script.takeFirst();
}

QString ScriptedAnswers::getString(const QString &title, const QString &, const QString &)
{
    const QString answer = next(title);
    return answer.isNull() ? QStringLiteral("-1") : answer;
}

int ScriptedAnswers::userOptionPrompt(const QString &title, const QString &, const QString &, const QString &)
{
    return next(title) == QStringLiteral("0") ? 0 : 1;
}

QString ScriptedAnswers::pickFile(const QStringList &)
{
    return next(kPickFileTitle);
}

QString ScriptedAnswers::pickFolder()
{
    const QString answer = next(kPickFolderTitle);
    return answer.isNull() ? QStringLiteral("-1") : answer;
}

bool ScriptedAnswers::confirm(const QString &title, const QString &)
{
    return next(title) == QStringLiteral("ok");
}

void ScriptedAnswers::inform(const QString &title, const QString &)
{
    // An alert with one button needs no answer, but is seen.
    *m_asked << title;
}

void answerWith(const QStringList &script, QStringList *asked)
{
    setDialogProvider(std::make_unique<ScriptedAnswers>(script, asked));
}

bool settle(TapeEngine &engine, int timeoutMs)
{
    // An operation posts its first step before it counts as operating; one
    // turn of the event loop lets it.
    QCoreApplication::processEvents();
    return QTest::qWaitFor([&] { return !engine.isOperating() && !engine.isBusy(); }, timeoutMs);
}

bool performToEnd(TapeEngine &engine, Action action, int timeoutMs)
{
    engine.perform(action);
    return settle(engine, timeoutMs);
}

bool scanAndSelect(TapeEngine &engine, RecordingFace &face, const QString &id)
{
    if (!performToEnd(engine, Action::Scan))
        return false;
    for (const DrivePtr &drive : face.listed) {
        if (drive->id() == id) {
            engine.selectDrive(drive);
            return settle(engine);
        }
    }
    return false;
}

} // namespace tapedesk::test

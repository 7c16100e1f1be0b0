// ctest-timeout: 60
// What every workflow leans on, through the engine and a recording face: exit
// codes found in tool text, the error texts, statuses with and without them,
// and the order of what background threads post.

#include "support/EngineHarness.h"
#include "support/TestEnv.h"
#include "tools/Console.h"

#include <QCoreApplication>
#include <QTest>
#include <QThreadPool>

using namespace tapedesk;
using namespace tapedesk::test;

class FeedbackTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void exitCode_data()
    {
        QTest::addColumn<QString>("previous");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("expected");
        const QList<std::array<const char *, 4>> rows{
            {"itdt's closing line", "7", "Scanning...\nExit with code: 0\n", "0"},
            {"number mid-text, other last word", "", "Exit with code: 4 while reading tape0", "tape0"},
            {"line end inside the last word goes", "", "code: 3 see\nlog", "seelog"},
            {"tab, carriage return and line end stripped", "", "code: \t5\t\r\n", "5"},
            {"ends with a space", "0", "Exit with code: 0 ", ""},
            {"errno alone", "0", "open /dev/IBMtape0 failed: errno 5\n", "99"},
            {"errno and code: last word wins", "", "ioctl errno 5\nExit with code: 2\n", "2"},
            {"neither keeps an earlier success", "0", "Loading...\nDone\n", "0"},
            {"neither keeps an earlier failure", "6", "no marker here", "6"},
            {"Code: is not code:", "0", "Exit with Code: 5", "0"},
            {"code: needs its blank", "0", "Exit with code:5", "0"},
            {"ERRNO is not errno", "0", "ERRNO 5", "0"},
            {"errno needs its blank", "0", "errno=5", "0"},
        };
        for (const auto &r : rows)
            QTest::newRow(r[0]) << QString::fromUtf8(r[1]) << QString::fromUtf8(r[2])
                                << QString::fromUtf8(r[3]);
    }

    void exitCode()
    {
        QFETCH(QString, previous);
        QFETCH(QString, output);
        QFETCH(QString, expected);
        RecordingFace face;
        TapeEngine engine(face);
        engine.lastExitCode.set(previous);
        engine.setExitCode(output);
        QCOMPARE(engine.lastExitCode.get(), expected);
        // An empty output says nothing about the code.
        engine.recordResult(QString());
        QCOMPARE(engine.lastExitCode.get(), expected);
        QCOMPARE(engine.lastRunSucceeded(), expected == QStringLiteral("0"));
    }

    // Regression: the texts live in the static engine library and once never
    // reached the programs linking it, so every error showed its bare keys.
    void errorTexts()
    {
        RecordingFace face;
        TapeEngine engine(face);
        QStringList titles;
        for (const char *code : {"1", "2", "3", "4", "5", "6", "7", "8", "99"}) {
            const QString key = QStringLiteral("error_code_") + QLatin1String(code);
            const QString title = engine.localizedString(key + QStringLiteral("_title"));
            const QString message = engine.localizedString(key);
            QVERIFY2(title != key + QStringLiteral("_title") && !title.trimmed().isEmpty(), code);
            QVERIFY2(message != key && !message.trimmed().isEmpty() && title != message, code);
            titles << title;

            // A failure shown with its error: the title, then the message.
            face.pane.clear();
            engine.lastExitCode.set(QLatin1String(code));
            engine.changeButtonStatus(Action::Mount, 1, true);
            QVERIFY(QTest::qWaitFor([&] { return !face.pane.isEmpty(); }));
            QCOMPARE(face.pane, QLatin1Char('\n') + title + QLatin1Char('\n') + message);
        }
        titles.removeDuplicates();
        QCOMPARE(titles.size(), 9);
        // No text for a code: its keys, never an empty pane or a crash.
        face.pane.clear();
        engine.lastExitCode.set(QStringLiteral("4711"));
        engine.displayError();
        QVERIFY(QTest::qWaitFor([&] { return !face.pane.isEmpty(); }));
        QCOMPARE(face.pane, QStringLiteral("\nerror_code_4711_title\nerror_code_4711"));
        // Success and the other statuses show no error text.
        face.pane.clear();
        for (int status : {0, 2, 3, 7})
            engine.changeButtonStatus(Action::Mount, status, true);
        engine.lastExitCode.set(QStringLiteral("0"));
        engine.displayError();
        engine.showResults(false, QStringLiteral("end"));
        QVERIFY(QTest::qWaitFor([&] { return !face.pane.isEmpty(); }));
        QCOMPARE(face.pane, QStringLiteral("\nend"));
    }

    // A burst from a background thread arrives in order, each status change
    // right after the message posted before it, and a clear drops only what
    // came before it.
    void postsKeepTheirOrder()
    {
        RecordingFace face;
        TapeEngine engine(face);
        QStringList seen; // pane lines and statuses, interleaved as the face got them
        QThreadPool::globalInstance()->start([&engine] {
            for (int i = 0; i < 1000; ++i) {
                engine.showResults(i == 100, QStringLiteral("line %1").arg(i));
                if (i % 100 == 99)
                    engine.changeButtonStatus(Action::Scan, (i / 100) % 4, false);
            }
        });
        QThreadPool::globalInstance()->waitForDone();
        QVERIFY(QTest::qWaitFor([&] { return face.pane.endsWith(QStringLiteral("line 999")); }));
        const QStringList lines = face.paneLines();
        QCOMPARE(lines.size(), 900);
        for (int i = 0; i < 900; ++i)
            QCOMPARE(lines.at(i), QStringLiteral("line %1").arg(i + 100));
        QCOMPARE(face.events.filter(QStringLiteral("status 0 ")).size(), 10);
    }
};

TAPEDESK_ENGINE_TEST_MAIN(FeedbackTest)

#include "tst_engine_feedback.moc"

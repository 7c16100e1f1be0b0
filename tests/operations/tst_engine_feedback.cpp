// ctest-timeout: 60
// What every workflow leans on, through a recording face: the codes found in
// tool text and what a run that reported none did instead, the error texts,
// and the order of what background threads post.

#include "operations/ExitCode.h"
#include "operations/Localization.h"
#include "operations/OperationContext.h"
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
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("expected"); // "-": the text reports no code
        const QList<std::array<const char *, 3>> rows{
            {"itdt's closing line", "Scanning...\nExit with code: 0\n", "0"},
            {"number mid-text, other last word", "Exit with code: 4 while reading tape0", "tape0"},
            {"line end inside the last word goes", "code: 3 see\nlog", "seelog"},
            {"tab, carriage return and line end stripped", "code: \t5\t\r\n", "5"},
            {"ends with a space", "Exit with code: 0 ", ""},
            {"errno alone", "open /dev/IBMtape0 failed: errno 5\n", "99"},
            {"errno and code: last word wins", "ioctl errno 5\nExit with code: 2\n", "2"},
            {"neither reports nothing", "Loading...\nDone\n", "-"},
            {"Code: is not code:", "Exit with Code: 5", "-"},
            {"code: needs its blank", "Exit with code:5", "-"},
            {"ERRNO is not errno", "ERRNO 5", "-"},
            {"errno needs its blank", "errno=5", "-"},
        };
        for (const auto &r : rows)
            QTest::newRow(r[0]) << QString::fromUtf8(r[1]) << QString::fromUtf8(r[2]);
    }

    void exitCode()
    {
        QFETCH(QString, output);
        QFETCH(QString, expected);
        QCOMPARE(exitCodeFromOutput(output).value_or(QStringLiteral("-")), expected);
    }

    // ltfs and mkltfs report through their message lines and exit status: a
    // run killed half-way, or one with no message line, reported nothing,
    // and says what it did instead.
    void ltfsReport_data()
    {
        QTest::addColumn<QString>("err");
        QTest::addColumn<int>("exitStatus"); // -1: none
        QTest::addColumn<int>("signal");
        QTest::addColumn<bool>("started");
        QTest::addColumn<QString>("expected"); // the code, or the reason
        const QString failed = QStringLiteral("LTFS15023I Formatting failed.\n");
        QTest::newRow("success") << QStringLiteral("LTFS15024I Medium formatted successfully.\n") << 0 << 0
                                 << true << QStringLiteral("0");
        QTest::newRow("failure") << failed << 16 << 0 << true << QStringLiteral("16");
        QTest::newRow("killed after a message")
            << failed << -1 << 11 << true << QStringLiteral("mkltfs was killed by signal 11");
        QTest::newRow("silent") << QString() << 0 << 0 << true
                                << QStringLiteral("mkltfs ended without reporting a result");
        QTest::newRow("garbage") << QStringLiteral("\uFFFDLTFS garbage") << 0 << 0 << true
                                 << QStringLiteral("mkltfs ended without reporting a result");
        QTest::newRow("not started") << QString() << -1 << 0 << false
                                     << QStringLiteral("mkltfs could not be started: /opt/ltfs/mkltfs");
    }

    void ltfsReport()
    {
        QFETCH(QString, err);
        QFETCH(int, exitStatus);
        QFETCH(int, signal);
        QFETCH(bool, started);
        QFETCH(QString, expected);
        ToolResult run;
        run.program = QStringLiteral("/opt/ltfs/mkltfs");
        run.started = started;
        run.err = err;
        if (exitStatus >= 0)
            run.exitStatus = exitStatus;
        run.signal = signal;
        const std::optional<QString> code = ltfsReportedCode(run);
        QCOMPARE(code ? *code : unreportedReason(run, QStringLiteral("mkltfs")), expected);
    }

    // Regression: the texts live in the static engine library and once never
    // reached the programs linking it, so every error showed its bare keys.
    void errorTexts()
    {
        RecordingFace face;
        QObject home;
        Journal journal;
        OperationContext op(home, face, journal);
        const auto shownFor = [&](const QString &code) {
            face.pane.clear();
            op.feedback.showErrorTexts(code);
            op.show(false, QStringLiteral("end"));
            return QTest::qWaitFor([&] { return face.pane.endsWith(QStringLiteral("\nend")); })
                       ? face.pane
                       : QStringLiteral("nothing shown");
        };
        for (const char *code : {"1", "2", "3", "4", "5", "6", "7", "8", "99"}) {
            const QString key = QStringLiteral("error_code_") + QLatin1String(code);
            const QString title = localizedString(key + QStringLiteral("_title"));
            const QString message = localizedString(key);
            QVERIFY2(!title.startsWith(key) && !message.startsWith(key), code);
            QVERIFY2(!title.trimmed().isEmpty() && !message.trimmed().isEmpty() && title != message, code);
            // A failure shown with its error: the title, then the message.
            QCOMPARE(shownFor(QLatin1String(code)), QStringLiteral("\n%1\n%2\nend").arg(title, message));
        }
        // No text for a code: its keys, never an empty pane or a crash.
        QCOMPARE(shownFor(QStringLiteral("4711")),
                 QStringLiteral("\nerror_code_4711_title\nerror_code_4711\nend"));
        // Success, and a run that reported no code, show no error text.
        QCOMPARE(shownFor(QStringLiteral("0")), QStringLiteral("\nend"));
        QCOMPARE(shownFor(QString()), QStringLiteral("\nend"));
    }

    // A burst from a background thread arrives in order, each status change
    // right after the message posted before it, and a clear drops only what
    // came before it.
    void postsKeepTheirOrder()
    {
        RecordingFace face;
        QObject home;
        Journal journal;
        OperationContext op(home, face, journal);
        QThreadPool::globalInstance()->start([&op] {
            for (int i = 0; i < 1000; ++i) {
                op.show(i == 100, QStringLiteral("line %1").arg(i));
                if (i % 100 == 99)
                    op.status(Action::Scan, (i / 100) % 4);
            }
        });
        QThreadPool::globalInstance()->waitForDone();
        QVERIFY(QTest::qWaitFor([&] { return face.pane.endsWith(QStringLiteral("line 999")); }));
        QStringList lines = face.pane.split(QLatin1Char('\n'));
        lines.removeFirst(); // each message starts a line
        QCOMPARE(lines.size(), 900);
        for (int i = 0; i < 900; ++i)
            QCOMPARE(lines.at(i), QStringLiteral("line %1").arg(i + 100));
        QCOMPARE(face.events.filter(QStringLiteral("status 0 ")).size(), 10);
    }
};

TAPEDESK_ENGINE_TEST_MAIN(FeedbackTest)

#include "tst_engine_feedback.moc"

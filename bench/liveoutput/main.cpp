// A tool prints 50 MB in short lines on both streams while the window shows
// it live in its Tool Output tab, on screen. Measures the longest time the GUI
// thread went without an event-loop turn (a 5 ms heartbeat notes every turn)
// and the heap the live view holds once everything is shown (what emptying
// it gives back). The tool runs through the engine as a workflow runs it, so
// the figure covers the runner, the posts and the view.
//
// Output ends with one line per figure:
//   liveoutput_max_gui_gap: 21.0 ms (target <= 50 ms) ok
//   liveoutput_view_memory: 3.1 MB (target <= 30 MB) ok

#include "tools/ToolPaths.h"
#include "ui/LiveOutputView.h"
#include "ui/MainWindow.h"
#include "ui/OperationWatch.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>
#include <malloc.h>

using namespace tapedesk;

namespace {

constexpr double kTargetGapMs = 50.0;
constexpr double kTargetMemoryMb = 30.0;
constexpr qint64 kToolBytes = 50LL * 1024 * 1024;

qint64 heapInUse()
{
    return static_cast<qint64>(mallinfo2().uordblks);
}

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    const QByteArray h = QFile::encodeName(home.path());
    qputenv("HOME", h);
    qputenv("XDG_CONFIG_HOME", h + "/.config");
    qputenv("XDG_STATE_HOME", h + "/.local/state");
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);

    // Lines of 40 to 60 characters, every tenth on standard error.
    const QString tool = home.path() + QStringLiteral("/flood");
    QFile script(tool);
    if (!script.open(QIODevice::WriteOnly))
        return 1;
    script.write(
        "#!/bin/sh\nawk 'BEGIN { n = 0; while (n < " + QByteArray::number(kToolBytes) +
        ") { l = sprintf(\"block %09d of the drive dump: sense data %s\", NR++, substr(\"0123456789abcdef\", "
        "1, NR % 17)); if (NR % 10 == 0) print l > \"/dev/stderr\"; else print l; n += length(l) + 1 } }'\n");
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    MainWindow mainWindow;
    mainWindow.ui.paneTabs->setCurrentWidget(mainWindow.watch().liveView());
    mainWindow.show();

    QElapsedTimer clock;
    qint64 last = 0;
    qint64 maxGap = 0;
    QTimer heartbeat;
    heartbeat.setTimerType(Qt::PreciseTimer);
    heartbeat.setInterval(5);
    QObject::connect(&heartbeat, &QTimer::timeout, [&] {
        const qint64 now = clock.nsecsElapsed();
        maxGap = std::max(maxGap, now - last);
        last = now;
    });

    // The flood stands in for itdt, and a scan runs it: the path every tool
    // run of an operation takes to the live view.
    for (OptionalPath *path : {&ITDT_PATH, &LTFS_PATH, &MKLTFS_PATH})
        path->set(tool);
    OUTPUT_FOLDER.set(home.path());
    bool ran = false;
    QObject::connect(&mainWindow.engine, &TapeEngine::operationEnded, [&ran] { ran = true; });
    clock.start();
    heartbeat.start();
    mainWindow.engine.perform(Action::Scan);
    QEventLoop loop;
    QTimer check;
    check.setInterval(10);
    QObject::connect(&check, &QTimer::timeout, [&] {
        if ((ran && !mainWindow.engine.isOperating() && mainWindow.watch().liveView()->pendingLines() == 0) ||
            clock.elapsed() > 120000)
            loop.quit();
    });
    check.start();
    loop.exec();
    heartbeat.stop();
    const double seconds = static_cast<double>(clock.elapsed()) / 1000.0;

    LiveOutputView &view = *mainWindow.watch().liveView();
    const int lines = view.document()->blockCount();
    const qint64 before = heapInUse();
    view.clearOutput();
    QCoreApplication::processEvents();
    const double heldMb = static_cast<double>(before - heapInUse()) / (1024.0 * 1024.0);
    const double gapMs = static_cast<double>(maxGap) / 1e6;
    const bool finished = ran;

    std::printf("bench: %.0f MB of tool output in %.1f s%s; the view kept %d lines\n",
                static_cast<double>(kToolBytes) / (1024.0 * 1024.0), seconds,
                finished ? "" : " (DID NOT FINISH)", lines);
    const bool gapOk = finished && gapMs <= kTargetGapMs;
    const bool memoryOk = finished && heldMb <= kTargetMemoryMb;
    std::printf("liveoutput_max_gui_gap: %.1f ms (target <= %.0f ms) %s\n", gapMs, kTargetGapMs,
                gapOk ? "ok" : "MISS");
    std::printf("liveoutput_view_memory: %.1f MB (target <= %.0f MB) %s\n", heldMb, kTargetMemoryMb,
                memoryOk ? "ok" : "MISS");
    std::fflush(stdout);
    return gapOk && memoryOk ? 0 : 1;
}

#pragma once

#include "tools/ProcessRunner.h"
#include "tools/ToolResult.h"

#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringList>
#include <atomic>
#include <functional>
#include <mutex>
#include <optional>

namespace tapedesk {

class Face;
class Journal;
class OperationThreads;

// Runs the tools of the engine's operations and hands each run back as a
// ToolResult: named to the journal and, with live output on, to the face as
// it prints; obeying the operator's Stop, which it holds. A run either sees
// a stop or is named by it, never neither.
class ToolRunner
{
public:
    // `stop` is the operation's stop flag, set through requestStop().
    ToolRunner(Face &face, Journal &journal, OperationThreads &threads, std::atomic<bool> &stop);
    ToolRunner(const ToolRunner &) = delete;
    ToolRunner &operator=(const ToolRunner &) = delete;

    // The tool at `program` (no shell), its code read from standard output.
    // Throws OperationStopped once the operation is stopped, before or after.
    ToolResult run(const QString &program, const QStringList &arguments);
    // `command` through the shell, both streams merged into `out`.
    ToolResult runCommand(const QString &command);
    // A tool whose exit status is its verdict: the run waits for the status.
    ToolResult runForExitStatus(const QString &program, const QStringList &arguments);

    void setLiveOutput(bool on) { m_liveOutput = on; }
    // Ends the running tools with their process groups and starts no other:
    // for a front end that is going away.
    void abandon();

    // The operator's Stop.
    const std::atomic<bool> &stopFlag() const { return m_stopped; }
    bool isStopped() const { return m_stopped; }
    // Sets the stop unless mkltfs is running and its run is not `confirmedRun`
    // (the run the operator agreed to leave unformatted): then returns the
    // run to confirm and sets nothing. `stoppedTool` gets the tool that runs.
    struct StopRequest
    {
        bool stopped = false;
        QString tool; // "itdt dump", "" between runs
        bool mkltfs = false;
        quint64 run = 0; // the run to confirm when not stopped
    };
    StopRequest requestStop(quint64 confirmedRun);
    // The operation has ended: runs may start again.
    void clearStop() { m_stopped = false; }

    // Told of every run that ended: the program, its arguments, the code it
    // reported ("" for none). Called on the thread that ran it.
    std::function<void(const QString &, const QStringList &, const QString &)> onToolRan;

private:
    // Records the tool a run is about to start, or throws OperationStopped.
    void starting(const QString &program, const QStringList &arguments);
    void ended();
    ChunkObserver announce(const QString &program, const QStringList &arguments);
    // A tool may print far faster than the GUI thread takes posts, and a post
    // per chunk then keeps it from ever turning; what arrives while one
    // hand-over is on its way joins it instead.
    void queueLive(int kind, QByteArrayView bytes, const QString &program = {},
                   const QStringList &arguments = {});
    void handOverLive();

    Face &m_face;
    Journal &m_journal;
    OperationThreads &m_threads;
    bool m_liveOutput = false;
    std::atomic<bool> m_abandoned{false};
    std::atomic<bool> &m_stopped;
    std::mutex m_toolMutex;
    QString m_runningTool;
    bool m_runningMkltfs = false;
    quint64 m_toolRuns = 0;
    struct LivePiece
    {
        int kind; // -1 a tool's start, else an OutputStream
        QByteArray bytes;
        QString program;
        QStringList arguments;
    };
    std::mutex m_liveMutex;
    QList<LivePiece> m_livePieces;
    bool m_liveHandOverQueued = false;
};

} // namespace tapedesk

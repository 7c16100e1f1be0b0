#include "operations/ToolRunner.h"

#include "operations/ExitCode.h"
#include "operations/Face.h"
#include "operations/Journal.h"
#include "operations/OperationThreads.h"
#include "tools/Console.h"
#include "tools/Shell.h"
#include "tools/ToolPaths.h"

#include <limits>

namespace tapedesk {

namespace {
// A limit only so that the runner waits for the exit status, which is the
// verdict; no check comes near 24 days, and none is cut short.
constexpr int kWaitForTheStatusMs = std::numeric_limits<int>::max();
} // namespace

ToolRunner::ToolRunner(Face &face, Journal &journal, OperationThreads &threads, std::atomic<bool> &stop)
    : m_face(face), m_journal(journal), m_threads(threads), m_stopped(stop)
{}

ToolResult ToolRunner::run(const QString &program, const QStringList &arguments)
{
    // As a tool that could not start: every workflow reads that as a failure.
    if (m_abandoned) {
        ToolResult none;
        none.program = program;
        none.arguments = arguments;
        none.stopped = true;
        return none;
    }
    starting(program, arguments);
    const ChunkObserver live = announce(program, arguments);
    ToolResult result = shellLaunch(program, arguments, live);
    result.reportedCode = exitCodeFromOutput(result.out);
    m_journal.toolEnded(result.exitStatus.value_or(-1), result.reportedCode.value_or(QString()));
    if (onToolRan)
        onToolRan(program, arguments, result.reportedCode.value_or(QString()));
    // What a stopped tool printed decides nothing.
    ended();
    return result;
}

ToolResult ToolRunner::runCommand(const QString &command)
{
    starting(command, {});
    const QStringList arguments{QStringLiteral("-c"), command};
    const ChunkObserver live = announce(commandShell(), arguments);
    int status = -1;
    ToolResult result;
    result.program = commandShell();
    result.arguments = arguments;
    result.out = shellCommand(command, live, &status);
    result.started = true;
    if (status >= 0)
        result.exitStatus = status;
    m_journal.toolEnded(status, {});
    ended();
    return result;
}

ToolResult ToolRunner::runForExitStatus(const QString &program, const QStringList &arguments)
{
    ToolResult result;
    result.program = program;
    result.arguments = arguments;
    if (m_abandoned) {
        result.stopped = true;
        return result;
    }
    const ChunkObserver live = announce(program, arguments);
    ProcessResult run = runProcess(program, arguments, StreamMode::Separate, live, kWaitForTheStatusMs);
    m_journal.toolEnded(run.exitStatus, {});
    consoleLine(QByteArrayView(run.err));
    result.started = run.started;
    result.out = QString::fromUtf8(run.out);
    result.err = QString::fromUtf8(run.err);
    if (run.exitStatus >= 0)
        result.exitStatus = run.exitStatus;
    result.signal = run.signal;
    result.stopped = run.stopped;
    result.timedOut = run.timedOut;
    if (onToolRan)
        onToolRan(program, arguments, result.exitStatus ? QString::number(*result.exitStatus) : QString());
    return result;
}

void ToolRunner::abandon()
{
    m_abandoned = true;
    children::killAll();
}

void ToolRunner::starting(const QString &program, const QStringList &arguments)
{
    const QString name = toolDisplayName(program, arguments, program == ITDT_PATH.get());
    const std::lock_guard lock(m_toolMutex);
    if (m_stopped)
        throw OperationStopped{};
    m_runningTool = name;
    m_runningMkltfs = program == MKLTFS_PATH.get();
    ++m_toolRuns;
}

void ToolRunner::ended()
{
    {
        const std::lock_guard lock(m_toolMutex);
        m_runningTool.clear();
        m_runningMkltfs = false;
    }
    if (m_stopped)
        throw OperationStopped{};
}

ToolRunner::StopRequest ToolRunner::requestStop(quint64 confirmedRun)
{
    const std::lock_guard lock(m_toolMutex);
    StopRequest request;
    request.tool = m_runningTool;
    request.mkltfs = m_runningMkltfs;
    request.run = m_toolRuns;
    if (m_runningMkltfs && m_toolRuns != confirmedRun)
        return request;
    m_stopped = true;
    request.stopped = true;
    return request;
}

ChunkObserver ToolRunner::announce(const QString &program, const QStringList &arguments)
{
    m_journal.toolStarted(program, arguments);
    if (!m_liveOutput)
        return [this](OutputStream stream, QByteArrayView chunk) { m_journal.toolOutput(stream, chunk); };
    queueLive(-1, {}, program, arguments);
    return [this](OutputStream stream, QByteArrayView chunk) {
        m_journal.toolOutput(stream, chunk);
        queueLive(static_cast<int>(stream), chunk);
    };
}

void ToolRunner::queueLive(int kind, QByteArrayView bytes, const QString &program,
                           const QStringList &arguments)
{
    {
        const std::lock_guard lock(m_liveMutex);
        if (kind >= 0 && !m_livePieces.isEmpty() && m_livePieces.last().kind == kind)
            m_livePieces.last().bytes += bytes;
        else
            m_livePieces.append(LivePiece{kind, bytes.toByteArray(), program, arguments});
        if (m_liveHandOverQueued)
            return;
        m_liveHandOverQueued = true;
    }
    // Never dropped, not even for a stopped operation: the flag must come down.
    m_threads.post([this] { handOverLive(); }, false);
}

void ToolRunner::handOverLive()
{
    QList<LivePiece> pieces;
    {
        const std::lock_guard lock(m_liveMutex);
        pieces.swap(m_livePieces);
        m_liveHandOverQueued = false;
    }
    for (const LivePiece &piece : std::as_const(pieces)) {
        if (piece.kind < 0)
            m_face.toolStarted(piece.program, piece.arguments);
        else
            m_face.toolOutput(static_cast<OutputStream>(piece.kind), piece.bytes);
    }
}

} // namespace tapedesk

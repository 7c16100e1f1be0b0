#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <atomic>
#include <functional>

namespace tapedesk {

enum class OutputStream { Stdout, Stderr };

// Called for every chunk as it arrives, on the thread that runs the child, so a
// live view can follow a long run. The chunk is only valid during the call.
using ChunkObserver = std::function<void(OutputStream, QByteArrayView)>;

enum class StreamMode {
    Separate,   // stdout and stderr on two pipes, collected apart
    Merged,     // both streams on one pipe, in the order the child wrote them
    StdoutOnly, // stderr is left to the child (inherited from this process)
};

// Whether a run keeps what the child wrote, or only hands it to its observer
// as it passes (the caller keeps what it needs of it).
enum class Keep { Output, Nothing };

struct ProcessResult
{
    bool started = false; // false: nothing ran (missing, not executable, a folder, bad interpreter)
    QByteArray out;       // stdout, or the merged streams
    QByteArray err;       // stderr in Separate mode
    // The child's exit status when it exited by itself within a moment of
    // closing its pipes (within the time limit, where one is given); -1 when
    // it was killed by a signal or still runs.
    int exitStatus = -1;
    int signal = 0;        // the signal that ended the child, when it was seen to end so
    bool stopped = false;  // the run's StopWatch ended it
    bool timedOut = false; // killed at the time limit
};

// Starts `program` directly (no shell, no PATH search), reads its pipes until
// end of file and returns what it wrote. Does not judge the exit status; the
// child is reaped in the background if it outlives its pipes.
// With `timeoutMs` of 0 or more, a child still running after that long is
// killed with its process group, and what it wrote so far is returned; within
// that time the exit status is waited for, so it is known whenever the child
// ended by itself.
ProcessResult runProcess(const QString &program, const QStringList &arguments, StreamMode mode,
                         const ChunkObserver &observer = {}, int timeoutMs = -1, Keep keep = Keep::Output);

// A stop that the runs started on this thread obey while the watch lives: once
// `stop` is set, a run not yet started starts nothing (ProcessResult::started
// false), and a running child's process group gets SIGTERM at once and SIGKILL
// `graceMs` later if it is still there. The run then returns what the child
// wrote so far. A run notices the stop within about 50 ms.
class StopWatch
{
public:
    StopWatch(const std::atomic<bool> &stop, int graceMs);
    ~StopWatch();
    StopWatch(const StopWatch &) = delete;
    StopWatch &operator=(const StopWatch &) = delete;

private:
    const std::atomic<bool> *m_previous;
    int m_previousGraceMs;
};

// Every child started by runProcess that has not been reaped yet. Quitting the
// application kills them (and their process groups), so a hung tool never
// outlives TapeDesk.
namespace children {
int liveCount();
void killAll();
} // namespace children

} // namespace tapedesk

#include "tools/ProcessRunner.h"

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <optional>
#include <poll.h>
#include <set>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace tapedesk {

namespace {

// A pipe of 1 MiB instead of the default 64 KiB cuts the number of wake-ups for
// chatty tools by sixteen; the kernel may refuse, which is harmless.
constexpr int kPipeSize = 1 << 20;
constexpr qsizetype kMinRead = qsizetype(64) * 1024;
// What a run that keeps nothing reads at once: a quarter of the pipe, small
// enough to stay in the cache between the read and the caller's use of it.
constexpr qsizetype kScratch = qsizetype(256) * 1024;
// How often a run under a StopWatch looks at its stop.
constexpr int kStopCheckMs = 50;

// The stop the runs of this thread obey (StopWatch), and the grace before SIGKILL.
thread_local const std::atomic<bool> *tl_stop = nullptr;
thread_local int tl_stopGraceMs = 0;

void signalGroup(pid_t pid, int signal)
{
    ::kill(-pid, signal); // the child leads its own process group
    ::kill(pid, signal);
}

class ChildRegistry
{
public:
    void add(pid_t pid)
    {
        std::lock_guard lock(m_mutex);
        m_live.insert(pid);
    }

    // Reaps `pid` if it has exited, leaving its exit status in `exitStatus`
    // (-1 after a signal). A pid stays in the set until it is reaped, so
    // killAll() can never hit a recycled pid.
    bool tryReap(pid_t pid, int &exitStatus, int &signal)
    {
        std::lock_guard lock(m_mutex);
        int status = 0;
        pid_t r = ::waitpid(pid, &status, WNOHANG);
        if (r == pid || (r < 0 && errno == ECHILD)) {
            m_live.erase(pid);
            exitStatus = (r == pid && WIFEXITED(status)) ? WEXITSTATUS(status) : -1;
            signal = (r == pid && WIFSIGNALED(status)) ? WTERMSIG(status) : 0;
            return true;
        }
        return false;
    }

    // Children that closed their pipes but still run are reaped by one thread
    // that polls them, instead of one blocked thread each.
    void reapLater(pid_t pid)
    {
        std::lock_guard lock(m_mutex);
        m_pending.push_back(pid);
        if (!m_reaperRunning) {
            m_reaperRunning = true;
            std::thread([this] { reaperLoop(); }).detach();
        }
        m_wake.notify_one();
    }

    int liveCount()
    {
        std::lock_guard lock(m_mutex);
        return static_cast<int>(m_live.size());
    }

    void killAll()
    {
        std::lock_guard lock(m_mutex);
        for (pid_t pid : m_live)
            signalGroup(pid, SIGKILL);
    }

private:
    void reaperLoop()
    {
        std::unique_lock lock(m_mutex);
        for (;;) {
            if (m_pending.empty()) {
                m_wake.wait_for(lock, std::chrono::seconds(5));
                if (m_pending.empty()) {
                    m_reaperRunning = false;
                    return;
                }
            }
            std::vector<pid_t> still;
            for (pid_t pid : m_pending) {
                int status = 0;
                pid_t r = ::waitpid(pid, &status, WNOHANG);
                if (r == pid || (r < 0 && errno == ECHILD))
                    m_live.erase(pid);
                else
                    still.push_back(pid);
            }
            m_pending.swap(still);
            if (!m_pending.empty())
                m_wake.wait_for(lock, std::chrono::milliseconds(20));
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::set<pid_t> m_live;
    std::vector<pid_t> m_pending;
    bool m_reaperRunning = false;
};

ChildRegistry &registry()
{
    static auto *r = new ChildRegistry; // never destroyed: the reaper thread may outlive main()
    return *r;
}

// Waits up to `waitMs` for a child whose pipes have closed; most have exited
// by now or will within microseconds. Anything slower goes to the reaper
// thread, and its exit status stays unknown (-1).
int reap(pid_t pid, int waitMs, int &signal)
{
    int exitStatus = -1;
    if (registry().tryReap(pid, exitStatus, signal))
        return exitStatus;
    int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (pidfd >= 0) {
        pollfd p{pidfd, POLLIN, 0};
        int r;
        do {
            r = ::poll(&p, 1, waitMs);
        } while (r < 0 && errno == EINTR);
        ::close(pidfd);
        if (registry().tryReap(pid, exitStatus, signal))
            return exitStatus;
    }
    registry().reapLater(pid);
    return -1;
}

struct Pipe
{
    int fd[2] = {-1, -1};
    bool open()
    {
        if (::pipe2(fd, O_CLOEXEC) != 0)
            return false;
        ::fcntl(fd[0], F_SETPIPE_SZ, kPipeSize);
        return true;
    }
    void closeRead()
    {
        if (fd[0] >= 0)
            ::close(fd[0]);
        fd[0] = -1;
    }
    void closeWrite()
    {
        if (fd[1] >= 0)
            ::close(fd[1]);
        fd[1] = -1;
    }
    ~Pipe()
    {
        closeRead();
        closeWrite();
    }
};

// Reads into one buffer that grows geometrically, straight from the pipe into
// its free tail: no intermediate copies and O(n) in total. A collector that
// keeps nothing reads every chunk into the same small buffer instead, which
// stays in the cache: its caller takes the bytes as they pass.
struct Collector
{
    bool keep = true;
    QByteArray buffer;
    qsizetype length = 0;

    char *reserveTail()
    {
        if (!keep) {
            if (buffer.isEmpty())
                buffer.resize(kScratch);
            return buffer.data();
        }
        if (buffer.size() - length < kMinRead)
            buffer.resize(std::max<qsizetype>(buffer.size() * 2, length + kMinRead));
        return buffer.data() + length;
    }
    qsizetype tailSize() const { return keep ? buffer.size() - length : buffer.size(); }
    void advance(qsizetype got)
    {
        if (keep)
            length += got;
    }
    QByteArray take()
    {
        if (!keep)
            return {};
        buffer.truncate(length);
        return std::move(buffer);
    }
};

std::string encode(const QString &s)
{
    const QByteArray b = QFile::encodeName(s);
    return std::string(b.constData(), static_cast<size_t>(b.size()));
}

} // namespace

ProcessResult runProcess(const QString &program, const QStringList &arguments, StreamMode mode,
                         const ChunkObserver &observer, int timeoutMs, Keep keep)
{
    ProcessResult result;
    const std::atomic<bool> *stop = tl_stop;
    const int stopGraceMs = tl_stopGraceMs;
    if (program.isEmpty())
        return result;
    if (stop && stop->load()) {
        result.stopped = true;
        return result;
    }

    std::vector<std::string> storage;
    storage.reserve(static_cast<size_t>(arguments.size()) + 1);
    storage.push_back(encode(program));
    for (const QString &a : arguments)
        storage.push_back(encode(a));
    std::vector<char *> argv;
    argv.reserve(storage.size() + 1);
    for (std::string &s : storage)
        argv.push_back(s.data());
    argv.push_back(nullptr);

    Pipe outPipe;
    Pipe errPipe;
    if (!outPipe.open())
        return result;
    if (mode == StreamMode::Separate && !errPipe.open())
        return result;

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outPipe.fd[1], STDOUT_FILENO);
    if (mode == StreamMode::Separate)
        posix_spawn_file_actions_adddup2(&actions, errPipe.fd[1], STDERR_FILENO);
    else if (mode == StreamMode::Merged)
        posix_spawn_file_actions_adddup2(&actions, outPipe.fd[1], STDERR_FILENO);

    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t noSignals;
    sigemptyset(&noSignals);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGINT);
    sigaddset(&defaults, SIGTERM);
    sigaddset(&defaults, SIGCHLD);
    posix_spawnattr_setsigmask(&attr, &noSignals);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setpgroup(&attr, 0);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);

    pid_t pid = -1;
    const int rc = ::posix_spawn(&pid, argv[0], &actions, &attr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    if (rc != 0)
        return result; // missing, a folder, no run bit, broken interpreter line
    registry().add(pid);
    result.started = true;

    outPipe.closeWrite();
    errPipe.closeWrite();

    Collector out;
    Collector err;
    out.keep = err.keep = keep == Keep::Output;
    pollfd fds[2];
    int openCount = 0;
    fds[openCount++] = {outPipe.fd[0], POLLIN, 0};
    if (mode == StreamMode::Separate)
        fds[openCount++] = {errPipe.fd[0], POLLIN, 0};

    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));
    bool killed = false;
    // Set once a stop has sent SIGTERM: when SIGKILL follows.
    std::optional<Clock::time_point> forcefulAt;
    const auto millisecondsUntil = [](Clock::time_point t) {
        return static_cast<int>(std::max<long long>(
            std::chrono::duration_cast<std::chrono::milliseconds>(t - Clock::now()).count(), 0));
    };
    while (fds[0].fd >= 0 || (openCount > 1 && fds[1].fd >= 0)) {
        if (stop && !killed) {
            if (!forcefulAt && stop->load()) {
                // Politely first: a tool may release the drive on its way out.
                signalGroup(pid, SIGTERM);
                result.stopped = true;
                forcefulAt = Clock::now() + std::chrono::milliseconds(stopGraceMs);
            } else if (forcefulAt && Clock::now() >= *forcefulAt) {
                signalGroup(pid, SIGKILL);
                killed = true;
            }
        }
        int wait = -1;
        if (timeoutMs >= 0 && !killed)
            wait = millisecondsUntil(deadline);
        if (stop && !killed) {
            const int check = forcefulAt ? millisecondsUntil(*forcefulAt) : kStopCheckMs;
            wait = wait < 0 ? check : std::min(wait, check);
        }
        int n = ::poll(fds, static_cast<nfds_t>(openCount), wait);
        if (n == 0) {
            if (timeoutMs < 0 || killed || Clock::now() < deadline)
                continue; // only the stop's turn
            // Out of time: the pipes close once the group is gone.
            signalGroup(pid, SIGKILL);
            killed = true;
            result.timedOut = true;
            continue;
        }
        if (n < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        for (int i = 0; i < openCount; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            Collector &c = (i == 0) ? out : err;
            char *tail = c.reserveTail();
            ssize_t got;
            do {
                got = ::read(fds[i].fd, tail, static_cast<size_t>(c.tailSize()));
            } while (got < 0 && errno == EINTR);
            if (got > 0) {
                if (observer)
                    observer(i == 0 ? OutputStream::Stdout : OutputStream::Stderr, QByteArrayView(tail, got));
                c.advance(got);
            } else if (got == 0 || errno != EAGAIN) {
                fds[i].fd = -1; // end of file (or a read error, which ends the stream too)
            }
        }
    }

    // A caller with a time limit wants the verdict too: a child that closed
    // its pipes is given the rest of that time to exit, since a loaded host
    // can take longer than the usual moment between the two.
    int reapWaitMs = 50;
    if (timeoutMs >= 0 && !killed)
        reapWaitMs = static_cast<int>(std::max<long long>(
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now())
                .count(),
            50));
    result.exitStatus = reap(pid, reapWaitMs, result.signal);
    result.out = out.take();
    result.err = err.take();
    return result;
}

StopWatch::StopWatch(const std::atomic<bool> &stop, int graceMs)
    : m_previous(tl_stop), m_previousGraceMs(tl_stopGraceMs)
{
    tl_stop = &stop;
    tl_stopGraceMs = graceMs;
}

StopWatch::~StopWatch()
{
    tl_stop = m_previous;
    tl_stopGraceMs = m_previousGraceMs;
}

namespace children {
int liveCount()
{
    return registry().liveCount();
}
void killAll()
{
    registry().killAll();
}
} // namespace children

} // namespace tapedesk

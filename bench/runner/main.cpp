// How the command runner compares with the plain system doing the same work:
//  - throughput: a child writes 256 MiB to stdout and 256 MiB to stderr in
//    alternating 64 KiB chunks; shellLaunch collects both and returns them as
//    text. The floor it is held to is what any runner that returns text must
//    at least spend, timed in the same run: (a) `bench_writer | cat >
//    /dev/null` moving the same 512 MiB through one ordinary pipe, plus (b)
//    building the same two texts (QString::fromUtf8, into fresh memory) from
//    bytes already read. Against `cat` alone the figure mostly measures what
//    this machine charges for fresh memory, so that one is kept for the record;
//  - per call: 500 runs of /bin/true through shellLaunch, against posix_spawn
//    + waitpid of it with nothing collected, the two alternating call by call.
// Each figure is the median of a few repetitions, measured in the same run.
// While shellLaunch is timed, this process's standard output (where its six
// console lines go, the whole output included) points at /dev/null, so the
// terminal's speed is not measured; the runner still formats and writes them.
//
//   bench_runner [MIB_PER_STREAM [REPETITIONS]]
#include "tools/ProcessRunner.h"
#include "tools/Shell.h"

#include <QString>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

extern char **environ;

using namespace tapedesk;
using Clock = std::chrono::steady_clock;

namespace {

constexpr qint64 kChunk = qint64(64) * 1024;
constexpr int kCalls = 500;
const char *const kWriter = BENCH_WRITER;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

[[noreturn]] void fail(const char *what)
{
    std::fprintf(stderr, "bench_runner: %s\n", what);
    std::exit(1);
}

// Points fd 1 at /dev/null while it lives.
class ConsoleToNull
{
public:
    ConsoleToNull()
    {
        std::fflush(stdout);
        m_saved = ::dup(STDOUT_FILENO);
        const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        ::dup2(null, STDOUT_FILENO);
        ::close(null);
    }
    ~ConsoleToNull()
    {
        std::fflush(stdout);
        ::dup2(m_saved, STDOUT_FILENO);
        ::close(m_saved);
    }
    ConsoleToNull(const ConsoleToNull &) = delete;
    ConsoleToNull &operator=(const ConsoleToNull &) = delete;

private:
    int m_saved = -1;
};

pid_t spawn(const char *path, char *const argv[], int in, int out)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (in >= 0)
        posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
    if (out >= 0)
        posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    pid_t pid = -1;
    const int rc = ::posix_spawn(&pid, path, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0)
        fail("cannot start a child");
    return pid;
}

void waitFor(pid_t pid)
{
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            fail("lost a child");
    }
}

double shellFlood(qint64 perStream)
{
    const QStringList args{QString::number(perStream), QString::number(kChunk), QStringLiteral("both")};
    qsizetype outSize = 0;
    qsizetype errSize = 0;
    double seconds = 0;
    {
        ConsoleToNull quiet;
        const auto start = Clock::now();
        const ToolResult run = shellLaunch(QString::fromUtf8(kWriter), args);
        seconds = secondsSince(start);
        outSize = run.out.size();
        errSize = run.err.size();
    }
    if (outSize != perStream || errSize != perStream)
        fail("shellLaunch lost output");
    return seconds;
}

// Not a target: the reading alone (runProcess, raw bytes, no text, no console),
// to tell the reading strategy apart from building the two texts.
double rawFlood(qint64 perStream)
{
    const QStringList args{QString::number(perStream), QString::number(kChunk), QStringLiteral("both")};
    const auto start = Clock::now();
    const ProcessResult r = runProcess(QString::fromUtf8(kWriter), args, StreamMode::Separate);
    const double seconds = secondsSince(start);
    if (r.out.size() != perStream || r.err.size() != perStream)
        fail("runProcess lost output");
    return seconds;
}

double catPipe(qint64 perStream)
{
    std::string bytes = std::to_string(perStream);
    std::string chunk = std::to_string(kChunk);
    std::string single = "single";
    char *writerArgv[] = {const_cast<char *>(kWriter), bytes.data(), chunk.data(), single.data(), nullptr};
    std::string cat = "cat";
    char *catArgv[] = {cat.data(), nullptr};

    const auto start = Clock::now();
    int p[2];
    if (::pipe2(p, O_CLOEXEC) != 0)
        fail("no pipe");
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    const pid_t writer = spawn(kWriter, writerArgv, -1, p[1]);
    const pid_t catPid = spawn("/bin/cat", catArgv, p[0], null);
    ::close(p[0]);
    ::close(p[1]);
    ::close(null);
    waitFor(writer);
    waitFor(catPid);
    return secondsSince(start);
}

// Per-call cost of /bin/true through shellLaunch and through a bare
// posix_spawn + waitpid. The two alternate call by call, so a change in the
// machine's load during the loop weighs on both alike.
std::pair<double, double> trueShellAndSpawnPerCall()
{
    const QString path = QStringLiteral("/bin/true");
    std::string name = "true";
    char *argv[] = {name.data(), nullptr};
    double shellSeconds = 0;
    double spawnSeconds = 0;
    ConsoleToNull quiet;
    for (int i = 0; i < kCalls; ++i) {
        auto start = Clock::now();
        waitFor(spawn("/bin/true", argv, -1, -1));
        spawnSeconds += secondsSince(start);
        start = Clock::now();
        shellLaunch(path, {});
        shellSeconds += secondsSince(start);
    }
    return {shellSeconds / kCalls, spawnSeconds / kCalls};
}

// The writer's bytes of one stream, as they arrive: lines of 63 'x'.
QByteArray writerBytes(qint64 perStream)
{
    QByteArray bytes(perStream, 'x');
    for (qint64 i = 0; i < perStream; i += 64)
        bytes[i] = '\n';
    return bytes;
}

// The text half of the floor: both streams' texts built from bytes already in
// memory, as shellLaunch must build them, each into fresh memory.
double buildTexts(const QByteArray &out, const QByteArray &err)
{
    const auto start = Clock::now();
    const QString outText = QString::fromUtf8(out);
    const QString errText = QString::fromUtf8(err);
    const double seconds = secondsSince(start);
    if (outText.size() != out.size() || errText.size() != err.size())
        fail("texts");
    return seconds;
}

void verdict(const char *name, double value, const char *op, double target)
{
    const bool ok = op[0] == '>' ? value >= target : value <= target;
    std::printf("%s: %.2f x (target %s %.1f x) %s\n", name, value, op, target, ok ? "ok" : "MISS");
}

} // namespace

int main(int argc, char **argv)
{
    const qint64 mib = argc > 1 ? std::atoll(argv[1]) : 256;
    const int reps = argc > 2 ? std::atoi(argv[2]) : 5;
    if (mib <= 0 || reps <= 0)
        fail("usage: bench_runner [MIB_PER_STREAM [REPETITIONS]]");
    const qint64 perStream = mib * 1024 * 1024;

    const QByteArray readBytes = writerBytes(perStream);
    std::vector<double> shell, raw, cat, texts, floor, shellCall, spawnCall;
    for (int r = 0; r < reps; ++r) {
        // Alternate so drift in the machine's load hits both sides alike.
        cat.push_back(catPipe(perStream));
        texts.push_back(buildTexts(readBytes, readBytes));
        floor.push_back(cat.back() + texts.back());
        shell.push_back(shellFlood(perStream));
        raw.push_back(rawFlood(perStream));
        const auto [shellPerCall, spawnPerCall] = trueShellAndSpawnPerCall();
        shellCall.push_back(shellPerCall);
        spawnCall.push_back(spawnPerCall);
    }

    const double shellS = median(shell);
    const double catS = median(cat);
    const double floorS = median(floor);
    const double shellUs = median(shellCall) * 1e6;
    const double spawnUs = median(spawnCall) * 1e6;
    const double totalMiB = 2.0 * double(mib);
    std::printf("shellLaunch, %lld MiB stdout + %lld MiB stderr in 64 KiB chunks: %.3f s (%.0f MiB/s)\n",
                static_cast<long long>(mib), static_cast<long long>(mib), shellS, totalMiB / shellS);
    std::printf("writer | cat > /dev/null, the same %.0f MiB through one pipe: %.3f s (%.0f MiB/s)\n",
                totalMiB, catS, totalMiB / catS);
    std::printf("building both texts from bytes already read: %.3f s\n", median(texts));
    std::printf("floor, cat + texts: %.3f s\n", floorS);
    std::printf("(for scale: runProcess alone, the same bytes without text or console: %.3f s, %.2f x cat)\n",
                median(raw), median(raw) / catS);
    std::printf("shellLaunch of /bin/true: %.1f us per call (%d calls)\n", shellUs, kCalls);
    std::printf("posix_spawn + waitpid of /bin/true: %.1f us per call (%d calls)\n", spawnUs, kCalls);
    std::printf("(median of %d repetitions)\n", reps);
    // shellLaunch's time over the floor's: lower is better, 1 is the floor.
    verdict("runner_throughput_vs_floor", shellS / floorS, "<=", 1.3);
    std::printf("runner_throughput_vs_cat: %.2f x (info)\n", catS / shellS);
    verdict("runner_percall_ratio", shellUs / spawnUs, "<=", 1.5);
    return 0;
}

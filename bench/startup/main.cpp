// Start-up: the time from starting a process to its main window's first frame,
// for tapedesk (with an empty home: the first start an operator sees) and for
// a bare Qt window of the same size (bench_startup_bare), started the same way
// on the same platform, one after the other. Seven runs each after one warm-up
// run each; medians. Target: tapedesk within 1.35 times the bare window. Also
// the resident memory (VmRSS) of both at their first frame.
//
//   startup_first_frame_ratio: 1.28 x (target <= 1.35 x) ok
//
// tapedesk reports its first frame when TAPEDESK_REPORT_FIRST_FRAME=1 (see
// src/app/FirstFrame.h).

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr int kRuns = 7;
constexpr double kTargetRatio = 1.35;

struct Start
{
    bool ok = false;
    double ms = 0;
    double rssMiB = 0;
};

double residentMiB(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        // "VmRSS:     84512 kB"
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').constFirst().toDouble() / 1024.0;
    }
    return 0;
}

Start startOnce(const QString &program, const QString &home)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TAPEDESK_REPORT_FIRST_FRAME"), QStringLiteral("1"));
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
    env.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/.local/share"));
    env.insert(QStringLiteral("XDG_CACHE_HOME"), home + QStringLiteral("/.cache"));
    if (!env.contains(QStringLiteral("QT_QPA_PLATFORM")))
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    process.setProcessEnvironment(env);
    process.setStandardErrorFile(QProcess::nullDevice());

    Start start;
    QByteArray out;
    QElapsedTimer clock;
    clock.start();
    process.start(program, {});
    while (!out.contains("first-frame\n")) {
        if (!process.waitForReadyRead(60000))
            break;
        out += process.readAllStandardOutput();
    }
    if (out.contains("first-frame\n")) {
        start.ok = true;
        start.ms = static_cast<double>(clock.nsecsElapsed()) / 1e6;
        start.rssMiB = residentMiB(process.processId());
    }
    process.kill();
    process.waitForFinished(10000);
    return start;
}

double median(std::vector<double> v)
{
    if (v.empty())
        return -1;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main()
{
    const QString app = QStringLiteral(TAPEDESK_APP);
    const QString bare = QStringLiteral(BARE_WINDOW);
    QTemporaryDir appHome;
    QTemporaryDir bareHome;

    startOnce(app, appHome.path()); // warm the file cache for both
    startOnce(bare, bareHome.path());
    std::vector<double> appMs, bareMs, appRss, bareRss;
    for (int i = 0; i < kRuns; ++i) {
        const Start b = startOnce(bare, bareHome.path());
        const Start a = startOnce(app, appHome.path());
        if (b.ok) {
            bareMs.push_back(b.ms);
            bareRss.push_back(b.rssMiB);
        }
        if (a.ok) {
            appMs.push_back(a.ms);
            appRss.push_back(a.rssMiB);
        }
    }

    const double appFirst = median(appMs);
    const double bareFirst = median(bareMs);
    std::printf("startup_first_frame_tapedesk: %.1f ms (info)\n", appFirst);
    std::printf("startup_first_frame_bare: %.1f ms (info)\n", bareFirst);
    std::printf("startup_rss_tapedesk: %.1f MiB (info)\n", median(appRss));
    std::printf("startup_rss_bare: %.1f MiB (info)\n", median(bareRss));
    if (appMs.size() != kRuns || bareMs.size() != kRuns) {
        std::printf("startup_first_frame_ratio: n/a x (target <= %.2f x) MISS\n", kTargetRatio);
        return 1;
    }
    const double ratio = appFirst / bareFirst;
    std::printf("startup_first_frame_ratio: %.2f x (target <= %.2f x) %s\n", ratio, kTargetRatio,
                ratio <= kTargetRatio ? "ok" : "MISS");
    return 0;
}

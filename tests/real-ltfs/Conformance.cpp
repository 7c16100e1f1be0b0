#include "real-ltfs/Conformance.h"

#include "support/TestEnv.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>

namespace tapedesk::test::real {

namespace {

struct Output
{
    int status = -1;
    QString err;
};

Output run(const QString &program, const QStringList &arguments, const QProcessEnvironment &env)
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(program, arguments);
    if (!p.waitForFinished(60000))
        p.kill();
    // Both programs keep standard output empty; anything there is a difference too.
    const QString out = QString::fromUtf8(p.readAllStandardOutput());
    return {p.exitCode(), QString::fromUtf8(p.readAllStandardError()) +
                              (out.isEmpty() ? QString() : QStringLiteral("stdout: ") + out)};
}

QStringList argumentsOf(const QString &command)
{
    QStringList words = command.split(QLatin1Char(' '));
    words.removeFirst();
    words.replaceInStrings(QStringLiteral("DEV"), kConformanceDrive);
    words.replaceInStrings(QStringLiteral("POINT"), mountPoint(kConformanceDrive));
    return words;
}

// The real cartridge brought into the state the setup names.
void prepareReal(Library &library, const QStringList &setup)
{
    const QString name = kConformanceDrive;
    Library::release(name);
    QDir(library.cartridge(name)).removeRecursively();
    QDir().mkpath(library.cartridge(name));
    if (setup.contains(QStringLiteral("blank")))
        return;
    const bool unnamed = setup.contains(QStringLiteral("unnamed"));
    QVERIFY(!library
                 .format(name, unnamed ? QString() : QStringLiteral("RLTC01"),
                         unnamed ? QString() : QStringLiteral("VOLC01"))
                 .isEmpty());
    if (setup.contains(QStringLiteral("killed"))) {
        // Data written after the last index, then the daemon gone without writing one.
        const QString point = mountPoint(name);
        QDir().mkpath(point);
        QProcess ltfs;
        ltfs.start(library.toolDir() + QStringLiteral("/ltfs"),
                   {point, QStringLiteral("-o"), QStringLiteral("devname=") + name});
        QVERIFY(ltfs.waitForFinished(60000));
        QCOMPARE(ltfs.exitCode(), 0);
        QFile f(point + QStringLiteral("/unindexed.bin"));
        QVERIFY(f.open(QIODevice::WriteOnly) && f.write(QByteArray(qsizetype{1000} * 1000, 'x')) > 0);
        f.close();
        const QList<qint64> daemons = daemonsOf(point);
        QCOMPARE(daemons.size(), 1);
        ::kill(static_cast<pid_t>(daemons.first()), SIGKILL);
        Library::release(name);
    }
}

// The simulated drive in the same state, in a library of its own.
QString prepareSimulator(const QStringList &setup)
{
    QString home = makeDir(QStringLiteral("tapesim-conformance"));
    QDir(home).removeRecursively();
    QDir().mkpath(home);
    QByteArray drive = "[drive]\nid = tape" + kConformanceDrive.toLatin1() +
                       "\nmodel = ULTRIUM-HH8\nfirmware = F1A2\nserial = 1013330099\naddress = H1-B0-T0-L0\n"
                       "loaded = yes\ncartridge = yes\n";
    if (setup.contains(QStringLiteral("blank")))
        drive += "formatted = no\n";
    else if (setup.contains(QStringLiteral("unnamed")))
        drive += "formatted = yes\nformatted-at = 2026-11-24T10:00:00.000000000Z\n";
    else
        drive += "barcode = RLTC01\nvolume = VOLC01\nformatted = yes\nformatted-at = "
                 "2026-11-24T10:00:00.000000000Z\n";
    if (setup.contains(QStringLiteral("killed")))
        drive += "consistent = no\n";
    QFile state(home + QStringLiteral("/state.ini"));
    if (!state.open(QIODevice::WriteOnly) || state.write(drive) != drive.size())
        qWarning("the simulator's state could not be written");
    return home;
}

void endSimulator(const QString &home)
{
    for (const QByteArray &line : readFile(home + QStringLiteral("/state.ini")).split('\n')) {
        if (line.startsWith("daemon"))
            ::kill(static_cast<pid_t>(line.mid(line.indexOf('=') + 1).trimmed().toLongLong()), SIGKILL);
    }
    QDir(home).removeRecursively();
}

// The mount point made, as TapeDesk makes it, with a file in it for "stray".
void makeMountPoint(const QStringList &setup)
{
    const QString point = mountPoint(kConformanceDrive);
    QDir().mkpath(point);
    if (!setup.contains(QStringLiteral("stray")))
        return;
    QFile f(point + QStringLiteral("/copied-too-early.txt"));
    QVERIFY(f.open(QIODevice::WriteOnly) && f.write("x") == 1);
}

} // namespace

QString Comparison::report() const
{
    // diff's own view: "-" the real program's line, "+" the simulator's.
    QTemporaryDir dir;
    const auto save = [&](const QString &file, int status, const QStringList &lines) {
        QFile f(dir.filePath(file));
        if (f.open(QIODevice::WriteOnly))
            f.write(QStringLiteral("exit %1\n%2\n").arg(status).arg(lines.join(QLatin1Char('\n'))).toUtf8());
    };
    save(QStringLiteral("real"), realStatus, realLines);
    save(QStringLiteral("simulator"), simStatus, simLines);
    QProcess diff;
    diff.setWorkingDirectory(dir.path());
    diff.start(QStringLiteral("diff"),
               {QStringLiteral("-u"), QStringLiteral("real"), QStringLiteral("simulator")});
    diff.waitForFinished();
    return QString::fromUtf8(diff.readAllStandardOutput());
}

void addConformanceCases()
{
    QTest::addColumn<QStringList>("setup");
    QTest::addColumn<QString>("command");
    const auto row = [](const char *tag, const char *setup, const char *command) {
        QTest::newRow(tag) << QString::fromLatin1(setup).split(QLatin1Char(' '))
                           << QString::fromLatin1(command);
    };
    const char *format = "mkltfs --device=DEV --tape-serial=RLTC02 --volume-name=VOLC02";
    row("mkltfs: a blank cartridge", "blank", format);
    row("mkltfs: a formatted one, not forced", "formatted", format);
    row("mkltfs: a formatted one, forced", "formatted",
        "mkltfs --device=DEV --force --tape-serial=RLTC02 --volume-name=VOLC02");
    row("mkltfs: no serial, no name", "blank", "mkltfs --device=DEV");
    row("mkltfs: a serial too short", "blank", "mkltfs --device=DEV --tape-serial=RL02 --volume-name=RLTC02");
    row("mkltfs: a serial in lower case", "blank",
        "mkltfs --device=DEV --tape-serial=rltc02 --volume-name=RLTC02");
    row("ltfs: a formatted cartridge, ejected at the end", "formatted", "ltfs POINT -o devname=DEV -o eject");
    row("ltfs: a formatted cartridge, kept loaded", "formatted", "ltfs POINT -o devname=DEV");
    row("ltfs: formatted without a serial or a name", "unnamed", "ltfs POINT -o devname=DEV -o eject");
    row("ltfs: a blank cartridge", "blank", "ltfs POINT -o devname=DEV -o eject");
    row("ltfs: files in the mount point", "formatted stray", "ltfs POINT -o devname=DEV -o eject");
    row("ltfs: the daemon was killed", "killed", "ltfs POINT -o devname=DEV -o eject");
    row("ltfsck: the daemon was killed", "killed", "ltfsck DEV");
    row("ltfsck: a consistent volume", "formatted", "ltfsck DEV");
    row("ltfsck: a blank cartridge", "blank", "ltfsck DEV");
    row("ltfsck: formatted without a serial or a name", "unnamed", "ltfsck DEV");
}

Comparison compareWithSimulator(Library &library, const QStringList &setup, const QString &command)
{
    Comparison c;
    const QString tool = command.section(QLatin1Char(' '), 0, 0);
    const QStringList arguments = argumentsOf(command);
    const QProcessEnvironment env = QProcessEnvironment::systemEnvironment();

    prepareReal(library, setup);
    makeMountPoint(setup);
    const Output real = run(library.toolDir() + QLatin1Char('/') + tool, arguments, env);
    Library::release(kConformanceDrive);
    c.realStatus = real.status;
    c.realLines = masked(real.err, library.cartridge(kConformanceDrive));

    QProcessEnvironment simEnv = env;
    const QString home = prepareSimulator(setup);
    simEnv.insert(QStringLiteral("TAPESIM_HOME"), home);
    simEnv.insert(QStringLiteral("TAPESIM_SPEED"), QStringLiteral("0"));
    simEnv.remove(QStringLiteral("TAPESIM_FAIL"));
    makeMountPoint(setup);
    const Output sim = run(simBinDir() + QLatin1Char('/') + tool, arguments, simEnv);
    endSimulator(home);
    QDir(mountPoint(kConformanceDrive)).removeRecursively();
    c.simStatus = sim.status;
    c.simLines = masked(sim.err, library.cartridge(kConformanceDrive));
    return c;
}

QStringList masked(const QString &stderrText, const QString &cartridge)
{
    // What differs by nature between two runs, or between a drive and a folder.
    static const std::pair<QRegularExpression, QString> masks[] = {
        // "5ec0 LTFS11031I ...": the logging thread's id
        {QRegularExpression(QStringLiteral("^[0-9a-f]+ (?=LTFS)")), QStringLiteral("TID ")},
        {QRegularExpression(QStringLiteral("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}")),
         QStringLiteral("UUID")},
        // "Format time     : 2026-11-23 12:42:14.119214076 UTC."
        {QRegularExpression(
             QStringLiteral("\\d{4}-\\d\\d-\\d\\d[ T]\\d\\d:\\d\\d:\\d\\d(\\.\\d+)?( UTC|Z)?")),
         QStringLiteral("TIME")},
        // "Volume mounted successfully. RLTC01 : Gen = 1 / (a, 5) -> (b, 5) / 1013330099."
        {QRegularExpression(QStringLiteral("( / \\(a, \\d+\\) -> \\(b, \\d+\\) / )\\S+\\.$")),
         QStringLiteral("\\1SERIAL.")},
        // "Writing index of RLTC01 to b (Reason: Format, 0 files) 1013330099."
        {QRegularExpression(QStringLiteral("( files\\) )\\S+\\.$")), QStringLiteral("\\1SERIAL.")},
        // "Wrote index of RLTC01 (Gen = 1, Part = b, Pos = 5, 1013330099)."
        {QRegularExpression(QStringLiteral("(Pos = \\d+, )[^)]+\\)")), QStringLiteral("\\1SERIAL)")},
        // Where an index lands depends on how much the case wrote.
        {QRegularExpression(QStringLiteral("\\(([ab]), \\d+\\)")), QStringLiteral("(\\1, POS)")},
        {QRegularExpression(QStringLiteral("Pos = \\d+")), QStringLiteral("Pos = POS")},
        {QRegularExpression(QStringLiteral("latest index at \\d+")), QStringLiteral("latest index at POS")},
        // "Update index-dirty flag (1) - RLTC01 (0x0x55feea0becd0)."
        {QRegularExpression(QStringLiteral("\\(0x0x[0-9a-f]+\\)")), QStringLiteral("(ADDRESS)")},
        {QRegularExpression(QStringLiteral("(Launched by )\".*\"\\.$")), QStringLiteral("\\1\"COMMAND\".")},
        // The build and the host.
        {QRegularExpression(QStringLiteral("(GCC version is |Kernel version: |Distribution: ).*$")),
         QStringLiteral("\\1HOST")},
        // The drive's and the medium's own figures (a folder's differ), and the writer's vendor.
        {QRegularExpression(QStringLiteral("(Maximum device block size is )\\d+")),
         QStringLiteral("\\1SIZE")},
        {QRegularExpression(QStringLiteral("(Volume capacity is )\\d+ [KMGT]B")), QStringLiteral("\\1SIZE")},
        // "Usage: /root/.cache/tapedesk/ltfs-.../bin/mkltfs <options>": where the program lies
        {QRegularExpression(QStringLiteral("/\\S*/(?=(mkltfs|ltfs|ltfsck) )")), QString()},
        {QRegularExpression(QStringLiteral("(Tape attribute: Vendor = ).*$")), QStringLiteral("\\1VENDOR")},
    };
    // The tape backend's own messages (LTFS30000-30399: the file backend's
    // about its folder, the sg backend's about the drive) and which backend
    // was loaded stay out: the simulator stands for a drive, not a folder.
    static const QRegularExpression backend(
        QStringLiteral("LTFS3\\d{4}[IWED] |Plugin: Loading \"[^\"]*\" tape backend"));
    QStringList lines;
    for (QString line : stderrText.split(QLatin1Char('\n'))) {
        if (backend.match(line).hasMatch())
            continue;
        line.replace(cartridge, kConformanceDrive);
        for (const auto &[pattern, replacement] : masks)
            line.replace(pattern, replacement);
        lines << line;
    }
    while (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

} // namespace tapedesk::test::real

// ctest-timeout: 120
// The lowest layers as the workflows lean on them: child processes and their
// pipes, the login-shell lookup, the per-user store and its damaged files, the
// tool paths, and the dump-folder helpers of src/support.

#include "support/FileHelpers.h"
#include "support/Support.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/Bash.h"
#include "tools/ProcessRunner.h"
#include "tools/SettingsStore.h"
#include "tools/Shell.h"
#include "tools/ToolPaths.h"

#include <QDir>
#include <QScopeGuard>
#include <QThread>
#include <QTimeZone>
#include <cerrno>
#include <sys/wait.h>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QByteArray kStartError = "(*********** START ERROR ************************)";
const QByteArray kEndError = "(*********** END ERROR ********************)";
const QByteArray kStart = "(*********** START ************************)";
const QByteArray kEnd = "(*********** END ********************)";

QString writeFile(const QString &path, const QByteArray &bytes,
                  QFileDevice::Permissions mode = QFile::ReadOwner | QFile::WriteOwner)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        f.write(bytes);
    f.close();
    f.setPermissions(mode);
    return path;
}

// No child of this process is left, neither running nor exited and unreaped.
bool noChildLeft()
{
    return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

} // namespace

class ToolsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void unstartableToolsRunNothing_data()
    {
        QTest::addColumn<QString>("path");
        const QString dir = makeDir(QStringLiteral("unstartable"));
        const auto exe = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
        QTest::newRow("missing") << dir + QStringLiteral("/no-such-tool");
        QTest::newRow("folder") << makeDir(QStringLiteral("unstartable/folder"));
        // Neither an interpreter line nor a binary: nothing may fall back to a shell.
        QTest::newRow("no interpreter line") << writeFile(dir + QStringLiteral("/plain"), "echo ran\n", exe);
    }

    void unstartableToolsRunNothing()
    {
        QFETCH(QString, path);
        ToolResult run;
        run.started = true;
        const QList<QByteArray> console = consoleOf([&] { run = shellLaunch(path, {"scan"}); });
        QVERIFY(!run.started);
        QCOMPARE(run.out, QString());
        QCOMPARE(run.exitStatus, std::nullopt);
        QCOMPARE(console, (QList<QByteArray>{kStartError, "", kEndError, kStart, "", kEnd}));
        QCOMPARE(children::liveCount(), 0);
    }

    void outputReachesTheCallerAsTheToolWroteIt()
    {
        const QString echo = writeScript(
            makeDir(QStringLiteral("tools")), QStringLiteral("echo-args"),
            QStringLiteral("printf '[%s]\\n' \"$@\"\nprintf 'caf\\303\\251 \\377\\n' >&2\nexit 3"));
        ToolResult run;
        consoleOf([&] {
            run = shellLaunch(echo, {"-f", "", "two  blanks", "*", "$HOME", "'q\"", "Ünïcødé"});
        });
        QCOMPARE(run.out, QStringLiteral("[-f]\n[]\n[two  blanks]\n[*]\n[$HOME]\n['q\"]\n[Ünïcødé]\n"));
        QCOMPARE(run.err, QStringLiteral("café \uFFFD\n"));
        QCOMPARE(run.exitStatus, 3);
        QCOMPARE(run.signal, 0);
        // A tool that dies of a signal has no exit status, only the signal.
        const QString dies = writeScript(makeDir(QStringLiteral("tools")), QStringLiteral("dies"),
                                         QStringLiteral("echo half; kill -9 $$"));
        consoleOf([&] { run = shellLaunch(dies, {}); });
        QCOMPARE(run.out, QStringLiteral("half\n"));
        QCOMPARE(run.exitStatus, std::nullopt);
        QCOMPARE(run.signal, 9);
        // The merged stream keeps the child's order.
        QCOMPARE(shellCommand(QStringLiteral("echo first; echo second >&2; printf 'ok\\377\\n'")),
                 QStringLiteral("first\nsecond\nok\uFFFD\n"));
    }

    void floodOnBothPipesNeverBlocks()
    {
        // Megabytes on stderr while stdout is still silent: reading stdout
        // alone first would deadlock once the stderr pipe is full.
        const QString flood =
            writeScript(makeDir(QStringLiteral("tools")), QStringLiteral("flood"),
                        QStringLiteral("head -c 8388608 /dev/zero | tr '\\0' e >&2\n"
                                       "i=0; while [ $i -lt 300 ]; do\n"
                                       "  echo \"out $i\"; echo \"err $i\" >&2; i=$((i + 1))\ndone\n"
                                       "head -c 2097152 /dev/zero | tr '\\0' o"));
        QByteArray seenOut;
        QByteArray seenErr;
        const ProcessResult r =
            runProcess(flood, {}, StreamMode::Separate, [&](OutputStream stream, QByteArrayView chunk) {
                (stream == OutputStream::Stdout ? seenOut : seenErr).append(chunk);
            });
        QCOMPARE(r.exitStatus, 0);
        QVERIFY(r.err.startsWith(QByteArray(8388608, 'e') + "err 0\n"));
        QVERIFY(r.err.endsWith("err 299\n"));
        QVERIFY(r.out.startsWith("out 0\n"));
        QVERIFY(r.out.endsWith("out 299\n" + QByteArray(2097152, 'o')));
        QCOMPARE(seenOut, r.out);
        QCOMPARE(seenErr, r.err);
    }

    void childrenAreReapedAndAHungToolEndsWithItsGroup()
    {
        // One that closes its pipes and lives on is reaped after it ends.
        QCOMPARE(shellCommand(QStringLiteral("echo bye; exec >&- 2>&-; sleep 0.3")), QStringLiteral("bye\n"));
        QTRY_COMPARE_WITH_TIMEOUT(children::liveCount(), 0, 10000);
        QVERIFY(noChildLeft());

        // The sleep is a grandchild that holds the pipes too: the run returns
        // only when the whole process group is killed.
        const QString hang = writeScript(makeDir(QStringLiteral("tools")), QStringLiteral("hang"),
                                         QStringLiteral("sleep 1000 &\necho started\nwait"));
        const ProcessResult cut = runProcess(hang, {}, StreamMode::Separate, {}, 300);
        QCOMPARE(cut.out, QByteArray("started\n"));
        QCOMPARE(cut.exitStatus, -1);
        QTRY_COMPARE_WITH_TIMEOUT(children::liveCount(), 0, 10000);
        QVERIFY(noChildLeft());
    }

    void bashLooksCommandsUpThroughTheLoginShell()
    {
        const QString dir = makeDir(QStringLiteral("login-bin"));
        writeScript(dir, QStringLiteral("fake-umount"),
                    QStringLiteral("echo busy >&2\nprintf '<%s>\\n' \"$@\""));
        installLoginProfile({dir});
        auto dropProfile =
            qScopeGuard([] { QFile::remove(TestHome::path() + QStringLiteral("/.bash_profile")); });
        QVERIFY(!qEnvironmentVariable("PATH").contains(dir));
        QCOMPARE(Bash().execute(QStringLiteral("fake-umount"), {"-v", "a b", ""}),
                 QStringLiteral("<-v>\n<a b>\n<>\n"));
        const ProcessResult both = Bash().executeCollectingErrors(QStringLiteral("fake-umount"), {"x"});
        QCOMPARE(both.out + both.err, QByteArray("<x>\nbusy\n"));

        const auto thrownFor = [](const QString &name, bool collecting) {
            try {
                collecting ? (void)Bash().executeCollectingErrors(name, {}) : (void)Bash().execute(name, {});
            } catch (const BashError &e) {
                return e.name;
            }
            return QStringLiteral("nothing thrown");
        };
        QCOMPARE(thrownFor(QStringLiteral("no-such-command"), true), QStringLiteral("no-such-command"));
        // Regression: when the path "which" printed could not be started, the
        // error named that path instead of the command asked for.
        writeScript(dir, QStringLiteral("which"), QStringLiteral("echo Welcome back\necho /no/such/umount"));
        QCOMPARE(thrownFor(QStringLiteral("umount"), false), QStringLiteral("umount"));
    }

    void toolPaths_data()
    {
        // The settings file ("$BIN" holds the three tools) and the launch
        // switch; then the problem named.
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("launch");
        QTest::addColumn<QString>("problem");
        const auto row = [](const char *tag, const QByteArray &file, const char *launch,
                            const char *problem) {
            QTest::newRow(tag) << file << QString::fromLatin1(launch) << QString::fromLatin1(problem);
        };
        const QByteArray tools =
            "[General]\nITDT_PATH=$BIN/itdt\nLTFS_PATH=$BIN/ltfs\nMKLTFS_PATH=$BIN/mkltfs\n";
        const QByteArray all = tools + "OUTPUT_FOLDER=$BIN/not-made\n";
        row("no file", {}, "", "itdt path not set");
        row("output folder not made yet", all, "", "");
        row("no output folder", tools, "", "output folder path not set");
        row("-c forgets the tools, not the output folder", all, "-c", "itdt path not set");
        row("the first wrong path in checking order",
            "[General]\nITDT_PATH=/x/itdt\nLTFS_PATH=$BIN/ltfs\nMKLTFS_PATH=/x/mkltfs\nOUTPUT_FOLDER=/o\n",
            "", "mkltfs not found at /x/mkltfs");
        row("values that are not text",
            "[General]\nITDT_PATH=/x/itdt, /x/itdt\nLTFS_PATH=@ByteArray(/x/ltfs)\nMKLTFS_PATH=@Invalid()\n"
            "OUTPUT_FOLDER=/o\n",
            "", "itdt path not set");
    }

    void toolPaths()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, launch);
        QFETCH(QString, problem);
        const QString bin = makeDir(QStringLiteral("opt/bin"));
        for (const char *name : {"itdt", "ltfs", "mkltfs"})
            writeScript(bin, QString::fromLatin1(name), {});
        QFile::remove(SettingsStore::fileName());
        if (!file.isEmpty())
            writeFile(SettingsStore::fileName(), file.replace("$BIN", QFile::encodeName(bin)));
        for (OptionalPath *p : {&ITDT_PATH, &LTFS_PATH, &MKLTFS_PATH, &OUTPUT_FOLDER})
            p->set(QStringLiteral("/left/from/an/earlier/load"));
        consoleOf([&] { applyLaunchArguments({QStringLiteral("/usr/bin/tapedesk"), launch}); });

        QCOMPARE(preferencesValid(), problem.isEmpty());
        QCOMPARE(preferencesProblem(), problem);
        // These rows lose all three tools at once.
        QCOMPARE(noToolPathSet(), problem == QStringLiteral("itdt path not set"));
        QCOMPARE(OUTPUT_FOLDER.get().has_value(), file.contains("OUTPUT_FOLDER"));
        QVERIFY2(!file.isEmpty() || !QFile::exists(SettingsStore::fileName()), "a read created the store");
    }

    // Regression rows: QSettings reported a damaged file only to the first read
    // after it changed, so a read then a write overwrote the operator's file
    // with what was salvaged; and only the first damage of a run was kept.
    void damagedStoreReadsAsEmptyAndIsKeptAside_data()
    {
        QTest::addColumn<QByteArray>("damage"); // null: a folder in the file's place, unreadable even to root
        QTest::newRow("cut off mid-line") << QByteArray("[General]\nITDT_PATH=/opt/itdt/itdt\nMKLT");
        QTest::newRow("junk, a second time in the run")
            << QByteArray("[General\nOUTPUT_FOLDER=/o\n\xff\xfe junk\n");
        QTest::newRow("unreadable") << QByteArray();
    }

    void damagedStoreReadsAsEmptyAndIsKeptAside()
    {
        QFETCH(QByteArray, damage);
        const QString file = SettingsStore::fileName();
        QFile::remove(file);
        if (damage.isNull())
            QVERIFY(QDir().mkpath(file));
        else
            writeFile(file, damage);
        const QString earlier = SettingsStore::preservedCopy();
        QStringList told;
        SettingsStore::setProblemListener([&](const QString &message) { told << message; });
        auto forget = qScopeGuard([] { SettingsStore::setProblemListener({}); });

        for (int read = 0; read < 2; ++read) {
            QVERIFY(!preferencesValid());
            QVERIFY(noToolPathSet());
        }
        QVERIFY(damage.isNull() || readFile(file) == damage);

        QVERIFY(SettingsStore::setText(PreferenceKeys::output, QStringLiteral("/srv/new")));
        const QString kept = SettingsStore::preservedCopy();
        QVERIFY(!kept.isEmpty() && kept != earlier);
        QVERIFY(damage.isNull() ? QFileInfo(kept).isDir() : readFile(kept) == damage);
        QVERIFY(earlier.isEmpty() || QFileInfo::exists(earlier));
        QCOMPARE(told, QStringList{QStringLiteral(
                                       "The settings file %1 could not be read; it was kept as %2 and a new "
                                       "one started.")
                                       .arg(file, kept)});
        QCOMPARE(SettingsStore::text(PreferenceKeys::output), QStringLiteral("/srv/new"));
        QCOMPARE(SettingsStore::text(PreferenceKeys::itdt), std::nullopt);
    }

    // Retrieve Log copies the newest dump: here the one made last, though
    // modified first. Look-alikes and folders are no dumps; hidden ones are.
    void dumpListingNewestFirst()
    {
        const QString folder = makeDir(QStringLiteral("listing"));
        for (const auto &[name, hour] : {std::pair{"eleven.blz", 11}, {".noon.blz", 12}, {"ten.blz", 10}}) {
            QFile f(writeFile(folder + QLatin1Char('/') + QLatin1String(name), "x"));
            QVERIFY(f.open(QIODevice::ReadWrite));
            QVERIFY(f.setFileTime(QDateTime(QDate(2026, 3, 1), QTime(hour, 0), QTimeZone::utc()),
                                  QFileDevice::FileModificationTime));
            QThread::msleep(20); // birth times cannot be set, only waited for
        }
        for (const char *name : {"dump.BLZ", "dump.blz.old", "blz", "notes.txt", "folder.blz/x"})
            writeFile(folder + QLatin1Char('/') + QLatin1String(name), "x");
        const auto list = [](const QString &in) {
            return contentsOfDirectory(QStringLiteral("blz"), QUrl::fromLocalFile(in), ContentDate::created,
                                       false);
        };
        QCOMPARE(list(folder).names, (QStringList{"ten.blz", ".noon.blz", "eleven.blz"}));
        const DirectoryListing missing = list(folder + QStringLiteral("/gone"));
        QVERIFY(!missing.ok && missing.error.contains(QStringLiteral("gone")));
    }

    // OK to the replace question puts the new dump in the old one's place.
    void copyReplacesOnOk()
    {
        const QString from =
            writeFile(makeDir(QStringLiteral("copy")) + QStringLiteral("/drive.blz"), "new dump");
        const QString to = makeDir(QStringLiteral("copy/to"));
        writeFile(to + QStringLiteral("/drive.blz"), "old dump");
        DialogScript script;
        script.press(QStringLiteral("OK"));
        QVERIFY(Support().copyFile(from, to));
        QCOMPARE(script.seen().size(), 1);
        QVERIFY(script.unexpected().isEmpty());
        // Nothing is left beside the file.
        QCOMPARE(QDir(to).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{"drive.blz"});
        QCOMPARE(readFile(to + QStringLiteral("/drive.blz")), "new dump");
        QVERIFY(!Support().copyFile(from + QStringLiteral(".gone"), to)); // nothing to copy
    }
};

TAPEDESK_TEST_MAIN(ToolsTest)
#include "tst_tools.moc"

#pragma once

#include "tools/Console.h"

#include <QCoreApplication>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>
#include <functional>

namespace tapedesk::test {

// Points HOME, XDG_CONFIG_HOME, XDG_DATA_HOME, XDG_CACHE_HOME, XDG_STATE_HOME and TAPESIM_HOME
// into a fresh temporary folder before the application exists, so QSettings
// and the simulator only ever see that folder.
class TestHome
{
public:
    TestHome();
    ~TestHome();
    TestHome(const TestHome &) = delete;
    TestHome &operator=(const TestHome &) = delete;

    static QString path();

private:
    QTemporaryDir m_dir;
};

// Forgets the simulator's state (the default library again, nothing mounted)
// after ending the ltfs daemons it left running, so none outlives its test or
// serves a mount point the next test uses.
void resetSimulator();
// resetSimulator(), then the simulator's library is `stateIni` (its state.ini).
bool resetSimulatorTo(const QByteArray &stateIni);
// Each run the simulator logged to `logPath` (TAPESIM_LOG), as its argv.
QList<QStringList> simInvocations(const QString &logPath);

// The simulator's bin folder (itdt, ltfs, mkltfs, mount, umount) in the build tree.
QString simBinDir();

// Writes an executable /bin/sh script `name` with `body` into `dir` (created
// if missing) and returns its path.
QString writeScript(const QString &dir, const QString &name, const QString &body);

// Writes HOME/.bash_profile so a login shell finds the given folders first on
// its PATH (what the unmount's `which umount` uses).
void installLoginProfile(const QStringList &pathFirst);

// A fresh folder inside the test home.
QString makeDir(const QString &relative);

// Whole content of a file, or "" if unreadable.
QByteArray readFile(const QString &path);

// What this process prints on fd 1 while `f` runs, one entry a line.
QList<QByteArray> consoleOf(const std::function<void()> &f);

// Writes the four paths to the store and loads them (as the window's
// appearance does).
void setPaths(const QString &itdt, const QString &ltfs, const QString &mkltfs, const QString &output);
// The four paths pointing at the simulator, output into HOME/output.
void useSimulator();

} // namespace tapedesk::test

// A test's main: its own home, the application of type App, then `setup`.
#define TAPEDESK_TEST_MAIN_WITH(TestClass, App, setup)                                                       \
    int main(int argc, char **argv)                                                                          \
    {                                                                                                        \
        tapedesk::test::TestHome home;                                                                       \
        App app(argc, argv);                                                                                 \
        app.setOrganizationName(QStringLiteral("TapeDesk"));                                                 \
        app.setApplicationName(QStringLiteral("TapeDesk"));                                                  \
        setup;                                                                                               \
        TestClass tc;                                                                                        \
        QTEST_SET_MAIN_SOURCE_PATH                                                                           \
        return QTest::qExec(&tc, argc, argv);                                                                \
    }

// The main of a test that needs no window: no console echo.
#define TAPEDESK_ENGINE_TEST_MAIN(TestClass)                                                                 \
    TAPEDESK_TEST_MAIN_WITH(TestClass, QCoreApplication, tapedesk::setConsoleStream(nullptr))

#pragma once

// The real LTFS programs on file-backed cartridges: a library of drives the
// simulator's itdt lists, each with a folder for a cartridge, the real
// ltfs/mkltfs/ltfsck behind a wrapper that maps a drive's name to its folder,
// and the host's mount points and daemons cleaned up after each case.

#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <memory>

namespace tapedesk::test::real {

// The folder of the real programs (the ctest environment names it), or "".
QString ltfsBin();
// Why the real LTFS cannot run on this host, or "" when it can.
QString whyUnavailable();
// Leaves the marker that scripts/test looks for when the real tests are
// skipped for `why`; takes it away when `why` is empty.
void markSkipped(const QString &why);

QString mountPoint(const QString &name);
// The real ltfs processes serving `point` (the mounting command line names it).
QList<qint64> daemonsOf(const QString &point);
// Alive and not a zombie.
bool isRunning(qint64 pid);
bool isListed(const QString &point);
// A user.ltfs.* attribute of `path`, or "" (with errno's text in `error`).
QByteArray attribute(const QString &path, const QString &name, QString *error = nullptr);

class Library
{
public:
    // Drives `names` (ids "tape" + name), cartridges blank, in a fresh
    // folder of the test home; the simulator's state lists them.
    explicit Library(const QStringList &names);
    ~Library();
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;

    // Where TapeDesk finds ltfs, mkltfs and ltfsck.
    QString toolDir() const { return m_root + QStringLiteral("/bin"); }
    QString cartridge(const QString &name) const { return m_root + QStringLiteral("/cartridges/") + name; }
    // The runs of the real tools since the last call: "mkltfs --device=rl1 ...".
    QStringList takeToolRuns();
    // The real mkltfs run directly on a drive's cartridge (an empty serial or
    // volume: none given); its standard error, or "" when it failed.
    QString format(const QString &name, const QString &serial, const QString &volume);
    // Ends every daemon serving the drive's mount point and takes the mount away.
    static void release(const QString &name);

private:
    QString m_root;
    QStringList m_names;
};

// tapedesk-cli as a child process, with --json: its verdict and transcript.
struct CliRun
{
    int status = -1;
    QJsonObject json;
    QString text;      // the transcript's lines and standard error
    QStringList tools; // "program arg arg" of each tool it ran
};
CliRun cli(const QStringList &arguments);
// tapedesk-cli without --json, started and left running.
std::unique_ptr<QProcess> startCli(const QStringList &arguments);

} // namespace tapedesk::test::real

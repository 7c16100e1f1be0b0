#pragma once

#include <QList>
#include <QString>
#include <sys/types.h>

namespace tapedesk {

// Where the host's device nodes and kernel state are read; a test points
// them at folders of its own.
struct HostRoots
{
    QString devices = QStringLiteral("/dev");
    QString proc = QStringLiteral("/proc");
};

// Whose access the device nodes are judged for: this process's user unless
// a test says otherwise.
struct Identity
{
    uid_t uid = 0;
    QString userName;
    QList<gid_t> groups;           // the session's: effective and supplementary
    QList<gid_t> configuredGroups; // the group database's: a later usermod shows here first
    static Identity current();
};

// One thing checked on the way from itdt to a drive, and what to do when it
// is wrong.
struct Finding
{
    bool ok = false;
    QString text;
    QString fix; // empty when ok
    // "OK: ..." or "Problem: ... What to do: ..." for one pane line.
    QString line() const;
};

// Why itdt may list no drive: its path, the tape device nodes, whether this
// user may open each, and whether the kernel modules behind them are loaded.
QList<Finding> missingDriveFindings(const QString &itdtPath, const HostRoots &roots, const Identity &who);

} // namespace tapedesk

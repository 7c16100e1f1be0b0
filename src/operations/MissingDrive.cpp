// Why a scan lists no drive: the questions an operator would otherwise ask
// on a forum, answered from the host. Each check names what it found and,
// when it is wrong, the one thing to do about it.

#include "operations/MissingDrive.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tapedesk {

namespace {

// The node names of each tape driver, and the module that makes them.
struct NodeFamily
{
    QString pattern;
    QString module;
    bool needed; // false: another family reaches the same drives
};
const QList<NodeFamily> kFamilies{
    {QStringLiteral("IBMtape*"), QStringLiteral("lin_tape"), false},
    {QStringLiteral("nst*"), QStringLiteral("st"), true},
    {QStringLiteral("sg*"), QStringLiteral("sg"), true},
};

QString groupName(gid_t gid)
{
    const group *g = ::getgrgid(gid);
    return g ? QString::fromLocal8Bit(g->gr_name) : QString::number(gid);
}

Finding itdtFinding(const QString &itdtPath)
{
    if (itdtPath.isEmpty())
        return {false, QStringLiteral("itdt's path is not set."),
                QStringLiteral("Set it in TapeDesk > Preferences.")};
    const QFileInfo info(itdtPath);
    if (!info.exists())
        return {false, QStringLiteral("itdt was not found at %1.").arg(itdtPath),
                QStringLiteral("Install itdt there, or set its real path in TapeDesk > Preferences.")};
    if (!info.isFile() || !info.isExecutable())
        return {false, QStringLiteral("%1 is not an executable program.").arg(itdtPath),
                QStringLiteral("Make it executable (chmod +x %1) or set the path of the program itself.")
                    .arg(itdtPath)};
    return {true, QStringLiteral("itdt is set and executable: %1.").arg(itdtPath), {}};
}

// The POSIX rule the kernel applies when the node is opened for reading and
// writing; root passes by its capability.
bool mayReadWrite(const struct stat &st, const Identity &who)
{
    if (who.uid == 0)
        return true;
    mode_t bits = S_IROTH | S_IWOTH;
    if (st.st_uid == who.uid)
        bits = S_IRUSR | S_IWUSR;
    else if (who.groups.contains(st.st_gid))
        bits = S_IRGRP | S_IWGRP;
    return (st.st_mode & bits) == bits;
}

Finding nodeFinding(const QString &path, const Identity &who)
{
    struct stat st
    {
    };
    if (::stat(path.toLocal8Bit().constData(), &st) != 0)
        return {false, QStringLiteral("%1 cannot be examined.").arg(path),
                QStringLiteral("Check that the drive is still attached (lsscsi -g).")};
    if (mayReadWrite(st, who))
        return {true, QStringLiteral("%1 is readable and writable by %2.").arg(path, who.userName), {}};
    const QString group = groupName(st.st_gid);
    const QString problem =
        QStringLiteral("%1 is not readable and writable by %2 (group %3).").arg(path, who.userName, group);
    if (who.groups.contains(st.st_gid) || (st.st_mode & (S_IRGRP | S_IWGRP)) != (S_IRGRP | S_IWGRP))
        return {false, problem,
                QStringLiteral("Its group may not read and write it: have a udev rule give tape devices "
                               "MODE=\"0660\", GROUP=\"%1\".")
                    .arg(group)};
    if (who.configuredGroups.contains(st.st_gid))
        return {false,
                problem + QStringLiteral(" %1 was added to group %2 after this session began.")
                              .arg(who.userName, group),
                QStringLiteral("Log out and back in (or restart) so the session joins group %1.").arg(group)};
    return {false, problem + QStringLiteral(" %1 is not in group %2.").arg(who.userName, group),
            QStringLiteral("sudo usermod -aG %1 %2, then log out and back in.").arg(group, who.userName)};
}

} // namespace

Identity Identity::current()
{
    Identity who;
    who.uid = ::geteuid();
    const passwd *pw = ::getpwuid(who.uid);
    who.userName = pw ? QString::fromLocal8Bit(pw->pw_name) : QString::number(who.uid);
    who.groups << ::getegid();
    const int count = ::getgroups(0, nullptr);
    QList<gid_t> supplementary(qMax(count, 0));
    if (count > 0 && ::getgroups(count, supplementary.data()) == count)
        who.groups << supplementary;
    if (pw) {
        int n = 64;
        QList<gid_t> listed(n);
        if (::getgrouplist(pw->pw_name, pw->pw_gid, listed.data(), &n) < 0 && n > 0) {
            listed.resize(n);
            ::getgrouplist(pw->pw_name, pw->pw_gid, listed.data(), &n);
        }
        listed.resize(qMax(n, 0));
        who.configuredGroups = listed;
    }
    return who;
}

QString Finding::line() const
{
    return ok ? QStringLiteral("OK: ") + text : QStringLiteral("Problem: %1 What to do: %2").arg(text, fix);
}

QList<Finding> missingDriveFindings(const QString &itdtPath, const HostRoots &roots, const Identity &who)
{
    QList<Finding> findings{itdtFinding(itdtPath)};

    const QDir devices(roots.devices);
    QSet<QString> familiesPresent;
    QStringList nodes;
    for (const NodeFamily &family : kFamilies) {
        const QStringList names = devices.entryList({family.pattern}, QDir::System | QDir::Files, QDir::Name);
        if (!names.isEmpty())
            familiesPresent.insert(family.module);
        for (const QString &name : names)
            nodes << devices.filePath(name);
    }
    if (nodes.isEmpty())
        findings << Finding{
            false, QStringLiteral("No tape device node in %1 (IBMtape*, nst*, sg*).").arg(roots.devices),
            QStringLiteral("Check the drive's power and cable and that the host adapter "
                           "sees it (lsscsi -g), and load the kernel modules below.")};
    for (const QString &node : nodes)
        findings << nodeFinding(node, who);

    // "st 94208 0 - Live 0x0000000000000000": the module's name comes first.
    const QString modulesPath = roots.proc + QStringLiteral("/modules");
    QFile modulesFile(modulesPath);
    if (!modulesFile.open(QIODevice::ReadOnly)) {
        findings << Finding{
            false,
            QStringLiteral("%1 cannot be read: whether the tape modules are loaded is unknown.")
                .arg(modulesPath),
            QStringLiteral("Run lsmod and look for st and sg.")};
        return findings;
    }
    QSet<QString> loaded;
    for (const QByteArray &line : modulesFile.readAll().split('\n'))
        loaded.insert(QString::fromLatin1(line.left(line.indexOf(' '))));
    for (const NodeFamily &family : kFamilies) {
        const QString nodesOf = roots.devices + QLatin1Char('/') + family.pattern;
        if (loaded.contains(family.module))
            findings << Finding{
                true, QStringLiteral("Kernel module %1 is loaded (%2).").arg(family.module, nodesOf), {}};
        else if (familiesPresent.contains(family.module))
            findings << Finding{
                true,
                QStringLiteral("Kernel module %1 is not listed, but %2 exist: it is built into "
                               "the kernel.")
                    .arg(family.module, nodesOf),
                {}};
        else if (!family.needed)
            findings << Finding{
                true,
                QStringLiteral("Kernel module %1 is not loaded; not needed, itdt reaches drives "
                               "through sg too.")
                    .arg(family.module),
                {}};
        else
            findings << Finding{
                false, QStringLiteral("Kernel module %1 is not loaded.").arg(family.module),
                QStringLiteral("sudo modprobe %1 (list it in /etc/modules-load.d/ to keep it).")
                    .arg(family.module)};
    }
    if (std::all_of(findings.cbegin(), findings.cend(), [](const Finding &f) { return f.ok; }))
        findings << Finding{
            true,
            QStringLiteral("Nothing on this host stands in the way: if Scan still lists no "
                           "drive, power-cycle the drive and check its cable, then scan again."),
            {}};
    return findings;
}

} // namespace tapedesk

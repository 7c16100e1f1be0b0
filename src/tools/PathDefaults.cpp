#include "tools/PathDefaults.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

// Linux departure: the defaults this tool was first given were folders of
// another operating system with a "<USER NAME>" placeholder in them
// (/Users/<USER NAME>/ITDT/itdt, /Users/<USER NAME>/Desktop/corvel-lto-output).
// They can never exist on Linux, so every new operator had to retype all four
// paths. Here the defaults are looked up on the host instead, and a first
// Save with the tools installed is a working setup.

namespace tapedesk {

namespace {

const QString kOutputFolderName = QStringLiteral("corvel-lto-output");

bool isProgram(const QString &path)
{
    const QFileInfo info(path);
    return info.isFile() && info.isExecutable();
}

// The folders searched after PATH, in order. itdt installs into a folder of
// its own under /opt, named after the version, hence the pattern.
QStringList installFolders(const QString &name)
{
    QStringList folders = {QStringLiteral("/usr/local/bin"), QStringLiteral("/usr/bin")};
    if (name == QStringLiteral("itdt")) {
        const QDir opt(QStringLiteral("/opt"));
        for (const QString &vendor : opt.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name))
            folders << opt.filePath(vendor) + QStringLiteral("/bin");
    }
    return folders;
}

} // namespace

QString defaultToolPath(const QString &name)
{
    QString onPath = QStandardPaths::findExecutable(name);
    if (!onPath.isEmpty())
        return onPath;
    for (const QString &folder : installFolders(name)) {
        QString candidate = folder + QLatin1Char('/') + name;
        if (isProgram(candidate))
            return candidate;
    }
    return QStringLiteral("/usr/local/bin/") + name;
}

QString defaultOutputFolder()
{
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    // Qt names $HOME/Documents even where it was never made (a server, a
    // fresh account); the home folder is the place that does exist.
    const QString parent =
        !documents.isEmpty() && QFileInfo(documents).isDir() ? documents : QDir::homePath();
    return parent + QLatin1Char('/') + kOutputFolderName;
}

PathDefaults pathDefaults()
{
    return {defaultToolPath(QStringLiteral("itdt")), defaultToolPath(QStringLiteral("ltfs")),
            defaultToolPath(QStringLiteral("mkltfs")), defaultOutputFolder()};
}

bool createDefaultOutputFolder(const QString &path)
{
    if (path != defaultOutputFolder() || QFileInfo(path).isDir())
        return true;
    return QDir().mkpath(path);
}

} // namespace tapedesk

#pragma once

#include <QString>

namespace tapedesk {

// The four paths the preferences pane offers before any are saved. They are
// only offered: they reach the store when the operator presses Save.
struct PathDefaults
{
    QString itdt;
    QString ltfs;
    QString mkltfs;
    QString output;
};

// Looks at this host as it is now (PATH, the install folders, the documents
// folder), so Reset after installing a tool offers the new path.
PathDefaults pathDefaults();

// Where a program called `name` is on this host: found on PATH, else in
// /usr/local/bin or /usr/bin (for itdt also /opt/*/bin), else
// /usr/local/bin/<name>, which names what is still to be installed.
QString defaultToolPath(const QString &name);

// "corvel-lto-output" in the user's documents folder, or in the home folder
// when there is no documents folder.
QString defaultOutputFolder();

// Creates `path` (and its parents) when it is the default output folder and
// missing, so itdt's first dump has somewhere to go. Any other path is left
// alone: a typed path is the operator's business. False only when the
// default folder is missing and could not be made.
bool createDefaultOutputFolder(const QString &path);

} // namespace tapedesk

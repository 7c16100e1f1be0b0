#pragma once

#include "tools/Synchronized.h"

#include <QString>
#include <QStringList>
#include <optional>

namespace tapedesk {

using OptionalPath = Synchronized<std::optional<QString>>;

// The whole configuration: where the three tools are and where itdt writes its
// reports. Absent until loaded from the store or saved. Written on the GUI
// thread, read by the workflows' background parts.
extern OptionalPath ITDT_PATH;
extern OptionalPath LTFS_PATH;
extern OptionalPath MKLTFS_PATH;
extern OptionalPath OUTPUT_FOLDER;

namespace PreferenceKeys {
inline const QString itdt = QStringLiteral("ITDT_PATH");
inline const QString ltfs = QStringLiteral("LTFS_PATH");
inline const QString mkltfs = QStringLiteral("MKLTFS_PATH");
inline const QString output = QStringLiteral("OUTPUT_FOLDER");
} // namespace PreferenceKeys

// True when all four paths are present; no file is looked at.
bool isPreferencesSet();

// Loads the four paths from the store (the only place that does) and tests that
// the three tools exist. The output folder must be present, not existing.
bool preferencesValid();

// Why the paths loaded last are not valid, naming the first wrong one in the
// order they are checked (e.g. "itdt not found at /opt/x/itdt"); "" when they
// are valid.
QString preferencesProblem();

// True when none of the three program paths is loaded: a first start, or the
// start after "-c". Such a start has nothing to correct, only to set up.
bool noToolPathSet();

// The launch switch: "-c" forgets the three tool paths (the output folder
// stays); any other argument prints "default argument".
void applyLaunchArguments(const QStringList &arguments);

} // namespace tapedesk

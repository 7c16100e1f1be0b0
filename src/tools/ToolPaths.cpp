#include "tools/ToolPaths.h"

#include "tools/Console.h"
#include "tools/SettingsStore.h"

#include <QFileInfo>

namespace tapedesk {

OptionalPath ITDT_PATH;
OptionalPath LTFS_PATH;
OptionalPath MKLTFS_PATH;
OptionalPath OUTPUT_FOLDER;

bool isPreferencesSet()
{
    return ITDT_PATH.get() && LTFS_PATH.get() && MKLTFS_PATH.get() && OUTPUT_FOLDER.get();
}

bool preferencesValid()
{
    ITDT_PATH.set(SettingsStore::text(PreferenceKeys::itdt));
    LTFS_PATH.set(SettingsStore::text(PreferenceKeys::ltfs));
    MKLTFS_PATH.set(SettingsStore::text(PreferenceKeys::mkltfs));
    OUTPUT_FOLDER.set(SettingsStore::text(PreferenceKeys::output));
    if (!isPreferencesSet())
        return false;
    for (const OptionalPath *tool : {&MKLTFS_PATH, &LTFS_PATH, &ITDT_PATH}) {
        if (!QFileInfo::exists(*tool->get()))
            return false;
    }
    return true;
}

void applyLaunchArguments(const QStringList &arguments)
{
    for (const QString &argument : arguments) {
        if (argument == QStringLiteral("-c"))
            SettingsStore::removeKeys({PreferenceKeys::itdt, PreferenceKeys::ltfs, PreferenceKeys::mkltfs});
        else
            consoleLine(QByteArrayView("default argument"));
    }
}

} // namespace tapedesk

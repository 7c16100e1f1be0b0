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
    return preferencesProblem().isEmpty();
}

QString preferencesProblem()
{
    struct Named
    {
        const OptionalPath *path;
        const char *name;
    };
    // An absent path is reported before any file is looked at.
    for (const Named &p : {Named{&ITDT_PATH, "itdt"}, Named{&LTFS_PATH, "ltfs"},
                           Named{&MKLTFS_PATH, "mkltfs"}, Named{&OUTPUT_FOLDER, "output folder"}}) {
        if (!p.path->get())
            return QString::fromLatin1(p.name) + QStringLiteral(" path not set");
    }
    for (const Named &p :
         {Named{&MKLTFS_PATH, "mkltfs"}, Named{&LTFS_PATH, "ltfs"}, Named{&ITDT_PATH, "itdt"}}) {
        const QString path = *p.path->get();
        if (!QFileInfo::exists(path))
            return QString::fromLatin1(p.name) + QStringLiteral(" not found at ") + path;
    }
    return {};
}

bool noToolPathSet()
{
    return !ITDT_PATH.get() && !LTFS_PATH.get() && !MKLTFS_PATH.get();
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

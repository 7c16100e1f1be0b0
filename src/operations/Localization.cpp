#include "operations/Localization.h"

#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>

// The tables are compiled into tapedesk_core, a static library: the linker
// leaves its resource object out of every program unless something refers
// to it, and the lookups would then answer with the keys themselves.
static void initErrorTables()
{
    Q_INIT_RESOURCE(tapedesk);
}

namespace tapedesk {

namespace {

QHash<QString, QString> loadTable(const QString &resource)
{
    QHash<QString, QString> table;
    QFile f(resource);
    if (!f.open(QIODevice::ReadOnly))
        return table;
    const QJsonObject o = QJsonDocument::fromJson(f.readAll()).object();
    for (auto it = o.begin(); it != o.end(); ++it)
        table.insert(it.key(), it.value().toString());
    return table;
}

struct Tables
{
    QHash<QString, QString> main = loadTable(QStringLiteral(":/i18n/Localizable.json"));
    QHash<QString, QString> errors = loadTable(QStringLiteral(":/i18n/errors.json"));
};

const Tables &tables()
{
    static const Tables t = [] {
        initErrorTables();
        return Tables();
    }(); // thread-safe static init; read-only afterwards
    return t;
}

} // namespace

QString localizedString(const QString &key)
{
    QString found = tables().main.value(key, key);
    if (found != key)
        return found;
    return tables().errors.value(key, key);
}

} // namespace tapedesk

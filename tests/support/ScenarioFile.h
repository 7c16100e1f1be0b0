#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace tapedesk::test {

// One case of a scenario file (tests/data/workflows.scn): its name and its
// lines, with "use NAME" replaced by the lines of "=== @NAME" and a case
// "NAME {a,b}" expanded into one case per value.
struct Scenario
{
    QString name;
    QStringList lines;
};

QList<Scenario> loadScenarios(const QString &text);

} // namespace tapedesk::test

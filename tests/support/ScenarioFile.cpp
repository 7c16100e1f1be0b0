#include "support/ScenarioFile.h"

#include <QHash>
#include <QRegularExpression>

namespace tapedesk::test {

QList<Scenario> loadScenarios(const QString &text)
{
    QList<Scenario> all;
    for (const QString &line : text.split(QLatin1Char('\n'))) {
        if (line.startsWith(QStringLiteral("=== ")))
            all.append({line.mid(4), {}});
        else if (!all.isEmpty() && !line.startsWith(QLatin1Char('#')) && !line.trimmed().isEmpty())
            all.last().lines << line;
    }
    // "@NAME" defines lines that "use NAME" stands for in the cases.
    QHash<QString, QStringList> defined;
    for (const Scenario &s : std::as_const(all)) {
        if (s.name.startsWith(QLatin1Char('@')))
            defined.insert(s.name.mid(1), s.lines);
    }
    all.removeIf([](const Scenario &s) { return s.name.startsWith(QLatin1Char('@')); });
    // "NAME {a,b}" is one case per value: "{}" in a line stands for it, and a
    // line "[a] ..." belongs to the case of value a only, a "[a] use NAME"
    // included.
    static const QRegularExpression values(QStringLiteral("\\{([^}]+)\\}$"));
    QList<Scenario> expanded;
    for (const Scenario &s : all) {
        const QRegularExpressionMatch m = values.match(s.name);
        const QStringList variants = m.hasMatch() ? m.captured(1).split(QLatin1Char(',')) : QStringList{{}};
        for (const QString &v : variants) {
            Scenario one{m.hasMatch() ? s.name.left(m.capturedStart()) + v : s.name, {}};
            for (QString line : s.lines) {
                if (m.hasMatch() && line.startsWith(QLatin1Char('[')) &&
                    line.indexOf(QStringLiteral("] ")) == line.indexOf(QLatin1Char(']'))) {
                    const QStringList only =
                        line.mid(1, line.indexOf(QLatin1Char(']')) - 1).split(QLatin1Char(','));
                    if (!only.contains(v))
                        continue;
                    line = line.mid(line.indexOf(QLatin1Char(']')) + 2);
                }
                if (m.hasMatch())
                    line.replace(QStringLiteral("{}"), v);
                one.lines << (line.startsWith(QStringLiteral("use ")) ? defined.value(line.mid(4))
                                                                      : QStringList{line});
            }
            expanded << one;
        }
    }
    return expanded;
}

} // namespace tapedesk::test

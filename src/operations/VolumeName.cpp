#include "operations/VolumeName.h"

#include <QTextBoundaryFinder>

namespace tapedesk {

namespace {

constexpr qsizetype kVolumeNameLength = 6;

bool isAlphanumeric(char32_t codePoint)
{
    switch (QChar::category(codePoint)) {
    case QChar::Letter_Uppercase:
    case QChar::Letter_Lowercase:
    case QChar::Letter_Titlecase:
    case QChar::Letter_Modifier:
    case QChar::Letter_Other:
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
    case QChar::Mark_Enclosing:
    case QChar::Number_DecimalDigit:
    case QChar::Number_Letter:
    case QChar::Number_Other:
        return true;
    default:
        return false;
    }
}

} // namespace

QString volumeNameFromEntry(const QString &entry)
{
    return entry.toUpper();
}

bool isValidVolumeName(const QString &entry)
{
    const QString name = volumeNameFromEntry(entry);
    if (graphemeCount(name) != kVolumeNameLength)
        return false;
    for (qsizetype i = 0; i < name.size(); ++i) {
        const QChar c = name.at(i);
        char32_t codePoint = c.unicode();
        if (c.isHighSurrogate() && i + 1 < name.size() && name.at(i + 1).isLowSurrogate())
            codePoint = QChar::surrogateToUcs4(c, name.at(++i));
        else if (c.isSurrogate())
            return false; // broken UTF-16 is nobody's name
        if (!isAlphanumeric(codePoint))
            return false;
    }
    return true;
}

qsizetype graphemeCount(const QString &text)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (finder.toNextBoundary() > 0)
        ++count;
    return count;
}

} // namespace tapedesk

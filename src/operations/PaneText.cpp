#include "operations/PaneText.h"

namespace tapedesk {

QString withLongLinesCut(const QString &text)
{
    if (text.size() <= kLongestPaneLine)
        return text;
    qsizetype column = 0;
    bool tooLong = false;
    for (QChar c : text) {
        column = c == QLatin1Char('\n') ? 0 : column + 1;
        if (column > kLongestPaneLine) {
            tooLong = true;
            break;
        }
    }
    if (!tooLong)
        return text;

    QString out;
    out.reserve(text.size() + text.size() / kLongestPaneLine + 1);
    column = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == QLatin1Char('\n')) {
            column = 0;
        } else {
            // The high half of a pair goes to the next line with its low half.
            const qsizetype room = c.isHighSurrogate() ? kLongestPaneLine - 1 : kLongestPaneLine;
            if (column >= room) {
                out += QLatin1Char('\n');
                column = 0;
            }
            ++column;
        }
        out += c;
    }
    return out;
}

} // namespace tapedesk

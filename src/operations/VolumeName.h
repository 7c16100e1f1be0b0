#pragma once

#include <QString>

namespace tapedesk {

// The name an operator gives a tape at format time. It becomes both the tape
// serial and the volume name, so it is judged the way the operator reads it:
// upper-cased first (full case mapping: "ß" becomes "SS" and counts as two),
// then exactly six user-perceived characters (grapheme clusters), each made
// only of letters, marks or digits in Unicode's sense (categories L, M, N).
QString volumeNameFromEntry(const QString &entry);
bool isValidVolumeName(const QString &entry);

// User-perceived characters, as an operator counts them in a text field.
qsizetype graphemeCount(const QString &text);

} // namespace tapedesk

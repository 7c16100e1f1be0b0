#pragma once

#include <QString>

namespace tapedesk {

// Looks `key` up in the default table, then in the table "errors"; a key found
// in neither comes back unchanged. Both tables are compiled into the binary.
QString localizedString(const QString &key);

} // namespace tapedesk

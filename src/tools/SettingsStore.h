#pragma once

#include <QPair>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <functional>
#include <optional>

namespace tapedesk {

// The per-user store (QSettings, native format). The one place that touches it:
// a value that is missing or of another type reads as absent, and a file that
// cannot be read or parsed counts as empty and is moved aside, bytes intact,
// before anything is written over it.
namespace SettingsStore {

std::optional<QString> text(const QString &key);
std::optional<QStringList> textList(const QString &key);
bool contains(const QString &key);

// Writes return false when the store could not be written (read-only folder, ...).
bool setText(const QString &key, const QString &value);
bool setTextList(const QString &key, const QStringList &value);
bool setBool(const QString &key, bool value);
bool remove(const QString &key);
bool removeKeys(const QStringList &keys);
// Several values in one write, so they land on disk together.
bool setValues(const QList<QPair<QString, QVariant>> &values);

std::optional<bool> boolean(const QString &key);

// Told, on the writing thread, in words for the operator, when the store
// could not be written or a damaged file was moved aside. One listener (the
// main window); an empty function removes it.
void setProblemListener(std::function<void(const QString &)> listener);

// Where the store lives, for tests and messages.
QString fileName();

// Where the last unreadable or corrupt file was moved before the store was
// written again, else "".
QString preservedCopy();

} // namespace SettingsStore
} // namespace tapedesk

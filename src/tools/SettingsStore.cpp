#include "tools/SettingsStore.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <mutex>

namespace tapedesk::SettingsStore {

namespace {

std::mutex &storeMutex()
{
    static std::mutex m;
    return m;
}

QString &preservedPath()
{
    static QString p;
    return p;
}

QSettings open()
{
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("TapeDesk"),
                     QStringLiteral("TapeDesk"));
}

// QSettings drops what it cannot parse and would write the rest back; keep the
// operator's file aside first so nothing that was in it is lost.
void preserveIfDamaged(QSettings &s)
{
    if (s.status() == QSettings::NoError)
        return;
    const QString file = s.fileName();
    if (!QFileInfo::exists(file) || !preservedPath().isEmpty())
        return;
    const QString copy = file + QStringLiteral(".damaged-") +
                         QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmss"));
    if (QFile::copy(file, copy))
        preservedPath() = copy;
}

template <class F> bool write(F &&change)
{
    std::lock_guard lock(storeMutex());
    QSettings s = open();
    preserveIfDamaged(s);
    change(s);
    s.sync();
    return s.status() == QSettings::NoError;
}

} // namespace

std::optional<QString> text(const QString &key)
{
    std::lock_guard lock(storeMutex());
    const QVariant v = open().value(key);
    if (v.typeId() != QMetaType::QString)
        return std::nullopt;
    return v.toString();
}

std::optional<QStringList> textList(const QString &key)
{
    std::lock_guard lock(storeMutex());
    const QVariant v = open().value(key);
    // An INI list of one element reads back as a plain string.
    if (v.typeId() == QMetaType::QStringList)
        return v.toStringList();
    if (v.typeId() == QMetaType::QString)
        return QStringList{v.toString()};
    if (v.typeId() == QMetaType::QVariantList) {
        QStringList out;
        for (const QVariant &e : v.toList()) {
            if (e.typeId() != QMetaType::QString)
                return std::nullopt;
            out << e.toString();
        }
        return out;
    }
    return std::nullopt;
}

std::optional<bool> boolean(const QString &key)
{
    std::lock_guard lock(storeMutex());
    const QVariant v = open().value(key);
    if (!v.isValid())
        return std::nullopt;
    if (v.typeId() == QMetaType::Bool)
        return v.toBool();
    const QString t = v.toString();
    if (t == QStringLiteral("true"))
        return true;
    if (t == QStringLiteral("false"))
        return false;
    return std::nullopt;
}

bool contains(const QString &key)
{
    std::lock_guard lock(storeMutex());
    return open().contains(key);
}

bool setText(const QString &key, const QString &value)
{
    return write([&](QSettings &s) { s.setValue(key, value); });
}

bool setTextList(const QString &key, const QStringList &value)
{
    return write([&](QSettings &s) { s.setValue(key, value); });
}

bool setBool(const QString &key, bool value)
{
    return write([&](QSettings &s) { s.setValue(key, value); });
}

bool remove(const QString &key)
{
    return write([&](QSettings &s) { s.remove(key); });
}

bool removeKeys(const QStringList &keys)
{
    return write([&](QSettings &s) {
        for (const QString &k : keys)
            s.remove(k);
    });
}

QString fileName()
{
    std::lock_guard lock(storeMutex());
    return open().fileName();
}

QString preservedCopy()
{
    std::lock_guard lock(storeMutex());
    return preservedPath();
}

} // namespace tapedesk::SettingsStore

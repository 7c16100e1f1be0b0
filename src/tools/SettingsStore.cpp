#include "tools/SettingsStore.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStringDecoder>
#include <QStringTokenizer>
#include <mutex>
#include <optional>
#include <sys/stat.h>

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

std::function<void(const QString &)> &problemListener()
{
    static std::function<void(const QString &)> listener;
    return listener;
}

void tellProblem(const QString &message)
{
    if (problemListener())
        problemListener()(message);
}

QSettings open()
{
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("TapeDesk"),
                     QStringLiteral("TapeDesk"));
}

// Enough of a stat to tell that the file was replaced or changed.
struct FileState
{
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    bool operator==(const FileState &o) const
    {
        return exists == o.exists && device == o.device && inode == o.inode && size == o.size &&
               modified.tv_sec == o.modified.tv_sec && modified.tv_nsec == o.modified.tv_nsec;
    }
};

FileState stateOf(const QString &file)
{
    struct stat st = {};
    if (::stat(QFile::encodeName(file).constData(), &st) != 0)
        return {};
    return {true, st.st_dev, st.st_ino, st.st_size, st.st_mtim};
}

// QSettings drops, without an error, every line it cannot read (a line cut off
// by a crash, binary junk) and writes back only what it kept. Such a file is as
// damaged as one with a broken section header, which it does report.
bool looksWhole(const QByteArray &bytes)
{
    if (bytes.contains('\0'))
        return false;
    QStringDecoder utf8(QStringConverter::Utf8);
    const QString text = utf8.decode(bytes);
    if (utf8.hasError())
        return false;
    for (QStringView line : QStringTokenizer(text, QLatin1Char('\n'))) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char(';')) || line.startsWith(QLatin1Char('#')) ||
            line.contains(QLatin1Char('=')))
            continue;
        if (!(line.startsWith(QLatin1Char('[')) && line.endsWith(QLatin1Char(']'))))
            return false;
    }
    return true;
}

struct Verdict
{
    FileState state;
    bool damaged = false;
};

std::optional<Verdict> &lastVerdict()
{
    static std::optional<Verdict> v;
    return v;
}

// QSettings reports a read or parse error only to the first instance that reads
// the file; later ones get its cached keys and NoError until the file changes.
// So the verdict is kept here against the file's identity, and the file is
// looked at again only when it changed.
bool isDamaged(const QSettings &s)
{
    const FileState now = stateOf(s.fileName());
    if (!now.exists)
        return false;
    std::optional<Verdict> &last = lastVerdict();
    // An access error also follows a write that failed (a read-only folder):
    // QSettings keeps the unsaved change and fails again in every instance.
    // The file is damaged only when it cannot be read itself.
    const bool unreadable =
        s.status() == QSettings::AccessError && !QFile(s.fileName()).open(QIODevice::ReadOnly);
    if (s.status() == QSettings::FormatError || unreadable) {
        last = Verdict{now, true};
    } else if (!last || !(last->state == now)) {
        QFile file(s.fileName());
        last = Verdict{now, !file.open(QIODevice::ReadOnly) || !looksWhole(file.readAll())};
    }
    return last->damaged;
}

// A damaged file counts as empty. Before the first write over it, move it aside
// whole: the operator's bytes stay as they were (even when they cannot be read),
// and what is written next starts from an empty store instead of from whatever
// QSettings salvaged.
void keepAside(const QString &file)
{
    const QString base = file + QStringLiteral(".damaged-") +
                         QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmss"));
    QString copy = base;
    for (int n = 2; QFileInfo::exists(copy); ++n)
        copy = base + QLatin1Char('-') + QString::number(n);
    if (QFile::rename(file, copy)) {
        preservedPath() = copy;
        lastVerdict().reset();
    }
}

template <class F> bool write(F &&change)
{
    std::lock_guard lock(storeMutex());
    {
        const QSettings s = open();
        if (isDamaged(s)) {
            keepAside(s.fileName());
            if (QFileInfo::exists(s.fileName())) {
                tellProblem(QStringLiteral("The settings file %1 cannot be read and cannot be moved aside; "
                                           "nothing was saved.")
                                .arg(s.fileName()));
                return false; // could not be moved: never write over it
            }
            tellProblem(QStringLiteral("The settings file %1 could not be read; it was kept as %2 and a new "
                                       "one started.")
                            .arg(s.fileName(), preservedPath()));
        }
    }
    // A fresh instance: the old one keeps the error status of the moved file.
    QSettings s = open();
    change(s);
    s.sync();
    if (s.status() == QSettings::NoError)
        return true;
    tellProblem(QStringLiteral("Could not save settings to %1 - check that its folder can be written to.")
                    .arg(s.fileName()));
    return false;
}

// Reads through here see nothing of a damaged file.
QVariant read(const QString &key)
{
    const QSettings s = open();
    if (isDamaged(s))
        return {};
    return s.value(key);
}

} // namespace

std::optional<QString> text(const QString &key)
{
    std::lock_guard lock(storeMutex());
    const QVariant v = read(key);
    if (v.typeId() != QMetaType::QString)
        return std::nullopt;
    return v.toString();
}

std::optional<QStringList> textList(const QString &key)
{
    std::lock_guard lock(storeMutex());
    const QVariant v = read(key);
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
    const QVariant v = read(key);
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
    const QSettings s = open();
    return !isDamaged(s) && s.contains(key);
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

bool setValues(const QList<QPair<QString, QVariant>> &values)
{
    return write([&](QSettings &s) {
        for (const auto &[key, value] : values)
            s.setValue(key, value);
    });
}

void setProblemListener(std::function<void(const QString &)> listener)
{
    std::lock_guard lock(storeMutex());
    problemListener() = std::move(listener);
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

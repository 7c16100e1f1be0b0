// File-system helpers: the dump-folder listing, the copy into the operator's
// folder, and the replace question with its one-step replacement.

#include "support/FileHelpers.h"

#include "support/Dialogs.h"
#include "support/Support.h"
#include "tools/Console.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace tapedesk {

namespace {

struct FileTime
{
    qint64 seconds = 0;
    quint32 nanoseconds = 0;
    bool operator<(const FileTime &other) const
    {
        return std::tie(seconds, nanoseconds) < std::tie(other.seconds, other.nanoseconds);
    }
};

FileTime timeOf(const struct statx_timestamp &t)
{
    return {t.tv_sec, t.tv_nsec};
}

QString systemError(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// Reads one file's kind and the date asked for. Linux keeps no creation date
// in the classic stat: the birth time comes from statx where the file system
// records it (ext4, xfs, btrfs, tmpfs); elsewhere the last status change is
// the nearest thing, and for a dump written once it is the same moment.
bool readEntry(int folder, const QByteArray &name, ContentDate which, FileTime &date, bool &regular,
               QString &error)
{
    struct statx info
    {
    };
    if (::statx(folder, name.constData(), AT_STATX_SYNC_AS_STAT, STATX_BASIC_STATS | STATX_BTIME, &info) !=
        0) {
        error = QStringLiteral("cannot read the dates of %1: %2")
                    .arg(QFile::decodeName(name), systemError(errno));
        return false;
    }
    regular = S_ISREG(info.stx_mode);
    switch (which) {
    case ContentDate::created:
        date = (info.stx_mask & STATX_BTIME) ? timeOf(info.stx_btime) : timeOf(info.stx_ctime);
        break;
    case ContentDate::modified:
        date = timeOf(info.stx_mtime);
        break;
    case ContentDate::accessed:
        date = timeOf(info.stx_atime);
        break;
    }
    return true;
}

void reportUnknownError(const QString &detail)
{
    consoleLine(QStringView(u"unknown error"));
    consoleLine(QStringView(detail));
}

// A plain copy followed by fsync, so the data is on disk before a rename
// makes it the operator's file.
bool copyToDisk(const QString &source, const QString &destination, QString &error)
{
    QFile in(source);
    if (!in.copy(destination)) {
        error = in.errorString();
        return false;
    }
    QFile out(destination);
    if (!out.open(QIODevice::ReadOnly) || ::fsync(out.handle()) != 0) {
        error = out.errorString();
        return false;
    }
    return true;
}

void syncFolder(const QString &folder)
{
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

} // namespace

bool hasExtension(const QString &fileName, const QString &fileType)
{
    const qsizetype dot = fileName.lastIndexOf(QLatin1Char('.'));
    const QStringView extension = dot < 0 ? QStringView() : QStringView(fileName).mid(dot + 1);
    return extension == fileType;
}

DirectoryListing contentsOfDirectory(const QString &fileType, const QUrl &atURL, ContentDate sortedBy,
                                     bool ascending, ListingOptions options)
{
    DirectoryListing result;
    if (!atURL.isLocalFile()) {
        result.error = QStringLiteral("not a local folder: %1").arg(atURL.toString());
        return result;
    }
    const QString path = atURL.toLocalFile();
    DIR *folder = ::opendir(QFile::encodeName(path).constData());
    if (!folder) {
        result.error = QStringLiteral("cannot list %1: %2").arg(path, systemError(errno));
        return result;
    }

    struct Entry
    {
        QString name;
        FileTime date;
    };
    std::vector<Entry> entries;
    for (;;) {
        errno = 0;
        const dirent *entry = ::readdir(folder);
        if (!entry) {
            if (errno != 0)
                result.error = QStringLiteral("cannot list %1: %2").arg(path, systemError(errno));
            break;
        }
        const QByteArray raw(entry->d_name);
        if (raw == "." || raw == "..")
            continue;
        if (options.testFlag(ListingOption::skipsHiddenFiles) && raw.startsWith('.'))
            continue;
        const QString name = QFile::decodeName(raw);
        if (!hasExtension(name, fileType))
            continue;
        Entry e{name, {}};
        bool regular = false;
        if (!readEntry(::dirfd(folder), raw, sortedBy, e.date, regular, result.error))
            break;
        // Only files can be copied out; a folder or a pipe named like a dump is not one.
        if (regular)
            entries.push_back(std::move(e));
    }
    ::closedir(folder);
    if (!result.error.isEmpty())
        return result;

    // The dates were read once up front, so the order is a plain comparison and
    // files with equal dates keep the order the folder listed them in.
    std::stable_sort(entries.begin(), entries.end(), [ascending](const Entry &a, const Entry &b) {
        return ascending ? a.date < b.date : b.date < a.date;
    });
    for (Entry &e : entries)
        result.names << std::move(e.name);
    result.ok = true;
    return result;
}

QString replaceQuestion(const QString &existingPath)
{
    const QStringList parts = QDir::cleanPath(QFileInfo(existingPath).absoluteFilePath())
                                  .split(QLatin1Char('/'), Qt::SkipEmptyParts);
    const QString name = parts.isEmpty() ? QString() : parts.last();
    const QString folder = parts.size() >= 2 ? parts.at(parts.size() - 2) : QStringLiteral("/");
    return QStringLiteral("Replace \"%1\" in \"%2\" with new file?").arg(name, folder);
}

void replaceWithCopyOfFile(const QUrl &at, const QUrl &with)
{
    const QString target = at.toLocalFile();
    const QString source = with.toLocalFile();
    const QString folder = QFileInfo(target).absolutePath();
    // The temporary copy is made beside the file it replaces, so the last step
    // is one rename within one file system: the file is either the old one or
    // the whole new one, even if TapeDesk dies in between.
    QTemporaryDir scratch(folder + QStringLiteral("/.tapedesk-replace-XXXXXX"));
    if (!scratch.isValid()) {
        reportUnknownError(
            QStringLiteral("cannot make a temporary folder in %1: %2").arg(folder, scratch.errorString()));
        return;
    }
    // A failed step leaves the folder behind, and with it the new copy.
    scratch.setAutoRemove(false);
    const QString copy = scratch.filePath(QFileInfo(source).fileName());
    QString error;
    if (!copyToDisk(source, copy, error)) {
        reportUnknownError(QStringLiteral("cannot copy %1 to %2: %3").arg(source, copy, error));
        return;
    }
    if (dialogs().confirm(replaceQuestion(target), QString())) {
        if (::rename(QFile::encodeName(copy).constData(), QFile::encodeName(target).constData()) != 0) {
            reportUnknownError(QStringLiteral("cannot replace %1: %2").arg(target, systemError(errno)));
            return;
        }
        syncFolder(folder);
    }
    if (!scratch.remove())
        reportUnknownError(QStringLiteral("cannot remove %1").arg(scratch.path()));
}

bool Support::copyFile(const QString &file, const QString &locationToSave) const
{
    const QString name = QFileInfo(file).fileName();
    const QString destination = QDir(locationToSave).filePath(name);
    if (name.isEmpty()) {
        consoleLine(QStringView(QStringLiteral("copy failed: no file name in \"%1\"").arg(file)));
        return false;
    }
    if (QFileInfo::exists(destination)) {
        replaceWithCopyOfFile(QUrl::fromLocalFile(destination), QUrl::fromLocalFile(file));
        return true;
    }
    QFile source(file);
    if (source.copy(destination))
        return true;
    consoleLine(QStringView(
        QStringLiteral("copy failed: %1 to %2: %3").arg(file, destination, source.errorString())));
    return false;
}

} // namespace tapedesk

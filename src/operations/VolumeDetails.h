#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>
#include <optional>
#include <utility>

namespace tapedesk {

// The user.ltfs.* attributes of a mounted volume's root as read, keyed by
// the name after "user.ltfs."; an attribute the backend cannot supply
// (ENODATA) is not in the map.
using VolumeAttributes = QHash<QString, QByteArray>;

// Size and room as statvfs gives them for the mount point.
struct FileSystemSize
{
    qint64 totalBytes = 0;
    qint64 freeBytes = 0;
};

// What an operator wants to know about the mounted tape. Each value is
// absent when LTFS did not report it ("-1", missing, or unreadable): a face
// shows "not reported" then, never a number.
struct VolumeDetails
{
    std::optional<QString> volumeName;
    std::optional<QString> barcode;
    std::optional<QString> uuid;
    std::optional<QDateTime> formatTime; // UTC
    std::optional<qint64> indexGeneration;
    std::optional<qint64> capacityBytes;
    std::optional<qint64> usedBytes;
    std::optional<qint64> freeBytes;
    std::optional<qint64> mediaLoads;
    std::optional<quint64> storageAlert; // the drive's TapeAlert flags
};

// The attributes (and statvfs, where LTFS gives no capacity) decoded.
VolumeDetails volumeDetailsFrom(const VolumeAttributes &attributes,
                                const std::optional<FileSystemSize> &size);

// The names of the TapeAlert flags set in `flags`; flag N is bit N-1, as
// LTFS packs the drive's log page.
QStringList tapeAlertNames(quint64 flags);
// Bytes as people read a tape's size: "2.8 GB", "12.0 TB" (powers of ten,
// as cartridges are sold).
QString byteSize(qint64 bytes);
// The details as labelled lines, in the order a face shows them.
QList<std::pair<QString, QString>> volumeDetailRows(const VolumeDetails &details);

// Reads the attributes and statvfs of `mountPoint` through one descriptor.
// Blocks as long as the file system does (a hung FUSE daemon: forever), so
// it never runs on the GUI thread. `error` says why nothing could be read.
struct VolumeRead
{
    VolumeAttributes attributes;
    std::optional<FileSystemSize> size;
    QString error;
};
VolumeRead readVolumeAttributes(const QString &mountPoint);

// What a face shows for the selected drive's volume.
struct VolumeReport
{
    enum class State {
        NoDrive,
        NotMounted,
        Reading,
        Read,
        TimedOut,
        Unreadable,
    };
    State state = State::NoDrive;
    QString driveId;
    QString mountPoint;
    VolumeDetails details;
    QString problem; // for TimedOut and Unreadable: what happened
};

} // namespace tapedesk

// What LTFS publishes on a mounted volume, decoded for the operator. The
// attributes are virtual and read-only; on a 3 GB virtual cartridge they read
//   user.ltfs.volumeName                         QA9999
//   user.ltfs.mamBarcode                         "QA9999" padded with blanks to 32
//   user.ltfs.volumeFormatTime                   2026-11-23T11:39:48.393093672Z
//   user.ltfs.mediaDataPartitionTotalCapacity    2842 (megabytes)
//   user.ltfs.mediaLoads                         -1 (not reported by this drive)
//   user.ltfs.mediaStorageAlert                  0x0000000000000000

#include "operations/VolumeDetails.h"

#include <QRegularExpression>
#include <QTimeZone>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace tapedesk {

namespace {

// LTFS counts its partition sizes in binary megabytes: 2842 of them are the
// "2.8G" df shows for the same volume.
constexpr qint64 kLtfsMegabyte = qint64(1024) * 1024;

// Plain characters, not a QStringList: the reader runs on a detached thread
// that a command line may outlive at exit, after a list would be destroyed.
constexpr const char *kAttributeNames[] = {
    "volumeName",
    "mamBarcode",
    "volumeUUID",
    "volumeFormatTime",
    "indexGeneration",
    "mediaDataPartitionTotalCapacity",
    "mediaDataPartitionAvailableSpace",
    "mediaLoads",
    "mediaStorageAlert",
};

std::optional<QString> text(const VolumeAttributes &a, const QString &name)
{
    // The barcode is blank-padded; a reader may also hand back a C string's NUL.
    const QString value = QString::fromUtf8(a.value(name)).remove(QChar(0)).trimmed();
    if (value.isEmpty() || value == QStringLiteral("-1"))
        return std::nullopt;
    return value;
}

// LTFS writes -1 for a counter the drive does not report.
std::optional<qint64> count(const VolumeAttributes &a, const QString &name)
{
    bool ok = false;
    const qint64 value = text(a, name).value_or(QString()).toLongLong(&ok);
    if (!ok || value < 0)
        return std::nullopt;
    return value;
}

std::optional<qint64> megabytes(const VolumeAttributes &a, const QString &name)
{
    const std::optional<qint64> mb = count(a, name);
    if (!mb || *mb > std::numeric_limits<qint64>::max() / kLtfsMegabyte)
        return std::nullopt;
    return *mb * kLtfsMegabyte;
}

// "0x0000000000000000"
std::optional<quint64> alertFlags(const VolumeAttributes &a)
{
    const QString value = text(a, QStringLiteral("mediaStorageAlert")).value_or(QString());
    if (!value.startsWith(QStringLiteral("0x"), Qt::CaseInsensitive))
        return std::nullopt;
    bool ok = false;
    const quint64 flags = value.mid(2).toULongLong(&ok, 16);
    return ok ? std::optional<quint64>(flags) : std::nullopt;
}

// "2026-11-23T11:39:48.393093672Z": nanoseconds, which Qt's ISO reader refuses.
std::optional<QDateTime> formatTime(const VolumeAttributes &a)
{
    static const QRegularExpression form(
        QStringLiteral(R"(^(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)(?:\.(\d{1,9}))?Z$)"));
    const QRegularExpressionMatch m =
        form.match(text(a, QStringLiteral("volumeFormatTime")).value_or(QString()));
    if (!m.hasMatch())
        return std::nullopt;
    QDateTime time = QDateTime::fromString(m.captured(1), Qt::ISODate);
    if (!time.isValid())
        return std::nullopt;
    time.setTimeZone(QTimeZone::utc());
    return time.addMSecs((m.captured(2) + QStringLiteral("000")).left(3).toInt());
}

// The TapeAlert flags an operator acts on, by number (SSC log page 2Eh).
const QHash<int, QString> &alertNames()
{
    static const QHash<int, QString> names{
        {1, QStringLiteral("read warning")},
        {2, QStringLiteral("write warning")},
        {3, QStringLiteral("hard error")},
        {4, QStringLiteral("media error: the tape may be damaged, copy its data off")},
        {5, QStringLiteral("read failure")},
        {6, QStringLiteral("write failure")},
        {7, QStringLiteral("media at end of life")},
        {8, QStringLiteral("media not data grade")},
        {9, QStringLiteral("write protected")},
        {11, QStringLiteral("cleaning cartridge loaded")},
        {12, QStringLiteral("unsupported format")},
        {13, QStringLiteral("recoverable cartridge mechanical failure")},
        {14, QStringLiteral("unrecoverable snapped tape")},
        {15, QStringLiteral("cartridge memory chip failure")},
        {16, QStringLiteral("forced eject")},
        {17, QStringLiteral("read-only format")},
        {18, QStringLiteral("tape directory corrupted on load")},
        {19, QStringLiteral("media nearing end of life")},
        {20, QStringLiteral("cleaning required now")},
        {21, QStringLiteral("periodic cleaning due")},
        {22, QStringLiteral("cleaning cartridge expired")},
        {23, QStringLiteral("invalid cleaning cartridge")},
        {30, QStringLiteral("drive hardware fault")},
        {31, QStringLiteral("drive hardware fault (B)")},
        {32, QStringLiteral("host interface fault")},
        {34, QStringLiteral("firmware download failed")},
        {38, QStringLiteral("predictive drive failure")},
        {39, QStringLiteral("drive diagnostics required")},
        {51, QStringLiteral("tape directory invalid at unload")},
        {52, QStringLiteral("tape system area write failure")},
        {53, QStringLiteral("tape system area read failure")},
        {54, QStringLiteral("no start of data")},
        {55, QStringLiteral("loading failure")},
        {56, QStringLiteral("unrecoverable unload failure")},
    };
    return names;
}

QString orNotReported(const std::optional<QString> &value)
{
    return value.value_or(QStringLiteral("not reported"));
}

template <typename T, typename F> QString shown(const std::optional<T> &value, F format)
{
    return value ? format(*value) : QStringLiteral("not reported");
}

} // namespace

VolumeDetails volumeDetailsFrom(const VolumeAttributes &attributes, const std::optional<FileSystemSize> &size)
{
    VolumeDetails d;
    d.volumeName = text(attributes, QStringLiteral("volumeName"));
    d.barcode = text(attributes, QStringLiteral("mamBarcode"));
    d.uuid = text(attributes, QStringLiteral("volumeUUID"));
    d.formatTime = formatTime(attributes);
    d.indexGeneration = count(attributes, QStringLiteral("indexGeneration"));
    d.mediaLoads = count(attributes, QStringLiteral("mediaLoads"));
    d.storageAlert = alertFlags(attributes);
    // The tape's own figures first; statvfs is what df would say of the mount.
    d.capacityBytes = megabytes(attributes, QStringLiteral("mediaDataPartitionTotalCapacity"));
    d.freeBytes = megabytes(attributes, QStringLiteral("mediaDataPartitionAvailableSpace"));
    if (size && size->totalBytes > 0) {
        if (!d.capacityBytes)
            d.capacityBytes = size->totalBytes;
        if (!d.freeBytes)
            d.freeBytes = size->freeBytes;
    }
    if (d.capacityBytes && d.freeBytes && *d.freeBytes <= *d.capacityBytes)
        d.usedBytes = *d.capacityBytes - *d.freeBytes;
    return d;
}

QStringList tapeAlertNames(quint64 flags)
{
    QStringList names;
    for (int flag = 1; flag <= 64; ++flag) {
        if ((flags >> (flag - 1)) & 1U)
            names << alertNames().value(flag, QStringLiteral("TapeAlert flag %1").arg(flag));
    }
    return names;
}

QString byteSize(qint64 bytes)
{
    const double value = static_cast<double>(bytes);
    if (value >= 1e12)
        return QStringLiteral("%1 TB").arg(value / 1e12, 0, 'f', 1);
    return QStringLiteral("%1 GB").arg(value / 1e9, 0, 'f', 1);
}

QList<std::pair<QString, QString>> volumeDetailRows(const VolumeDetails &d)
{
    const auto size = [](qint64 bytes) { return byteSize(bytes); };
    const auto number = [](qint64 n) { return QString::number(n); };
    const QString alerts = shown(d.storageAlert, [](quint64 flags) {
        const QString raw = QStringLiteral("0x%1").arg(flags, 16, 16, QLatin1Char('0'));
        const QStringList names = tapeAlertNames(flags);
        return (names.isEmpty() ? QStringLiteral("none") : names.join(QStringLiteral("; "))) +
               QStringLiteral(" (") + raw + QLatin1Char(')');
    });
    return {
        {QStringLiteral("Volume name"), orNotReported(d.volumeName)},
        {QStringLiteral("Barcode"), orNotReported(d.barcode)},
        {QStringLiteral("UUID"), orNotReported(d.uuid)},
        {QStringLiteral("Formatted"), shown(d.formatTime,
                                            [](const QDateTime &t) {
                                                return t.toLocalTime().toString(
                                                    QStringLiteral("yyyy-MM-dd HH:mm:ss t"));
                                            })},
        {QStringLiteral("Index generation"), shown(d.indexGeneration, number)},
        {QStringLiteral("Capacity"), shown(d.capacityBytes, size)},
        {QStringLiteral("Used"), shown(d.usedBytes, size)},
        {QStringLiteral("Free"), shown(d.freeBytes, size)},
        {QStringLiteral("Media loads"), shown(d.mediaLoads, number)},
        {QStringLiteral("Alerts"), alerts},
    };
}

VolumeRead readVolumeAttributes(const QString &mountPoint)
{
    VolumeRead read;
    // One descriptor for every read: one lookup of the mount point, and the
    // place where a hung file system holds the reader.
    const int fd = ::open(mountPoint.toLocal8Bit().constData(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        read.error = QString::fromLocal8Bit(std::strerror(errno));
        return read;
    }
    for (const char *name : kAttributeNames) {
        const QByteArray key = QByteArrayLiteral("user.ltfs.") + name;
        QByteArray value(256, Qt::Uninitialized);
        ssize_t n = ::fgetxattr(fd, key.constData(), value.data(), static_cast<size_t>(value.size()));
        if (n < 0 && errno == ERANGE) {
            n = ::fgetxattr(fd, key.constData(), nullptr, 0);
            if (n > 0) {
                value.resize(n);
                n = ::fgetxattr(fd, key.constData(), value.data(), static_cast<size_t>(value.size()));
            }
        }
        // ENODATA, ENOTSUP and the rest alike: the attribute is not reported.
        if (n >= 0)
            read.attributes.insert(QString::fromLatin1(name), value.left(n));
    }
    struct statvfs vfs
    {
    };
    if (::fstatvfs(fd, &vfs) == 0) {
        const auto block = static_cast<qint64>(vfs.f_frsize ? vfs.f_frsize : vfs.f_bsize);
        read.size = FileSystemSize{static_cast<qint64>(vfs.f_blocks) * block,
                                   static_cast<qint64>(vfs.f_bavail) * block};
    }
    ::close(fd);
    return read;
}

} // namespace tapedesk

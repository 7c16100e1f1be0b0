#pragma once

#include "tools/Synchronized.h"

#include <QList>
#include <QString>
#include <memory>

namespace tapedesk {

// What is known of one tape drive. A plain value: copy it to read a consistent
// view of all fields at once.
struct DriveRecord
{
    QString id;           // device id as itdt prints it: "tape0", or a path such as "/dev/IBMtape3"
    QString info1;        // model for display ("Corvel LTO8 HH")
    QString info2;        // serial token as printed ("S/N:1234567890")
    QString info3;        // firmware level
    QString info4;        // spare
    QString name;         // short device name; the mount point is /tmp/ltfs/mnt/<name>
    QString label;        // volume name of the mounted tape
    QString textData;     // spare
    QString tapeSerial;   // the serial a format writes on the cartridge (mkltfs --tape-serial)
    QString serialNumber; // key of the remembered drive state
    QString barcode;      // the cartridge's barcode, read back by the attribute read at mount
    bool mounted = false;
    // Listed in the mount table while no ltfs process serves it: the daemon
    // died and the volume is gone until it is unmounted (set by the scan).
    bool ltfsStopped = false;

    bool operator==(const DriveRecord &) const = default;
};

// The shared drive object: the table, the selection and the workflows hold the
// same one. Background work updates it while the window paints it, so every
// access goes through one lock.
class Drive
{
public:
    Drive() = default;
    explicit Drive(DriveRecord record) : m_record(std::move(record)) {}

    DriveRecord record() const { return m_record.get(); }
    template <class F> void update(F &&change)
    {
        m_record.with([&](DriveRecord &r) { change(r); });
    }

    QString id() const { return field(&DriveRecord::id); }
    QString name() const { return field(&DriveRecord::name); }
    QString serialNumber() const { return field(&DriveRecord::serialNumber); }
    bool mounted() const
    {
        return m_record.with([](const DriveRecord &r) { return r.mounted; });
    }
    void setMounted(bool mounted)
    {
        update([&](DriveRecord &r) { r.mounted = mounted; });
    }

private:
    QString field(QString DriveRecord::*member) const
    {
        return m_record.with([&](const DriveRecord &r) { return r.*member; });
    }

    Synchronized<DriveRecord> m_record;
};

using DrivePtr = std::shared_ptr<Drive>;

inline DrivePtr makeDrive(DriveRecord record = {})
{
    return std::make_shared<Drive>(std::move(record));
}

// The device argument for ltfs (devname=) and mkltfs (--device=): a device
// path is handed over whole, an itdt id such as "tape0" by its short name.
QString ltfsDevice(const DriveRecord &drive);

// Whether `name` can safely become the last component of a mount point under
// /tmp/ltfs/mnt/: not empty, not "." or "..", no "/" and no control character.
bool isSafeMountName(const QString &name);

inline const QString kMountRoot = QStringLiteral("/tmp/ltfs/mnt/");

// The process-wide ordered list of drives; row N of the drive table shows
// element N of the snapshot the table was last reloaded with.
class DriveList
{
public:
    void clear();
    void append(DrivePtr drive);
    QList<DrivePtr> snapshot() const;
    qsizetype size() const;

private:
    Synchronized<QList<DrivePtr>> m_drives;
};

extern DriveList driveList;

} // namespace tapedesk

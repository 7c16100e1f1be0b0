#include "drives/DriveStateStore.h"

#include "tools/SettingsStore.h"

#include <algorithm>
#include <mutex>

namespace tapedesk {

Synchronized<QStringList> mountedDrives;

namespace DriveStateStore {

namespace {
std::mutex &storeLock()
{
    static std::mutex m;
    return m;
}

enum Suffix { Name, Id, Info1, Info2, Info3, Address, BarCode };

// What the scan says of the drive now wins, an empty field too; the record
// adds what a scan never reads: the cartridge's barcodes, read at the mount.
void rememberedOn(Drive &listed, const DriveRecord &remembered)
{
    listed.update([&](DriveRecord &r) {
        r.barcode = remembered.barcode;
        r.tapeSerial = remembered.tapeSerial;
        r.mounted = true;
    });
}
} // namespace

QStringList keySuffixes()
{
    return {QStringLiteral("_name"), QStringLiteral("_id"), QStringLiteral("_i1"), QStringLiteral("_i2"),
            QStringLiteral("_i3"),   QStringLiteral("_a"),  QStringLiteral("_b")};
}

void saveDriveInfo(const Drive &drive)
{
    std::lock_guard lock(storeLock());
    const DriveRecord d = drive.record();
    const QStringList all = mountedDrives.with([&](QStringList &l) {
        l.append(d.serialNumber);
        return l;
    });
    // The list first, then the seven values, in one write.
    QList<QPair<QString, QVariant>> values{{kMountedDrivesKey, all}};
    const QStringList suffixes = keySuffixes();
    const QString fields[] = {d.name, d.id, d.info1, d.info2, d.info3, d.barcode, d.tapeSerial};
    for (int i = 0; i < suffixes.size(); ++i)
        values.append({d.serialNumber + suffixes.at(i), fields[i]});
    SettingsStore::setValues(values);
}

DrivePtr loadDriveInfo(const QString &serialNumber)
{
    const QStringList suffixes = keySuffixes();
    QStringList values;
    for (const QString &suffix : suffixes) {
        std::optional<QString> v = SettingsStore::text(serialNumber + suffix);
        if (!v)
            return nullptr;
        values << *v;
    }
    DriveRecord d;
    d.name = values.at(Name);
    d.id = values.at(Id);
    d.info1 = values.at(Info1);
    d.info2 = values.at(Info2);
    d.info3 = values.at(Info3);
    d.barcode = values.at(Address);
    d.tapeSerial = values.at(BarCode);
    d.serialNumber = serialNumber;
    return makeDrive(d);
}

void loadMountedDrives(DriveList &target)
{
    std::lock_guard lock(storeLock());
    const QStringList serials = SettingsStore::textList(kMountedDrivesKey).value_or(QStringList{});
    mountedDrives.set(serials);
    QList<DrivePtr> listed = target.snapshot();
    for (const QString &serial : serials) {
        DrivePtr drive = loadDriveInfo(serial);
        if (!drive)
            continue;
        // The serial number is the drive's own, where the id is only where
        // this boot found it. A drive both scanned and remembered, or
        // remembered twice (every mount adds it to the list), is one card.
        const auto same = std::find_if(listed.cbegin(), listed.cend(), [&](const DrivePtr &d) {
            return !serial.isEmpty() && d->serialNumber() == serial;
        });
        if (same != listed.cend()) {
            rememberedOn(**same, drive->record());
            continue;
        }
        drive->setMounted(true);
        target.append(drive);
        listed.append(drive);
    }
}

void resetMountedDrives()
{
    std::lock_guard lock(storeLock());
    QStringList keys{kMountedDrivesKey};
    const QStringList suffixes = keySuffixes();
    for (const QString &serial : mountedDrives.get()) {
        for (const QString &suffix : suffixes)
            keys << serial + suffix;
    }
    SettingsStore::removeKeys(keys);
}

void removeMountedDrive(const QString &serialNumber)
{
    std::lock_guard lock(storeLock());
    std::optional<QStringList> changed =
        mountedDrives.with([&](QStringList &l) -> std::optional<QStringList> {
            const qsizetype at = l.indexOf(serialNumber);
            if (at < 0)
                return std::nullopt;
            l.removeAt(at);
            return l;
        });
    if (changed)
        SettingsStore::setTextList(kMountedDrivesKey, *changed);
}

} // namespace DriveStateStore
} // namespace tapedesk

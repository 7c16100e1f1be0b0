#pragma once

#include <QString>

namespace tapedesk {

// One drive, one operation, across processes: the window and every
// tapedesk-cli take the drive's lock for the length of an operation. It is an
// flock on a file in $XDG_RUNTIME_DIR/tapedesk (the per-user state folder when
// that is unset), so it goes with the process that holds it, however that
// process ends.
class DriveLock
{
public:
    DriveLock() = default;
    ~DriveLock();
    DriveLock(const DriveLock &) = delete;
    DriveLock &operator=(const DriveLock &) = delete;

    // Takes the lock of the drive `key` (its serial number, or its id) for
    // `operation`. On refusal returns false and names the holder in `holder`
    // ("process 1234 (Mount)"); an unusable lock folder is a refusal too,
    // since nobody could then tell two operations apart.
    bool acquire(const QString &key, const QString &operation, QString &holder);
    void release();
    bool held() const { return m_fd >= 0; }

    static QString folder();

private:
    int m_fd = -1;
};

} // namespace tapedesk

#pragma once

#include "drives/Drive.h"
#include "tools/Synchronized.h"

#include <QObject>
#include <QString>
#include <atomic>
#include <memory>

namespace tapedesk {

class Face;

// Reads the selected drive's mounted volume off the GUI thread and hands it
// to the face; a read that has not answered after the time limit is reported
// as timed out, and no second read of it starts while it hangs.
class VolumeDetailsReader
{
public:
    VolumeDetailsReader(QObject &home, Face &face, const Synchronized<DrivePtr> &selection);
    VolumeDetailsReader(const VolumeDetailsReader &) = delete;
    VolumeDetailsReader &operator=(const VolumeDetailsReader &) = delete;

    void refresh();
    void setTimeoutMs(int ms) { m_timeoutMs = ms; }

private:
    QObject &m_home;
    Face &m_face;
    const Synchronized<DrivePtr> &m_selection;
    int m_timeoutMs = 5000;
    // The read a face is waiting for: a later refresh or the time-out makes
    // an older answer stale. The guard tells a detached reader's late answer
    // whether the reader is still there.
    quint64 m_read = 0;
    QString m_readPoint; // of the reader started last
    bool m_timedOut = false;
    std::shared_ptr<std::atomic<bool>> m_hangs = std::make_shared<std::atomic<bool>>(false);
    std::shared_ptr<int> m_guard = std::make_shared<int>(0);
};

} // namespace tapedesk

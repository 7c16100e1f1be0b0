#pragma once

#include "operations/Face.h"

#include <QHash>
#include <QStringList>

namespace tapedesk {

// The terminal as a face: the pane's lines go to standard output as they
// arrive (or are only kept, for one JSON object at the end), a tool's live
// output to standard error when asked for, and each action's last status is
// kept for the verdict.
class CliFace final : public Face
{
public:
    bool quiet = false;   // keep nothing and print nothing (the scan that finds the drive)
    bool printing = true; // false with --json: lines are only kept
    bool liveToStderr = false;

    QStringList transcript;
    QList<DrivePtr> drives;

    // The action's last status, or -1 when it got none.
    int statusOf(Action action) const { return m_status.value(action, -1); }

    void clearPane() override {}
    void appendToPane(const QString &text) override;
    void setStatus(Action action, int status) override;
    void setMountCaption(const QString &) override {}
    void progressStarted() override {}
    void progressEnded() override {}
    void drivesChanged(const QList<DrivePtr> &list, const DrivePtr &) override { drives = list; }
    void toolOutput(OutputStream stream, QByteArrayView chunk) override;
    // No subcommand shows a volume's details yet.
    void volumeDetailsChanged(const VolumeReport &) override {}

private:
    QHash<Action, int> m_status;
};

} // namespace tapedesk

#pragma once

#include "operations/Face.h"

#include <QStringList>
#include <optional>

namespace tapedesk {

// The terminal as a face: the pane's lines go to standard output as they
// arrive (or are only kept, for one JSON object at the end), a tool's live
// output to standard error when asked for, and each operation's verdict is
// kept for the exit status.
class CliFace final : public Face
{
public:
    bool quiet = false;   // keep nothing and print nothing (the scan that finds the drive)
    bool printing = true; // false with --json: lines are only kept
    bool liveToStderr = false;

    QStringList transcript;
    QList<DrivePtr> drives;

    // The verdict of the last operation that ended.
    std::optional<Verdict> verdict;

    void clearPane() override {}
    void appendToPane(const QString &text) override;
    // The terminal has no buttons: the verdict says it all.
    void setStatus(Action, int) override {}
    void setMountCaption(const QString &) override {}
    void progressStarted() override {}
    void progressEnded() override {}
    void drivesChanged(const QList<DrivePtr> &list, const DrivePtr &) override { drives = list; }
    void toolOutput(OutputStream stream, QByteArrayView chunk) override;
    // No subcommand shows a volume's details yet, so none is read: a reader
    // still waiting on a slow FUSE volume would outlive the command.
    void volumeDetailsChanged(const VolumeReport &) override {}
    bool showsVolumeDetails() const override { return false; }
    void operationEnded(Action, const Verdict &v) override { verdict = v; }
};

} // namespace tapedesk

#pragma once

#include "drives/Drive.h"
#include "operations/Verdict.h"
#include "operations/VolumeDetails.h"
#include "tools/ProcessRunner.h"

#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringList>

namespace tapedesk {

// The operator's actions, each with its own status image; the clear button
// has one too.
enum class Action {
    Scan,
    Mount,
    Format,
    Test,
    HostValidation,
    RetrieveLog,
    Upgrade,
    ClearMountedDrives,
    // ltfsck on a volume LTFS left unclosed; its status shows on Mount.
    Recover,
};

// Everything the operations show, as one front end (the main window, a
// command line, a test) presents it. The engine calls a face only on the
// thread it lives on, in the order the operations made the changes; the
// questions go through the DialogProvider the front end installs
// (support/Dialogs.h).
class Face
{
public:
    virtual ~Face() = default;

    // The output pane: emptied, or given more text. Each message arrives as
    // a newline followed by its text; a burst of messages comes in one call.
    virtual void clearPane() = 0;
    virtual void appendToPane(const QString &text) = 0;
    // Status 0 "Complete Button", 1 "Fail Button", 2 "In Process Button",
    // 3 "Ready Button" (ui/StatusImages).
    virtual void setStatus(Action action, int status) = 0;
    // "MOUNT" or "UNMOUNT": what the Mount action does next.
    virtual void setMountCaption(const QString &caption) = 0;
    // An operation holds the actions and the drive choice until it ends.
    virtual void progressStarted() = 0;
    virtual void progressEnded() = 0;
    // The drive list was rebuilt or a drive's state changed; `selected` is
    // the drive the actions act on, when it is among `drives`.
    virtual void drivesChanged(const QList<DrivePtr> &drives, const DrivePtr &selected) = 0;
    // What is known of the selected drive's volume: being read, read, not
    // mounted, or why it could not be read.
    virtual void volumeDetailsChanged(const VolumeReport &report) = 0;
    // False for a face that shows no volume details: none is read for it.
    virtual bool showsVolumeDetails() const { return true; }
    // With live output on (TapeEngine::setLiveOutput): a tool is about to
    // start, as it is run, and then its output as it arrives on each stream,
    // before the run is judged.
    virtual void toolStarted(const QString &program, const QStringList &arguments)
    {
        (void)program;
        (void)arguments;
    }
    virtual void toolOutput(OutputStream stream, QByteArrayView chunk)
    {
        (void)stream;
        (void)chunk;
    }
    // The operation `action` began is over, with its verdict (once per
    // operation, after everything it showed).
    virtual void operationEnded(Action action, const Verdict &verdict)
    {
        (void)action;
        (void)verdict;
    }
    // A tool runs on the GUI thread's turn (`held` true) or no longer (false;
    // the calls nest). A face with controls answers true when it keeps every
    // user input but its Stop action from them meanwhile; the engine's wait
    // then lets input through, else it holds all of it back itself.
    virtual bool holdInputButStop(bool held)
    {
        (void)held;
        return false;
    }
};

} // namespace tapedesk

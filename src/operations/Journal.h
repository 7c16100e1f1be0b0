#pragma once

#include "tools/ProcessRunner.h"

#include <QByteArray>
#include <QDateTime>
#include <QFile>
#include <QString>
#include <QStringList>
#include <mutex>

namespace tapedesk {

// The operations' record for support: one file a day under the XDG state
// folder, each operation's start, its tools (command line, output, exit),
// its pane lines and its verdict, appended as they happen. Every call writes
// whole lines in one write(2), so a killed program leaves every line it had
// written intact. The tools' output arrives on the threads that run them;
// every call takes the journal's lock.
//
// A record looks like this:
//   ==== 2025-03-01 10:00:00 start: Formatting tape44
//   tool: /opt/ltfs/bin/mkltfs --device=44 --volume-name=BACKUP
//   out:  LTFS15000I Starting mkltfs ...
//   err:  LTFS15023I Formatting failed.
//   exit: status 16
//   pane: Tape Format Failed
//   ==== 2025-03-01 10:02:13 end: Formatting tape44 - Failed after 02:13
class Journal
{
public:
    // Past this size the oldest days go, all but the day being written.
    static constexpr qint64 kFolderLimitBytes = 100LL * 1024 * 1024;

    // $XDG_STATE_HOME/TapeDesk/journal, ~/.local/state/TapeDesk/journal when
    // the variable is unset or not absolute (as the XDG rules say).
    static QString folder();

    // Opens the record of an operation in the file of the day it starts.
    void begin(const QString &title, const QDateTime &at);
    void toolStarted(const QString &program, const QStringList &arguments);
    void toolOutput(OutputStream stream, QByteArrayView chunk);
    // `status`: the exit status, -1 when unknown; `code`: the code the tool
    // printed, empty when none.
    void toolEnded(int status, const QString &code);
    void paneText(const QString &text);
    void end(const QString &title, const QString &verdict, const QDateTime &at, qint64 elapsedMs);

    // The open or the last record as written, for the operator to keep.
    QByteArray record() const;
    // The file the record is in; empty before the first record.
    QString recordFile() const;

private:
    void writeLocked(const QByteArray &lines);
    void flushPartialsLocked();
    void pruneLocked() const;

    mutable std::mutex m_mutex;
    QFile m_file;
    qint64 m_recordStart = -1;
    qint64 m_recordEnd = -1; // -1 while the record is open
    bool m_open = false;
    // An output line a chunk ended in the middle of, per stream.
    QByteArray m_partial[2];
};

// "02:13", or "1:02:13" from an hour on.
QString elapsedText(qint64 ms);

} // namespace tapedesk

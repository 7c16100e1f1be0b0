#pragma once

#include "tools/ProcessRunner.h"

#include <QList>
#include <QPlainTextEdit>
#include <QStringDecoder>
#include <QStringList>
#include <QTimer>

namespace tapedesk {

// The running tool as it runs: its command line, then its standard output and
// standard error (in its own colour) as they arrive. Keeps the last kMaxLines
// lines and cuts a line longer than the output pane allows as the pane does.
//
// A tool may print far faster than a text view lays out. What arrives is
// gathered and shown at most every kFlushMs, kSliceLines lines at a time, and
// lines that would scroll out of the kept ones before they are shown are
// dropped unshown, so the window stays responsive and the memory bounded
// whatever the tool prints.
class LiveOutputView : public QPlainTextEdit
{
public:
    static constexpr int kMaxLines = 10000;
    static constexpr int kFlushMs = 25;
    static constexpr int kSliceLines = 400;

    explicit LiveOutputView(QWidget *parent = nullptr);

    void showToolStarted(const QString &program, const QStringList &arguments);
    void showOutput(OutputStream stream, QByteArrayView chunk);
    // Empties the view and what waits to be shown.
    void clearOutput();
    // Lines waiting to be shown.
    qsizetype pendingLines() const { return m_pendingLines; }

private:
    enum class Kind { Command, Out, Err };
    struct Piece
    {
        Kind kind;
        QString text;
    };
    void add(Kind kind, const QString &text);
    void dropUnseen();
    void flush();

    QList<Piece> m_pending;
    qsizetype m_pendingLines = 0;
    // The length of the last line so far, shown or pending, for the cut.
    qsizetype m_column = 0;
    // Per stream, so a character split between two chunks stays whole.
    QStringDecoder m_decoders[2];
    QTimer m_flushTimer;
};

} // namespace tapedesk

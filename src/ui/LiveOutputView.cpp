#include "ui/LiveOutputView.h"

#include "operations/PaneText.h"

#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>

namespace tapedesk {

namespace {

QTextCharFormat formatOf(int kind)
{
    QTextCharFormat format;
    switch (kind) {
    case 0: // the command line
        format.setForeground(QColor(0x7f, 0xc8, 0xff));
        format.setFontWeight(QFont::Bold);
        break;
    case 1:
        format.setForeground(QColor(0xe6, 0xe6, 0xe6));
        break;
    default: // standard error
        format.setForeground(QColor(0xff, 0x7a, 0x6b));
        break;
    }
    return format;
}

} // namespace

LiveOutputView::LiveOutputView(QWidget *parent) : QPlainTextEdit(parent)
{
    setObjectName(QStringLiteral("liveOutputView"));
    setAccessibleName(QStringLiteral("Tool output"));
    setReadOnly(true);
    setUndoRedoEnabled(false);
    setLineWrapMode(QPlainTextEdit::WidgetWidth);
    setMaximumBlockCount(kMaxLines);
    for (QStringDecoder &decoder : m_decoders)
        decoder = QStringDecoder(QStringDecoder::Utf8);
    m_flushTimer.setSingleShot(true);
    m_flushTimer.setInterval(kFlushMs);
    connect(&m_flushTimer, &QTimer::timeout, this, [this] { flush(); });
}

void LiveOutputView::showToolStarted(const QString &program, const QStringList &arguments)
{
    QString line = m_column > 0 ? QStringLiteral("\n$ ") : QStringLiteral("$ ");
    line += program;
    for (const QString &argument : arguments)
        line += QLatin1Char(' ') + argument;
    add(Kind::Command, line + QLatin1Char('\n'));
}

void LiveOutputView::showOutput(OutputStream stream, QByteArrayView chunk)
{
    const int i = stream == OutputStream::Stderr ? 1 : 0;
    // Of a chunk with more lines than the view keeps, and of all that came
    // before it, only its last kMaxLines lines could ever be seen; the rest is
    // not worth decoding.
    if (chunk.size() > qsizetype{kMaxLines} * 8) {
        qsizetype at = chunk.size();
        int lines = 0;
        while (lines <= kMaxLines && at > 0 && (at = chunk.first(at).lastIndexOf('\n')) >= 0)
            ++lines;
        if (lines > kMaxLines && at >= 0) {
            chunk = chunk.sliced(at + 1);
            for (QStringDecoder &decoder : m_decoders)
                decoder.resetState();
            m_pending.clear();
            m_pendingLines = 0;
            m_column = 0;
            clear();
        }
    }
    add(i == 1 ? Kind::Err : Kind::Out, m_decoders[i].decode(chunk));
}

void LiveOutputView::clearOutput()
{
    m_pending.clear();
    m_pendingLines = 0;
    m_column = 0;
    m_flushTimer.stop();
    clear();
}

void LiveOutputView::add(Kind kind, const QString &text)
{
    if (text.isEmpty())
        return;
    // The pane's cut, carried over from the chunk before: a line of more than
    // kLongestPaneLine characters goes on in the next line.
    QString cut;
    cut.reserve(text.size() + text.size() / kLongestPaneLine + 1);
    for (qsizetype from = 0; from < text.size();) {
        const qsizetype newline = text.indexOf(QLatin1Char('\n'), from);
        const qsizetype end = newline < 0 ? text.size() : newline;
        while (end - from > kLongestPaneLine - m_column) {
            qsizetype take = kLongestPaneLine - m_column;
            // The high half of a pair goes to the next line with its low half.
            if (take > 0 && text.at(from + take - 1).isHighSurrogate())
                --take;
            cut += QStringView(text).sliced(from, take);
            cut += QLatin1Char('\n');
            ++m_pendingLines;
            m_column = 0;
            from += take;
        }
        cut += QStringView(text).sliced(from, end - from);
        m_column += end - from;
        from = end;
        if (newline >= 0) {
            cut += QLatin1Char('\n');
            ++m_pendingLines;
            m_column = 0;
            from = newline + 1;
        }
    }
    if (!m_pending.isEmpty() && m_pending.last().kind == kind)
        m_pending.last().text += cut;
    else
        m_pending.append(Piece{kind, cut});
    // Twice the kept lines before dropping, so a flood of small chunks does
    // not walk the kept lines again for each one.
    if (m_pendingLines > qsizetype{2} * kMaxLines)
        dropUnseen();
    if (!m_flushTimer.isActive())
        m_flushTimer.start();
}

void LiveOutputView::dropUnseen()
{
    // Everything shown, and all but the last kMaxLines lines waiting, would
    // scroll out of the view before anyone could read it.
    qsizetype kept = 0;
    for (qsizetype p = m_pending.size() - 1; p >= 0; --p) {
        QString &text = m_pending[p].text;
        for (qsizetype at = text.size() - 1; at >= 0; --at) {
            if (text.at(at) != QLatin1Char('\n') || ++kept <= kMaxLines)
                continue;
            text.remove(0, at + 1);
            m_pending.remove(0, p);
            m_pendingLines = kMaxLines;
            clear();
            return;
        }
    }
}

void LiveOutputView::flush()
{
    if (m_pending.isEmpty())
        return;
    QScrollBar *bar = verticalScrollBar();
    const bool following = bar->value() >= bar->maximum() - 2;
    QTextCursor cursor(document());
    cursor.movePosition(QTextCursor::End);
    cursor.beginEditBlock();
    qsizetype lines = 0;
    while (!m_pending.isEmpty() && lines < kSliceLines) {
        Piece &piece = m_pending.first();
        qsizetype end = 0;
        while (end < piece.text.size() && lines < kSliceLines) {
            if (piece.text.at(end++) == QLatin1Char('\n'))
                ++lines;
        }
        cursor.insertText(piece.text.first(end), formatOf(static_cast<int>(piece.kind)));
        if (end == piece.text.size())
            m_pending.removeFirst();
        else
            piece.text.remove(0, end);
    }
    cursor.endEditBlock();
    m_pendingLines -= lines;
    if (following)
        bar->setValue(bar->maximum());
    if (!m_pending.isEmpty())
        m_flushTimer.start();
}

} // namespace tapedesk

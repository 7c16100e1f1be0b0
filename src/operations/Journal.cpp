#include "operations/Journal.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>

namespace tapedesk {

namespace {

// An output line longer than this goes to the journal in pieces, so a tool
// that prints without line ends cannot grow the held part without bound.
constexpr qsizetype kLongestHeldLine = qsizetype{64} * 1024;

QByteArray stamp(const QDateTime &at)
{
    return at.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")).toUtf8();
}

// Each line of `text` after `tag`; a record's lines never span two lines of
// the file, so a reader can tell every line's kind from its start.
void appendTagged(QByteArray &out, const char *tag, QByteArrayView text)
{
    while (!text.isEmpty()) {
        const qsizetype end = text.indexOf('\n');
        out += tag;
        out += text.first(end < 0 ? text.size() : end);
        out += '\n';
        if (end < 0)
            break;
        text = text.sliced(end + 1);
    }
}

} // namespace

QString elapsedText(qint64 ms)
{
    const qint64 s = std::max<qint64>(ms, 0) / 1000;
    const auto two = [](qint64 n) { return QStringLiteral("%1").arg(n, 2, 10, QLatin1Char('0')); };
    if (s >= 3600)
        return QString::number(s / 3600) + QLatin1Char(':') + two(s / 60 % 60) + QLatin1Char(':') +
               two(s % 60);
    return two(s / 60) + QLatin1Char(':') + two(s % 60);
}

QString Journal::folder()
{
    QString state = qEnvironmentVariable("XDG_STATE_HOME");
    if (state.isEmpty() || QDir::isRelativePath(state))
        state = QDir::homePath() + QStringLiteral("/.local/state");
    return state + QStringLiteral("/TapeDesk/journal");
}

void Journal::begin(const QString &title, const QDateTime &at)
{
    const std::lock_guard lock(m_mutex);
    const QString path =
        folder() + QLatin1Char('/') + at.toString(QStringLiteral("yyyy-MM-dd")) + QStringLiteral(".log");
    if (m_file.fileName() != path || !m_file.isOpen()) {
        m_file.close();
        m_file.setFileName(path);
        QDir().mkpath(folder());
        // Unbuffered: each write below is one write(2), on disk (in the
        // kernel's hands) as soon as it returns.
        if (!m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
            m_file.setFileName(QString());
    }
    pruneLocked();
    m_partial[0].clear();
    m_partial[1].clear();
    m_recordStart = m_file.isOpen() ? m_file.size() : -1;
    m_recordEnd = -1;
    m_open = true;
    writeLocked("==== " + stamp(at) + " start: " + title.toUtf8() + '\n');
}

void Journal::toolStarted(const QString &program, const QStringList &arguments)
{
    const std::lock_guard lock(m_mutex);
    QByteArray line = "tool: " + program.toUtf8();
    for (const QString &argument : arguments)
        line += ' ' + argument.toUtf8();
    writeLocked(line + '\n');
}

void Journal::toolOutput(OutputStream stream, QByteArrayView chunk)
{
    const std::lock_guard lock(m_mutex);
    if (!m_open)
        return;
    QByteArray &partial = m_partial[stream == OutputStream::Stderr ? 1 : 0];
    const char *tag = stream == OutputStream::Stderr ? "err:  " : "out:  ";
    const qsizetype lastEnd = chunk.lastIndexOf('\n');
    QByteArray lines;
    if (lastEnd >= 0) {
        partial += chunk.first(lastEnd);
        appendTagged(lines, tag, partial);
        partial = chunk.sliced(lastEnd + 1).toByteArray();
    } else {
        partial += chunk;
    }
    if (partial.size() > kLongestHeldLine) {
        appendTagged(lines, tag, partial);
        partial.clear();
    }
    writeLocked(lines);
}

void Journal::toolEnded(int status, const QString &code)
{
    const std::lock_guard lock(m_mutex);
    flushPartialsLocked();
    QByteArray line = "exit: status " + (status >= 0 ? QByteArray::number(status) : QByteArray("unknown"));
    if (!code.isEmpty())
        line += ", code " + code.toUtf8();
    writeLocked(line + '\n');
}

void Journal::paneText(const QString &text)
{
    const std::lock_guard lock(m_mutex);
    QByteArray lines;
    appendTagged(lines, "pane: ", text.toUtf8());
    writeLocked(lines);
}

void Journal::end(const QString &title, const QString &verdict, const QDateTime &at, qint64 elapsedMs)
{
    const std::lock_guard lock(m_mutex);
    flushPartialsLocked();
    writeLocked("==== " + stamp(at) + " end: " + title.toUtf8() + " - " + verdict.toUtf8() + " after " +
                elapsedText(elapsedMs).toUtf8() + '\n');
    m_open = false;
    m_recordEnd = m_file.isOpen() ? m_file.size() : -1;
}

QByteArray Journal::record() const
{
    const std::lock_guard lock(m_mutex);
    if (m_recordStart < 0 || m_file.fileName().isEmpty())
        return {};
    QFile file(m_file.fileName());
    if (!file.open(QIODevice::ReadOnly) || !file.seek(m_recordStart))
        return {};
    return m_recordEnd < 0 ? file.readAll() : file.read(m_recordEnd - m_recordStart);
}

QString Journal::recordFile() const
{
    const std::lock_guard lock(m_mutex);
    return m_file.fileName();
}

void Journal::writeLocked(const QByteArray &lines)
{
    if (!m_open || lines.isEmpty() || !m_file.isOpen())
        return;
    m_file.write(lines);
}

void Journal::flushPartialsLocked()
{
    QByteArray lines;
    for (int i = 0; i < 2; ++i) {
        if (!m_partial[i].isEmpty())
            appendTagged(lines, i == 0 ? "out:  " : "err:  ", m_partial[i]);
        m_partial[i].clear();
    }
    writeLocked(lines);
}

void Journal::pruneLocked() const
{
    // The day files' names sort by date, oldest first.
    QFileInfoList days = QDir(folder()).entryInfoList(
        {QStringLiteral("[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9].log")}, QDir::Files, QDir::Name);
    qint64 total = 0;
    for (const QFileInfo &day : std::as_const(days))
        total += day.size();
    for (const QFileInfo &day : std::as_const(days)) {
        if (total <= kFolderLimitBytes)
            break;
        if (day.absoluteFilePath() == QFileInfo(m_file.fileName()).absoluteFilePath())
            continue;
        if (QFile::remove(day.absoluteFilePath()))
            total -= day.size();
    }
}

} // namespace tapedesk

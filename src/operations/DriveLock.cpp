#include "operations/DriveLock.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace tapedesk {

DriveLock::~DriveLock()
{
    release();
}

QString DriveLock::folder()
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty())
        return runtime + QStringLiteral("/tapedesk");
    QString state = qEnvironmentVariable("XDG_STATE_HOME");
    if (state.isEmpty())
        state = QDir::homePath() + QStringLiteral("/.local/state");
    return state + QStringLiteral("/tapedesk");
}

bool DriveLock::acquire(const QString &key, const QString &operation, QString &holder)
{
    release();
    const QString dir = folder();
    // A drive's key becomes a file name: nothing in it may leave the folder.
    QString safe = key;
    safe.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9._-]")), QStringLiteral("_"));
    const QString path = dir + QStringLiteral("/drive-") + safe + QStringLiteral(".lock");
    if (!QDir().mkpath(dir)) {
        holder = QStringLiteral("the lock folder %1 cannot be created").arg(dir);
        return false;
    }
    const QByteArray name = QFile::encodeName(path);
    const int fd = ::open(name.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        holder = QStringLiteral("the lock file %1 cannot be opened (%2)")
                     .arg(path, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        QFile file(path);
        const QString who =
            file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed() : QString();
        holder = who.isEmpty() ? QStringLiteral("another process") : who;
        ::close(fd);
        return false;
    }
    const QByteArray note = QStringLiteral("process %1 (%2)\n").arg(::getpid()).arg(operation).toUtf8();
    if (::ftruncate(fd, 0) != 0 || ::write(fd, note.constData(), static_cast<size_t>(note.size())) < 0) {
        // The lock holds without the note; a refused process then names no holder.
    }
    m_fd = fd;
    return true;
}

void DriveLock::release()
{
    if (m_fd < 0)
        return;
    // Emptied first: a stale note must not name a process that let go.
    if (::ftruncate(m_fd, 0) != 0) {
        // Nothing to do: the lock itself goes with the close.
    }
    ::close(m_fd);
    m_fd = -1;
}

} // namespace tapedesk

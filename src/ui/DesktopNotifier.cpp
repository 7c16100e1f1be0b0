#include "ui/DesktopNotifier.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>
#include <QStringList>
#include <QVariantMap>

namespace tapedesk {

namespace {
const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
} // namespace

DesktopNotifier::DesktopNotifier(QObject *parent) : QObject(parent) {}

void DesktopNotifier::setConnection(const QDBusConnection &bus)
{
    m_bus = bus;
    m_listening = false;
}

QDBusConnection &DesktopNotifier::bus()
{
    if (!m_bus)
        m_bus = QDBusConnection::sessionBus();
    return *m_bus;
}

void DesktopNotifier::notify(const QString &summary, const QString &body)
{
    QDBusConnection &connection = bus();
    if (!connection.isConnected())
        return;
    if (!m_listening) {
        // Subscribed by name, so a service that starts later is heard too.
        m_listening = connection.connect(kService, kPath, kService, QStringLiteral("ActionInvoked"), this,
                                         SLOT(actionInvoked(uint, QString)));
    }
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("Notify"));
    // "default" is the action of a click on the notification itself. The
    // desktop entry is the installed menu entry's name, which main() sets.
    call << QStringLiteral("TapeDesk") << 0U << QStringLiteral("media-tape") << summary << body
         << QStringList{QStringLiteral("default"), QStringLiteral("Show TapeDesk")}
         << QVariantMap{{QStringLiteral("desktop-entry"), QGuiApplication::desktopFileName()}} << -1;
    auto *watcher = new QDBusPendingCallWatcher(connection.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *w) {
        const QDBusPendingReply<uint> reply = *w;
        if (reply.isValid())
            m_sent.insert(reply.value());
        w->deleteLater();
    });
}

void DesktopNotifier::actionInvoked(uint id, const QString &key)
{
    if (key == QStringLiteral("default") && m_sent.contains(id))
        Q_EMIT activated();
}

} // namespace tapedesk

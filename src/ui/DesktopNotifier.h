#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QSet>
#include <QString>
#include <optional>

namespace tapedesk {

// A desktop notification through the desktop's notification service
// (org.freedesktop.Notifications on the session bus). Sending never waits
// for the service and never fails loudly: with no bus or no service the
// notification is simply not shown.
class DesktopNotifier : public QObject
{
    Q_OBJECT

public:
    explicit DesktopNotifier(QObject *parent = nullptr);

    // The bus to send on; the session bus, opened at the first notification,
    // when none was given.
    void setConnection(const QDBusConnection &bus);
    void notify(const QString &summary, const QString &body);

Q_SIGNALS:
    // The operator clicked one of the notifications sent from here.
    void activated();

private Q_SLOTS:
    void actionInvoked(uint id, const QString &key);

private:
    QDBusConnection &bus();

    std::optional<QDBusConnection> m_bus;
    bool m_listening = false;
    QSet<uint> m_sent;
};

} // namespace tapedesk

#pragma once

#include <QString>
#include <QWidget>

namespace tapedesk {

// A top-level window around one content view (the help, licence and account
// windows). Closing hides it; the delegate keeps it and shows it again.
class WindowController : public QWidget
{
    Q_OBJECT

public:
    WindowController(const QString &identifier, const QString &title, QWidget *content);

    void showWindow(QObject *sender = nullptr);
    QWidget *contentViewController() const { return m_content; }

private:
    QWidget *m_content;
};

} // namespace tapedesk

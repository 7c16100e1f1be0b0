#pragma once

#include <QString>
#include <QWidget>

namespace tapedesk {

// A top-level window around one content view (the help, licence and account
// windows). Closing hides it; the application keeps it and shows it again.
class ContentWindow : public QWidget
{
    Q_OBJECT

public:
    ContentWindow(const QString &identifier, const QString &title, QWidget *content);

    // Shows the window and brings it to the front.
    void showAndRaise();
    QWidget *content() const { return m_content; }

private:
    QWidget *m_content;
};

} // namespace tapedesk

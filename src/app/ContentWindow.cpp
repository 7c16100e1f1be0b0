#include "app/ContentWindow.h"

#include <QVBoxLayout>

namespace tapedesk {

ContentWindow::ContentWindow(const QString &identifier, const QString &title, QWidget *content)
    : QWidget(nullptr, Qt::Window), m_content(content)
{
    setObjectName(identifier);
    setWindowTitle(title);
    setAccessibleName(title);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(content);
}

void ContentWindow::showAndRaise()
{
    show();
    raise();
    activateWindow();
}

} // namespace tapedesk

#include "app/WindowController.h"

#include <QVBoxLayout>

namespace tapedesk {

WindowController::WindowController(const QString &identifier, const QString &title, QWidget *content)
    : QWidget(nullptr, Qt::Window), m_content(content)
{
    setObjectName(identifier);
    setWindowTitle(title);
    setAccessibleName(title);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(content);
}

void WindowController::showWindow(QObject *)
{
    show();
    raise();
    activateWindow();
}

} // namespace tapedesk

#include "Preferences/PreferencesWindow.h"

#include "Preferences/AboutToolsPage.h"
#include "Preferences/ToolPathsPage.h"

#include <QCloseEvent>
#include <QShowEvent>
#include <QTabWidget>
#include <QVBoxLayout>

namespace tapedesk {

PreferencesWindow::PreferencesWindow(QWidget *parent) : QWidget(parent, Qt::Window)
{
    setObjectName(QStringLiteral("Preferences"));
    setWindowTitle(QStringLiteral("Preferences"));
    setAccessibleName(QStringLiteral("Preferences window"));

    m_tabs = new QTabWidget(this);
    m_tabs->setObjectName(QStringLiteral("preferencesTabs"));
    m_tabs->setAccessibleName(QStringLiteral("Preferences panes"));
    m_paths = new ToolPathsPage(m_tabs);
    m_tools = new AboutToolsPage(m_tabs);
    m_tabs->addTab(m_paths, QStringLiteral("Paths"));
    m_tabs->addTab(m_tools, QStringLiteral("Tools"));

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs);
    resize(sizeHint());
}

void PreferencesWindow::showAndRaise()
{
    show();
    raise();
    activateWindow();
}

void PreferencesWindow::showEvent(QShowEvent *event)
{
    // Only when the window comes back from hidden, not when the desktop
    // restores it from a minimised state: unsaved edits are replaced by the
    // paths in use each time the window is brought up anew.
    if (!event->spontaneous())
        m_paths->showPathsInUse();
    QWidget::showEvent(event);
}

void PreferencesWindow::closeEvent(QCloseEvent *event)
{
    event->ignore();
    hide();
}

} // namespace tapedesk

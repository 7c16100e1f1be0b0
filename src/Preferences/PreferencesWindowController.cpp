#include "Preferences/PreferencesWindowController.h"

#include "Preferences/PreferencesViewController.h"
#include "Preferences/Preferences_ToolsController.h"

#include <QCloseEvent>
#include <QShowEvent>
#include <QTabWidget>
#include <QVBoxLayout>

namespace tapedesk {

PreferencesWindowController::PreferencesWindowController(QWidget *parent) : QWidget(parent, Qt::Window)
{
    windowDidLoad();
}

void PreferencesWindowController::windowDidLoad()
{
    setObjectName(QStringLiteral("Preferences"));
    setWindowTitle(QStringLiteral("Preferences"));
    setAccessibleName(QStringLiteral("Preferences window"));

    m_tabs = new QTabWidget(this);
    m_tabs->setObjectName(QStringLiteral("preferencesTabs"));
    m_tabs->setAccessibleName(QStringLiteral("Preferences panes"));
    m_paths = new PreferencesViewController(m_tabs);
    m_tools = new Preferences_ToolsController(m_tabs);
    m_tabs->addTab(m_paths, QStringLiteral("Paths"));
    m_tabs->addTab(m_tools, QStringLiteral("Tools"));

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs);
    resize(sizeHint());
}

void PreferencesWindowController::showWindow(QObject *)
{
    show();
    raise();
    activateWindow();
}

void PreferencesWindowController::showEvent(QShowEvent *event)
{
    // Only when the window comes back from hidden, not when the desktop
    // restores it from a minimised state: unsaved edits are replaced by the
    // paths in use each time the window is brought up anew.
    if (!event->spontaneous())
        m_paths->viewWillAppear();
    QWidget::showEvent(event);
}

void PreferencesWindowController::closeEvent(QCloseEvent *event)
{
    event->ignore();
    hide();
}

} // namespace tapedesk

#pragma once

#include <QWidget>

class QTabWidget;

namespace tapedesk {

class PreferencesViewController;
class Preferences_ToolsController;

// The preferences window. Closing only hides it, so the application keeps one
// window for the whole run and every request brings the same one back.
class PreferencesWindowController : public QWidget
{
    Q_OBJECT

public:
    explicit PreferencesWindowController(QWidget *parent = nullptr);

    void windowDidLoad();
    // Shows the window (refilling the paths pane if it was hidden) and brings
    // it to the front.
    void showWindow(QObject *sender = nullptr);

    PreferencesViewController *pathsPane() const { return m_paths; }
    Preferences_ToolsController *toolsPane() const { return m_tools; }
    QTabWidget *tabs() const { return m_tabs; }

protected:
    void showEvent(QShowEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    PreferencesViewController *m_paths = nullptr;
    Preferences_ToolsController *m_tools = nullptr;
    QTabWidget *m_tabs = nullptr;
};

} // namespace tapedesk

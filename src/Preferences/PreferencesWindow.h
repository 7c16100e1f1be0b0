#pragma once

#include <QWidget>

class QTabWidget;

namespace tapedesk {

class ToolPathsPage;
class AboutToolsPage;

// The preferences window. Closing only hides it, so the application keeps one
// window for the whole run and every request brings the same one back.
class PreferencesWindow : public QWidget
{
    Q_OBJECT

public:
    explicit PreferencesWindow(QWidget *parent = nullptr);

    // Shows the window (refilling the paths page if it was hidden) and brings
    // it to the front.
    void showAndRaise();

    ToolPathsPage *pathsPage() const { return m_paths; }
    AboutToolsPage *toolsPage() const { return m_tools; }
    QTabWidget *tabs() const { return m_tabs; }

protected:
    void showEvent(QShowEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    ToolPathsPage *m_paths = nullptr;
    AboutToolsPage *m_tools = nullptr;
    QTabWidget *m_tabs = nullptr;
};

} // namespace tapedesk

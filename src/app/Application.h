#pragma once

#include <QObject>
#include <QPointer>
#include <memory>

class QAction;
class QMenuBar;

namespace tapedesk {

class PreferencesWindow;
class MainWindow;
class ContentWindow;

// The application's own windows and menu commands. Each window is created on
// its first request and kept for the rest of the run; later requests bring
// the same window back.
class Application : public QObject
{
    Q_OBJECT

public:
    explicit Application(QObject *parent = nullptr);
    ~Application() override;

    std::unique_ptr<PreferencesWindow> preferencesWindow;
    std::unique_ptr<ContentWindow> helpWindow;
    std::unique_ptr<ContentWindow> licenceWindow;
    std::unique_ptr<ContentWindow> accountWindow;

    // Gives a QApplication its look; the icon follows when a window needs it.
    void applyLook();

    void showPreferences();
    void showHelp();
    void showLicence();
    void showAccount();

    // Adds the commands to a window's menu bar. The application menu the
    // window may already have (with its Quit) is reused, so the bar keeps one
    // of each.
    void installMenus(QMenuBar *bar);

    // Gives the main window its menus and the preferences window: shown when
    // the main window asks for a setup, and every Save reported back to it.
    // Call before the window is shown.
    void attachMainWindow(MainWindow &window);

    QAction *actionPreferences = nullptr;
    QAction *actionAccount = nullptr;
    QAction *actionHelp = nullptr;
    QAction *actionLicence = nullptr;
    // Says in the main window's pane why no drive may be listed.
    QAction *actionWhyNoDrive = nullptr;
    QAction *actionQuit = nullptr;

private:
    // Gives the application its icon, once.
    void applyIcon();

    QPointer<MainWindow> m_mainWindow;
    bool m_iconPending = false;
};

} // namespace tapedesk

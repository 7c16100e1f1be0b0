#pragma once

#include <QObject>
#include <QPointer>
#include <memory>

class QAction;
class QMenuBar;

namespace tapedesk {

class PreferencesWindowController;
class ViewController;
class WindowController;

// The application's own windows and menu commands. Each window is created on
// its first request and kept for the rest of the run; later requests bring
// the same window back.
class AppDelegate : public QObject
{
    Q_OBJECT

public:
    explicit AppDelegate(QObject *parent = nullptr);
    ~AppDelegate() override;

    std::unique_ptr<PreferencesWindowController> preferencesController;
    std::unique_ptr<WindowController> helpController;
    std::unique_ptr<WindowController> eulaController;
    std::unique_ptr<WindowController> accountController;

    void applicationDidFinishLaunching(QObject *notification = nullptr);
    void applicationWillTerminate(QObject *notification = nullptr);

    void showPreferences(QObject *sender = nullptr);
    void showHelp(QObject *sender = nullptr);
    void showEula(QObject *sender = nullptr);
    void showAccount(QObject *sender = nullptr);

    // Adds the commands to a window's menu bar. The application menu the
    // window may already have (with its Quit) is reused, so the bar keeps one
    // of each.
    void installMenus(QMenuBar *bar);

    // Gives the main window its menus and the preferences window: shown when
    // the main window asks for a setup, and every Save reported back to it.
    // Call before the window is shown.
    void attachMainWindow(ViewController &window);

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

    QPointer<ViewController> m_mainWindow;
    bool m_iconPending = false;
};

} // namespace tapedesk

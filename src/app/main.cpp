#include "app/AppDelegate.h"
#include "app/FirstFrame.h"
#include "app/SignalHandling.h"
#include "tools/ProcessRunner.h"
#include "ui/ViewController.h"

#include <QApplication>
#include <QMenuBar>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    app.setOrganizationName(QStringLiteral("TapeDesk"));
    app.setApplicationName(QStringLiteral("TapeDesk"));
    // The menu entry's name (resources/com.corvel.tapedesk.desktop), which is
    // also the AppStream id: desktops match the window and its notifications to it.
    app.setDesktopFileName(QStringLiteral("com.corvel.tapedesk"));
    tapedesk::installQuitOnSignals();

    tapedesk::AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    // A tool that hangs must not outlive the application.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, [] { tapedesk::children::killAll(); });
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
                     [&delegate] { delegate.applicationWillTerminate(); });

    tapedesk::ViewController window;
    tapedesk::reportFirstFrame(window.centralWidget());
    delegate.attachMainWindow(window);
    window.viewDidLoad(app.arguments());
    window.show();
    return QApplication::exec();
}

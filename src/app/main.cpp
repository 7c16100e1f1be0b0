#include "app/Application.h"
#include "app/FirstFrame.h"
#include "app/SignalHandling.h"
#include "tools/ProcessRunner.h"
#include "tools/ToolPaths.h"
#include "ui/MainWindow.h"

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

    tapedesk::Application application;
    application.applyLook();
    // A tool that hangs must not outlive the application.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, [] { tapedesk::children::killAll(); });

    tapedesk::MainWindow window;
    tapedesk::reportFirstFrame(window.centralWidget());
    application.attachMainWindow(window);
    tapedesk::applyLaunchArguments(QApplication::arguments());
    window.show();
    return QApplication::exec();
}

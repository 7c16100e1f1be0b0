#include "app/DarkLook.h"
#include "tools/ProcessRunner.h"
#include "ui/ViewController.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    app.setOrganizationName(QStringLiteral("TapeDesk"));
    app.setApplicationName(QStringLiteral("TapeDesk"));
    tapedesk::applyDarkLook(app);
    // A tool that hangs must not outlive the application.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, [] { tapedesk::children::killAll(); });

    tapedesk::ViewController window;
    window.viewDidLoad(app.arguments());
    window.show();
    return QApplication::exec();
}

#include "app/Application.h"

#include "Preferences/PreferencesWindow.h"
#include "Preferences/ToolPathsPage.h"
#include "app/ContentWindow.h"
#include "app/DarkLook.h"
#include "app/LicenceView.h"
#include "app/WindowModules.h"
#include "ui/MainWindow.h"

#include <QAction>
#include <QApplication>
#include <QFile>
#include <QIcon>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QTabWidget>

namespace tapedesk {

namespace {

inline const QString kIconResource = QStringLiteral(":/icons/tapedesk.png");

QString plain(QString title)
{
    return title.remove(QLatin1Char('&'));
}

// What a window shows when its library could not be loaded: the application
// goes on without it.
QWidget *moduleViewOrNotice(WindowModule module, const QString &what)
{
    if (QWidget *view = makeModuleView(module))
        return view;
    auto *notice = new QLabel(what + QStringLiteral(" could not be loaded from ") + moduleFile(module) +
                              QLatin1Char('.'));
    notice->setObjectName(QStringLiteral("lblModuleMissing"));
    notice->setWordWrap(true);
    notice->setMargin(24);
    return notice;
}

QAction *command(QObject *owner, const QString &name, const QString &text, const QKeySequence &keys,
                 const QString &tip)
{
    auto *a = new QAction(text, owner);
    a->setObjectName(name);
    a->setShortcut(keys);
    // The shortcuts also work while one of the application's own windows has
    // the focus, not only the main window.
    a->setShortcutContext(Qt::ApplicationShortcut);
    a->setStatusTip(tip);
    a->setToolTip(tip);
    a->setWhatsThis(tip);
    return a;
}

} // namespace

Application::Application(QObject *parent) : QObject(parent)
{
    actionPreferences = command(this, QStringLiteral("actionPreferences"), QStringLiteral("&Preferences…"),
                                QKeySequence(Qt::CTRL | Qt::Key_Comma), QStringLiteral("Set the tool paths"));
    actionAccount = command(this, QStringLiteral("actionAccount"), QStringLiteral("&Account…"),
                            QKeySequence(), QStringLiteral("Sign in to the account service"));
    actionHelp = command(this, QStringLiteral("actionHelp"), QStringLiteral("TapeDesk &Help"),
                         QKeySequence(Qt::Key_F1), QStringLiteral("Open the TapeDesk manual"));
    actionLicence = command(this, QStringLiteral("actionLicence"), QStringLiteral("&Licence Agreement"),
                            QKeySequence(), QStringLiteral("Show the licence agreement"));
    actionWhyNoDrive =
        command(this, QStringLiteral("actionWhyNoDrive"), QStringLiteral("Why Is My &Drive Missing?"),
                QKeySequence(), QStringLiteral("Check what keeps a drive from being listed"));
    connect(actionWhyNoDrive, &QAction::triggered, this, [this] {
        if (!m_mainWindow)
            return;
        // The findings go to the transcript, which may be behind another tab.
        m_mainWindow->ui.paneTabs->setCurrentIndex(0);
        m_mainWindow->engine.explainMissingDrive();
    });
    connect(actionPreferences, &QAction::triggered, this, &Application::showPreferences);
    connect(actionAccount, &QAction::triggered, this, &Application::showAccount);
    connect(actionHelp, &QAction::triggered, this, &Application::showHelp);
    connect(actionLicence, &QAction::triggered, this, &Application::showLicence);
}

Application::~Application() = default;

void Application::applyLook()
{
    if (auto *app = qobject_cast<QApplication *>(QCoreApplication::instance())) {
        applyDarkLook(*app);
        // Reading the icon decodes a large PNG and looks through the image
        // plugins: the main window gets it after its first frame, the
        // application's own windows before they show.
        m_iconPending = true;
    }
}

void Application::applyIcon()
{
    if (!m_iconPending)
        return;
    m_iconPending = false;
    if (QFile::exists(kIconResource))
        QApplication::setWindowIcon(QIcon(kIconResource));
}

void Application::showPreferences()
{
    applyIcon();
    if (!preferencesWindow) {
        preferencesWindow = std::make_unique<PreferencesWindow>();
        connect(preferencesWindow->pathsPage(), &ToolPathsPage::saved, this, [this] {
            if (m_mainWindow)
                m_mainWindow->preferencesSaved();
        });
    }
    preferencesWindow->showAndRaise();
}

void Application::showHelp()
{
    applyIcon();
    if (!helpWindow) {
        helpWindow = std::make_unique<ContentWindow>(
            QStringLiteral("HelpWindow"), QStringLiteral("TapeDesk Help"),
            moduleViewOrNotice(WindowModule::Help, QStringLiteral("The manual")));
        helpWindow->resize(820, 860);
    }
    helpWindow->showAndRaise();
}

void Application::showLicence()
{
    applyIcon();
    if (!licenceWindow)
        licenceWindow = std::make_unique<ContentWindow>(QStringLiteral("LicenceWindow"),
                                                        QStringLiteral("Licence Agreement"), new LicenceView);
    licenceWindow->showAndRaise();
}

void Application::showAccount()
{
    applyIcon();
    if (!accountWindow)
        accountWindow = std::make_unique<ContentWindow>(
            QStringLiteral("AccountWindow"), QStringLiteral("Account"),
            moduleViewOrNotice(WindowModule::Account, QStringLiteral("The account login")));
    accountWindow->showAndRaise();
}

void Application::attachMainWindow(MainWindow &window)
{
    m_mainWindow = &window;
    installMenus(window.menuBar());
    connect(&window, &MainWindow::preferencesNeeded, this, [this] { showPreferences(); });
    connect(&window, &MainWindow::firstFrameDrawn, this, &Application::applyIcon);
}

void Application::installMenus(QMenuBar *bar)
{
    QMenu *appMenu = nullptr;
    for (QAction *top : bar->actions()) {
        if (top->menu() && plain(top->text()) == QStringLiteral("TapeDesk"))
            appMenu = top->menu();
    }
    if (!appMenu)
        appMenu = bar->addMenu(QStringLiteral("&TapeDesk"));
    appMenu->setObjectName(QStringLiteral("menuTapeDesk"));
    appMenu->setAccessibleName(QStringLiteral("TapeDesk menu"));

    actionQuit = nullptr;
    for (QAction *a : appMenu->actions()) {
        if (a->objectName() == QStringLiteral("actionQuit"))
            actionQuit = a;
    }
    if (!actionQuit) {
        actionQuit = command(appMenu, QStringLiteral("actionQuit"), QStringLiteral("&Quit"),
                             QKeySequence(Qt::CTRL | Qt::Key_Q), QStringLiteral("Quit TapeDesk"));
        connect(actionQuit, &QAction::triggered, qApp, &QCoreApplication::quit);
        appMenu->addAction(actionQuit);
    }
    // The platform's standard Quit keys are empty on some desktops.
    actionQuit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    actionQuit->setStatusTip(QStringLiteral("Quit TapeDesk"));
    actionQuit->setToolTip(QStringLiteral("Quit TapeDesk"));

    QAction *first = appMenu->actions().isEmpty() ? nullptr : appMenu->actions().constFirst();
    appMenu->insertAction(first, actionPreferences);
    appMenu->insertAction(first, actionAccount);
    appMenu->insertSeparator(first);

    QMenu *help = bar->addMenu(QStringLiteral("&Help"));
    help->setObjectName(QStringLiteral("menuHelp"));
    help->setAccessibleName(QStringLiteral("Help menu"));
    help->addAction(actionHelp);
    help->addAction(actionWhyNoDrive);
    help->addAction(actionLicence);
}

} // namespace tapedesk

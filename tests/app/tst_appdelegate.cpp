// ctest-timeout: 60
// The application shell: one preferences and one help window for the whole
// run, the manual compiled in, the licence flag, the dark look and the menus.
// With TAPEDESK_SCREENSHOT_DIR set (and a real display), it also saves
// pictures of the first start and of the preferences and help windows there.

#include "Preferences/PreferencesViewController.h"
#include "Preferences/PreferencesWindowController.h"
#include "app/AppDelegate.h"
#include "app/Eula_ViewController.h"
#include "app/Help_ViewController.h"
#include "app/WindowController.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/AuthenticateViewController.h"
#include "ui/ViewController.h"

#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPainter>
#include <QPdfDocument>
#include <QPdfPageNavigator>
#include <QPdfSelection>
#include <QPdfView>
#include <QStyle>
#include <QTextBrowser>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

int topLevelCount(const QString &objectName)
{
    int n = 0;
    for (QWidget *w : QApplication::topLevelWidgets())
        n += w->objectName() == objectName ? 1 : 0;
    return n;
}

Help_ViewController *helpView(AppDelegate &d)
{
    return d.helpController ? qobject_cast<Help_ViewController *>(d.helpController->contentViewController())
                            : nullptr;
}

QString manualText(QPdfDocument &doc)
{
    QString all;
    for (int page = 0; page < doc.pageCount(); ++page)
        all += doc.getAllText(page).text() + QLatin1Char('\n');
    // Lines wrap wherever the page ends; compare the words only.
    return all.simplified();
}

QStringList menuTitles(QMenuBar *bar)
{
    QStringList titles;
    for (QAction *a : bar->actions())
        titles << a->text().remove(QLatin1Char('&'));
    return titles;
}

} // namespace

class AppDelegateTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void preferencesCommandTwiceMakesOneWindow()
    {
        AppDelegate delegate;
        QVERIFY(!delegate.preferencesController);
        delegate.showPreferences();
        PreferencesWindowController *first = delegate.preferencesController.get();
        QVERIFY(first);
        QVERIFY(first->isVisible());
        delegate.showPreferences();
        QCOMPARE(delegate.preferencesController.get(), first);
        QCOMPARE(topLevelCount(QStringLiteral("Preferences")), 1);

        first->close();
        QVERIFY(!first->isVisible());
        delegate.showPreferences();
        QCOMPARE(delegate.preferencesController.get(), first);
        QVERIFY(first->isVisible());
        QCOMPARE(topLevelCount(QStringLiteral("Preferences")), 1);
    }

    void helpCommandTwiceShowsTheSameWindowWithTheManual()
    {
        AppDelegate delegate;
        delegate.showHelp();
        QVERIFY(delegate.helpController);
        QCOMPARE(delegate.helpController->objectName(), QStringLiteral("HELP_WC"));
        Help_ViewController *view = helpView(delegate);
        QVERIFY(view);
        QCOMPARE(view->document()->status(), QPdfDocument::Status::Ready);
        QVERIFY(view->document()->pageCount() > 0);
        QCOMPARE(view->pdfView()->document(), view->document());
        QCOMPARE(view->pdfView()->zoomMode(), QPdfView::ZoomMode::FitToWidth);

        WindowController *first = delegate.helpController.get();
        first->close();
        QVERIFY(!first->isVisible());
        delegate.showHelp();
        QCOMPARE(delegate.helpController.get(), first);
        QVERIFY(first->isVisible());
        QCOMPARE(helpView(delegate), view);
        QCOMPARE(view->document()->status(), QPdfDocument::Status::Ready);
        QCOMPARE(topLevelCount(QStringLiteral("HELP_WC")), 1);
    }

    void theManualCoversTheWorkflowsAndTheirMessages()
    {
        QPdfDocument doc;
        QCOMPARE(doc.load(kManualResource), QPdfDocument::Error::None);
        QVERIFY(doc.pageCount() >= 8);
        const QString text = manualText(doc);
        for (const char *expected :
             {"WARNING: No preferences set for paths", "Looks like preferences settings could be wrong.",
              "Preferences have been saved.", "No Path Selected",
              "Scan Failed - make sure your preferences are set", "Format Canceled", "Mount Tape",
              "scripts/demo", "exit code carried over"}) {
            QVERIFY2(text.contains(QString::fromUtf8(expected)), expected);
        }
    }

    void aMissingManualLeavesAnEmptyView()
    {
        Help_ViewController view(nullptr,
                                 makeDir(QStringLiteral("nomanual")) + QStringLiteral("/manual.pdf"));
        view.show();
        QCOMPARE(view.document()->pageCount(), 0);
        QVERIFY(view.pdfView()->document() == nullptr);

        // A file that is there but is no PDF is no better and no worse.
        const QString junk = makeDir(QStringLiteral("junk")) + QStringLiteral("/manual.pdf");
        QFile f(junk);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("this is not a PDF\n");
        f.close();
        Help_ViewController broken(nullptr, junk);
        broken.show();
        QCOMPARE(broken.document()->pageCount(), 0);
        QVERIFY(broken.pdfView()->document() == nullptr);
    }

    void theLicenceViewRecordsTheAgreementEachTimeItLoads()
    {
        SettingsStore::remove(EULA_AGREED_KEY);
        QCOMPARE(SettingsStore::boolean(EULA_AGREED_KEY), std::nullopt);
        AppDelegate delegate;
        delegate.actionLicence->trigger();
        QVERIFY(delegate.eulaController);
        QVERIFY(delegate.eulaController->isVisible());
        QCOMPARE(SettingsStore::boolean(EULA_AGREED_KEY), std::optional<bool>(true));
        auto *eula = qobject_cast<Eula_ViewController *>(delegate.eulaController->contentViewController());
        QVERIFY(eula);
        QVERIFY(eula->textView()->toPlainText().contains(QStringLiteral("Licence")));

        SettingsStore::setBool(EULA_AGREED_KEY, false);
        Eula_ViewController again;
        QCOMPARE(SettingsStore::boolean(EULA_AGREED_KEY), std::optional<bool>(true));
    }

    void theLookIsDarkWhateverTheDesktopSays()
    {
        QPalette light;
        light.setColor(QPalette::Window, Qt::white);
        light.setColor(QPalette::WindowText, Qt::black);
        QApplication::setPalette(light);
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        const QPalette p = QApplication::palette();
        QVERIFY(p.color(QPalette::Window).lightness() < 80);
        QVERIFY(p.color(QPalette::Base).lightness() < 80);
        QVERIFY(p.color(QPalette::WindowText).lightness() > 180);
        QCOMPARE(QApplication::style()->name(), QStringLiteral("fusion"));
        QVERIFY(!QApplication::windowIcon().isNull());
    }

    void theMenusReachEveryWindowOnce()
    {
        ViewController window;
        AppDelegate delegate;
        delegate.installMenus(window.menuBar());
        QCOMPARE(menuTitles(window.menuBar()),
                 (QStringList{QStringLiteral("TapeDesk"), QStringLiteral("Help")}));

        QList<QAction *> all;
        for (QAction *top : window.menuBar()->actions()) {
            QVERIFY(!top->menu()->accessibleName().isEmpty());
            for (QAction *a : top->menu()->actions()) {
                if (!a->isSeparator())
                    all << a;
            }
        }
        QStringList texts;
        for (QAction *a : all)
            texts << a->text().remove(QLatin1Char('&'));
        QCOMPARE(texts, (QStringList{QStringLiteral("Preferences…"), QStringLiteral("Account…"),
                                     QStringLiteral("Quit"), QStringLiteral("TapeDesk Help"),
                                     QStringLiteral("Licence Agreement")}));
        QCOMPARE(delegate.actionPreferences->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Comma));
        QCOMPARE(delegate.actionHelp->shortcut(), QKeySequence(Qt::Key_F1));
        QCOMPARE(delegate.actionQuit->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Q));

        delegate.actionPreferences->trigger();
        QVERIFY(delegate.preferencesController && delegate.preferencesController->isVisible());
        delegate.actionHelp->trigger();
        QVERIFY(delegate.helpController && delegate.helpController->isVisible());
        delegate.actionAccount->trigger();
        QVERIFY(delegate.accountController && delegate.accountController->isVisible());
        auto *login =
            qobject_cast<AuthenticateViewController *>(delegate.accountController->contentViewController());
        QVERIFY(login);
        QVERIFY(login->loginButton());
        QVERIFY(login->lblStatus);
        QVERIFY(!login->loginButton()->accessibleName().isEmpty());

        // Installing into a bar without an application menu brings its own Quit.
        QMenuBar bare;
        AppDelegate second;
        second.installMenus(&bare);
        QVERIFY(second.actionQuit);
        QCOMPARE(menuTitles(&bare), (QStringList{QStringLiteral("TapeDesk"), QStringLiteral("Help")}));
    }

    // Not a check: pictures for the documentation, taken only when asked.
    void screenshots()
    {
        const QString dir = qEnvironmentVariable("TAPEDESK_SCREENSHOT_DIR");
        if (dir.isEmpty())
            QSKIP("TAPEDESK_SCREENSHOT_DIR not set");
        // Where the tools live on a typical host; the picture shows the paths, not the tools.
        setPaths(QStringLiteral("/opt/itdt/itdt"), QStringLiteral("/usr/local/bin/ltfs"),
                 QStringLiteral("/usr/local/bin/mkltfs"), QStringLiteral("/srv/tapedesk/output"));
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        delegate.showPreferences();
        PreferencesViewController *pane = delegate.preferencesController->pathsPane();
        pane->ui.btnSave->click();
        QVERIFY(QTest::qWaitForWindowExposed(delegate.preferencesController.get()));
        QTest::qWait(500);
        QVERIFY(delegate.preferencesController->grab().save(dir + QStringLiteral("/preferences-window.png")));

        delegate.showHelp();
        delegate.helpController->resize(900, 860);
        QVERIFY(QTest::qWaitForWindowExposed(delegate.helpController.get()));
        Help_ViewController *view = helpView(delegate);
        view->pdfView()->pageNavigator()->jump(1, QPointF());
        QTest::qWait(2500); // pages are rendered in the background
        QVERIFY(delegate.helpController->grab().save(dir + QStringLiteral("/help-window.png")));

        firstStartScreenshot(dir);
    }

private:
    // The first start on a host without the tools: the message, and the
    // preferences window that opened by itself over the main window.
    static void firstStartScreenshot(const QString &dir)
    {
        const QByteArray home = qgetenv("HOME");
        const QByteArray path = qgetenv("PATH");
        // An operator's home without a Documents folder, and no tool on PATH;
        // nothing is saved, so nothing is created there.
        qputenv("HOME", "/home/operator");
        qputenv("PATH", "/usr/bin:/bin");
        SettingsStore::removeKeys(
            {PreferenceKeys::itdt, PreferenceKeys::ltfs, PreferenceKeys::mkltfs, PreferenceKeys::output});
        ViewController window;
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        delegate.attachMainWindow(window);
        window.viewDidLoad({QStringLiteral("tapedesk")});
        window.show();
        QVERIFY(waitUntil(
            [&] { return delegate.preferencesController && delegate.preferencesController->isVisible(); }));
        QVERIFY(QTest::qWaitForWindowExposed(delegate.preferencesController.get()));
        QTest::qWait(500);
        QPixmap shot = window.grab();
        const QPixmap preferences = delegate.preferencesController->grab();
        {
            QPainter painter(&shot);
            // Below the message, which is what the operator reads first.
            const QPoint at((shot.width() - preferences.width()) / 2 + 120, 300);
            painter.drawPixmap(at, preferences);
            painter.setPen(QPen(QColor(0x60, 0x90, 0xd0), 2));
            painter.drawRect(QRect(at, preferences.size()).adjusted(-1, -1, 0, 0));
        }
        qputenv("HOME", home);
        qputenv("PATH", path);
        const QImage small = shot.scaledToWidth(820, Qt::SmoothTransformation).toImage();
        QVERIFY(small.save(dir + QStringLiteral("/first-start.png"), nullptr, 0));
    }
};

TAPEDESK_TEST_MAIN(AppDelegateTest)
#include "tst_appdelegate.moc"

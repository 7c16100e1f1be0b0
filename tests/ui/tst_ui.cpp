// ctest-timeout: 120
// The window as the operator and a screen reader meet it: the first start,
// the drive table's lines, colours and clicks, the preferences window, what
// is read aloud, the real dialogs the workflows ask through, the account
// login against a local server, live output and the desktop notification.

#include "Preferences/PreferencesWindow.h"
#include "Preferences/ToolPathsPage.h"
#include "app/Application.h"
#include "app/DarkLook.h"
#include "drives/DriveStateStore.h"
#include "operations/PaneText.h"
#include "operations/Texts.h"
#include "support/EngineHarness.h"
#include "support/Support.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/PathDefaults.h"
#include "tools/ProcessRunner.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/AccountView.h"
#include "ui/DriveTableModel.h"
#include "ui/LiveOutputView.h"
#include "ui/MainWindow.h"
#include "ui/OperationWatch.h"
#include "ui/VolumeDetailsView.h"

#include <QAccessible>
#include <QDBusConnection>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTableView>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTextBlock>
#include <QTimer>
#include <QUrl>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

DrivePtr drive(const QString &id, bool mounted = false)
{
    DriveRecord r;
    r.id = id;
    r.info1 = QStringLiteral("Corvel LTO8 HH");
    r.serialNumber = QStringLiteral("S") + id;
    r.info2 = QStringLiteral("S/N:") + r.serialNumber;
    r.info3 = QStringLiteral("F1A2");
    r.mounted = mounted;
    return makeDrive(r);
}

QColor cardColour(MainWindow &mainWindow, int row)
{
    const QRect r = mainWindow.ui.tableView->visualRect(mainWindow.driveModel()->index(row, 0));
    // A corner of the card, clear of the text.
    return mainWindow.ui.tableView->viewport()->grab().toImage().pixelColor(r.right() - 4, r.top() + 3);
}

QString read(QObject *object, QAccessible::Text text)
{
    QAccessibleInterface *iface = QAccessible::queryAccessibleInterface(object);
    return iface ? iface->text(text) : QStringLiteral("<no interface>");
}

// "$SIM" and "$HOME" stand for the simulator's folder and the test home.
QStringList expand(QStringList texts)
{
    for (QString &t : texts)
        t.replace(QStringLiteral("$SIM"), simBinDir()).replace(QStringLiteral("$HOME"), TestHome::path());
    return texts;
}

const QStringList kPathKeys{PreferenceKeys::itdt, PreferenceKeys::ltfs, PreferenceKeys::mkltfs,
                            PreferenceKeys::output};

// No path stored or loaded: a first start.
void forgetPaths()
{
    SettingsStore::removeKeys(kPathKeys);
    for (OptionalPath *p : {&ITDT_PATH, &LTFS_PATH, &MKLTFS_PATH, &OUTPUT_FOLDER})
        p->set(std::nullopt);
}

QStringList stored()
{
    QStringList out;
    for (const QString &k : kPathKeys)
        out << SettingsStore::text(k).value_or(QStringLiteral("<absent>"));
    return out;
}

QStringList fields(const ToolPathsPage &pane)
{
    return {pane.itdtPathEdit->text(), pane.ltfsPathEdit->text(), pane.mkltfsPathEdit->text(),
            pane.outputFolderEdit->text()};
}

// Clicks the middle of a row's card, as the operator does.
void clickRow(MainWindow &mainWindow, int row)
{
    QTest::mouseClick(mainWindow.ui.tableView->viewport(), Qt::LeftButton, {},
                      mainWindow.ui.tableView->visualRect(mainWindow.driveModel()->index(row, 0)).center());
}

// A minimal HTTP/1.1 server on 127.0.0.1: records each request as the
// headers TapeDesk sets ("name: value" lines in the order sent), an empty line
// and the body, and answers the next queued body.
class TokenServer : public QObject
{
public:
    QList<QByteArray> answers;
    QList<QByteArray> requests;

    TokenServer()
    {
        m_server.listen(QHostAddress::LocalHost, 0);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *s = m_server.nextPendingConnection())
                connect(s, &QTcpSocket::readyRead, this, [this, s] { read(s); });
        });
    }
    QString base() const { return QStringLiteral("http://127.0.0.1:%1/").arg(m_server.serverPort()); }

private:
    void read(QTcpSocket *s)
    {
        m_buffer += s->readAll();
        const qsizetype end = m_buffer.indexOf("\r\n\r\n");
        QByteArray request;
        qsizetype length = 0;
        for (const QByteArray &line : m_buffer.left(end).split('\n').mid(1)) {
            const QByteArray name = line.left(line.indexOf(':')).toLower();
            const QByteArray value = line.mid(line.indexOf(':') + 1).trimmed();
            if (name == "content-length")
                length = value.toLongLong();
            else if (name == "content-type" || name == "accept" || name == "authorization")
                request += name + ": " + value + '\n';
        }
        if (end < 0 || m_buffer.size() < end + 4 + length)
            return;
        requests << request + '\n' + m_buffer.mid(end + 4);
        m_buffer.clear();
        const QByteArray body = answers.isEmpty() ? QByteArray("{}") : answers.takeFirst();
        s->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
                 QByteArray::number(body.size()) + "\r\n\r\n" + body);
    }

    QTcpServer m_server;
    QByteArray m_buffer;
};

// A notification service as a desktop runs one, on a private bus.
class NotificationService : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    QStringList received; // "summary | body"

public Q_SLOTS:
    uint Notify(const QString &, uint, const QString &, const QString &summary, const QString &body,
                const QStringList &, const QVariantMap &, int)
    {
        received << summary + QStringLiteral(" | ") + body;
        return 7;
    }

Q_SIGNALS:
    void ActionInvoked(uint id, const QString &key);
};

// tape44 alone, with a formatted cartridge.
const QByteArray kTape44 = "[drive]\nid = tape44\nmodel = ULTRIUM-HH9\nserial = 1013000144\ncartridge = yes\n"
                           "barcode = TD0044\nformatted = yes\n";

QTextCharFormat formatAt(const QTextDocument *document, const QString &text)
{
    QTextCursor found = document->find(text);
    found.setPosition(found.selectionStart() + 1);
    return found.charFormat();
}

} // namespace

class UiTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        applyDarkLook(*qobject_cast<QApplication *>(QCoreApplication::instance()));
        qputenv(AuthSettings::passwordEnv, "p@ss:word/1");
    }
    void init() { freshCase(); }
    // A case's scripted answers point into it: the real dialogs come back.
    void cleanup() { setDialogProvider(std::make_unique<WidgetDialogs>()); }

    void startUp_data()
    {
        // Tools on PATH (else none installed); what is stored; the launch
        // switch; the pane's line after the warning; the fields the
        // preferences window opens with (none: it stays closed).
        QTest::addColumn<bool>("toolsOnPath");
        QTest::addColumn<QStringList>("stored");
        QTest::addColumn<QString>("launch");
        QTest::addColumn<QString>("problem");
        QTest::addColumn<QStringList>("offered");
        const auto row = [](const char *tag, bool toolsOnPath, const QStringList &stored, const char *launch,
                            const char *problem, const QStringList &offered) {
            QTest::newRow(tag) << toolsOnPath << stored << QString::fromLatin1(launch)
                               << QString::fromLatin1(problem) << offered;
        };
        const QStringList sim{"$SIM/itdt", "$SIM/ltfs", "$SIM/mkltfs"};
        const QString documents = QStringLiteral("$HOME/Documents/corvel-lto-output");
        row("first start, tools on PATH: Save, then a scan", true, {}, "", "", sim + QStringList{documents});
        row("no documents folder: output in the home folder", true, {}, "", "",
            sim + QStringList{"$HOME/corvel-lto-output"});
        row("after -c: a first start again, the output not offered", true, sim + QStringList{"$HOME/old"},
            "-c", "", sim + QStringList{documents});
        row("nothing installed: the install folder names what is missing", false, {}, "", "",
            {"/usr/local/bin/itdt", "/usr/local/bin/ltfs", "/usr/local/bin/mkltfs", documents});
        row("stored but wrong: the path is named, nothing opens", true,
            {"/opt/x/itdt", "$SIM/ltfs", "$SIM/mkltfs", "$HOME/out"}, "", "\nitdt not found at /opt/x/itdt",
            {});
    }

    void startUp()
    {
        QFETCH(bool, toolsOnPath);
        QFETCH(QStringList, stored);
        QFETCH(QString, launch);
        QFETCH(QString, problem);
        QFETCH(QStringList, offered);
        const QString afterSave = toolsOnPath ? QStringLiteral("Scan Complete")
                                              : QStringLiteral("mkltfs not found at /usr/local/bin/mkltfs");
        for (const char *folder : {"/Documents", "/corvel-lto-output"})
            QDir(TestHome::path() + QLatin1String(folder)).removeRecursively();
        if (!offered.value(3).startsWith(QStringLiteral("$HOME/corvel")))
            makeDir(QStringLiteral("Documents"));
        qputenv("PATH",
                (toolsOnPath ? QFile::encodeName(simBinDir()) + ':' : QByteArray()) + "/usr/bin:/bin");
        // A host with a tape tool installed cannot show the defaults of a host without one.
        for (const char *tool : {"itdt", "ltfs", "mkltfs"}) {
            if (!toolsOnPath && QFile::exists(defaultToolPath(QString::fromLatin1(tool))))
                QSKIP("this host has a tape tool installed");
        }
        stored = expand(stored);
        forgetPaths();
        if (!stored.isEmpty())
            setPaths(stored[0], stored[1], stored[2], stored[3]);

        MainWindow mainWindow;
        Application application;
        application.attachMainWindow(mainWindow);
        applyLaunchArguments({QStringLiteral("tapedesk"), launch});
        mainWindow.show();
        const QString startPane =
            QStringLiteral("\nLooks like preferences settings could be wrong.") + problem;
        QVERIFY(waitForPane(mainWindow, startPane) && waitForIdle(mainWindow));
        QCOMPARE(paneText(mainWindow), startPane);
        QCOMPARE(application.preferencesWindow != nullptr, !offered.isEmpty());
        if (offered.isEmpty())
            return;
        ToolPathsPage &pane = *application.preferencesWindow->pathsPage();
        QCOMPARE(fields(pane), expand(offered));
        pane.ui.saveButton->click();
        QVERIFY(waitUntil([&] { return paneText(mainWindow).endsWith(afterSave); }) &&
                waitForIdle(mainWindow));
        QVERIFY(QFileInfo(pane.outputFolderEdit->text()).isDir()); // the default folder is made on Save
        QCOMPARE(mainWindow.driveModel()->rowCount(), toolsOnPath ? 5 : 0);
    }

    void driveTable_data()
    {
        QTest::addColumn<bool>("hung");
        QTest::newRow("the volume read, Open Volume") << false;
        QTest::newRow("a hung read times out, the window goes on") << true;
    }

    // The simulator's library and a drive remembered as mounted (tape55): five
    // lines a row, read the same by a screen reader, the card yellow when
    // mounted, grey otherwise; a click chooses a drive, empty space changes
    // nothing. The Volume tab hands the mount point to the desktop's opener (a
    // fake xdg-open first on PATH). A read that hangs (a FIFO blocks its open
    // as a hung FUSE mount does) times out while the window keeps turning, and
    // starts no second reader.
    void driveTable()
    {
        QFETCH(bool, hung);
        const QByteArray point("/tmp/ltfs/mnt/55");
        QDir(QString::fromLatin1(point)).removeRecursively();
        QFile::remove(QString::fromLatin1(point));
        QVERIFY(hung ? ::mkfifo(point.constData(), 0600) == 0 : QDir().mkpath(QString::fromLatin1(point)));
        const auto release = qScopeGuard([&] {
            // Lets a reader out of its open, so no thread outlives the case.
            if (const int fd = ::open(point.constData(), O_WRONLY | O_NONBLOCK); fd >= 0)
                ::close(fd);
            QFile::remove(QString::fromLatin1(point));
        });
        const QString opened = TestHome::path() + QStringLiteral("/opened");
        const QString bin = makeDir(QStringLiteral("opener"));
        writeScript(bin, QStringLiteral("xdg-open"), QStringLiteral("printf '%s' \"$1\" > ") + opened);
        qputenv("PATH", bin.toUtf8() + ':' + qgetenv("PATH"));
        const DrivePtr remembered = drive(QStringLiteral("tape55"), true);
        remembered->update([](DriveRecord &r) { r.name = QStringLiteral("55"); });
        DriveStateStore::saveDriveInfo(*remembered);
        MainWindow mainWindow;
        mainWindow.engine.volumeReadTimeoutMs = 1500;
        applyLaunchArguments({QStringLiteral("tapedesk")});
        mainWindow.show();
        QVERIFY(waitForPane(mainWindow, QStringLiteral("Scan Complete")) && waitForIdle(mainWindow));
        QAccessibleInterface *table = QAccessible::queryAccessibleInterface(mainWindow.ui.tableView);
        for (const auto &[row, lines] :
             {std::pair{
                  0, QStringList{"Drive1 (tape0)", "Corvel LTO8 HH", "FW: F1A2", "S/N:1013000101", "TAPE: "}},
              {5, {"Drive6 (tape55)", "Corvel LTO8 HH", "FW: F1A2", "S/N:Stape55", "TAPE: "}}}) {
            QCOMPARE(mainWindow.driveModel()->index(row, 0).data(DriveTableModel::LinesRole).toStringList(),
                     lines);
            QCOMPARE(table->tableInterface()->cellAt(row, 0)->text(QAccessible::Name), lines.join('\n'));
        }
        QCOMPARE(cardColour(mainWindow, 0), QColor(Qt::lightGray));
        QCOMPARE(cardColour(mainWindow, 5), QColor(Qt::yellow));
        // Dark text on the light card, readable in the dark window.
        const QImage card =
            mainWindow.ui.tableView->viewport()
                ->grab(mainWindow.ui.tableView->visualRect(mainWindow.driveModel()->index(0, 0)))
                .toImage();
        int dark = 0;
        for (int i = 0; i < card.width() * card.height(); ++i)
            dark += qGray(card.pixel(i % card.width(), i / card.width())) < 96 ? 1 : 0;
        QVERIFY2(dark > 50, qPrintable(QString::number(dark)));

        VolumeDetailsView *view = mainWindow.volumeView();
        mainWindow.ui.paneTabs->setCurrentWidget(view);
        mainWindow.ui.transcript->clear();
        QElapsedTimer clock;
        qint64 longestGap = 0;
        qint64 last = 0;
        QTimer ticker;
        QObject::connect(&ticker, &QTimer::timeout, [&] {
            longestGap = std::max(longestGap, clock.elapsed() - last);
            last = clock.elapsed();
        });
        clock.start();
        ticker.start(20);
        clickRow(mainWindow, 5);
        if (hung) {
            QVERIFY(
                waitUntil([&] { return view->stateText().contains(QStringLiteral("within 1.5 s")); }, 5000));
            QVERIFY2(longestGap < 300, qPrintable(QString::number(longestGap)));
            QVERIFY(clock.elapsed() >= 1500);
            QCOMPARE(view->valueOf(QStringLiteral("Capacity")), QStringLiteral("-"));
            QTest::mouseClick(view->refreshButton(), Qt::LeftButton);
            QVERIFY(view->stateText().startsWith(
                QStringLiteral("An earlier read of /tmp/ltfs/mnt/55 has still not")));
            return;
        }
        QTRY_COMPARE(view->stateText(), QStringLiteral("As LTFS reports them now."));
        // A plain folder publishes nothing, and statvfs alone names no volume.
        QCOMPARE(view->valueOf(QStringLiteral("Volume name")), QStringLiteral("not reported"));
        QTest::mouseClick(view->openButton(), Qt::LeftButton);
        QTRY_COMPARE(readFile(opened), QUrl::fromLocalFile(QString::fromLatin1(point)).toEncoded());
        // The caption is read by what it shows, and said to be Mount's action.
        QCOMPARE(read(mainWindow.ui.mountLabel, QAccessible::Name), QStringLiteral("UNMOUNT"));
        QCOMPARE(read(mainWindow.ui.mountLabel, QAccessible::Description), QStringLiteral("Mount Action"));
        QWidget *viewport = mainWindow.ui.tableView->viewport();
        QTest::mouseClick(viewport, Qt::LeftButton, {}, QPoint(20, viewport->height() - 5));
        QTest::qWait(50);
        QCOMPARE(paneText(mainWindow), QStringLiteral("\nReady \ntape55 Selected"));
        clickRow(mainWindow, 0);
        QVERIFY(waitForPane(mainWindow, QStringLiteral("tape0 Selected")));
        QTRY_VERIFY(!view->openButton()->isEnabled());
        // Every label, the Volume tab's values among them, is read by what it
        // shows: a fixed name would hide a text that changes.
        for (QLabel *label : mainWindow.findChildren<QLabel *>())
            QCOMPARE(read(label, QAccessible::Name), label->text());

        // Automation and a screen reader find each control by its name alone.
        QStringList names;
        for (QWidget *w : mainWindow.findChildren<QWidget *>())
            names << read(w, QAccessible::Name);
        for (const char *name : {"Scan", "Mount", "Retrieve Log", "Test", "Upgrade", "Host Validation",
                                 "Format", "Clear Mounted Drives", "Drives", "Output", "MOUNT", "Progress"})
            QVERIFY2(names.count(QString::fromLatin1(name)) == 1, name);
    }

    // The preferences window as the operator meets it: the host's defaults
    // offered, Save taking the fields as typed, Reset, closing and coming
    // back, and the pickers answered through the real file dialogs.
    void preferencesWindow()
    {
        forgetPaths();
        const PathDefaults d = pathDefaults();
        const QStringList defaults{d.itdt, d.ltfs, d.mkltfs, d.output};
        PreferencesWindow window;
        window.showAndRaise();
        ToolPathsPage &pane = *window.pathsPage();
        for (QWidget *w : pane.findChildren<QWidget *>()) {
            if (qobject_cast<QLineEdit *>(w) || qobject_cast<QPushButton *>(w))
                QVERIFY2(!w->accessibleName().isEmpty(), qPrintable(w->objectName()));
        }
        QCOMPARE(stored(), QStringList(4, QStringLiteral("<absent>")));

        // Nothing is trimmed or checked: blanks and the placeholder go in as they stand.
        const QStringList typed{QStringLiteral(" /opt/itdt/itdt "), QStringLiteral("/usr/bin/ltfs"),
                                NO_PATH_SELECTED, QString()};
        for (int i = 0; i < 4; ++i)
            QList<QLineEdit *>{pane.itdtPathEdit, pane.ltfsPathEdit, pane.mkltfsPathEdit,
                               pane.outputFolderEdit}[i]
                ->setText(typed[i]);
        pane.ui.saveButton->click();
        QCOMPARE(stored(), typed);
        // The status is read by what it says, not by a fixed name.
        QCOMPARE(read(pane.statusLabel, QAccessible::Name), QStringLiteral("Preferences have been saved."));

        // Reset offers the defaults and stores nothing; a window still up keeps
        // the edits, one shown anew is refilled with the paths in use.
        pane.ui.resetButton->click();
        window.showAndRaise();
        QCOMPARE(fields(pane), defaults);
        window.close();
        QCOMPARE(stored(), typed);
        window.showAndRaise();
        QCOMPARE(fields(pane), typed);

        // A path missing: the pane offers the defaults, and a load shows the placeholder for it.
        LTFS_PATH.set(std::nullopt);
        window.close();
        window.showAndRaise();
        QCOMPARE(fields(pane), defaults);
        pane.loadPreferences();
        QCOMPARE(fields(pane), (QStringList{typed[0], NO_PATH_SELECTED, typed[2], typed[3]}));

        // The pickers: cancelled, they change nothing; a choice fills a field
        // and is stored only by Save.
        const QString itdt = writeScript(makeDir(QStringLiteral("tools/bin")), QStringLiteral("itdt"), {});
        const QString out = makeDir(QStringLiteral("dumps"));
        const QStringList before = fields(pane);
        DialogScript script;
        script.cancelPicker().cancelPicker().cancelPicker().choosePath(itdt).choosePath(out);
        for (QPushButton *b :
             {pane.ui.chooseLtfsButton, pane.ui.chooseMkltfsButton, pane.ui.chooseOutputFolderButton,
              pane.ui.chooseItdtButton, pane.ui.chooseOutputFolderButton})
            b->click();
        QCOMPARE(script.seen().size(), 5);
        QCOMPARE(fields(pane), (QStringList{itdt, before[1], before[2], out}));
        QCOMPARE(stored(), typed);
        pane.ui.saveButton->click();
        QCOMPARE(stored(), fields(pane));
    }

    // What a screen reader gets of a Test run: the alert's title, name and
    // description, then the button's description at each status.
    void whatIsReadAloud()
    {
        MainWindow mainWindow;
        QStringList heard;
        // The statusImage property is set once the image and its words are in place.
        struct Reader : QObject
        {
            QStringList *heard = nullptr;
            bool eventFilter(QObject *watched, QEvent *event) override
            {
                if (event->type() == QEvent::DynamicPropertyChange)
                    *heard << read(watched, QAccessible::Description);
                return false;
            }
        } reader;
        reader.heard = &heard;
        mainWindow.ui.testButton->installEventFilter(&reader);
        selectDrive(mainWindow);
        DialogScript script;
        script.then([&](QWidget *d, const SeenDialog &) {
            heard << QStringList{d->windowTitle(), read(d, QAccessible::Name),
                                 read(d, QAccessible::Description)}
                         .join(QStringLiteral(" | "));
            clickButton(d, QStringLiteral("OK"));
        });
        mainWindow.runTest();
        waitUntil([&] { return heard.size() >= 3; }); // a miss shows below
        QVERIFY(waitForIdle(mainWindow));
        QCOMPARE(heard, (QStringList{
                            QStringList{ALERT_WARNING, ALERT_WARNING, ALERT_DESTRUCTIVE_RUN_TEST}.join(" | "),
                            "In Progress", "Complete"}));
    }

    void questions_data()
    {
        // A name asked for (default "KT1234"), or a choice between `typed`
        // and "Mount"; what the dialog gets; the in-band answer.
        QTest::addColumn<bool>("name");
        QTest::addColumn<QString>("typed"); // null: the field left alone
        QTest::addColumn<QString>("how");   // a button's text, "Escape" or "close"
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *tag, bool name, const QString &typed, const char *how,
                            const char *expected) {
            QTest::newRow(tag) << name << typed << QString::fromLatin1(how) << QString::fromLatin1(expected);
        };
        row("default kept", true, {}, "OK", "KT1234");
        row("typed text as it stands", true, QStringLiteral(" kt12ab -1 "), "OK", " kt12ab -1 ");
        row("Cancel after typing", true, QStringLiteral("AB1234"), "Cancel", "-1");
        row("name, Escape", true, QStringLiteral("AB1234"), "Escape", "-1");
        row("second button", false, QStringLiteral("Eject"), "Mount", "1");
        row("choice, closed", false, QStringLiteral("Eject"), "close", "1");
        // The order follows the arguments, not what the words usually mean.
        row("Cancel given first", false, QStringLiteral("Cancel"), "Cancel", "0");
    }

    void questions()
    {
        QFETCH(bool, name);
        QFETCH(QString, typed);
        QFETCH(QString, how);
        QFETCH(QString, expected);
        const QString title = QStringLiteral("Format Drive");
        const QString ask = QStringLiteral("Assign tape name (6 character alphanumeric: EG: KT1234)");
        DialogScript script;
        QString shown;
        script.then([&](QWidget *d, const SeenDialog &) {
            if (auto *field = d->findChild<QLineEdit *>()) {
                shown = field->text();
                if (!typed.isNull())
                    field->setText(typed);
            }
            if (how == QStringLiteral("Escape"))
                QTest::keyClick(d, Qt::Key_Escape);
            else if (how == QStringLiteral("close"))
                d->close();
            else
                clickButton(d, how);
        });
        QCOMPARE(
            name ? Support().getString(title, ask, QStringLiteral("KT1234"))
                 : QString::number(Support().userOptionPrompt(title, ask, typed, QStringLiteral("Mount"))),
            expected);
        QCOMPARE(script.seen().size(), 1);
        QCOMPARE(script.seen()[0].title, title);
        QCOMPARE(script.seen()[0].informative, ask);
        QCOMPARE(script.seen()[0].buttons,
                 (name ? QStringList{"OK", "Cancel"} : QStringList{typed, "Mount"}));
        QCOMPARE(shown, name ? QStringLiteral("KT1234") : QString());
    }

    void login_data()
    {
        QTest::addColumn<QString>("tenant"); // "$SERVER" is the local server's address
        QTest::addColumn<QByteArrayList>("answers");
        QTest::addColumn<int>("requests");
        QTest::addColumn<QString>("token");
        QTest::newRow("two grants, with the first one's token")
            << "$SERVER"
            << QByteArrayList{R"({"access_token":"tok-123","token_type":"Bearer"})",
                              R"({"access_token":"user"})"}
            << 2 << "tok-123";
        QTest::newRow("no access_token")
            << "$SERVER" << QByteArrayList{R"({"error":"access_denied"})"} << 1 << "";
        QTest::newRow("not UTF-8") << "$SERVER" << QByteArrayList{"{\"access_token\":\"t\xff\"}"} << 1 << "";
        QTest::newRow("tenant that cannot be parsed") << "$SERVERbad base/" << QByteArrayList() << 0 << "";
        QTest::newRow("nobody listening") << "http://127.0.0.1:1/" << QByteArrayList() << 0 << "";
    }

    // The account login against a real server: what goes over the wire, in
    // which order, and where the flow stops.
    void login()
    {
        QFETCH(QString, tenant);
        QFETCH(QByteArrayList, answers);
        QFETCH(int, requests);
        QFETCH(QString, token);
        TokenServer server;
        server.answers = answers;
        // The environment wins over the settings, which win over the built-in values.
        SettingsStore::setText(AuthSettings::domainKey, QStringLiteral("https://tenant.site.example/"));
        SettingsStore::setText(AuthSettings::userKey, QStringLiteral("operator@site.example"));
        qputenv(AuthSettings::domainEnv, tenant.replace(QStringLiteral("$SERVER"), server.base()).toUtf8());
        AccountView login;
        QCOMPARE(login.password, QStringLiteral("p@ss:word/1"));
        login.statusLabel->setText(QStringLiteral("Signed in")); // read by what it says
        QCOMPARE(read(login.statusLabel, QAccessible::Name), login.statusLabel->text());
        const QList<QByteArray> console = consoleOf([&] {
            login.loginButton()->click();
            QVERIFY(waitUntil(
                [&] { return server.requests.size() >= requests && login.requestsInFlight() == 0; }));
        });
        QCOMPARE(server.requests.size(), requests);
        QCOMPARE(login.accessToken, token); // the second answer's is not used
        if (requests < 2)
            return;
        // The endpoint's text keeps the base's "/" and its own; the path goes out normalised.
        QVERIFY(console.contains((server.base() + QStringLiteral("/oauth/token")).toUtf8()));
        const QByteArray form = "content-type: application/x-www-form-urlencoded\naccept: application/json\n";
        QCOMPARE(server.requests[0], form + "\nclient_id=" + login.client_id.toUtf8() + "&client_secret=" +
                                         login.secret.toUtf8() + "&audience=" + server.base().toUtf8() +
                                         "api/v2/&grant_type=client_credentials"); // ":" and "/" unencoded
        QCOMPARE(server.requests[1],
                 form + "authorization: Bearer tok-123\n\nclient_id=" + login.client_id.toUtf8() +
                     "&grant_type=password&username=operator@site.example&password=p@ss:word/1");
        // A later login carries the token it has.
        login.logIn();
        QVERIFY(waitUntil([&] { return server.requests.size() == 3 && login.requestsInFlight() == 0; }));
        QVERIFY(server.requests[2].contains("\nauthorization: Bearer tok-123\n"));
    }

    void liveOperation_data()
    {
        QTest::addColumn<bool>("bus");
        QTest::addColumn<bool>("service");
        QTest::addColumn<int>("notifyAfterMs");
        QTest::addColumn<bool>("notified");
        QTest::newRow("long enough: notified") << true << true << 0 << true;
        QTest::newRow("shorter than the threshold") << true << true << 60000 << false;
        QTest::newRow("no service on the bus") << true << false << 0 << false;
        QTest::newRow("no bus") << false << false << 0 << false;
    }

    // A dump that prints, waits for the test, then prints on its error
    // stream: the live view has the command line and the first line while the
    // tool still runs, the clock counts, the second line follows in the error
    // colour, and the transcript shows neither the command nor the colours.
    // The end is notified on a private session bus, with the service
    // registered by the test or not. The window stays in the background
    // (never shown); a click on the notification brings it up.
    void liveOperation()
    {
        QFETCH(bool, bus);
        QFETCH(bool, service);
        QFETCH(int, notifyAfterMs);
        QFETCH(bool, notified);
        QProcess daemon;
        QString address = QStringLiteral("unix:path=") + TestHome::path() + QStringLiteral("/no-bus");
        if (bus) {
            daemon.start(
                QStringLiteral("dbus-daemon"),
                {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address")});
            QVERIFY(daemon.waitForReadyRead(5000));
            address = QString::fromUtf8(daemon.readLine().trimmed());
        }
        const auto stopDaemon = qScopeGuard([&] {
            QDBusConnection::disconnectFromBus(QStringLiteral("service"));
            QDBusConnection::disconnectFromBus(QStringLiteral("window"));
            daemon.kill();
            daemon.waitForFinished();
        });
        QDBusConnection serviceBus = QDBusConnection::connectToBus(address, QStringLiteral("service"));
        NotificationService notifications;
        if (service) {
            QVERIFY(serviceBus.registerObject(
                QStringLiteral("/org/freedesktop/Notifications"), &notifications,
                QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals));
            QVERIFY(serviceBus.registerService(QStringLiteral("org.freedesktop.Notifications")));
        }
        const QString flag = TestHome::path() + QStringLiteral("/dump-may-end");
        QFile::remove(flag);
        freshCase(kTape44);
        ITDT_PATH.set(
            writeScript(makeDir(QStringLiteral("slow")), QStringLiteral("itdt"),
                        QStringLiteral("case \"$*\" in *dump*) ;; *) exec '%1/itdt' \"$@\";; esac\n"
                                       "echo 'dump begun'\nwhile [ ! -e '%2' ]; do sleep 0.05; done\n"
                                       "echo 'dump done' >&2\necho 'Exit with code: 0'\n")
                            .arg(simBinDir(), flag)));
        MainWindow mainWindow;
        mainWindow.watch().notifier().setConnection(
            QDBusConnection::connectToBus(address, QStringLiteral("window")));
        mainWindow.watch().notifyAfterMs = notifyAfterMs;
        // The offscreen platform warns that it cannot raise a window.
        if (!notified)
            QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
        test::selectDrive(mainWindow, QStringLiteral("tape44"), QStringLiteral("44"));
        QStringList asked;
        answerWith({}, &asked);
        mainWindow.retrieveLog();
        const LiveOutputView &live = *mainWindow.watch().liveView();
        QTRY_VERIFY(live.toPlainText().contains(QStringLiteral("dump begun")));
        QVERIFY(QRegularExpression(
                    QStringLiteral("^\\$ \\S+/slow/itdt -R \\S+ -LP \\S+ -f tape44 dump\ndump begun"))
                    .match(live.toPlainText())
                    .hasMatch());
        QLabel &clock = *mainWindow.watch().elapsedLabel();
        QCOMPARE(clock.text(), QStringLiteral("Retrieving the log of tape44 — 00:00"));
        QTRY_COMPARE_WITH_TIMEOUT(clock.text(), QStringLiteral("Retrieving the log of tape44 — 00:01"), 3000);
        QCOMPARE(read(&clock, QAccessible::Name), clock.text()); // the clock is read as it ticks
        QVERIFY(!live.toPlainText().contains(QStringLiteral("dump done")));
        QFile(flag).open(QIODevice::WriteOnly);
        // The two streams are read apart: only each one's own order is kept.
        QTRY_VERIFY(live.toPlainText().contains(QStringLiteral("\ndump done\n")));
        QVERIFY(live.toPlainText().indexOf(QStringLiteral("dump begun")) <
                live.toPlainText().indexOf(QStringLiteral("dump done")));
        QVERIFY(formatAt(live.document(), QStringLiteral("dump done")).foreground() !=
                formatAt(live.document(), QStringLiteral("dump begun")).foreground());
        QVERIFY(waitUntil([&] { return !mainWindow.engine.isOperating(); }));
        QVERIFY(!paneText(mainWindow).contains(QStringLiteral("$ ")));
        QTest::qWait(300); // for a notification that should not come
        QCOMPARE(notifications.received.size(), notified ? 1 : 0);
        if (!notified)
            return;
        // The fake dump saves no file, so the operation failed.
        QVERIFY2(QRegularExpression(QStringLiteral("^Retrieving the log of tape44: Failed \\| Retrieve Log "
                                                   "on tape44 ended after 00:0\\d: Failed$"))
                     .match(notifications.received.first())
                     .hasMatch(),
                 qPrintable(notifications.received.first()));
        Q_EMIT notifications.ActionInvoked(6, QStringLiteral("default")); // another program's
        QTest::qWait(200);
        QVERIFY(!mainWindow.isVisible());
        Q_EMIT notifications.ActionInvoked(7, QStringLiteral("default"));
        QTRY_VERIFY(mainWindow.isVisible());
    }

    // While a tool runs on the GUI thread's turn, the window takes no input
    // but Stop: a click elsewhere is held back, Stop ends the run.
    void stopIsTheOnlyInputWhileAToolHolds()
    {
        freshCase(kTape44);
        MainWindow mainWindow;
        mainWindow.show();
        // The start-up scan first, so no click meets it still running.
        QVERIFY(waitForPane(mainWindow, QStringLiteral("Scan Complete")) && waitForIdle(mainWindow));
        test::selectDrive(mainWindow, QStringLiteral("tape44"), QStringLiteral("44"));
        QStringList asked;
        answerWith({QStringLiteral("0")}, &asked);
        mainWindow.ui.mountButton->click();
        QVERIFY(waitForPane(mainWindow, QStringLiteral("Mount Complete")) && waitForIdle(mainWindow));
        qputenv("TAPESIM_FAIL", "tape44:umount=hang");
        QSignalSpy cleared(mainWindow.ui.clearMountedDrivesButton, &QPushButton::clicked);
        QTimer presser;
        QObject::connect(&presser, &QTimer::timeout, [&] {
            if (!mainWindow.engine.isWaitingResponsive() || children::liveCount() == 0)
                return;
            presser.stop();
            QTest::mouseClick(mainWindow.ui.clearMountedDrivesButton, Qt::LeftButton);
            QTest::mouseClick(mainWindow.ui.stopButton, Qt::LeftButton);
        });
        presser.start(20);
        mainWindow.ui.mountButton->click();
        QVERIFY2(waitForPane(mainWindow, QStringLiteral("Stopped by the operator: the wait for the unmount")),
                 qPrintable(paneText(mainWindow)));
        QVERIFY(waitForIdle(mainWindow));
        qunsetenv("TAPESIM_FAIL");
        QCOMPARE(cleared.size(), 0);
        QVERIFY(mainWindow.engine.selectedDrive.get()->mounted());
    }

    // A flood shows only what could be read: the last lines, whether they
    // came in one chunk or in many, and a long line cut as the pane cuts it.
    void liveOutputKeepsTheLastLines()
    {
        LiveOutputView view;
        view.showToolStarted(QStringLiteral("itdt"), {QStringLiteral("dump")});
        QByteArray big;
        for (int i = 0; i < LiveOutputView::kMaxLines + 500; ++i)
            big += "out " + QByteArray::number(i) + '\n';
        view.showOutput(OutputStream::Stdout, big);
        for (int i = 0; i < 2 * LiveOutputView::kMaxLines + 10; ++i)
            view.showOutput(OutputStream::Stderr, "err " + QByteArray::number(i) + '\n');
        view.showOutput(OutputStream::Stdout, QByteArray(2 * kLongestPaneLine + 5, 'x') + '\n');
        QTRY_COMPARE(view.pendingLines(), 0);
        const QStringList lines = view.toPlainText().split(QLatin1Char('\n'));
        QVERIFY(lines.size() <= LiveOutputView::kMaxLines + 1);
        QVERIFY(!view.toPlainText().contains(QStringLiteral("out ")));
        QCOMPARE(
            lines.mid(lines.size() - 5),
            (QStringList{QStringLiteral("err %1").arg(2 * LiveOutputView::kMaxLines + 9),
                         QString(kLongestPaneLine, QLatin1Char('x')),
                         QString(kLongestPaneLine, QLatin1Char('x')), QStringLiteral("xxxxx"), QString()}));
    }

    // Last: with the engine's cases after it, ThreadSanitizer reports the
    // engine's members as raced by its background parts, whose hand-offs are
    // declared to it; the file dialog's Qt threads are all that differs.
    void pickers_data()
    {
        QTest::addColumn<bool>("folder");
        QTest::addColumn<QStringList>("types");
        QTest::addColumn<QString>("refused"); // a name typed in and refused; "": none tried
        QTest::addColumn<QString>("chosen");
        // Regression: a name typed into the field bypassed the type filter, so
        // the firmware update could be handed a text file.
        QTest::newRow("firmware") << false << QStringList{"fmrz", "fm"} << "notes.txt"
                                  << ".hidden.fm";
        QTest::newRow("any file") << false << QStringList() << ""
                                  << "notes.txt";
        QTest::newRow("a folder") << true << QStringList() << "new.fmrz"
                                  << "sub";
    }

    void pickers()
    {
        QFETCH(bool, folder);
        QFETCH(QStringList, types);
        QFETCH(QString, refused);
        QFETCH(QString, chosen);
        // Firmware images, look-alikes, hidden files and a subfolder.
        const QString dir = makeDir(QStringLiteral("firmware/sub")).chopped(3);
        for (const char *name : {"new.fmrz", "old.fm", "notes.txt", ".hidden.fm", ".profile", "new.fmrz.bak"})
            writeScript(dir, QString::fromLatin1(name), {});
        DialogScript script;
        bool stayedOpen = false;
        script.then([&](QWidget *d, const SeenDialog &) {
            auto *fd = qobject_cast<QFileDialog *>(d);
            fd->setDirectory(dir);
            // The listing loads in the background; a name typed before it is
            // there is judged against an empty folder.
            auto *model = fd->findChild<QFileSystemModel *>();
            QVERIFY(
                waitUntil([&] { return model && model->rowCount(model->index(dir.chopped(1))) > 0; }, 5000));
            stayedOpen = refused.isEmpty() || typeAndAccept(fd, dir + refused, true);
            typeAndAccept(fd, dir + chosen);
        });
        const auto pick = [&] { return folder ? Support().pickFolder() : Support().pickFile(types); };
        QCOMPARE(pick(), dir + chosen);
        QCOMPARE(script.seen()[0].title, folder ? kPickFolderTitle : kPickFileTitle);
        QVERIFY(stayedOpen);
        script.cancelPicker();
        QCOMPARE(pick(), folder ? QStringLiteral("-1") : QString());
    }
};

TAPEDESK_TEST_MAIN(UiTest)
#include "tst_ui.moc"

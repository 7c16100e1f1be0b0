// ctest-timeout: 120
// The application's other windows: the preferences window with its real
// file pickers, and the account login against a local server.

#include "Preferences/PreferencesWindow.h"
#include "Preferences/ToolPathsPage.h"
#include "app/DarkLook.h"
#include "support/Support.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/PathDefaults.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/AccountView.h"

#include <QAccessible>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTcpServer>
#include <QTcpSocket>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

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

} // namespace

class PreferencesTest : public QObject
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
        QCOMPARE(storedPaths(), QStringList(4, QStringLiteral("<absent>")));

        // Nothing is trimmed or checked: blanks and the placeholder go in as they stand.
        const QStringList typed{QStringLiteral(" /opt/itdt/itdt "), QStringLiteral("/usr/bin/ltfs"),
                                NO_PATH_SELECTED, QString()};
        for (int i = 0; i < 4; ++i)
            QList<QLineEdit *>{pane.itdtPathEdit, pane.ltfsPathEdit, pane.mkltfsPathEdit,
                               pane.outputFolderEdit}[i]
                ->setText(typed[i]);
        pane.ui.saveButton->click();
        QCOMPARE(storedPaths(), typed);
        // The status is read by what it says, not by a fixed name.
        QCOMPARE(accessibleText(pane.statusLabel, QAccessible::Name),
                 QStringLiteral("Preferences have been saved."));

        // Reset offers the defaults and stores nothing; a window still up keeps
        // the edits, one shown anew is refilled with the paths in use.
        pane.ui.resetButton->click();
        window.showAndRaise();
        QCOMPARE(pathFields(pane), defaults);
        window.close();
        QCOMPARE(storedPaths(), typed);
        window.showAndRaise();
        QCOMPARE(pathFields(pane), typed);

        // A path missing: the pane offers the defaults, and a load shows the placeholder for it.
        LTFS_PATH.set(std::nullopt);
        window.close();
        window.showAndRaise();
        QCOMPARE(pathFields(pane), defaults);
        pane.loadPreferences();
        QCOMPARE(pathFields(pane), (QStringList{typed[0], NO_PATH_SELECTED, typed[2], typed[3]}));

        // The pickers: cancelled, they change nothing; a choice fills a field
        // and is stored only by Save.
        const QString itdt = writeScript(makeDir(QStringLiteral("tools/bin")), QStringLiteral("itdt"), {});
        const QString out = makeDir(QStringLiteral("dumps"));
        const QStringList before = pathFields(pane);
        DialogScript script;
        script.cancelPicker().cancelPicker().cancelPicker().choosePath(itdt).choosePath(out);
        for (QPushButton *b :
             {pane.ui.chooseLtfsButton, pane.ui.chooseMkltfsButton, pane.ui.chooseOutputFolderButton,
              pane.ui.chooseItdtButton, pane.ui.chooseOutputFolderButton})
            b->click();
        QCOMPARE(pathFields(pane), (QStringList{itdt, before[1], before[2], out}));
        QCOMPARE(storedPaths(), typed);
        pane.ui.saveButton->click();
        QCOMPARE(storedPaths(), pathFields(pane));
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
        login.statusLabel->setText(QStringLiteral("Signed in")); // read by what it says
        QCOMPARE(accessibleText(login.statusLabel, QAccessible::Name), login.statusLabel->text());
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

TAPEDESK_TEST_MAIN(PreferencesTest)
#include "tst_preferences.moc"

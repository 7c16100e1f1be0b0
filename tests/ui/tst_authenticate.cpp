// ctest-timeout: 60
// The account login against a real HTTP server on 127.0.0.1 that this test
// runs: what goes over the wire, in which order, and where the flow stops.

#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "tools/SettingsStore.h"
#include "ui/AuthenticateViewController.h"

#include <QPushButton>
#include <QTcpServer>
#include <QTcpSocket>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QString kClientId = QStringLiteral("u8jzPde0IgxLd6GncfBAepfJBd0Kh8oO");
const QString kSecret = QStringLiteral("OL8dKLzdocJ2isAjIhKtJ0RlgLKOmxgJTeKdNnFRIBXuDL7DxtpYlSXpfKtHF4vU");

struct Recorded
{
    QByteArray method;
    QByteArray path;
    QList<QPair<QByteArray, QByteArray>> headers; // as sent, in order
    QByteArray body;

    QByteArray header(const QByteArray &name) const
    {
        for (const auto &[n, v] : headers) {
            if (n.compare(name, Qt::CaseInsensitive) == 0)
                return v;
        }
        return {};
    }
    int indexOf(const QByteArray &name) const
    {
        for (int i = 0; i < headers.size(); ++i) {
            if (headers[i].first.compare(name, Qt::CaseInsensitive) == 0)
                return i;
        }
        return -1;
    }
};

// A minimal HTTP/1.1 server: reads requests (Content-Length bodies, several
// per connection) and answers each with the next queued answer.
class TokenServer : public QObject
{
public:
    struct Answer
    {
        int status = 200;
        QByteArray body;
    };

    TokenServer()
    {
        m_server.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *s = m_server.nextPendingConnection()) {
                ++connections;
                QObject::connect(s, &QTcpSocket::readyRead, this, [this, s] { read(s); });
                QObject::connect(s, &QTcpSocket::disconnected, s, &QObject::deleteLater);
            }
        });
    }

    quint16 port() const { return m_server.serverPort(); }
    QString base() const { return QStringLiteral("http://127.0.0.1:%1/").arg(port()); }

    QList<Answer> answers;
    QList<Recorded> requests;
    int connections = 0;

private:
    void read(QTcpSocket *s)
    {
        QByteArray &buf = m_buffers[s];
        buf += s->readAll();
        for (;;) {
            const qsizetype end = buf.indexOf("\r\n\r\n");
            if (end < 0)
                return;
            const QList<QByteArray> lines = buf.left(end).split('\n');
            Recorded r;
            const QList<QByteArray> first = lines.value(0).trimmed().split(' ');
            r.method = first.value(0);
            r.path = first.value(1);
            qsizetype length = 0;
            for (qsizetype i = 1; i < lines.size(); ++i) {
                const QByteArray line = lines[i].trimmed();
                const qsizetype colon = line.indexOf(':');
                if (colon <= 0)
                    continue;
                r.headers.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
                if (r.headers.last().first.compare("Content-Length", Qt::CaseInsensitive) == 0)
                    length = r.headers.last().second.toLongLong();
            }
            if (buf.size() < end + 4 + length)
                return;
            r.body = buf.mid(end + 4, length);
            buf.remove(0, end + 4 + length);
            requests << r;
            const Answer a = answers.isEmpty() ? Answer{200, "{}"} : answers.takeFirst();
            QByteArray reply = "HTTP/1.1 " + QByteArray::number(a.status) +
                               " X\r\nContent-Type: application/json\r\n" +
                               "Content-Length: " + QByteArray::number(a.body.size()) + "\r\n\r\n" + a.body;
            s->write(reply);
        }
    }

    QTcpServer m_server;
    QHash<QTcpSocket *, QByteArray> m_buffers;
};

void pointLoginAt(const QString &base)
{
    qputenv(AuthSettings::domainEnv, base.toUtf8());
    qputenv(AuthSettings::userEnv, "operator@site.example");
    qputenv(AuthSettings::passwordEnv, "p@ss:word/1");
}

// Waits until `n` requests have arrived and every answer has been handled.
bool settle(const TokenServer &server, const AuthenticateViewController &login, int n)
{
    return waitUntil([&] { return server.requests.size() >= n && login.requestsInFlight() == 0; });
}

} // namespace

class AuthenticateTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup()
    {
        for (const char *v : {AuthSettings::domainEnv, AuthSettings::userEnv, AuthSettings::passwordEnv})
            qunsetenv(v);
        SettingsStore::removeKeys(
            {AuthSettings::domainKey, AuthSettings::userKey, AuthSettings::passwordKey});
    }

    void builtInValuesAndTheirOverrides()
    {
        {
            // The built-in tenant: an HTTPS base ending in "/", so the endpoint holds two slashes.
            AuthenticateViewController login;
            QVERIFY(login.domain.startsWith(QStringLiteral("https://")));
            QVERIFY(login.domain.endsWith(QLatin1Char('/')));
            QCOMPARE(login.audience, login.domain + QStringLiteral("api/v2/"));
            QVERIFY(login.tokenEndpoint().endsWith(QStringLiteral("//oauth/token")));
            QVERIFY(login.accessToken.isEmpty());
        }
        // A deployment's settings replace the built-in values; the environment wins over both.
        SettingsStore::setText(AuthSettings::domainKey, QStringLiteral("https://tenant.site.example/"));
        SettingsStore::setText(AuthSettings::userKey, QStringLiteral("site-user"));
        qputenv(AuthSettings::passwordEnv, "from-env");
        SettingsStore::setText(AuthSettings::passwordKey, QStringLiteral("from-settings"));
        AuthenticateViewController login;
        QCOMPARE(login.domain, QStringLiteral("https://tenant.site.example/"));
        QCOMPARE(login.audience, QStringLiteral("https://tenant.site.example/api/v2/"));
        QCOMPARE(login.userName, QStringLiteral("site-user"));
        QCOMPARE(login.password, QStringLiteral("from-env"));
    }

    void loginSendsTheTwoGrantsWithTheTokenOfTheFirst()
    {
        TokenServer server;
        QVERIFY(server.port() != 0);
        server.answers << TokenServer::Answer{200, R"({"access_token":"tok-123","token_type":"Bearer"})"}
                       << TokenServer::Answer{200, R"({"access_token":"user-token"})"};
        pointLoginAt(server.base());
        AuthenticateViewController login;
        const QList<QByteArray> console = consoleOf([&] { login.loginButton()->click(); });
        QVERIFY(settle(server, login, 2));
        QCOMPARE(server.requests.size(), 2);

        const QString audience = server.base() + QStringLiteral("api/v2/");
        const QByteArray firstBody =
            (QStringLiteral("client_id=") + kClientId + QStringLiteral("&client_secret=") + kSecret +
             QStringLiteral("&audience=") + audience + QStringLiteral("&grant_type=client_credentials"))
                .toUtf8();
        const Recorded &first = server.requests[0];
        QCOMPARE(first.method, QByteArray("POST"));
        // The URL text keeps its two slashes (see the console lines below);
        // Qt's HTTP client sends the path normalised.
        QCOMPARE(first.path, QByteArray("/oauth/token"));
        QCOMPARE(first.body, firstBody); // ":" and "/" of the audience unencoded
        QCOMPARE(first.header("Content-Type"), QByteArray("application/x-www-form-urlencoded"));
        QCOMPARE(first.header("Accept"), QByteArray("application/json"));
        QCOMPARE(first.indexOf("Authorization"), -1);
        QVERIFY(first.indexOf("Content-Type") < first.indexOf("Accept"));

        const Recorded &second = server.requests[1];
        QCOMPARE(second.method, QByteArray("POST"));
        QCOMPARE(second.path, QByteArray("/oauth/token"));
        QCOMPARE(second.body, "client_id=" + kClientId.toUtf8() +
                                  "&grant_type=password&username=operator@site.example&password=p@ss:word/1");
        QVERIFY(!second.body.contains(kSecret.toUtf8()));
        QVERIFY(!second.body.contains("audience"));
        QCOMPARE(second.header("Authorization"), QByteArray("Bearer tok-123"));
        QVERIFY(second.indexOf("Content-Type") < second.indexOf("Accept"));
        QVERIFY(second.indexOf("Accept") < second.indexOf("Authorization"));
        // The second answer is not used: the token stays the first one's.
        QCOMPARE(login.accessToken, QStringLiteral("tok-123"));

        const QByteArray endpoint = (server.base() + QStringLiteral("/oauth/token")).toUtf8();
        QVERIFY(console.size() >= 5);
        QCOMPARE(console.mid(0, 5),
                 (QList<QByteArray>{"___________", firstBody, endpoint, "___________", endpoint}));
    }

    void aLaterLoginCarriesTheEarlierToken()
    {
        TokenServer server;
        server.answers << TokenServer::Answer{200, R"({"access_token":"first"})"}
                       << TokenServer::Answer{200, "{}"}
                       << TokenServer::Answer{200, R"({"access_token":"second"})"};
        pointLoginAt(server.base());
        AuthenticateViewController login;
        login.btnLogin();
        QVERIFY(settle(server, login, 2));
        login.btnLogin();
        QVERIFY(settle(server, login, 4));
        QCOMPARE(server.requests[2].header("Authorization"), QByteArray("Bearer first"));
        QCOMPARE(server.requests[3].header("Authorization"), QByteArray("Bearer second"));
    }

    void anAnswerWithoutAUsableTokenStopsAfterTheFirstRequest_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("answer");
        QTest::newRow("json array") << 200 << QByteArray(R"([{"access_token":"tok"}])");
        QTest::newRow("not json") << 200 << QByteArray("<html>Service Unavailable</html>");
        QTest::newRow("empty") << 200 << QByteArray();
        QTest::newRow("no access_token") << 200 << QByteArray(R"({"error":"access_denied"})");
        QTest::newRow("token not text") << 200 << QByteArray(R"({"access_token":42})");
        QTest::newRow("refused") << 401 << QByteArray(R"({"error":"unauthorized"})");
        QTest::newRow("not utf-8") << 200 << QByteArray("{\"access_token\":\"t\xff\xfe\"}");
    }

    void anAnswerWithoutAUsableTokenStopsAfterTheFirstRequest()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, answer);
        TokenServer server;
        server.answers << TokenServer::Answer{status, answer};
        pointLoginAt(server.base());
        AuthenticateViewController login;
        QList<QByteArray> console = consoleOf([&] {
            login.btnLogin();
            QVERIFY(settle(server, login, 1));
        });
        QCOMPARE(server.requests.size(), 1);
        QVERIFY(login.accessToken.isEmpty());
        QCOMPARE(login.requestsInFlight(), 0);
        if (answer.isEmpty() || answer.startsWith('<') || answer.contains('\xff')) {
            QVERIFY(std::any_of(console.begin(), console.end(),
                                [](const QByteArray &l) { return l.startsWith("Failed to load: "); }));
        }
        if (answer.contains('\xff'))
            QVERIFY(std::any_of(console.begin(), console.end(),
                                [](const QByteArray &l) { return l.contains("*unknown encoding*"); }));
    }

    void aServerThatIsNotThereStopsAfterTheFirstAttempt()
    {
        quint16 closedPort = 0;
        {
            QTcpServer probe;
            QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
            closedPort = probe.serverPort();
        }
        pointLoginAt(QStringLiteral("http://127.0.0.1:%1/").arg(closedPort));
        AuthenticateViewController login;
        QList<QByteArray> console = consoleOf([&] {
            login.btnLogin();
            QVERIFY(waitUntil([&] { return login.requestsInFlight() == 0; }));
        });
        QVERIFY(login.accessToken.isEmpty());
        QVERIFY(std::any_of(console.begin(), console.end(),
                            [](const QByteArray &l) { return l.startsWith("Failed to load: "); }));
    }

    void anInvalidUrlSendsNothingAndNeverCallsBack()
    {
        TokenServer server;
        pointLoginAt(server.base());
        AuthenticateViewController login;
        bool called = false;
        for (const QString &url :
             {QStringLiteral("http://127.0.0.1:%1/bad path//oauth/token").arg(server.port()),
              QStringLiteral("http://127.0.0.1:99999//oauth/token"), QStringLiteral("not a url at all"),
              QString()}) {
            login.makeHttpRequest(url, QStringLiteral("a=b"), [&](const QString &) { called = true; });
            QCOMPARE(login.requestsInFlight(), 0);
        }
        // Let anything that might have been sent arrive.
        login.makeHttpRequest(server.base() + QStringLiteral("probe"), QStringLiteral("x=1"),
                              [](const QString &) {});
        QVERIFY(settle(server, login, 1));
        QCOMPARE(server.requests.size(), 1);
        QCOMPARE(server.requests[0].path, QByteArray("/probe"));
        QVERIFY(!called);

        // A tenant URL that cannot be parsed: the login button sends nothing.
        qputenv(AuthSettings::domainEnv,
                QStringLiteral("http://127.0.0.1:%1/bad base/").arg(server.port()).toUtf8());
        AuthenticateViewController broken;
        broken.btnLogin();
        QCOMPARE(broken.requestsInFlight(), 0);
        login.makeHttpRequest(server.base() + QStringLiteral("probe2"), QStringLiteral("x=2"),
                              [](const QString &) {});
        QVERIFY(settle(server, login, 2));
        QCOMPARE(server.requests.size(), 2);
        QCOMPARE(server.requests[1].path, QByteArray("/probe2"));
    }

    void convertToDictionaryTakesOnlyObjects()
    {
        const auto map = AuthenticateViewController::convertToDictionary(
            QStringLiteral(R"({"access_token":"abc","expires_in":86400,"scope":null})"));
        QVERIFY(map);
        QCOMPARE(map->value(QStringLiteral("access_token")).toString(), QStringLiteral("abc"));
        QCOMPARE(map->value(QStringLiteral("expires_in")).toInt(), 86400);
        QVERIFY(map->contains(QStringLiteral("scope")));

        QVERIFY(!AuthenticateViewController::convertToDictionary(QStringLiteral("[1,2,3]")));
        QVERIFY(!AuthenticateViewController::convertToDictionary(QStringLiteral("\"text\"")));
        QList<QByteArray> console = consoleOf(
            [] { QVERIFY(!AuthenticateViewController::convertToDictionary(QStringLiteral("{oops"))); });
        QCOMPARE(console.size(), 1);
        QVERIFY(console[0].startsWith("Failed to load: "));
        QVERIFY(console[0].size() > QByteArray("Failed to load: ").size());
    }
};

TAPEDESK_TEST_MAIN(AuthenticateTest)
#include "tst_authenticate.moc"

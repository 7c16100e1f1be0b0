#pragma once

#include <QPointer>
#include <QString>
#include <QVariantMap>
#include <QWidget>
#include <functional>
#include <optional>

class QLabel;
class QNetworkAccessManager;
class QPushButton;

namespace tapedesk {

// Settings keys and environment variables through which a deployment (or a
// test) points the login at its own tenant and account; the environment wins.
namespace AuthSettings {
inline const QString domainKey = QStringLiteral("AUTH_DOMAIN");
inline const QString userKey = QStringLiteral("AUTH_USER");
inline const QString passwordKey = QStringLiteral("AUTH_PASSWORD");
inline const char domainEnv[] = "TAPEDESK_AUTH_DOMAIN";
inline const char userEnv[] = "TAPEDESK_AUTH_USER";
inline const char passwordEnv[] = "TAPEDESK_AUTH_PASSWORD";
inline const QString defaultDomain = QStringLiteral("https://corvel-tapedesk.auth0.example/");
inline const QString defaultUser = QStringLiteral("tapedesk-operator@corvel-storage.example");
inline const QString defaultPassword = QStringLiteral("TapeDesk-Operator-1");
} // namespace AuthSettings

// The account pane: a client-credentials grant, then a password grant for the
// built-in account carrying the first answer's token. Nothing else in TapeDesk
// waits for it or reads the token.
//
// Threads: the requests go through a QNetworkAccessManager owned by this
// view, which lives on the GUI thread; Qt delivers every reply there,
// so the callbacks, the second request and each write of accessToken happen
// on the GUI thread, one after another, and need no lock.
class AccountView : public QWidget
{
    Q_OBJECT

public:
    explicit AccountView(QWidget *parent = nullptr);
    ~AccountView() override;

    QString client_id = QStringLiteral("u8jzPde0IgxLd6GncfBAepfJBd0Kh8oO");
    QString secret = QStringLiteral("OL8dKLzdocJ2isAjIhKtJ0RlgLKOmxgJTeKdNnFRIBXuDL7DxtpYlSXpfKtHF4vU");
    QString domain;
    QString audience;
    QString accessToken;
    QString userName;
    QString password;
    QPointer<QLabel> statusLabel;

    QPushButton *loginButton() const { return m_login; }

    // Starts the two requests and returns at once.
    void logIn();

    // The token endpoint: `domain` + "/oauth/token" (two slashes, as the
    // service has always been called).
    QString tokenEndpoint() const;

    // POSTs the ready form body to `url`. `cb` gets the answer's text, or ""
    // on a transport error or a body that is not UTF-8. A URL that cannot be
    // sent to sends nothing and never calls back.
    void makeHttpRequest(const QString &url, const QString &params, std::function<void(const QString &)> cb);

    // The answer as a map when it is a JSON object; none otherwise.
    static std::optional<QVariantMap> convertToDictionary(const QString &str);

    // Requests handed to the network and not answered yet.
    int requestsInFlight() const { return m_inFlight; }

private:
    void firstAnswer(const QString &answer);

    QNetworkAccessManager *m_network = nullptr;
    QPushButton *m_login = nullptr;
    int m_inFlight = 0;
    bool m_closing = false;
};

} // namespace tapedesk

#include "ui/AccountView.h"

#include "tools/Console.h"
#include "tools/SettingsStore.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QLabel>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPushButton>
#include <QStringDecoder>
#include <QUrl>
#include <QVBoxLayout>

namespace tapedesk {

namespace {

QString configured(const char *env, const QString &key, const QString &builtIn)
{
    QString fromEnv = qEnvironmentVariable(env);
    if (!fromEnv.isEmpty())
        return fromEnv;
    return SettingsStore::text(key).value_or(builtIn);
}

QString describe(const QNetworkReply *reply)
{
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    QString line = QStringLiteral("<NetworkReply: ") + reply->url().toString() +
                   QStringLiteral(" } { Status Code: ") +
                   (status.isValid() ? QString::number(status.toInt()) : QStringLiteral("none")) +
                   QStringLiteral(", Headers {");
    for (const auto &[name, value] : reply->rawHeaderPairs())
        line += QLatin1Char(' ') + QString::fromLatin1(name) + QStringLiteral(": ") +
                QString::fromLatin1(value) + QLatin1Char(';');
    return line + QStringLiteral(" } }>");
}

} // namespace

AccountView::AccountView(QWidget *parent) : QWidget(parent)
{
    domain = configured(AuthSettings::domainEnv, AuthSettings::domainKey, AuthSettings::defaultDomain);
    // The audience and the endpoint are built by appending to the base, which
    // must end in "/" as the built-in one does.
    if (!domain.endsWith(QLatin1Char('/')))
        domain += QLatin1Char('/');
    audience = domain + QStringLiteral("api/v2/");
    userName = configured(AuthSettings::userEnv, AuthSettings::userKey, AuthSettings::defaultUser);
    password =
        configured(AuthSettings::passwordEnv, AuthSettings::passwordKey, AuthSettings::defaultPassword);
    m_network = new QNetworkAccessManager(this);

    setObjectName(QStringLiteral("accountView"));
    setAccessibleName(QStringLiteral("Account login"));

    auto *caption = new QLabel(QStringLiteral("Sign in to the TapeDesk account service."), this);
    caption->setObjectName(QStringLiteral("lblAccount"));
    caption->setAccessibleName(QStringLiteral("Account service"));
    m_login = new QPushButton(QStringLiteral("Log In"), this);
    m_login->setObjectName(QStringLiteral("btnLogin"));
    m_login->setAccessibleName(QStringLiteral("Log in"));
    statusLabel = new QLabel(this);
    statusLabel->setObjectName(QStringLiteral("lblStatus"));
    statusLabel->setAccessibleDescription(QStringLiteral("Login status"));

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(caption);
    layout->addWidget(m_login, 0, Qt::AlignLeft);
    layout->addWidget(statusLabel);
    layout->addStretch(1);
    resize(360, 140);

    connect(m_login, &QPushButton::clicked, this, &AccountView::logIn);
}

AccountView::~AccountView()
{
    // Replies aborted by the manager's destruction must not reach a half-
    // destroyed pane.
    m_closing = true;
    delete m_network;
}

QString AccountView::tokenEndpoint() const
{
    return domain + QStringLiteral("/oauth/token");
}

void AccountView::logIn()
{
    // The service reads these bodies as they are: they are not percent-encoded.
    const QString body = QStringLiteral("client_id=") + client_id + QStringLiteral("&client_secret=") +
                         secret + QStringLiteral("&audience=") + audience +
                         QStringLiteral("&grant_type=client_credentials");
    const QString rule = QStringLiteral("___________");
    consoleLine(rule);
    consoleLine(body);
    consoleLine(tokenEndpoint());
    consoleLine(rule);
    makeHttpRequest(tokenEndpoint(), body, [this](const QString &answer) { firstAnswer(answer); });
}

void AccountView::firstAnswer(const QString &answer)
{
    // Without a token the password grant would only be refused; stop here.
    const std::optional<QVariantMap> map = convertToDictionary(answer);
    if (!map)
        return;
    const QVariant token = map->value(QStringLiteral("access_token"));
    if (token.typeId() != QMetaType::QString) {
        consoleLine(QByteArrayView("No access_token in the answer"));
        return;
    }
    accessToken = token.toString();
    const QString body = QStringLiteral("client_id=") + client_id +
                         QStringLiteral("&grant_type=password&username=") + userName +
                         QStringLiteral("&password=") + password;
    makeHttpRequest(tokenEndpoint(), body, [](const QString &) {});
}

void AccountView::makeHttpRequest(const QString &url, const QString &params,
                                  std::function<void(const QString &)> cb)
{
    consoleLine(url);
    const QUrl target(url, QUrl::StrictMode);
    // A relative or host-less URL could never be sent either; treat it like a
    // malformed one rather than as a transport error.
    if (!target.isValid() || target.isRelative() || target.host().isEmpty()) {
        consoleLine(QStringLiteral("Invalid URL, nothing sent: ") + url);
        return;
    }

    QNetworkRequest request(target);
    request.setTransferTimeout(60000);
    request.setRawHeader("Content-Type", "application/x-www-form-urlencoded");
    request.setRawHeader("Accept", "application/json");
    if (!accessToken.isEmpty())
        request.setRawHeader("Authorization", "Bearer " + accessToken.toUtf8());

    QNetworkReply *reply = m_network->post(request, params.toUtf8());
    ++m_inFlight;
    connect(reply, &QNetworkReply::finished, this, [this, reply, cb = std::move(cb)] {
        reply->deleteLater();
        if (m_closing)
            return;
        --m_inFlight;
        consoleLine(describe(reply));
        // An HTTP status means the service answered; its body is the answer
        // whatever the status. Without one the request never got through.
        const bool answered = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid();
        if (!answered && reply->error() != QNetworkReply::NoError) {
            consoleLine(reply->errorString());
            cb(QString());
            return;
        }
        const QByteArray bytes = reply->readAll();
        QStringDecoder utf8(QStringDecoder::Utf8, QStringConverter::Flag::Stateless);
        QString text = utf8(bytes);
        const bool decoded = !utf8.hasError();
        if (!decoded)
            text.clear();
        consoleLine(QString::number(bytes.size()) + QStringLiteral(" bytes ") +
                    (decoded ? text : QStringLiteral("*unknown encoding*")));
        cb(text);
    });
}

std::optional<QVariantMap> AccountView::convertToDictionary(const QString &str)
{
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(str.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError) {
        consoleLine(QStringLiteral("Failed to load: ") + error.errorString());
        return std::nullopt;
    }
    if (!doc.isObject())
        return std::nullopt;
    return doc.object().toVariantMap();
}

} // namespace tapedesk

// Looked up by name when the account window is first opened (app/WindowModules.h).
extern "C" Q_DECL_EXPORT QWidget *tapedesk_makeAccountView()
{
    return new tapedesk::AccountView;
}

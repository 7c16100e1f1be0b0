// The identity service's answer read as a JSON object, e.g.
//   {"access_token":"eyJhbGciOi...","expires_in":86400,"token_type":"Bearer"}

#include "FuzzInput.h"
#include "ui/AccountView.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace tapedesk;

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::silenceConsole();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString answer = fuzz::decode(data, size);
    const std::optional<QVariantMap> map = AccountView::convertToDictionary(answer);

    // A map exactly when the text is one JSON object; the login then reads
    // its token as text, whatever type the value has.
    const QJsonDocument doc = QJsonDocument::fromJson(answer.toUtf8());
    fuzz::require(map.has_value() == doc.isObject());
    if (map) {
        fuzz::require(map->size() == doc.object().size());
        const QString token = map->value(QStringLiteral("access_token")).toString();
        fuzz::require(token.isEmpty() || map->contains(QStringLiteral("access_token")));
    }
    return 0;
}

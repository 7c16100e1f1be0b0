#pragma once

#include <QString>

namespace tapedesk {

// Texts the workflows share, exactly as the operator sees them.
inline const QString ERROR_CODE_OK = QStringLiteral("0");
inline const QString ALERT_WARNING = QStringLiteral("Warning!");
inline const QString ALERT_DESTRUCTIVE = QStringLiteral(
    "This is a destructive operation and will take approx. 30 mins - Insert a blank tape and press "
    "OK to continue or Cancel");
inline const QString ALERT_DESTRUCTIVE_RUN_TEST = QStringLiteral(
    "This is a destructive operation and will take approx. 20 mins - Insert a blank tape and press "
    "OK to continue or Cancel");
inline const QString ALERT_FIRMWARE_SURE = QStringLiteral(
    "Are you sure you want to upgrade, please contact corvel support before performing a upgrade.");
inline const QString STATUS_LOG_GATHERING =
    QStringLiteral("Gathering Log Info - This May Take Several Minutes\n");

// The question before a stop ends mkltfs.
inline const QString kStopFormatTitle = QStringLiteral("Stop the format?");

inline const QString MSG_NO_PREFERENCES = QStringLiteral("WARNING: No preferences set for paths");

// Support's address in the operator's closing lines; a deployment may set its
// own under this settings key.
inline const QString SUPPORT_EMAIL_KEY = QStringLiteral("SUPPORT_EMAIL");
inline const QString SUPPORT_EMAIL_DEFAULT = QStringLiteral("support@corvel-storage.example");
QString supportEmail();

} // namespace tapedesk

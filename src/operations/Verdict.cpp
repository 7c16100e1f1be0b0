#include "operations/Verdict.h"

namespace tapedesk {

QString outcomeName(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Complete:
        return QStringLiteral("Complete");
    case Outcome::Failed:
        return QStringLiteral("Failed");
    case Outcome::Refused:
        return QStringLiteral("Refused");
    case Outcome::Cancelled:
        return QStringLiteral("Cancelled");
    case Outcome::Stopped:
        return QStringLiteral("Stopped");
    }
    return QStringLiteral("Failed");
}

} // namespace tapedesk

#pragma once

#include <QString>

namespace tapedesk {

// How an operation ended, as the front ends, the journal and a command line's
// exit status learn it: once, when nothing of the operation is left.
enum class Outcome {
    Complete,  // the tool's own answer says it worked
    Failed,    // the tool said it failed, or said nothing TapeDesk can read
    Refused,   // nothing ran: a check before the first tool said no
    Cancelled, // the operator declined a question or a picker
    Stopped,   // the operator's Stop ended it
};

struct Verdict
{
    Outcome outcome = Outcome::Failed;
    // One line: why it failed or was refused; what completed.
    QString reason;
    // A refusal that the action's button shows as failed (a missing drive
    // does; a mounted tape's alert does not).
    bool marksButton = true;

    static Verdict complete(QString why = {}) { return {Outcome::Complete, std::move(why)}; }
    static Verdict failed(QString why) { return {Outcome::Failed, std::move(why)}; }
    static Verdict refused(QString why, bool marksButton = false)
    {
        return {Outcome::Refused, std::move(why), marksButton};
    }
    static Verdict cancelled(QString why) { return {Outcome::Cancelled, std::move(why)}; }
    static Verdict stopped(QString why) { return {Outcome::Stopped, std::move(why)}; }
};

// "Complete", "Failed", "Refused", "Cancelled" or "Stopped".
QString outcomeName(Outcome outcome);

} // namespace tapedesk

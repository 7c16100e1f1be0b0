#pragma once

#include "tools/ProcessRunner.h"

#include <QString>
#include <QStringList>

namespace tapedesk {

// The one error value of the command runner. Thrown by Bash when a command
// name cannot be turned into a program path.
struct BashError
{
    enum class Case { commandNotFound };
    Case kind = Case::commandNotFound;
    QString name;

    static BashError commandNotFound(const QString &name) { return {Case::commandNotFound, name}; }
};

class CommandExecuting
{
public:
    virtual ~CommandExecuting() = default;
    // Throws BashError.
    virtual QString execute(const QString &commandName, const QStringList &arguments) = 0;
};

// Finds a system command the way the operator's login shell would
// (/bin/bash -l -c "which NAME"), then runs it directly with only its standard
// output collected.
class Bash final : public CommandExecuting
{
public:
    QString execute(const QString &commandName, const QStringList &arguments) override;
    // execute() with standard error collected too, for callers that must
    // read the command's complaint ("umount: ...: target is busy."), and the
    // command killed after `timeoutMs` (ProcessRunner). Throws BashError.
    ProcessResult executeCollectingErrors(const QString &commandName, const QStringList &arguments,
                                          int timeoutMs = -1);

private:
    ProcessResult run(const QString &command, const QStringList &arguments, StreamMode mode,
                      int timeoutMs = -1);
    QString resolve(const QString &command);
};

} // namespace tapedesk

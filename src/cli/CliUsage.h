#pragma once

#include "operations/Face.h"

#include <QCommandLineParser>
#include <QList>
#include <QString>
#include <cstdio>

namespace tapedesk {

// One subcommand of tapedesk-cli: the action it runs and how it is used.
struct Command
{
    QString name;
    Action action;
    bool needsDrive;
    QString usage;
    QString summary;
};

// The subcommands, in the order the help lists them.
const QList<Command> &commands();

// The options every subcommand shares.
void addCliOptions(QCommandLineParser &parser);

// The help: the whole program's, or one command's when `command` is set.
QString helpText(const QCommandLineParser &parser, const Command *command);

// `text` as UTF-8 on `stream`, at once.
void out(const QString &text, FILE *stream = stdout);

} // namespace tapedesk

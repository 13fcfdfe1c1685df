#pragma once

#include "commandline/CommandLine.h"

#include <QString>
#include <QStringList>
#include <QVector>

/// What may stand at one place of a command line, for the completion of a shell.
struct Completion
{
    struct Candidate
    {
        QString word;
        /// A few words for shells that show them; may be empty.
        QString description;
    };

    QVector<Candidate> candidates;
    /// How the names of the files that fit end, beside which folders lead on; "/" if folders alone
    /// fit, empty if no file does. The shell itself knows best how to complete them.
    QString fileEnding;
};

/// What fits as the last of @p words, which stand behind the name of the tool. The last may be
/// empty; only candidates that begin with it are given.
///
/// A Failure says why the description that the words name cannot be read.
Completion completionOf(const QStringList &words, const QVector<CommandSyntax> &subcommands);

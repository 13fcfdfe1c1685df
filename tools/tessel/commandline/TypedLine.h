#pragma once

#include "commandline/CommandLine.h"

#include <QString>
#include <QStringList>

/// A command line that is being typed, up to the word under the cursor. Takes whatever it finds: what
/// makes no sense yet may do so with the next words.
class TypedLine
{
public:
    /// @p words stand behind the name of the subcommand.
    TypedLine(const CommandSyntax &syntax, const QStringList &words);

    /// The positional arguments that are complete, with the description that the environment names
    /// where it was left out.
    const QStringList &positionals() const { return m_positionals; }
    /// The word under the cursor, or that part of --option=VALUE which is the value.
    const QString &current() const { return m_current; }
    /// What stands in front of it in the same word: empty, or "--option=".
    const QString &currentPrefix() const { return m_currentPrefix; }
    /// What the option, of which current() is the value, calls it: STATE. Empty if it is none.
    const QString &valueName() const { return m_valueName; }
    bool isOption() const;
    /// Whether an option without a value stands there by its long name.
    bool isSet(const QString &name) const { return m_setOptions.contains(name); }
    /// The same line as if the description were left out here; the line itself where it cannot be.
    TypedLine behindDescription() const;

private:
    void take(const QString &word);
    QString valueNameOf(const QString &word) const;

    const CommandSyntax &m_syntax;
    QStringList m_positionals;
    QStringList m_setOptions;
    QString m_current;
    QString m_currentPrefix;
    QString m_valueName;
    bool m_optionsEnded = false;
};

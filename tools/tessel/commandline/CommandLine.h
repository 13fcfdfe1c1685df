#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QString>
#include <QStringList>
#include <QVector>

/// What one subcommand takes: the words of its help and the rules by which it is parsed.
struct CommandSyntax
{
    struct Positional
    {
        /// As it stands in the usage line: FILE, or [URL...].
        QString placeholder;
        QString description;
        /// Where it is left out, the environment may name it: see defaultDescription().
        bool isDescription = false;
    };

    /// What the first argument may name, and the options that are not for every action.
    struct Action
    {
        QString name;
        QStringList options;
    };

    QString name;
    /// One line, for the list of subcommands.
    QString summary;
    QVector<Positional> positionals;
    int leastPositionals = 0;
    /// -1: any number.
    int mostPositionals = 0;
    QList<QCommandLineOption> options;
    /// Whole lines, each a call and what it is for.
    QString examples;
    /// Of a subcommand whose first argument tells what to do.
    QVector<Action> actions = {};
    /// Left out of the list of subcommands: for programs, not for people.
    bool isHidden = false;
};

/// The arguments of one subcommand, parsed by its syntax.
///
/// An argument such as -5 or -0.1 is a value and never an option. A Failure of WrongUse says what
/// does not fit and what was probably meant.
class CommandLine
{
public:
    CommandLine(const CommandSyntax &syntax, const QStringList &arguments);

    bool isHelpAsked() const;
    bool isVerbose() const;
    /// Refuses too few or too many positional arguments.
    void checkPositionals() const;

    QString positional(int index) const;
    QStringList positionalsFrom(int index) const;

    bool isSet(const QString &option) const { return m_parser.isSet(option); }
    QString value(const QString &option) const;
    /// Of an option that may be given several times.
    QStringList values(const QString &option) const { return m_parser.values(option); }
    /// A whole number from @p least to @p most.
    int number(const QString &option, int least, int most, int whenMissing) const;

private:
    [[noreturn]] void refuse(const QString &reason) const;
    void refuseUnknownOption() const;

    const CommandSyntax &m_syntax;
    QCommandLineParser m_parser;
    QStringList m_positionals;
};

/// The file or folder that stands for a description which is left out, from TESSEL_DIR in the
/// environment; empty if there is none.
QString defaultDescription();
/// Whether a word is meant as the path of a description: it exists, or ends as the names of files do.
bool isDescriptionPath(const QString &word);
/// The position of the description among the arguments; -1 if it cannot be left out.
int descriptionPosition(const CommandSyntax &syntax);
/// The arguments of the subcommand with the default description in its place, where it was left out.
QStringList withDescription(const CommandSyntax &syntax, const QStringList &positionals);

/// Whether an argument such as -5 is meant as a value.
bool isNegativeNumber(const QString &argument);
/// The options of the subcommand and those that every one takes.
QList<QCommandLineOption> allOptions(const CommandSyntax &syntax);

/// The names of the actions of the subcommand.
QStringList actionNames(const CommandSyntax &syntax);
/// Whether the action goes with an option of its subcommand; one that belongs to no action goes with
/// all.
bool mayTakeOption(const CommandSyntax &syntax, const QString &action, const QString &option);

/// The text of `tessel SUBCOMMAND --help`.
QString helpText(const CommandSyntax &syntax);

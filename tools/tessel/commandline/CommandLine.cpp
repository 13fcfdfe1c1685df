#include "commandline/CommandLine.h"

#include "text/Failure.h"
#include "text/Suggestion.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QtGlobal>

#include <algorithm>

namespace {

/// Stands before a negative number while Qt's parser sees it, which would take it for an option.
constexpr QChar numberMark(0xE000);

QStringList withMarkedNumbers(const QStringList &arguments)
{
    QStringList marked;
    for (const auto &argument : arguments) {
        marked.append(isNegativeNumber(argument) ? numberMark + argument : argument);
    }
    return marked;
}

QString withoutMark(const QString &argument)
{
    return argument.startsWith(numberMark) ? argument.mid(1) : argument;
}

QCommandLineOption helpOption()
{
    return {{QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Show this help.")};
}

QCommandLineOption verboseOption()
{
    return {{QStringLiteral("v"), QStringLiteral("verbose")},
            QStringLiteral("Show the library's messages on standard error.")};
}

QString spelled(const QString &name)
{
    return (name.size() == 1 ? QStringLiteral("-") : QStringLiteral("--")) + name;
}

QString spelled(const QCommandLineOption &option)
{
    QStringList names;
    const QStringList spellings = option.names();
    for (const auto &name : spellings) {
        names.append(spelled(name));
    }
    const QString all = names.join(QStringLiteral(", "));
    return option.valueName().isEmpty() ? all : all + QLatin1Char(' ') + option.valueName();
}

/// Left and right of each line of a help.
using HelpLines = QVector<QPair<QString, QString>>;

int widthOf(const HelpLines &lines)
{
    int width = 18;
    for (const auto &line : lines) {
        width = std::max(width, line.first.size());
    }
    return width;
}

QString helpText(const HelpLines &lines, int width)
{
    QString text;
    for (const auto &line : lines) {
        text += QStringLiteral("  ") + line.first.leftJustified(width) + QStringLiteral("  ")
                + line.second + QLatin1Char('\n');
    }
    return text;
}

} // namespace

CommandLine::CommandLine(const CommandSyntax &syntax, const QStringList &arguments)
    : m_syntax(syntax)
{
    m_parser.addOptions(allOptions(syntax));
    if (m_parser.parse(QStringList(syntax.name) + withMarkedNumbers(arguments))) {
        const QStringList given = m_parser.positionalArguments();
        for (const auto &positional : given) {
            m_positionals.append(withoutMark(positional));
        }
        m_positionals = withDescription(syntax, m_positionals);
        return;
    }
    refuseUnknownOption();
    QString reason = m_parser.errorText();
    while (reason.endsWith(QLatin1Char('.'))) {
        reason.chop(1);
    }
    refuse(reason);
}

bool CommandLine::isHelpAsked() const
{
    return isSet(QStringLiteral("help"));
}

bool CommandLine::isVerbose() const
{
    return isSet(QStringLiteral("verbose"));
}

void CommandLine::checkPositionals() const
{
    const int count = m_positionals.size();
    if (count < m_syntax.leastPositionals) {
        refuse(QStringLiteral("%1 is missing").arg(m_syntax.positionals[count].placeholder));
    }
    if (m_syntax.mostPositionals >= 0 && count > m_syntax.mostPositionals) {
        refuse(QStringLiteral("'%1' is one argument too many")
                   .arg(positional(m_syntax.mostPositionals)));
    }
}

QString CommandLine::positional(int index) const
{
    return m_positionals.value(index);
}

QStringList CommandLine::positionalsFrom(int index) const
{
    return m_positionals.mid(index);
}

QString CommandLine::value(const QString &option) const
{
    return withoutMark(m_parser.value(option));
}

int CommandLine::number(const QString &option, int least, int most, int whenMissing) const
{
    if (!isSet(option)) {
        return whenMissing;
    }
    bool ok = false;
    const int number = value(option).toInt(&ok);
    if (!ok || number < least || number > most) {
        refuse(QStringLiteral("--%1 takes a whole number from %2 to %3, not '%4'")
                   .arg(option)
                   .arg(least)
                   .arg(most)
                   .arg(value(option)));
    }
    return number;
}

void CommandLine::refuse(const QString &reason) const
{
    throw Failure{ExitCode::WrongUse,
                  QStringLiteral("%1: %2; see 'tessel %1 --help'").arg(m_syntax.name, reason)};
}

void CommandLine::refuseUnknownOption() const
{
    if (m_parser.unknownOptionNames().isEmpty()) {
        return;
    }
    QStringList known{QStringLiteral("verbose"), QStringLiteral("help")};
    for (const auto &option : m_syntax.options) {
        known += option.names();
    }
    for (auto &name : known) {
        name = spelled(name);
    }
    const QString unknown = spelled(m_parser.unknownOptionNames().constFirst());
    refuse(QStringLiteral("unknown option '%1'%2").arg(unknown, suggestion(unknown, known)));
}

QString defaultDescription()
{
    return QString::fromUtf8(qgetenv("TESSEL_DIR"));
}

bool isDescriptionPath(const QString &word)
{
    return word.endsWith(QLatin1String(".json")) || QFileInfo::exists(word);
}

int descriptionPosition(const CommandSyntax &syntax)
{
    const auto *const found = std::find_if(
        syntax.positionals.cbegin(), syntax.positionals.cend(),
        [](const CommandSyntax::Positional &positional) { return positional.isDescription; });
    return found == syntax.positionals.cend()
               ? -1
               : static_cast<int>(found - syntax.positionals.cbegin());
}

QStringList withDescription(const CommandSyntax &syntax, const QStringList &positionals)
{
    const int position = descriptionPosition(syntax);
    const QString description = defaultDescription();
    QStringList complete = positionals;
    const QString word = complete.value(position);
    // Too few words are not the description as well, unless they can be nothing else.
    const bool isOtherFile = complete.size() < syntax.leastPositionals
                             && !word.endsWith(QLatin1String(".process.json"))
                             && !QFileInfo(word).isDir();
    if (position >= 0 && position <= complete.size() && !description.isEmpty()
        && (!isDescriptionPath(word) || isOtherFile)) {
        complete.insert(position, description);
    }
    return complete;
}

bool isNegativeNumber(const QString &argument)
{
    static const QRegularExpression negativeNumber(QStringLiteral("^-(\\.?[0-9]|inf|nan)"),
                                                   QRegularExpression::CaseInsensitiveOption);
    return negativeNumber.match(argument).hasMatch();
}

QList<QCommandLineOption> allOptions(const CommandSyntax &syntax)
{
    return syntax.options + QList<QCommandLineOption>{verboseOption(), helpOption()};
}

QStringList actionNames(const CommandSyntax &syntax)
{
    QStringList names;
    for (const auto &action : syntax.actions) {
        names.append(action.name);
    }
    return names;
}

bool mayTakeOption(const CommandSyntax &syntax, const QString &action, const QString &option)
{
    bool isOfAnother = false;
    for (const auto &candidate : syntax.actions) {
        const bool takes = candidate.options.contains(option);
        if (takes && action == candidate.name) {
            return true;
        }
        isOfAnother = isOfAnother || takes;
    }
    return !isOfAnother;
}

QString helpText(const CommandSyntax &syntax)
{
    QString usage = QStringLiteral("Usage: tessel %1 [OPTION...]").arg(syntax.name);
    HelpLines positionals;
    for (const auto &positional : syntax.positionals) {
        usage += QLatin1Char(' ') + positional.placeholder;
        positionals.append({positional.placeholder, positional.description});
    }
    HelpLines options;
    const QList<QCommandLineOption> known = allOptions(syntax);
    for (const auto &option : known) {
        options.append({spelled(option), option.description()});
    }
    const int width = widthOf(positionals + options);
    const QString arguments =
        positionals.isEmpty()
            ? QString()
            : QStringLiteral("Arguments:\n%1\n").arg(helpText(positionals, width));
    return QStringLiteral("%1\n\n%2\n\n%3Options:\n%4\nExamples:\n%5")
        .arg(usage, syntax.summary, arguments, helpText(options, width), syntax.examples);
}

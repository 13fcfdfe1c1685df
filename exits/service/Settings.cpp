#include "service/Settings.h"

#include "Companion/NearestWord.h"
#include "service/Refusal.h"
#include "service/SettingsText.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace {

const QLatin1String dashes("--");

[[noreturn]] void refuseUse(const ProgramSyntax &syntax, const QString &reason)
{
    throw Refusal{ExitCode::WrongUse,
                  QStringLiteral("%1; see '%2 --help'").arg(reason, syntax.program)};
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    if (!QFileInfo(path).isFile()) {
        throw Refusal{ExitCode::NotFound,
                      QStringLiteral("%1: no such configuration file").arg(path)};
    }
    if (!file.open(QIODevice::ReadOnly)) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("%1: %2; the user of this program has to be able to read it")
                          .arg(path, file.errorString())};
    }
    const QByteArray content = file.read(Settings::sm_mostBytes + 1);
    if (content.size() > Settings::sm_mostBytes) {
        throw Refusal{ExitCode::InputOutputFile,
                      QStringLiteral("%1: is larger than %2 bytes; is it a configuration?")
                          .arg(path, QString::number(Settings::sm_mostBytes))};
    }
    return content;
}

/// Of the command line alone.
QStringList namesOfOptions(const ProgramSyntax &syntax)
{
    QStringList names{QStringLiteral("config"), QStringLiteral("help"), QStringLiteral("version")};
    for (const auto &setting : syntax.settings) {
        names.append(setting.name);
    }
    return names;
}

[[noreturn]] void refuseUnknown(const ProgramSyntax &syntax, const QString &word,
                                const QString &name)
{
    const QString nearest = nearestWord(name, namesOfOptions(syntax));
    refuseUse(syntax, QStringLiteral("unknown option '%1'%2")
                          .arg(word, nearest.isEmpty()
                                         ? QString()
                                         : QStringLiteral(" (did you mean '--%1'?)").arg(nearest)));
}

/// `-o` as `--output`.
QString inLong(const ProgramSyntax &syntax, const QString &word)
{
    const auto found = std::find_if(
        syntax.settings.cbegin(), syntax.settings.cend(), [&](const SettingSyntax &setting) {
            return !setting.letter.isNull() && word == QLatin1Char('-') + QString(setting.letter);
        });
    return found == syntax.settings.cend() ? word : dashes + found->name;
}

QString optionLine(const QString &left, const QString &summary)
{
    return QStringLiteral("  %1  %2\n").arg(left, -27).arg(summary);
}

QString summaryOf(const SettingSyntax &setting)
{
    return setting.usual.isEmpty() || setting.type == SettingSyntax::Type::Flag
               ? setting.summary
               : QStringLiteral("%1 (%2).").arg(setting.summary.chopped(1), setting.usual);
}

} // namespace

QString SettingGroup::text(const QString &name) const
{
    const auto value = m_values.constFind(name);
    if (value != m_values.cend()) {
        return value->constLast();
    }
    const SettingSyntax *setting = find(name);
    return setting == nullptr ? QString() : setting->usual;
}

const SettingSyntax *SettingGroup::find(const QString &name) const
{
    const auto found = std::find_if(m_syntax.cbegin(), m_syntax.cend(),
                                    [&](const auto &setting) { return setting.name == name; });
    return found == m_syntax.cend() ? nullptr : &*found;
}

QString SettingGroup::problemOf(const SettingSyntax &setting, const QString &value)
{
    if (value.isEmpty()) {
        return QStringLiteral("has no value");
    }
    if (setting.type == SettingSyntax::Type::Flag && value != QLatin1String("yes")
        && value != QLatin1String("no")) {
        return QStringLiteral("takes yes or no, not '%1'").arg(value);
    }
    if (setting.type == SettingSyntax::Type::Number) {
        bool ok = false;
        const qint64 number = value.toLongLong(&ok);
        if (!ok || number < setting.least || number > setting.most) {
            return QStringLiteral("takes a whole number from %1 to %2, not '%3'")
                .arg(QString::number(setting.least), QString::number(setting.most), value);
        }
    }
    return {};
}

void SettingGroup::add(const SettingSyntax &setting, const QString &value)
{
    QStringList &values = m_values[setting.name];
    if (setting.type != SettingSyntax::Type::List) {
        values.clear();
    }
    values.append(value);
}

void SettingGroup::override(const SettingGroup &other)
{
    for (auto value = other.m_values.cbegin(); value != other.m_values.cend(); ++value) {
        m_values.insert(value.key(), value.value());
    }
}

Settings::Settings(const ProgramSyntax &syntax) : m_settings(syntax.settings) { }

Settings Settings::fromText(const ProgramSyntax &syntax, const QByteArray &text,
                            const QString &name)
{
    Settings settings(syntax);
    SettingsText(syntax, name, settings).take(text);
    return settings;
}

Settings Settings::fromCommandLine(const ProgramSyntax &syntax, const QStringList &words)
{
    Settings typed(syntax);
    typed.takeWords(syntax, words);
    if (typed.m_file.isEmpty() || typed.m_isHelpAsked || typed.m_isVersionAsked) {
        return typed;
    }
    Settings settings = fromText(syntax, contentOf(typed.m_file), typed.m_file);
    settings.m_settings.override(typed.m_settings);
    settings.m_positionals = typed.m_positionals;
    return settings;
}

void Settings::takeWords(const ProgramSyntax &syntax, QStringList words)
{
    bool isOptionAllowed = true;
    while (!words.isEmpty()) {
        const QString word = words.takeFirst();
        if (isOptionAllowed && word == dashes) {
            isOptionAllowed = false;
        } else if (isOptionAllowed && word == QLatin1String("-h")) {
            m_isHelpAsked = true;
        } else if (isOptionAllowed && word.startsWith(QLatin1Char('-')) && word.size() > 1) {
            takeOption(syntax, inLong(syntax, word), words);
        } else if (word.isEmpty()) {
            refuseUse(syntax, QStringLiteral("an empty argument names no description"));
        } else if (syntax.takesNone) {
            refuseUse(syntax,
                      QStringLiteral("'%1' is too much; it takes no description").arg(word));
        } else if (!m_positionals.isEmpty() && !syntax.takesSeveral) {
            refuseUse(syntax, QStringLiteral("one description at a time, not '%1' as well as '%2'")
                                  .arg(word, m_positionals[0]));
        } else {
            m_positionals.append(word);
        }
    }
}

void Settings::takeOption(const ProgramSyntax &syntax, const QString &word, QStringList &rest)
{
    const int equals = word.indexOf(QLatin1Char('='));
    const QString name = word.startsWith(dashes) ? word.mid(2, equals < 0 ? -1 : equals - 2)
                                                 : QString();
    const bool isFile = name == QLatin1String("config");
    const SettingSyntax *setting = m_settings.find(name);
    const bool isFlag = setting != nullptr && setting->type == SettingSyntax::Type::Flag;
    if (equals < 0 && name == QLatin1String("help")) {
        m_isHelpAsked = true;
        return;
    }
    if (equals < 0 && name == QLatin1String("version")) {
        m_isVersionAsked = true;
        return;
    }
    if (setting == nullptr && !isFile) {
        refuseUnknown(syntax, word, name);
    }
    QString value = equals < 0 ? QString() : word.mid(equals + 1);
    if (equals < 0 && isFlag) {
        value = QStringLiteral("yes");
    } else if (equals < 0 && rest.isEmpty()) {
        refuseUse(syntax, QStringLiteral("--%1 needs a value").arg(name));
    } else if (equals < 0) {
        value = rest.takeFirst();
    }
    const QString problem = isFile ? (value.isEmpty() ? QStringLiteral("has no value") : QString())
                                   : SettingGroup::problemOf(*setting, value);
    if (!problem.isEmpty()) {
        refuseUse(syntax, QStringLiteral("--%1 %2").arg(name, problem));
    }
    if (isFile) {
        m_file = value;
    } else {
        m_settings.add(*setting, value);
    }
}

QString Settings::description() const
{
    const QString named = m_positionals.isEmpty() ? m_settings.text(QStringLiteral("description"))
                                                  : positional();
    const QString path = named.isEmpty() ? qEnvironmentVariable("TESSEL_DIR") : named;
    if (path.isEmpty()) {
        throw Refusal{ExitCode::WrongUse,
                      QStringLiteral("no description; name a file or folder, set 'description' in "
                                     "the configuration, or TESSEL_DIR")};
    }
    return path;
}

QString Settings::helpText(const ProgramSyntax &syntax)
{
    const QString descriptions = syntax.takesNone
                                     ? QString()
                                     : (syntax.takesSeveral ? QStringLiteral(" FILE|DIR...")
                                                            : QStringLiteral(" FILE|DIR"));
    QString text = QStringLiteral("Usage: %1 [OPTION...]%2\n\n%3\n\nOptions:\n")
                       .arg(syntax.program, descriptions, syntax.summary);
    text += optionLine(QStringLiteral("--config FILE"),
                       QStringLiteral("Take settings from a file; options win over it."));
    for (const auto &setting : syntax.settings) {
        const QString name = setting.letter.isNull() ? dashes + setting.name
                                                     : QStringLiteral("-%1, ").arg(setting.letter)
                                                           + dashes + setting.name;
        const QString left = setting.type == SettingSyntax::Type::Flag
                                 ? name
                                 : name + QLatin1Char(' ') + setting.placeholder;
        text += optionLine(left, summaryOf(setting));
    }
    text += optionLine(QStringLiteral("-h, --help"), QStringLiteral("Show this help."));
    text += optionLine(QStringLiteral("--version"), QStringLiteral("Show the version."));
    return text + QStringLiteral("\nExamples:\n") + syntax.examples;
}

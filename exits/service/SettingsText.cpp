#include "service/SettingsText.h"

#include "Companion/NearestWord.h"
#include "service/Refusal.h"

#include <QTextCodec>

#include <algorithm>

namespace {

QString hint(const QString &word, const QStringList &known)
{
    const QString nearest = nearestWord(word, known);
    return nearest.isEmpty() ? QString() : QStringLiteral(" (did you mean '%1'?)").arg(nearest);
}

QStringList namesForFiles(const QVector<SettingSyntax> &settings)
{
    QStringList names;
    for (const auto &setting : settings) {
        if (!setting.isOptionOnly) {
            names.append(setting.name);
        }
    }
    return names;
}

/// From 1, of the first character that is no blank.
int columnOf(const QString &line, int from = 0)
{
    int at = from;
    while (at < line.size() && line[at].isSpace()) {
        ++at;
    }
    return at + 1;
}

} // namespace

void SettingsText::take(const QByteArray &text)
{
    QTextCodec::ConverterState state;
    QString decoded = QTextCodec::codecForName("UTF-8")->toUnicode(text.constData(), text.size(),
                                                                   &state);
    if (state.invalidChars > 0 || state.remainingChars > 0) {
        throw Refusal{ExitCode::WrongUse,
                      QStringLiteral("%1: is no UTF-8 text; save it as such").arg(m_name)};
    }
    if (decoded.startsWith(QChar::ByteOrderMark)) {
        decoded.remove(0, 1);
    }
    const QStringList lines = decoded.split(QLatin1Char('\n'));
    for (const auto &line : lines) {
        ++m_line;
        takeLine(line.endsWith(QLatin1Char('\r')) ? line.chopped(1) : line);
    }
}

void SettingsText::takeLine(const QString &line)
{
    const QString content = line.trimmed();
    if (content.isEmpty() || content.startsWith(QLatin1Char('#'))) {
        return;
    }
    if (content.contains(QChar::Null)) {
        refuse(line.indexOf(QChar::Null) + 1,
               QStringLiteral("holds a character 0; a configuration is plain text"));
    }
    if (content.startsWith(QLatin1Char('['))) {
        takeSection(content, columnOf(line));
    } else {
        takeSetting(line, columnOf(line));
    }
}

void SettingsText::takeSection(const QString &line, int column)
{
    if (!line.endsWith(QLatin1Char(']'))) {
        refuse(column + line.size(), QStringLiteral("a section ends with ']'"));
    }
    const QString inside = line.mid(1, line.size() - 2).simplified();
    const QString name = inside.section(QLatin1Char(' '), 0, 0);
    const QString argument = inside.section(QLatin1Char(' '), 1);
    const auto found = std::find_if(m_syntax.sections.cbegin(), m_syntax.sections.cend(),
                                    [&](const auto &section) { return section.name == name; });
    if (found == m_syntax.sections.cend()) {
        QStringList names;
        for (const auto &section : m_syntax.sections) {
            names.append(section.name);
        }
        refuse(column + 1, QStringLiteral("unknown section '%1'%2").arg(name, hint(name, names)));
    }
    if (argument.isEmpty() != found->argument.isEmpty()) {
        refuse(column + 1,
               QStringLiteral("a section [%1] takes %2")
                   .arg(name, found->argument.isEmpty()
                                  ? QStringLiteral("nothing behind its name")
                                  : QStringLiteral("one %1 behind its name").arg(found->argument)));
    }
    m_target.m_sections.append({name, argument, SettingGroup(found->settings)});
    m_group = &m_target.m_sections.last().settings;
}

void SettingsText::takeSetting(const QString &line, int column)
{
    const int equals = line.indexOf(QLatin1Char('='));
    if (equals < 0) {
        refuse(column, QStringLiteral("is no 'key = value'; a comment begins with '#'"));
    }
    const QString name = line.left(equals).trimmed();
    const QString value = line.mid(equals + 1).trimmed();
    const SettingSyntax *setting = m_group->find(name);
    if (setting == nullptr || setting->isOptionOnly) {
        refuse(column, QStringLiteral("unknown key '%1'%2")
                           .arg(name, hint(name, namesForFiles(m_group->syntax()))));
    }
    const QString problem = SettingGroup::problemOf(*setting, value);
    if (!problem.isEmpty()) {
        refuse(columnOf(line, equals + 1), QStringLiteral("'%1' %2").arg(name, problem));
    }
    if (setting->type != SettingSyntax::Type::List && m_group->isSet(name)) {
        refuse(column, QStringLiteral("'%1' is given twice; leave one").arg(name));
    }
    m_group->add(*setting, value);
}

void SettingsText::refuse(int column, const QString &reason) const
{
    throw Refusal{ExitCode::WrongUse,
                  QStringLiteral("%1:%2:%3: %4")
                      .arg(m_name, QString::number(m_line), QString::number(column), reason)};
}

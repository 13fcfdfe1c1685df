#include "commandline/TypedLine.h"

namespace {

/// Alone it ends the options; in front of a name it begins one.
const QLatin1String optionMark("--");

bool looksLikeOption(const QString &word)
{
    return word.startsWith(QLatin1Char('-')) && !isNegativeNumber(word);
}

} // namespace

TypedLine::TypedLine(const CommandSyntax &syntax, const QStringList &words) : m_syntax(syntax)
{
    for (int i = 0; i + 1 < words.size(); ++i) {
        take(words[i]);
    }
    // What stands under the cursor may yet become its path.
    if (m_positionals.size() > descriptionPosition(syntax)) {
        m_positionals = withDescription(syntax, m_positionals);
    }
    m_current = words.isEmpty() ? QString() : words.constLast();
    const int equalSign = m_current.indexOf(QLatin1Char('='));
    if (!isOption() || equalSign < 0) {
        return;
    }
    m_currentPrefix = m_current.left(equalSign + 1);
    m_valueName = valueNameOf(m_current.left(equalSign));
    m_current.remove(0, equalSign + 1);
}

bool TypedLine::isOption() const
{
    return m_valueName.isEmpty() && !m_optionsEnded && m_currentPrefix.isEmpty()
           && looksLikeOption(m_current);
}

TypedLine TypedLine::behindDescription() const
{
    TypedLine line = *this;
    if (m_positionals.size() == descriptionPosition(m_syntax)) {
        line.m_positionals = withDescription(m_syntax, m_positionals);
    }
    return line;
}

void TypedLine::take(const QString &word)
{
    if (!m_valueName.isEmpty()) {
        m_valueName.clear();
        return;
    }
    if (m_optionsEnded || !looksLikeOption(word)) {
        m_positionals.append(word);
        return;
    }
    m_optionsEnded = word == optionMark;
    if (word.startsWith(optionMark)) {
        m_setOptions.append(word.mid(optionMark.size()));
    }
    m_valueName = valueNameOf(word);
}

QString TypedLine::valueNameOf(const QString &word) const
{
    const bool isShort = word.size() == 2 && word != optionMark;
    if (!word.startsWith(optionMark) && !(isShort && word.startsWith(QLatin1Char('-')))) {
        return {};
    }
    const QString name = word.mid(isShort ? 1 : optionMark.size());
    for (const auto &option : m_syntax.options) {
        if (option.names().contains(name)) {
            return option.valueName();
        }
    }
    return {};
}

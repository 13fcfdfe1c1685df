#include "expressions/ExpressionTokens.h"

#include "expressions/Duration.h"

namespace {

using Kind = ExpressionToken::Kind;

constexpr QChar escapeMark('\\');

bool endsWord(QChar character)
{
    return character.isSpace() || QStringLiteral("()<>=!{}\"'").contains(character);
}

bool beginsNumber(const QString &word)
{
    const int sign = word.startsWith(QLatin1Char('-')) || word.startsWith(QLatin1Char('+')) ? 1 : 0;
    const QChar first = word.size() > sign ? word[sign] : QChar();
    return first.isDigit() || first == QLatin1Char('.');
}

} // namespace

ExpressionToken ExpressionTokens::token(Kind kind, int begin) const
{
    ExpressionToken token;
    token.kind = kind;
    token.place = {begin, m_at};
    return token;
}

ExpressionToken ExpressionTokens::next()
{
    while (m_at < m_text.size() && m_text[m_at].isSpace()) {
        ++m_at;
    }
    if (m_at == m_text.size()) {
        return token(Kind::End, m_at);
    }
    const QChar first = m_text[m_at];
    switch (first.unicode()) {
    case '(': ++m_at; return token(Kind::Open, m_at - 1);
    case ')': ++m_at; return token(Kind::Close, m_at - 1);
    case '"':
    case '\'': return quoted(first, Kind::Text);
    case '{': return quoted(QLatin1Char('}'), Kind::Url);
    default: return endsWord(first) ? sign() : word();
    }
}

ExpressionToken ExpressionTokens::quoted(QChar closing, Kind kind)
{
    const int begin = m_at++;
    QString content;
    while (m_at < m_text.size() && m_text[m_at] != closing) {
        const bool isEscaped = m_text[m_at] == escapeMark && m_at + 1 < m_text.size();
        m_at += isEscaped ? 1 : 0;
        content += m_text[m_at++];
    }
    if (m_at == m_text.size()) {
        throw ExpressionError{{begin, begin + 1},
                              QStringLiteral("the closing %1 is missing").arg(closing)};
    }
    ++m_at;
    ExpressionToken result = token(kind, begin);
    result.text = content;
    return result;
}

ExpressionToken ExpressionTokens::sign()
{
    const int begin = m_at;
    const QChar first = m_text[m_at++];
    const bool hasEqual = m_at < m_text.size() && m_text[m_at] == QLatin1Char('=');
    m_at += hasEqual ? 1 : 0;
    ExpressionToken result = token(Kind::Comparison, begin);
    switch (first.unicode()) {
    case '<': result.comparison = hasEqual ? Comparison::LessOrEqual : Comparison::Less; break;
    case '>':
        result.comparison = hasEqual ? Comparison::GreaterOrEqual : Comparison::Greater;
        break;
    case '=': result.comparison = Comparison::Equal; break;
    default:
        if (first != QLatin1Char('!') || !hasEqual) {
            throw ExpressionError{
                {begin, begin + 1},
                first == QLatin1Char('!')
                    ? QStringLiteral("'!' is no operator (did you mean 'not'?)")
                    : QStringLiteral("there is no '%1' to be closed").arg(QLatin1Char('{'))};
        }
        result.comparison = Comparison::NotEqual;
    }
    return result;
}

ExpressionToken ExpressionTokens::word()
{
    const int begin = m_at;
    while (m_at < m_text.size() && !endsWord(m_text[m_at])) {
        ++m_at;
    }
    ExpressionToken result = token(Kind::Word, begin);
    result.text = m_text.mid(begin, m_at - begin);
    if (!beginsNumber(result.text)) {
        return result;
    }
    if (const auto number = ExactNumber::fromText(result.text)) {
        result.kind = Kind::Number;
        result.number = *number;
    } else if (const auto duration = durationFromText(result.text)) {
        result.kind = Kind::Duration;
        result.duration = *duration;
    } else if (looksLikeNumber(result.text)) {
        throw ExpressionError{result.place, QStringLiteral("no double is as large or as small as "
                                                           "this number, and no integer")};
    }
    return result;
}

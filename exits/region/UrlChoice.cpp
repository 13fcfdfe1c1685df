#include "region/UrlChoice.h"

#include <algorithm>

namespace {

// What stands between two stars is found as early as it can be, which leaves the most to what comes behind,
// and is not looked for again: so many stars cost no more than the two lengths multiplied.

QString expressionOfPiece(const QString &piece)
{
    const QStringList parts = piece.split(QLatin1Char('*'));
    QString text = QRegularExpression::escape(parts.first());
    for (int i = 1; i < parts.size(); ++i) {
        const QString part = QStringLiteral("[^/]*?") + QRegularExpression::escape(parts[i]);
        text += i + 1 < parts.size() ? QStringLiteral("(?>%1)").arg(part) : part;
    }
    return text;
}

QRegularExpression expressionOf(const QString &pattern)
{
    const QStringList pieces = pattern.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    if (pieces.isEmpty()) {
        return QRegularExpression(QStringLiteral("(?!)"));
    }
    // A URL is looked at with a slash behind it, so that each of its pieces ends in one.
    QString text = QStringLiteral("^(?>");
    for (const auto &piece : pieces) {
        text += piece == QLatin1String("**") ? QStringLiteral(")(?>(?:[^/]+/)*?")
                                             : expressionOfPiece(piece) + QLatin1Char('/');
    }
    return QRegularExpression(text + QLatin1Char(')'));
}

} // namespace

UrlChoice::UrlChoice(const QStringList &patterns) : m_patterns(patterns)
{
    for (const auto &pattern : patterns) {
        m_expressions.append(expressionOf(pattern));
    }
}

bool UrlChoice::leadsTo(const QString &url) const
{
    const QString whole = url + QLatin1Char('/');
    return std::any_of(m_expressions.cbegin(), m_expressions.cend(),
                       [&](const auto &expression) { return expression.match(whole).hasMatch(); });
}

QString UrlChoice::findUnused(const QStringList &urls) const
{
    for (int i = 0; i < m_patterns.size(); ++i) {
        const bool isUsed = std::any_of(urls.cbegin(), urls.cend(), [&](const QString &url) {
            return m_expressions[i].match(url + QLatin1Char('/')).hasMatch();
        });
        if (!isUsed) {
            return m_patterns[i];
        }
    }
    return {};
}

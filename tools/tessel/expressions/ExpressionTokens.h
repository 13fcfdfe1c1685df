#pragma once

#include "expressions/Expression.h"

#include <QString>

/// A word or sign of an expression.
struct ExpressionToken
{
    enum class Kind {
        Word, ///< a URL, or a word of the language
        Url,  ///< in braces, so a URL whatever it looks like
        Text,
        Number,
        Duration,
        Comparison,
        Open,
        Close,
        End
    };

    Kind kind = Kind::End;
    TextPlace place;
    QString text; ///< without quotes, braces and escapes
    ExactNumber number;
    std::chrono::microseconds duration{0};
    Comparison comparison = Comparison::Equal;
};

/// Takes an expression apart, token by token. Throws an ExpressionError.
class ExpressionTokens
{
public:
    /// @p text must live as long.
    explicit ExpressionTokens(const QString &text) : m_text(text) { }

    /// End again and again when there is no more.
    ExpressionToken next();

private:
    ExpressionToken quoted(QChar closing, ExpressionToken::Kind kind);
    ExpressionToken sign();
    ExpressionToken word();
    ExpressionToken token(ExpressionToken::Kind kind, int begin) const;

    const QString &m_text;
    int m_at = 0;
};

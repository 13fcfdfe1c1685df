#pragma once

#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QVector>

/// Patterns by which a configuration chooses leaves, as the tool takes them: a `*` stands for any
/// characters of one piece of a URL, a piece `**` for any number of pieces, none included. A pattern chooses
/// the leaf at its URL and all below it.
class UrlChoice
{
public:
    UrlChoice() = default;
    explicit UrlChoice(const QStringList &patterns);

    bool isEmpty() const { return m_patterns.isEmpty(); }
    /// Whether one of the patterns leads to @p url.
    bool leadsTo(const QString &url) const;
    /// The first pattern that leads to none of @p urls; empty if there is none such.
    QString findUnused(const QStringList &urls) const;

private:
    QStringList m_patterns;
    QVector<QRegularExpression> m_expressions;
};

#pragma once

#include <QPair>
#include <QString>
#include <QStringList>
#include <QVector>

/// JSON as text, for what the toolkit's JSON classes cannot do: 64-bit numbers without rounding,
/// and members in the order in which they were given. Values are JSON texts already.

QString jsonString(const QString &text);
QString jsonBool(bool value);
/// On one line.
QString jsonObject(const QVector<QPair<QString, QString>> &members);
/// One value a line, each after @p indent.
QString jsonArray(const QStringList &values, const QString &indent = QStringLiteral("  "));

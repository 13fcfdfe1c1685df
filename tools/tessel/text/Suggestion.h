#pragma once

#include <QString>
#include <QStringList>

/// The hint " (did you mean 'x'?)" with the candidate that looks like @p word, or nothing if none
/// does.
QString suggestion(const QString &word, const QStringList &candidates);

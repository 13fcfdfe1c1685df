#pragma once

#include "Validation/DescriptionCheck.h"

#include <QDir>
#include <QStringList>

/// A problem in one line, without its text: FILE:LINE:COLUMN: LEVEL RULE URL, the file below @p folder.
inline QString problemText(const DescriptionProblem &problem, const QString &folder)
{
    const bool isError = problem.level == DescriptionProblem::Level::Error;
    const QString text = QStringLiteral("%1:%2:%3: %4 %5 %6")
                             .arg(QDir(folder).relativeFilePath(problem.file))
                             .arg(problem.line)
                             .arg(problem.column)
                             .arg(isError ? QStringLiteral("error") : QStringLiteral("warning"),
                                  problem.rule, problem.url);
    return text.trimmed();
}

/// All problems of @p paths, which lie below @p folder.
inline QStringList problemsOf(const QStringList &paths, const QString &folder)
{
    QStringList texts;
    const auto problems = DescriptionCheck::check(paths);
    for (const DescriptionProblem &problem : problems) {
        texts.append(problemText(problem, folder));
    }
    return texts;
}

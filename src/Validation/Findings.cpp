#include "Validation/Findings_p.h"

#include <algorithm>
#include <tuple>

void Findings::add(Rule rule, const QString &file, TextPlaces::Place place, const QString &url,
                   const QString &text)
{
    const DescriptionRule &known = ruleOf(rule);
    m_problems.append({file, place.line, place.column, known.level, known.name, url, text});
}

void Findings::addWhole(Rule rule, const QString &file, const QString &url, const QString &text)
{
    add(rule, file, {}, url, text);
}

QVector<DescriptionProblem> Findings::inOrder() const
{
    QVector<DescriptionProblem> problems = m_problems;
    const auto order = [](const DescriptionProblem &problem) {
        return std::tie(problem.file, problem.line, problem.column, problem.rule);
    };
    std::stable_sort(problems.begin(), problems.end(),
                     [&order](const DescriptionProblem &left, const DescriptionProblem &right) {
                         return order(left) < order(right);
                     });
    return problems;
}

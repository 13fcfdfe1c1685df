#pragma once

#include "Validation/DescriptionProblem.h"
#include "Validation/Rule_p.h"
#include "Validation/TextPlaces_p.h"

#include <QVector>

/// The problems of one run.
class Findings
{
public:
    void add(Rule rule, const QString &file, TextPlaces::Place place, const QString &url,
             const QString &text);
    /// Of a whole file, folder or link.
    void addWhole(Rule rule, const QString &file, const QString &url, const QString &text);

    /// In ascending order of file, line, column and rule.
    QVector<DescriptionProblem> inOrder() const;

private:
    QVector<DescriptionProblem> m_problems;
};

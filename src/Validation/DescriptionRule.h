#pragma once

#include "Validation/DescriptionProblem.h"

#include <QString>

/// One thing that a description is looked over for.
struct DescriptionRule
{
    QString name; ///< short and lasting, such as `slots-overlap`
    DescriptionProblem::Level level = DescriptionProblem::Level::Error; ///< of its problems
    QString cause; ///< what it means, and what comes of it
    QString cure;  ///< what to do
};

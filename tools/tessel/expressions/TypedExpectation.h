#pragma once

#include "expressions/Expectation.h"

/// The expectation that somebody typed for @p command. What is wrong with it is marked in lines on standard error,
/// and a Failure tells it.
Expectation typedExpectation(const QString &command, const QString &text,
                             const DescriptionSource &description);

#pragma once

#include "configuration/ConfigurationSource.h"
#include "values/Difference.h"

/// What differs between two configurations: values, stamps, limits and whatever else, for programs that were
/// written for @p former. Cells of arrays have URLs of their own. In ascending order of URLs.
QVector<Difference> configurationDifferences(const ConfigurationSource &former,
                                             const ConfigurationSource &now);

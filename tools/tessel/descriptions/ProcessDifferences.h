#pragma once

#include "descriptions/DescriptionSource.h"
#include "values/Difference.h"

/// What differs between two process descriptions, for programs that were written for @p former and for
/// processes that stay attached with it. In ascending order of URLs; the region itself comes first.
QVector<Difference> processDifferences(const DescriptionSource &former,
                                       const DescriptionSource &now);

#pragma once

#include "ProcessData/ProcessValue.h"
#include "mqtt/Payload.h"
#include "region/FollowedLeaf.h"

/// How a leaf and its values become metrics. Times in milliseconds since 1970, UTC.
namespace LeafMetric {

/// What the name of a metric with the state of a leaf begins with.
QString statePrefix();

/// For the birth of its device: name, type, value, and the unit and limits of its description.
Metric birthOf(const FollowedLeaf &leaf, const ProcessValue &value, quint64 time);
/// The name of its state, as the tool writes it.
Metric birthOfState(const FollowedLeaf &leaf, const ProcessValue &value, quint64 time);

/// A newer value, with its quality. An erroneous one has no content.
Metric dataOf(const FollowedLeaf &leaf, const ProcessValue &value, quint64 time);
Metric dataOfState(const FollowedLeaf &leaf, const ProcessValue &value, quint64 time);

} // namespace LeafMetric

#include "native/CheckedWrite.h"

#include "leaves/NumberLimits.h"
#include "leaves/WritableSlot.h"
#include "native/Failure.h"
#include "native/GivenValue.h"

namespace {

[[noreturn]] void refuse(const Leaf &leaf, const QString &reason)
{
    throw Failure{Failure::Kind::Refused, QStringLiteral("'%1': %2").arg(leaf.url, reason)};
}

void requireWritable(const OpenRegion &region, const Leaf &leaf)
{
    region.requireWritable();
    if (!leaf.slotProblem.isEmpty()) {
        throw Failure{Failure::Kind::File, QStringLiteral("%1: '%2' has no usable slot: %3")
                                               .arg(region.path(), leaf.url, leaf.slotProblem)};
    }
    if (leaf.isReadOnly && !region.isCreated()) {
        refuse(leaf, QStringLiteral("it is read-only; only the process that created the region "
                                    "writes it"));
    }
}

WritableSlot slotOf(const Leaf &leaf)
{
    return {leaf.type, leaf.metaType, leaf.sizeValue, leaf.hasMetadata, leaf.bitmask};
}

/// @p problem: empty if there is none.
void refuseFor(const Leaf &leaf, const QString &problem)
{
    if (!problem.isEmpty()) {
        refuse(leaf, problem);
    }
}

} // namespace

LeafWrite checkedValue(const OpenRegion &region, int index, pybind11::handle value, Limits limits)
{
    const Leaf &leaf = region.leaves()[index];
    requireWritable(region, leaf);
    const QVariant content = GivenValue{leaf.url, leaf.type, leaf.metaType, leaf.sizeValue}.from(
        value);
    refuseFor(leaf, slotOf(leaf).problemOf(content));
    const QString problem = limits == Limits::Checked
                                ? limitProblem(content, leaf.minLimit, leaf.maxLimit)
                                : QString();
    if (!problem.isEmpty()) {
        refuse(leaf, problem + QStringLiteral("; limits=False writes it all the same"));
    }
    return {index, {content, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID}};
}

LeafWrite checkedState(const OpenRegion &region, int index, int state)
{
    const Leaf &leaf = region.leaves()[index];
    requireWritable(region, leaf);
    const auto asked = static_cast<ProcessDataDefinitions::ErrorTypes>(state);
    if (asked == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID) {
        refuse(leaf, QStringLiteral("State.VALID is no error; give a value instead"));
    }
    if (asked < ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_UNDERRANGE
        || asked > ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT) {
        refuse(leaf, QStringLiteral("%1 is no error state; 1 to 9 are").arg(state));
    }
    refuseFor(leaf, slotOf(leaf).problemOfState());
    return {index, asked};
}

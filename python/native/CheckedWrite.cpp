#include "native/CheckedWrite.h"

#include "native/Failure.h"
#include "native/GivenValue.h"

#include <algorithm>

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

void checkText(const Leaf &leaf, const QString &text)
{
    // UTF-16 with a zero unit behind it.
    const int units = static_cast<int>(leaf.sizeValue / sizeof(ushort));
    const int capacity = std::max(units - 1, 0);
    if (text.size() > capacity) {
        refuse(leaf, QStringLiteral("a text of %1 characters does not fit; %2 do")
                         .arg(text.size())
                         .arg(capacity));
    }
}

void checkSlot(const Leaf &leaf, const QVariant &value)
{
    const auto &states = ProcessValueErrorTypeMapDefinitions::getMapFloatValueToStateType();
    if (leaf.isText()) {
        checkText(leaf, value.toString());
    } else if (leaf.metaType == QMetaType::Float && !leaf.hasMetadata
               && states.contains(value.toFloat())) {
        refuse(leaf, QStringLiteral("%1 would read back as an error state, which this slot keeps "
                                    "in the number")
                         .arg(shortestText(value)));
    } else if (leaf.type == QLatin1String("bit") && (leaf.bitmask & 0xFFU) == 0) {
        refuse(leaf, QStringLiteral("the mask of this bit names no bit of its byte"));
    }
}

} // namespace

LeafWrite checkedValue(const OpenRegion &region, int index, pybind11::handle value, Limits limits)
{
    const Leaf &leaf = region.leaves()[index];
    requireWritable(region, leaf);
    const QVariant content = GivenValue{leaf.url, leaf.type, leaf.metaType, leaf.sizeValue}.from(
        value);
    checkSlot(leaf, content);
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
    if (!leaf.hasMetadata && leaf.metaType != QMetaType::Float) {
        refuse(leaf,
               QStringLiteral("a %1 without metadata cannot carry an error state").arg(leaf.type));
    }
    return {index, asked};
}

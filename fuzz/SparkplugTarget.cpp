#include "FuzzTarget.h"
#include "mqtt/HostState.h"
#include "mqtt/PayloadDecoding.h"
#include "mqtt/PayloadEncoding.h"
#include "mqtt/WireValue.h"

#include <cstring>

// What a broker passes on is refused with a reason, or is a payload that stays the same when it is written
// and read again; its values mean what fits their types, and travel as they came.
//
// An input is the payload of a command, or the state of a host.

namespace {

bool isSame(const QVariant &left, const QVariant &right)
{
    // NaN equals itself.
    if (left.userType() == QMetaType::Float && right.userType() == QMetaType::Float) {
        const float numbers[] = {left.toFloat(), right.toFloat()};
        return std::memcmp(&numbers[0], &numbers[1], sizeof(float)) == 0;
    }
    if (left.userType() == QMetaType::Double && right.userType() == QMetaType::Double) {
        const double numbers[] = {left.toDouble(), right.toDouble()};
        return std::memcmp(&numbers[0], &numbers[1], sizeof(double)) == 0;
    }
    return left == right;
}

void checkValue(const QVariant &wire)
{
    for (auto number = static_cast<quint32>(DataType::Int8);
         number <= static_cast<quint32>(DataType::String); ++number) {
        const auto type = static_cast<DataType>(number);
        const QVariant value = valueOfWire(type, wire);
        require(!value.isValid() || isSame(wireValueOf(type, value), wire),
                "a value travels as it came");
    }
}

void checkPayload(const Payload &payload)
{
    require(payload.metrics.size() <= PayloadBounds::mostMetrics, "no more metrics than are taken");
    for (const auto &metric : payload.metrics) {
        checkValue(metric.value);
    }
    const QByteArray written = encodePayload(payload);
    // What is null has no value, and a long number may take the place of a short one that was padded.
    const DecodedPayload again = decodePayload(written);
    if (written.size() > PayloadBounds::mostBytes) {
        return;
    }
    require(again.payload.has_value(), "what is written can be read");
    require(encodePayload(*again.payload) == written, "what is read is written as it was");
}

} // namespace

void runInput(const QByteArray &input)
{
    const DecodedPayload decoded = decodePayload(input);
    require(decoded.payload.has_value() == decoded.problem.isEmpty(), "a refusal has a reason");
    if (decoded.payload) {
        checkPayload(*decoded.payload);
    }

    HostState host;
    const HostState::Change change = host.take(input);
    require(host.isOnline() == (change == HostState::Change::Online), "a host is what it said");
    require(host.take(input) == HostState::Change::None, "the same state is no news");
}

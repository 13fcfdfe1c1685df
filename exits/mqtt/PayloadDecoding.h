#pragma once

#include "mqtt/Payload.h"

#include <QByteArray>

/// What came from a network, read with bounds: a Payload, or why it is none.
struct DecodedPayload
{
    std::optional<Payload> payload;
    QString problem; ///< in one line; empty with a payload
};

namespace PayloadBounds {

/// Bytes of a payload.
constexpr int mostBytes = 256 * 1024;
constexpr int mostMetrics = 4096;

} // namespace PayloadBounds

/// Reads what encodePayload() writes, and whatever fields others add, which are skipped: metadata, bodies.
/// As the encoding wants it, the last of a field that stands twice holds. More than @p most bytes are refused.
DecodedPayload decodePayload(const QByteArray &bytes, int most = PayloadBounds::mostBytes);

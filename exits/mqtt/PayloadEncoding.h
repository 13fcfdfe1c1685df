#pragma once

#include "mqtt/Payload.h"

#include <QByteArray>

/// The bytes of @p payload, fields in ascending order.
QByteArray encodePayload(const Payload &payload);

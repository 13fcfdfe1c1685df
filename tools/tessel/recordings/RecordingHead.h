#pragma once

#include "recordings/RecordingFormat.h"

/// The content of the first record.
QByteArray headJson(const RecordingHead &head);
/// Nothing if it is none. Without the description, which is a record of its own.
std::optional<RecordingHead> headFromJson(const QByteArray &json);

#pragma once

#include "leaves/TypedValue.h"
#include "region/FollowedLeaf.h"

#include <QVariant>

/// For TypedValue: how somebody names an error state where a number is none.
inline const QString howToWriteAState = QStringLiteral("as {\"state\": NAME}");

/// Why @p value, of the type of the leaf, is not to be written into it; empty if it may be. The checks are
/// those of `tessel set`: read-only leaves, limits, texts that do not fit, numbers that would read back as
/// an error state.
QString problemOfWrite(const FollowedLeaf &leaf, const QVariant &value);

/// Why @p state is not to be written into it; empty if it may be. A slot that cannot hold it would read back
/// as a valid value.
QString problemOfStateWrite(const FollowedLeaf &leaf, ProcessDataDefinitions::ErrorTypes state);

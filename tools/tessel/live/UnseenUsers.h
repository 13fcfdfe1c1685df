#pragma once

#include <QString>

/// Whether processes that may not be looked at have joined the region @p key, which nobody else is seen to use: the
/// kernel counts who has its semaphores. Where nobody has, they have gone behind this, as behind the last user.
bool hasUnseenUsers(const QString &key);

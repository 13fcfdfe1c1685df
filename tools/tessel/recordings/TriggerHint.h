#pragma once

#include <QString>

/// The trigger `state == STATE: URL`, `state != STATE: URL` or `gap > TIME` that was probably meant by a text that is
/// none; empty if it looks like none of them.
QString nearestTrigger(const QString &text);

#pragma once

#include <QByteArray>

// What a fuzz target is made of: runInput(), which each defines for itself, and require().

/// Does with one input what the target is about. Called again and again in one process, so it
/// leaves nothing behind. The log is silent meanwhile.
void runInput(const QByteArray &input);

/// Ends the process, with @p promise in the last words, unless the promise holds.
void require(bool holds, const char *promise);

#pragma once

#include "service/Settings.h"

#include <QStringList>

/// `tessel-mirror send` and `receive` from their settings on. Each gives the exit code, and may throw a
/// Refusal; @p words are read again on SIGHUP.
int runSend(const Settings &settings, const QStringList &words);
int runReceive(const Settings &settings, const QStringList &words);

/// `tessel-mirror status`: says what it sees, and ends.
int runStatus(const Settings &settings, const QStringList &words);

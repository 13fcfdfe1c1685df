#pragma once

#include "commandline/CommandLine.h"
#include "configuration/ConfigurationTarget.h"

#include <QString>
#include <QVariant>

/// Refuses what is marked as read-only.
void checkNotReadOnly(const ConfigurationTarget &target);

/// Sets the value, writes it back to the one file that it stands in, and prints @p change and what
/// was stamped. Writes nothing, and says so, if the value stands there already, or for a trial; a Failure
/// has the status in words.
void applyChange(const CommandLine &line, const ConfigurationSource &source,
                 const ConfigurationTarget &target, const QVariant &value, const QString &change);

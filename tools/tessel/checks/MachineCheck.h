#pragma once

#include "checks/Finding.h"
#include "checks/MachineFacts.h"

#include <QMap>
#include <QStringList>

/// What is wrong with the room for regions and semaphores. They are told as full from nine tenths on.
Findings findingsOf(const MachineFacts &facts);

/// Whose regions go with the last session of their owner. @p owners has memory keys by user, and
/// @p root as MachineFacts::of() has it.
Findings removalFindings(const MachineFacts &facts, const QMap<uid_t, QStringList> &owners,
                         const QString &root = {});

/// Semaphores that look as those of a region, but are of none of the known memory keys.
Findings unclaimedFindings(const MachineFacts &facts, const QStringList &knownKeys);

#pragma once

#include "Access/ProcessDataGuards.h"

#include <QDebug>

namespace ConsistentReading {

/// As many as a read of a single value makes.
constexpr int maximumAttempts = 11;

/// What readConsistently() does, for any function.
template <class Function>
bool repeatUntilReliable(ProcessDataManager &manager, const Function &read)
{
    for (int attempt = 0; attempt < maximumAttempts; ++attempt) {
        ProcessDataReadGuard guard(manager);
        if (!guard.isLocked()) {
            qWarning() << "Can't lock the process data for reading.";
            return false;
        }
        read();
        if (guard.unlock()) {
            return true;
        }
        if (!guard.mustRepeat()) {
            qWarning() << "Can't unlock the process data after reading.";
            return false;
        }
    }
    qWarning() << "No consistent set of process data in" << maximumAttempts << "attempts.";
    return false;
}

} // namespace ConsistentReading

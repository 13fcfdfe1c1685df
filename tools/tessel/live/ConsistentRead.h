#pragma once

/// What became of reading a set.
enum class ReadOutcome {
    Consistent,
    NotLocked, ///< The lock was not to be had.
    Overtaken  ///< Writers got in between in every attempt.
};

/// Attempts at one set before it is given up.
constexpr int mostReadAttempts = 11;

/// Runs @p read inside the manager's read lock until the manager says that what was read is one
/// consistent set. Each attempt reads everything anew.
template <class Manager, class Read>
ReadOutcome readConsistently(Manager &manager, const Read &read)
{
    for (int attempt = 0; attempt < mostReadAttempts; ++attempt) {
        manager.lockReadBuffer();
        const bool isLocked = manager.getPointerReadBuffer() != nullptr;
        if (isLocked) {
            read();
        }
        bool repeat = false;
        const bool isUnlocked = manager.unlockReadBuffer(repeat);
        if (!isLocked) {
            return ReadOutcome::NotLocked;
        }
        if (isUnlocked && !repeat) {
            return ReadOutcome::Consistent;
        }
    }
    return ReadOutcome::Overtaken;
}

#include "mirror/UnheldReading.h"

#include "Access/ProcessDataGuards.h"

namespace {

/// As many as a read makes that may keep writers off.
constexpr int mostAttempts = 11;

} // namespace

bool readWithoutHolding(ProcessDataManager &manager, const std::function<void()> &read)
{
    for (int attempt = 0; attempt < mostAttempts; ++attempt) {
        ProcessDataReadGuard guard(manager);
        if (!guard.isLocked()) {
            return false;
        }
        read();
        if (guard.unlock()) {
            return true;
        }
        // The third in a row that a writer has spoilt would take the lock of the writers. One in which nothing is read,
        // and which is over before a writer comes, ends the row.
        ProcessDataReadGuard(manager).unlock();
    }
    return false;
}

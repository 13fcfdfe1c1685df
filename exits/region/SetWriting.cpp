#include "region/SetWriting.h"

#include "Access/ProcessDataGuards.h"
#include "service/ServiceLog.h"

namespace {

/// What was written and not published would go with the next set of anybody. From the last to the first: of a leaf
/// that was written twice the first time has what was there before.
void takeBack(RegionFollower &region, const QVector<LeafWrite> &writes, const SetWriting &writing,
              int count)
{
    for (int i = count - 1; i >= 0; --i) {
        region.leaves()[writes[i].leaf].element->setValueNoLock(writing.former[i]);
    }
}

} // namespace

SetWriting SetWriting::publish(RegionFollower &region, const QVector<LeafWrite> &writes)
{
    SetWriting writing;
    const LibraryReasons reasons;
    if (region.manager() == nullptr) {
        writing.problem = region.absence();
        return writing;
    }
    if (!region.isLockFree(RegionFollower::Access::Writing)) {
        writing.problem = region.lockProblem();
        return writing;
    }
    const ProcessDataWriteGuard guard(*region.manager());
    if (!guard.isLocked()) {
        writing.problem =
            QStringLiteral("no lock on the region was to be had: %1").arg(reasons.text());
        return writing;
    }
    for (const auto &write : writes) {
        // Nobody publishes in between, so it is one set.
        const auto &element = region.leaves()[write.leaf].element;
        ProcessValue former(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
        element->getValueNoLock(former);
        writing.former.append(former);
        if (!element->setValueNoLock(write.value)) {
            writing.problem = QStringLiteral("'%1' was not written: %2")
                                  .arg(region.leaves()[write.leaf].url, reasons.text());
            writing.problemLeaf = write.leaf;
            takeBack(region, writes, writing, writing.former.size() - 1);
            return writing;
        }
    }
    // Inside the lock: between its end and a swap somebody else could come, be in the way of this swap and
    // publish with his own what is said here to be unpublished.
    if (!region.manager()->swapReadAndWriteBuffer()) {
        writing.problem = QStringLiteral("the set was not published: %1").arg(reasons.text());
        takeBack(region, writes, writing, writes.size());
    }
    return writing;
}

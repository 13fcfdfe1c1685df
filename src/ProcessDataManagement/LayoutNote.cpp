#include "Companion/Exchange/Identity_p.h"
#include "ProcessDataManagement/LayoutDigest_p.h"
#include "ProcessDataManagement/LayoutNote_p.h"
#include "ProcessDataManagement/LayoutTable_p.h"
#include "ProcessDataManagement/ProcessStart_p.h"

#include <QDebug>

#include <algorithm>

#include <unistd.h>

namespace {

using LayoutNote::BaseClassSharedPointer;

bool isRunning(quint64 word)
{
    const ProcessStart start = ProcessStart::of(ProcessStart::pidOf(word));
    return start.isRunning() && ProcessStart::wordOf(ProcessStart::pidOf(word), start) == word;
}

/// False if no place is free, or others were quicker.
template <class IsFree>
bool takePlace(PingPongBufferHandler::ManagementBuffer &management, quint64 own,
               const IsFree &isFree)
{
    return std::any_of(std::begin(management.otherLayouts), std::end(management.otherLayouts),
                       [&](auto &place) {
                           quint64 found = place.load(std::memory_order_relaxed);
                           return isFree(found) && place.compare_exchange_strong(found, own);
                       });
}

/// For whoever asks which processes to start again. Where all places are taken there are enough names.
void note(PingPongBufferHandler::ManagementBuffer &management, quint64 own)
{
    // A process of another namespace cannot be told from one that has ended: their places come last.
    const bool isNoted = takePlace(management, own, [own](quint64 word) { return word == own; })
                         || takePlace(management, own, [](quint64 word) { return word == 0; });
    if (!isNoted) {
        takePlace(management, own, [](quint64 word) { return !isRunning(word); });
    }
}

void noteOtherLayout(PingPongBufferHandler::ManagementBuffer &management)
{
    note(management, ProcessStart::wordOf(getpid(), ProcessStart::own()));
}

/// Without its start the word tells nothing of this process but that it may have another one.
void noteUnknownLayout(PingPongBufferHandler::ManagementBuffer &management)
{
    note(management, ProcessStart::wordOf(getpid(), {}));
}

/// @p parts are those of the creator.
void warn(const BaseClassSharedPointer &root, const LayoutFingerprint::Parts &parts,
          quint32 bufferSize, const QString &key)
{
    const LayoutTable leaves(root);
    const QString first = LayoutDigest::findFirstDifference(
        [&leaves](const auto &take) { leaves.giveAll(take); }, parts, bufferSize);
    qWarning() << "The region of" << key << "has another layout than this process description, from"
               << (first.isEmpty() ? QStringLiteral("a leaf that is missing here") : first)
               << "on: values may be wrong. Start all processes with the same description.";
}

} // namespace

namespace LayoutNote {

void write(PingPongBufferHandler::ManagementBuffer &management, const BaseClassSharedPointer &root,
           quint32 bufferSize)
{
    const LayoutDigest::Numbers layout = LayoutDigest::numbersOf(root, bufferSize);
    for (std::size_t i = 0; i < layout.parts.size(); ++i) {
        management.layoutParts[i].store(layout.parts[i], std::memory_order_relaxed);
    }
    management.creatorStart.store(ProcessStart::own().ticks, std::memory_order_relaxed);
    management.creatorNamespace.store(ProcessStart::ownNamespace(), std::memory_order_relaxed);
    management.creatorPid.store(Identity::processId(), std::memory_order_release);
    management.fingerprint.store(layout.value, std::memory_order_release);
}

void compare(PingPongBufferHandler::ManagementBuffer &management,
             const BaseClassSharedPointer &root, quint32 bufferSize, const QString &key,
             Noting noting)
{
    const quint64 others = management.fingerprint.load(std::memory_order_acquire);
    if (others == 0) {
        // The creator knew nothing of it, or is not that far.
        if (noting == Noting::InRegion) {
            noteUnknownLayout(management);
        }
        return;
    }
    if (LayoutDigest::valueOf(root) == others) {
        return;
    }
    LayoutFingerprint::Parts parts{};
    std::transform(
        std::cbegin(management.layoutParts), std::cend(management.layoutParts), parts.begin(),
        [](const std::atomic<quint32> &part) { return part.load(std::memory_order_relaxed); });
    if (noting == Noting::InRegion) {
        noteOtherLayout(management);
    }
    warn(root, parts, bufferSize, key);
}

void compareSingle(PingPongBufferHandler::ManagementBuffer &management,
                   const BaseClassSharedPointer &root, quint32 bufferSize, const QString &key,
                   Noting noting)
{
    if (noting == Noting::InRegion) {
        noteOtherLayout(management);
    }
    // As of a region without leaves: none is where it is described.
    warn(root, {}, bufferSize, key);
}

} // namespace LayoutNote

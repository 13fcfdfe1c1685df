#include "live/Suspicion.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "leaves/NumberLimits.h"
#include "live/RegionText.h"
#include "values/CacheLines.h"
#include "values/SizeOnlyBuffer.h"
#include "values/StateName.h"
#include "values/ValueText.h"

#include <algorithm>
#include <cstring>

namespace {

using namespace ProcessDataDefinitions;
using Definitions = ConfigurationAndProcessDataDefinitions;
using Fit = RegionLook::Fit;
using Suspicions = QVector<Suspicion>;

void addFit(Suspicions &found, const RegionLook &look, const DescriptionSource &description)
{
    const RegionInspection &region = look.region();
    switch (look.fit()) {
    case Fit::Missing:
        found.append(
            {QStringLiteral("no-region"),
             QStringLiteral("there is no region '%1': the process that creates it does not "
                            "run, or has another description")
                 .arg(description.key())});
        break;
    case Fit::Unreadable:
        found.append(
            {QStringLiteral("unreadable"),
             QStringLiteral("the region cannot be opened: %1").arg(region.getErrorString())});
        break;
    case Fit::OtherFormat: break; // That is told whatever the description says.
    case Fit::OtherSize:
        found.append({QStringLiteral("other-layout"),
                      QStringLiteral("the region has %1 bytes and the description asks for %2: its "
                                     "creator uses another description")
                          .arg(region.getSize())
                          .arg(description.regionSize())});
        break;
    case Fit::OtherLayout: {
        const QString first = region.findFirstDifference();
        const QString place = first.isEmpty() ? QString()
                                              : QStringLiteral(", from '%1' on").arg(first);
        found.append({QStringLiteral("other-layout"),
                      QStringLiteral("the region has another layout%1: its creator uses another "
                                     "description")
                          .arg(place)});
        break;
    }
    case Fit::Fits: break;
    }
}

void addName(Suspicions &found, const RegionLook &look)
{
    switch (look.region().getName()) {
    case RegionInspection::Name::Current: break;
    case RegionInspection::Name::Replaced:
        found.append({QStringLiteral("replaced"),
                      QStringLiteral("the region was replaced by a new one just now; look again")});
        break;
    case RegionInspection::Name::Removed:
        found.append({QStringLiteral("removed"),
                      QStringLiteral("the region was removed just now: its creator has ended")});
        break;
    }
}

void addLock(Suspicions &found, const RegionLook &look)
{
    const RegionLock &lock = look.lock();
    if (lock.state == RegionLock::State::Unknown) {
        found.append({QStringLiteral("no-semaphores"),
                      QStringLiteral("the region has no semaphores that may be looked at: nobody "
                                     "can lock it; its creator has to make it anew")});
    }
    if (look.isLockStuck()) {
        const QString who = lock.holder ? look.nameOf(*lock.holder)
                                        : QStringLiteral("a process that cannot be seen");
        found.append(
            {QStringLiteral("lock-held"),
             QStringLiteral("%1 has been inside the lock for a second%2: is it stopped, or "
                            "does it dawdle?")
                 .arg(who, lock.waiters > 0 ? QStringLiteral(", and %1 wait").arg(lock.waiters)
                                            : QString()),
             lock.holder});
    }
}

QString intervalText(double milliseconds)
{
    constexpr double second = 1000;
    return milliseconds < second ? QStringLiteral("%1 ms").arg(milliseconds, 0, 'g', 3)
                                 : durationText(static_cast<qint64>(milliseconds));
}

void addSilence(Suspicions &found, const RegionLook &look)
{
    // As long as no publisher of one set a second is silent for.
    constexpr qint64 shortest = 2000;
    constexpr double mostIntervals = 5;
    const auto silence = look.silence();
    const auto usual = look.usualInterval();
    if (silence && *silence < -shortest) {
        found.append({QStringLiteral("clock"),
                      QStringLiteral("the last set comes from the future, by %1: the clock was set "
                                     "back, and ages are wrong until the next set")
                          .arg(durationText(-*silence))});
    }
    if (silence && usual && *silence > shortest
        && static_cast<double>(*silence) > mostIntervals * *usual) {
        found.append(
            {QStringLiteral("silent"),
             QStringLiteral("the publisher is silent: no set for %1, which is %2 times the "
                            "usual interval of %3")
                 .arg(durationText(*silence))
                 .arg(static_cast<double>(*silence) / *usual, 0, 'f', 0)
                 .arg(intervalText(*usual))});
    }
}

void addUsers(Suspicions &found, const RegionLook &look)
{
    for (const RegionUser &user : look.users()) {
        if (user.isReplaced) {
            found.append({QStringLiteral("former-region"),
                          QStringLiteral("%1 still has a former region of this key: it sees "
                                         "nothing of this one, until it attaches again")
                              .arg(look.nameOf(user.pid)),
                          user.pid});
        }
        if (user.hasOtherLayout == true) {
            found.append({QStringLiteral("other-layout-attached"),
                          QStringLiteral("%1 has attached with another description: it reads and "
                                         "writes other bytes")
                              .arg(look.nameOf(user.pid)),
                          user.pid});
        }
    }
}

bool hasNoInput(const BufferedSlot &slot)
{
    return slot.value.getErrorType() == PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;
}

/// As the creation leaves a slot: the set that it publishes has no values, and the buffer behind is zero
/// until the first writer comes.
bool isInitial(const BufferedSlot &slot, const RegionLook &look)
{
    constexpr quint64 creation = 1;
    const bool isUntouched = !slot.isRead && look.swapCount().value_or(creation + 1) <= creation
                             && slot.bytes.isZero();
    return hasNoInput(slot) || isUntouched;
}

QString contentText(const BufferedSlot &slot)
{
    return (valueText(slot.value) + QLatin1Char(' ') + stateName(slot.value.getErrorType()))
        .trimmed();
}

/// Of a slot that tells whether it was written.
void addWrites(Suspicions &found, const LeafSlot &slot, const QVector<BufferedSlot> &buffers,
               const RegionLook &look)
{
    const BufferedSlot &read = buffers.constFirst();
    const BufferedSlot &other = buffers.constLast();
    if (isInitial(read, look) && isInitial(other, look)) {
        if (slot.isReadOnly) {
            found.append({QStringLiteral("read-only"),
                          QStringLiteral("read-only: its creator alone writes it, and what others "
                                         "write is refused")});
        }
        found.append(
            {QStringLiteral("never-written"),
             QStringLiteral("never written since the creation, or nothing but no-input was")});
    } else if (isInitial(read, look)) {
        found.append({QStringLiteral("not-published"),
                      QStringLiteral("written in one buffer only, and not published: '%1' waits in "
                                     "the write buffer")
                          .arg(contentText(other))});
    } else if (isInitial(other, look)) {
        found.append({QStringLiteral("one-buffer"),
                      QStringLiteral("written in one buffer only: the other one still is as the "
                                     "creation left it")});
    }
}

/// The error state that the bytes of a double without metadata stand for.
std::optional<ErrorTypes> lostState(const LeafSlot &slot, const SlotBytes &bytes)
{
    double number = 0;
    if (slot.metaType != QMetaType::Double || slot.hasMetadata()
        || bytes.value.size() != int{sizeof number}) {
        return {};
    }
    const auto &states = ProcessValueErrorTypeMapDefinitions::getMapStateTypeToDoubleValue();
    for (auto state = states.cbegin(); state != states.cend(); ++state) {
        if (std::memcmp(&state.value(), bytes.value.constData(), sizeof number) == 0) {
            return state.key();
        }
    }
    return {};
}

void addState(Suspicions &found, const LeafSlot &slot, const BufferedSlot &read)
{
    const ErrorTypes state = read.value.getErrorType();
    const bool isUnset = !read.bytes.value.isEmpty() && read.bytes.isZero();
    if (state < PROCESS_VALUE_ERROR_TYPE_VALID || state > PROCESS_VALUE_ERROR_TYPE_TIMEOUT) {
        found.append({QStringLiteral("no-state"),
                      QStringLiteral("%1 is no error state: something else writes into these bytes")
                          .arg(state)});
    }
    if (const auto lost = lostState(slot, read.bytes)) {
        found.append(
            {QStringLiteral("lost-state"),
             QStringLiteral("reads as a valid NaN and means '%1': a double without metadata "
                            "cannot carry an error state")
                 .arg(stateName(*lost))});
    } else if (!slot.carriesErrorState()) {
        found.append(
            {QStringLiteral("no-error-state"),
             QStringLiteral("the slot cannot carry an error state: a broken sensor%1 reads "
                            "as valid")
                 .arg(isUnset ? QStringLiteral(", or a value never written,") : QString())});
    }
}

void addLimits(Suspicions &found, const Leaf &leaf, const ProcessValue &value)
{
    const LeafSlot slot = slotOf(leaf);
    if (value.getErrorType() != PROCESS_VALUE_ERROR_TYPE_VALID) {
        return;
    }
    const auto property = [&leaf](const QString &key) { return leaf.element->getProperty(key); };
    QVariant number = value.getValue();
    const QString problem = number.convert(slot.metaType)
                                ? limitProblem(number,
                                               property(Definitions::getKeyDataPropertyMinLimit()),
                                               property(Definitions::getKeyDataPropertyMaxLimit()))
                                : QString();
    if (!problem.isEmpty()) {
        found.append({QStringLiteral("outside-limits"), problem});
    }
}

void addCacheLine(Suspicions &found, const LeafSlot &slot, const DescriptionSource &description)
{
    const CacheLines lines(description.isDoubleBuffered(), description.bufferSize());
    const QString crossing = lines.text(lines.ofValue(slot));
    if (!crossing.isEmpty()) {
        found.append(
            {QStringLiteral("cache-line"),
             QStringLiteral("%1: who reads it without the library's locks may get half of two "
                            "values")
                 .arg(crossing)});
    }
}

/// False if the slot cannot be used.
bool addSlot(Suspicions &found, const Leaf &leaf, const DescriptionSource &description,
             const SlotRanges &ranges)
{
    SizeOnlyBuffer buffer(description.bufferSize());
    leaf.element->setBufferHandlerInterface(&buffer, false);
    const QString problem = slotProblem(leaf, description.bufferSize());
    if (!problem.isEmpty()) {
        found.append({QStringLiteral("no-slot"),
                      QStringLiteral("the slot cannot be used: %1").arg(problem)});
    }
    const QStringList shared = ranges.sharedBytes(leaf);
    if (!shared.isEmpty()) {
        found.append({QStringLiteral("shared-bytes"),
                      QStringLiteral("shares %1: to write one changes the other")
                          .arg(shared.join(QStringLiteral(", ")))});
    }
    return problem.isEmpty();
}

} // namespace

QVector<Suspicion> suspicionsOf(const RegionLook &look)
{
    Suspicions found;
    if (look.fit() == Fit::OtherFormat) {
        found.append({QStringLiteral("other-format"),
                      QStringLiteral("the region has another version of the memory format: its "
                                     "creator was built with another version of the library")});
    }
    addName(found, look);
    addLock(found, look);
    if (look.creator().isAlive == false) {
        found.append({QStringLiteral("creator-dead"),
                      QStringLiteral("the creator, process %1, has ended without removing the "
                                     "region")
                          .arg(*look.creator().pid),
                      look.creator().pid});
    }
    addSilence(found, look);
    addUsers(found, look);
    return found;
}

QVector<Suspicion> suspicionsOf(const RegionLook &look, const DescriptionSource &description)
{
    Suspicions found;
    addFit(found, look, description);
    const bool isOpen = look.fit() != Fit::Missing && look.fit() != Fit::Unreadable;
    return isOpen ? found + suspicionsOf(look) : found;
}

QVector<Suspicion> suspicionsOf(const Leaf &leaf, const QVector<BufferedSlot> &found,
                                const RegionLook &look, const DescriptionSource &description,
                                const SlotRanges &ranges)
{
    const LeafSlot slot = slotOf(leaf);
    Suspicions suspicions;
    if (!addSlot(suspicions, leaf, description, ranges)) {
        return suspicions;
    }
    if (found.isEmpty()) {
        addState(suspicions, slot, BufferedSlot());
    } else {
        if (slot.carriesErrorState()) {
            addWrites(suspicions, slot, found, look);
        }
        addState(suspicions, slot, found.constFirst());
        addLimits(suspicions, leaf, found.constFirst().value);
    }
    addCacheLine(suspicions, slot, description);
    return suspicions;
}

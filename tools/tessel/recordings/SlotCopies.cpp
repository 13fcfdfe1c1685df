#include "recordings/SlotCopies.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"

#include <cstring>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

/// Whether they differ; then they are the same.
bool takeBytes(char *former, const unsigned char *now, std::size_t size)
{
    // The usual sizes without a call.
    const bool isSame = size == 4   ? std::memcmp(former, now, 4) == 0
                        : size == 8 ? std::memcmp(former, now, 8) == 0
                                    : std::memcmp(former, now, size) == 0;
    if (!isSame) {
        std::memcpy(former, now, size);
    }
    return !isSame;
}

unsigned char maskOf(const LeafSlot &slot)
{
    return slot.isBit() ? static_cast<unsigned char>(slot.bitmask) : 0;
}

} // namespace

SlotCopies::SlotCopies(const QVector<LeafSlot> &leafSlots, const ImageLayout &layout)
    : m_image(static_cast<int>(layout.size()), '\0')
{
    m_copies.reserve(layout.places().size());
    for (int i = 0; i < leafSlots.size(); ++i) {
        m_copies.push_back({leafSlots[i].offset, leafSlots[i].stateBegin(), maskOf(leafSlots[i]),
                            layout.places()[static_cast<std::size_t>(i)]});
    }
}

const std::vector<int> &SlotCopies::take(const unsigned char *buffer, QByteArray &changes)
{
    m_changed.clear();
    char *const image = m_image.data();
    quint64 passedOver = 0;
    for (std::size_t i = 0; i < m_copies.size(); ++i) {
        const Copy &copy = m_copies[i];
        char *const value = image + copy.place.offset;
        const bool isOtherValue = takeValue(copy, buffer);
        const bool isOtherState = copy.place.stateSize != 0
                                  && takeBytes(value + copy.place.size, buffer + copy.state,
                                               RecordingFormat::stateSize);
        if (!isOtherValue && !isOtherState) {
            ++passedOver;
            continue;
        }
        appendChange(changes, passedOver, isOtherState);
        changes.append(value, static_cast<int>(copy.place.size)
                                  + (isOtherState ? int(RecordingFormat::stateSize) : 0));
        m_changed.push_back(static_cast<int>(i));
        passedOver = 0;
    }
    return m_changed;
}

bool SlotCopies::takeValue(const Copy &copy, const unsigned char *buffer)
{
    char *const value = m_image.data() + copy.place.offset;
    if (copy.mask == 0) {
        return takeBytes(value, buffer + copy.value, copy.place.size);
    }
    const auto bits = static_cast<unsigned char>(buffer[copy.value] & copy.mask);
    return takeBytes(value, &bits, 1);
}

QVector<LeafSlot> slotsOf(const QVector<Leaf> &leaves)
{
    QVector<LeafSlot> found;
    for (const auto &leaf : leaves) {
        found.append(slotOf(leaf));
    }
    return found;
}

RecordedValue recordedValueOf(const Leaf &leaf, const LeafSlot &slot)
{
    return {leaf.url,
            slot.type,
            textProperty(leaf, Definitions::getKeyDataPropertyUnit()),
            slot.isBit() ? 1 : slot.size,
            slot.hasMetadata() ? RecordingFormat::stateSize : 0,
            slot.isBit() ? slot.bitmask : 0};
}

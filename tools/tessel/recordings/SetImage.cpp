#include "recordings/SetImage.h"

#include <cstring>
#include <optional>

namespace {

constexpr unsigned moreFollow = 0x80;

/// The bytes that have not been read yet.
class Rest
{
public:
    Rest(const char *bytes, int size) : m_next(bytes), m_end(bytes + size) { }

    bool isEmpty() const { return m_next == m_end; }

    /// Nothing if it does not end, or takes more than 63 bits.
    std::optional<quint64> takeNumber()
    {
        quint64 number = 0;
        for (unsigned shift = 0; shift < 63 && m_next != m_end; shift += 7) {
            const auto byte = static_cast<unsigned char>(*m_next++);
            number |= quint64(byte & ~moreFollow) << shift;
            if ((byte & moreFollow) == 0) {
                return number;
            }
        }
        return {};
    }

    bool takeInto(char *target, quint32 size)
    {
        if (static_cast<quint64>(m_end - m_next) < size) {
            return false;
        }
        std::memcpy(target, m_next, size);
        m_next += size;
        return true;
    }

private:
    const char *m_next;
    const char *m_end;
};

} // namespace

ImageLayout::ImageLayout(const QVector<RecordedValue> &values)
{
    m_places.reserve(static_cast<std::size_t>(values.size()));
    for (const auto &value : values) {
        m_places.push_back({m_size, value.size, value.stateSize});
        m_size += quint64(value.size) + value.stateSize;
    }
}

void appendChange(QByteArray &changes, quint64 passedOver, bool hasState)
{
    quint64 number = passedOver << 1U | (hasState ? 1U : 0U);
    while (number >= moreFollow) {
        changes.append(static_cast<char>((number & ~quint64(moreFollow) & 0xFFU) | moreFollow));
        number >>= 7U;
    }
    changes.append(static_cast<char>(number));
}

bool applyChanges(const ImageLayout &layout, const char *changes, int size, QByteArray &image,
                  std::vector<int> &changed)
{
    changed.clear();
    const auto &places = layout.places();
    Rest rest(changes, size);
    quint64 next = 0;
    while (!rest.isEmpty()) {
        const auto number = rest.takeNumber();
        if (!number || *number >> 1U >= places.size() - next) {
            return false;
        }
        next += *number >> 1U;
        const ImageLayout::Place &place = places[next];
        const bool hasState = (*number & 1U) != 0;
        char *const value = image.data() + place.offset;
        if ((hasState && place.stateSize == 0) || !rest.takeInto(value, place.size)
            || (hasState && !rest.takeInto(value + place.size, place.stateSize))) {
            return false;
        }
        changed.push_back(static_cast<int>(next));
        ++next;
    }
    return true;
}

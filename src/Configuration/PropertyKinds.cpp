#include "Configuration/HeldContainer_p.h"
#include "Configuration/PropertyKinds_p.h"

#include <algorithm>

namespace {

using Held = QVariant::DataPtr;

bool isSameText(const QVariant &left, const QVariant &right)
{
    const auto &text = heldBy<QString>(left);
    const auto &other = heldBy<QString>(right);
    // Repeated texts of a description mostly are one.
    return text.constData() == other.constData()
           || (text.isNull() == other.isNull() && text == other);
}

/// Whether nobody can tell one from the other. Only for what a description mostly has: anything else
/// counts as different. Numbers by their bits, as 0 and -0 are not the same.
bool isSame(const QVariant &left, const QVariant &right)
{
    const Held &held = left.data_ptr();
    const Held &other = right.data_ptr();
    // "Nothing entered" is a null number, which is as big as 0.
    if (held.type != other.type || held.is_null != other.is_null) {
        return false;
    }
    switch (held.type) {
    case QMetaType::Bool: return held.data.b == other.data.b;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Float: return held.data.u == other.data.u;
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double: return held.data.ull == other.data.ull;
    case QMetaType::QString: return isSameText(left, right);
    default: return false;
    }
}

} // namespace

PropertyRecord::Shape PropertyKinds::shapeFor(const QVariant *values)
{
    ++m_elements;
    const Kind *const match = matching(values);
    PropertyRecord::Shape shape = match == nullptr ? m_plain : match->shape;
    if (isLearning(match != nullptr)) {
        const int known = shape->commonValues().size();
        if (const PropertyRecord::Shape better = learn(values, known)) {
            shape = better;
        }
    }
    return shape;
}

const PropertyKinds::Kind *PropertyKinds::matching(const QVariant *values)
{
    for (Kind &kind : m_kinds) {
        const int *const places = kind.shape->commonPlaces().constData();
        const QVariant *const common = kind.shape->commonValues().constData();
        // Where the element before was another one, this one mostly is as well.
        if (!isSame(common[kind.lastDifference], values[places[kind.lastDifference]])) {
            continue;
        }
        const int count = kind.shape->commonValues().size();
        int same = 0;
        while (same < count && isSame(common[same], values[places[same]])) {
            ++same;
        }
        if (same == count) {
            return &kind;
        }
        kind.lastDifference = same;
    }
    return nullptr;
}

bool PropertyKinds::isLearning(bool isMatched) const
{
    constexpr unsigned int firstElements = 64;
    constexpr unsigned int mostVainLooks = 256;
    constexpr unsigned int elementsOfKind = 16;
    const bool isWorthwhile = m_elements < firstElements || !isMatched;
    return isWorthwhile && m_vainLooks < mostVainLooks
           && m_madeKinds * elementsOfKind < m_elements + 8 * elementsOfKind;
}

PropertyRecord::Shape PropertyKinds::learn(const QVariant *values, int known)
{
    // One more would not pay: the record behind it is only a value shorter.
    constexpr int leastGain = 2;
    const auto size = static_cast<std::size_t>(m_plain->size());
    QVector<int> most;
    for (const Values &recent : m_recent) {
        QVector<int> places;
        for (std::size_t place = 0; place < recent.size(); ++place) {
            if (isSame(recent[place], values[place])) {
                places.append(static_cast<int>(place));
            }
        }
        if (places.size() > most.size()) {
            most = places;
        }
    }
    m_recent[m_nextRecent].assign(values, values + size);
    m_nextRecent = (m_nextRecent + 1) % m_recent.size();
    if (most.size() < known + leastGain) {
        ++m_vainLooks;
        return {};
    }
    const PropertyRecord::Shape kind(new PropertyShape(m_plain, most, values));
    insert(kind);
    return kind;
}

void PropertyKinds::insert(const PropertyRecord::Shape &kind)
{
    constexpr std::size_t mostKinds = 16;
    if (m_kinds.size() == mostKinds) {
        // Those of a part of the device that is passed, as a rule. What has one keeps it.
        m_kinds.clear();
    }
    const auto place = std::find_if(m_kinds.cbegin(), m_kinds.cend(), [&kind](const Kind &other) {
        return other.shape->commonValues().size() < kind->commonValues().size();
    });
    m_kinds.insert(place, Kind{kind, 0});
    ++m_madeKinds;
    m_vainLooks = 0;
}

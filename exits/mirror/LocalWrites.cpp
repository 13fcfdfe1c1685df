#include "mirror/LocalWrites.h"

#include "service/ServiceLog.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

/// Reads back as the same bits, of a float too.
constexpr int digitsOfDouble = 17;

RequestedValue valueOf(const FollowedLeaf &leaf, const ProcessDataSnapshot &set)
{
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    set.getValue(*leaf.element, value);
    const auto state = static_cast<quint8>(value.getErrorType());
    if (state != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID) {
        return {leaf.url, state, {}};
    }
    const QVariant content = value.getValue();
    const bool isFloating = content.userType() == QMetaType::Float
                            || content.userType() == QMetaType::Double;
    return {leaf.url, 0,
            isFloating ? QString::number(content.toDouble(), 'g', digitsOfDouble)
                       : content.toString()};
}

} // namespace

LocalWrites::LocalWrites(ProcessDataManager &manager, const QVector<FollowedLeaf> &leaves)
    : m_manager(manager)
{
    noteShown();
    // One without a usable slot is held by no set.
    std::copy_if(leaves.cbegin(), leaves.cend(), std::back_inserter(m_leaves),
                 [this](const FollowedLeaf &leaf) {
                     return leaf.element && !m_shown.isDifferent(*leaf.element, m_shown);
                 });
}

void LocalWrites::noteShown()
{
    const LibraryReasons reasons;
    // Without one nothing can be told from what is the source's own; the next set comes with another.
    m_shown.take(m_manager);
    m_seen = m_shown;
}

void LocalWrites::look()
{
    const LibraryReasons reasons;
    ProcessDataSnapshot now;
    if (!now.take(m_manager)) {
        return;
    }
    QVector<RequestedValue> found;
    if (!m_seen.isEmpty()) {
        for (const auto &leaf : std::as_const(m_leaves)) {
            if (now.isDifferent(*leaf.element, m_seen)) {
                found.append(valueOf(leaf, now));
            }
        }
    }
    m_seen = now;
    if (!found.isEmpty()) {
        m_found.append(found);
    }
}

bool LocalWrites::isOther(const unsigned char *bytes) const
{
    return !m_seen.isEmpty() && std::memcmp(bytes, m_seen.getBytes(), m_seen.getSize()) != 0;
}

QVector<QVector<RequestedValue>> LocalWrites::takeFound()
{
    return std::exchange(m_found, {});
}

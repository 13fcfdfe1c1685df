#include "commands/BufferLayout.h"

#include <QSet>

#include <algorithm>

namespace {

QVector<LeafSlot> slotsOf(const QVector<Leaf> &leaves)
{
    QVector<LeafSlot> all;
    all.reserve(leaves.size());
    for (const auto &leaf : leaves) {
        all.append(slotOf(leaf));
    }
    return all;
}

std::vector<bool> askedLeaves(const DescriptionSource &description, const QStringList &urls)
{
    QSet<const ProcessDataValue *> asked;
    const QVector<Leaf> leaves = description.leavesAt(urls);
    for (const auto &leaf : leaves) {
        asked.insert(leaf.element.data());
    }
    std::vector<bool> isAsked;
    for (const auto &leaf : description.leaves()) {
        isAsked.push_back(asked.contains(leaf.element.data()));
    }
    return isAsked;
}

} // namespace

BufferLayout::BufferLayout(const DescriptionSource &description, const QStringList &urls)
    : m_description(description)
    , m_isWhole(urls.isEmpty())
    , m_slots(slotsOf(description.leaves()))
    , m_isAsked(m_isWhole ? std::vector<bool>() : askedLeaves(description, urls))
    , m_map(m_slots, description.bufferSize())
    , m_lines(description.isDoubleBuffered(), description.bufferSize())
{
}

CacheLines::Crossing BufferLayout::crossingOf(const Piece &piece) const
{
    switch (piece.what) {
    case BufferMap::What::Value: return m_lines.ofValue(slotOf(piece));
    case BufferMap::What::State: return m_lines.ofState(slotOf(piece));
    default: return {};
    }
}

int BufferLayout::crossingCount() const
{
    const auto count = std::count_if(
        m_map.pieces().cbegin(), m_map.pieces().cend(),
        [this](const Piece &piece) { return crossingOf(piece).isAny(); });
    return static_cast<int>(count);
}

QStringList BufferLayout::notesOf(const Piece &piece) const
{
    QStringList notes;
    if (piece.sharedWith != BufferMap::sm_none) {
        const Piece &other = m_map.pieces()[static_cast<std::size_t>(piece.sharedWith)];
        notes.append(QStringLiteral("shares byte %1 with the %2")
                         .arg(m_map.sharedByte(piece))
                         .arg(nameOf(other)));
    }
    if (m_map.isOutside(piece)) {
        notes.append(QStringLiteral("ends outside the buffer"));
    }
    const QString crossing = m_lines.text(crossingOf(piece));
    if (!crossing.isEmpty()) {
        notes.append(crossing);
    }
    return notes;
}

QString BufferLayout::nameOf(const Piece &piece) const
{
    return QStringLiteral("%1 of '%2'").arg(whatText(piece.what), urlOf(piece));
}

bool BufferLayout::isShown(const Piece &piece) const
{
    return m_isWhole
           || (piece.leaf != BufferMap::sm_none && m_isAsked[static_cast<std::size_t>(piece.leaf)]);
}

QString whatText(BufferMap::What what)
{
    switch (what) {
    case BufferMap::What::Value: return QStringLiteral("value");
    case BufferMap::What::State: return QStringLiteral("state");
    default: return QStringLiteral("hole");
    }
}

QString bufferText(const BufferLayout &layout)
{
    const DescriptionSource &description = layout.description();
    if (description.bufferSize() == 0) {
        return QStringLiteral("none described");
    }
    return QStringLiteral("%1, %2 bytes")
        .arg(description.isDoubleBuffered() ? QStringLiteral("double") : QStringLiteral("single"))
        .arg(description.bufferSize());
}

#include "values/BufferMap.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace {

constexpr quint32 bitsOfByte = 0xff;

using Piece = BufferMap::Piece;
using What = BufferMap::What;

bool isBefore(const Piece &left, const Piece &right)
{
    return left.begin != right.begin ? left.begin < right.begin : left.isBit < right.isBit;
}

/// A text without bytes, or a bit without a mask.
bool isNothing(const Piece &piece)
{
    return piece.begin == piece.end || (piece.isBit && piece.bits == 0);
}

/// Who has which bit of the byte that the walk has come to.
struct BitOwners
{
    quint64 byte = 0;
    std::array<int, 8> owners{};

    BitOwners() { owners.fill(BufferMap::sm_none); }

    void goTo(quint64 newByte)
    {
        if (newByte != byte) {
            byte = newByte;
            owners.fill(BufferMap::sm_none);
        }
    }

    /// Gives the @p bits that nobody has to @p piece, and calls @p share with the owner of each of the others.
    template <class Share>
    void take(quint32 bits, int piece, const Share &share)
    {
        for (std::size_t bit = 0; bit < owners.size(); ++bit) {
            if ((bits >> bit & 1U) == 0) {
                continue;
            }
            int &owner = owners[bit];
            if (owner != BufferMap::sm_none) {
                share(owner);
            } else {
                owner = piece;
            }
        }
    }
};

} // namespace

BufferMap::BufferMap(const QVector<LeafSlot> &leafSlots, quint32 bufferSize) : m_end(bufferSize)
{
    addSlots(leafSlots);
    if (bufferSize == 0) {
        for (const Piece &piece : m_pieces) {
            m_end = std::max(m_end, piece.end);
        }
    }
    findShared();
    addHoles();
}

void BufferMap::addSlots(const QVector<LeafSlot> &leafSlots)
{
    m_pieces.reserve(static_cast<std::size_t>(leafSlots.size()) * 2);
    for (int i = 0; i < leafSlots.size(); ++i) {
        const LeafSlot &slot = leafSlots[i];
        m_pieces.push_back({slot.offset, slot.valueEnd(), What::Value, i,
                            slot.isBit() ? slot.bitmask & bitsOfByte : 0, slot.isBit(), sm_none});
        if (slot.hasMetadata()) {
            m_pieces.push_back({slot.stateBegin(), slot.stateBegin() + LeafSlot::sm_metadataWidth,
                                What::State, i, 0, false, sm_none});
        }
    }
    std::stable_sort(m_pieces.begin(), m_pieces.end(), isBefore);
}

void BufferMap::share(int earlier, int later)
{
    Piece &first = m_pieces[static_cast<std::size_t>(earlier)];
    Piece &second = m_pieces[static_cast<std::size_t>(later)];
    first.sharedWith = first.sharedWith == sm_none ? later : first.sharedWith;
    second.sharedWith = second.sharedWith == sm_none ? earlier : second.sharedWith;
    const quint64 begin = std::max(first.begin, second.begin);
    const quint64 end = std::min(first.end, second.end);
    if (m_overlaps.isEmpty() || begin > m_overlaps.constLast().end) {
        m_overlaps.append({begin, end});
    } else {
        m_overlaps.last().end = std::max(m_overlaps.constLast().end, end);
    }
}

/// One look at each piece is enough: of those with whole bytes, the one that reaches farthest has bytes of the
/// next one if any has, and all bytes that this one shares with any before it.
void BufferMap::findShared()
{
    int farthest = sm_none;
    int previous = sm_none;
    BitOwners bits;
    for (int i = 0; i < static_cast<int>(m_pieces.size()); ++i) {
        const Piece &piece = m_pieces[static_cast<std::size_t>(i)];
        if (isNothing(piece)) {
            continue;
        }
        const auto reaches = [&](int other) {
            return other != sm_none && m_pieces[static_cast<std::size_t>(other)].end > piece.begin;
        };
        // Each that reaches into the next one shares bytes with it, also if another one reaches farther.
        if (previous != farthest && reaches(previous)) {
            share(previous, i);
        }
        if (reaches(farthest)) {
            share(farthest, i);
        }
        if (!piece.isBit) {
            previous = i;
            farthest = farthest == sm_none || piece.end > m_pieces[std::size_t(farthest)].end
                           ? i
                           : farthest;
            continue;
        }
        bits.goTo(piece.begin);
        bits.take(piece.bits, i, [&](int owner) { share(owner, i); });
    }
}

void BufferMap::addHoles()
{
    std::vector<Piece> holes;
    quint64 covered = 0;
    const auto addUpTo = [&](quint64 begin) {
        const quint64 holeEnd = std::min(begin, m_end);
        if (holeEnd > covered) {
            holes.push_back({covered, holeEnd, What::Hole, sm_none, 0, false, sm_none});
            m_free += holeEnd - covered;
        }
    };
    for (const Piece &piece : m_pieces) {
        if (!isNothing(piece)) {
            addUpTo(piece.begin);
            covered = std::max(covered, piece.end);
        }
    }
    addUpTo(m_end);
    m_holeCount = static_cast<int>(holes.size());
    if (holes.empty()) {
        return;
    }

    // Where each piece goes when the holes come in, as others are named by their places.
    std::vector<int> places(m_pieces.size());
    std::vector<Piece> all;
    all.reserve(m_pieces.size() + holes.size());
    auto hole = holes.cbegin();
    for (std::size_t i = 0; i < m_pieces.size(); ++i) {
        while (hole != holes.cend() && hole->begin <= m_pieces[i].begin) {
            all.push_back(*hole++);
        }
        places[i] = static_cast<int>(all.size());
        all.push_back(m_pieces[i]);
    }
    all.insert(all.end(), hole, holes.cend());
    for (Piece &piece : all) {
        piece.sharedWith = piece.sharedWith == sm_none ? sm_none
                                                       : places[std::size_t(piece.sharedWith)];
    }
    m_pieces = std::move(all);
}

quint64 BufferMap::sharedByte(const Piece &piece) const
{
    return std::max(piece.begin, m_pieces[static_cast<std::size_t>(piece.sharedWith)].begin);
}

quint64 BufferMap::overlapping() const
{
    return std::accumulate(
        m_overlaps.cbegin(), m_overlaps.cend(), quint64(0),
        [](quint64 sum, const Range &range) { return sum + (range.end - range.begin); });
}

#include "values/NewSharers.h"

#include <algorithm>

namespace {

/// A value or an error state.
struct Piece
{
    quint64 begin;
    quint64 end;
    quint32 bits; ///< of a single bit: its bits of the byte
    bool isBit;
    int leaf;
};

void addPieces(std::vector<Piece> &pieces, const LeafSlot &slot, int leaf)
{
    constexpr quint32 bitsOfByte = 0xFF;
    const quint32 bits = slot.isBit() ? slot.bitmask & bitsOfByte : 0;
    if (slot.offset != slot.valueEnd() && (!slot.isBit() || bits != 0)) {
        pieces.push_back({slot.offset, slot.valueEnd(), bits, slot.isBit(), leaf});
    }
    if (slot.hasMetadata()) {
        pieces.push_back(
            {slot.stateBegin(), slot.stateBegin() + LeafSlot::sm_metadataWidth, 0, false, leaf});
    }
}

bool collide(const Piece &left, const Piece &right)
{
    const bool areOneByte = left.begin < right.end && right.begin < left.end;
    return areOneByte && (!left.isBit || !right.isBit || (left.bits & right.bits) != 0);
}

bool share(const LeafSlot &left, const LeafSlot &right)
{
    std::vector<Piece> ofLeft;
    std::vector<Piece> ofRight;
    addPieces(ofLeft, left, 0);
    addPieces(ofRight, right, 1);
    return std::any_of(ofLeft.cbegin(), ofLeft.cend(), [&](const Piece &piece) {
        return std::any_of(ofRight.cbegin(), ofRight.cend(),
                           [&](const Piece &other) { return collide(piece, other); });
    });
}

void note(std::vector<int> &sharers, int leaf, int sharer)
{
    int &first = sharers[static_cast<std::size_t>(leaf)];
    first = first == noSharer ? sharer : std::min(first, sharer);
}

} // namespace

std::vector<int> newSharers(const std::vector<LeafSlot> &now,
                            const std::vector<std::optional<LeafSlot>> &former)
{
    // A description that nobody has laid out has all leaves at one place. Those that come later are compared with as
    // many as anybody would look at.
    constexpr std::size_t mostAtOnePlace = 100;
    std::vector<Piece> pieces;
    for (std::size_t i = 0; i < now.size(); ++i) {
        addPieces(pieces, now[i], static_cast<int>(i));
    }
    std::stable_sort(pieces.begin(), pieces.end(), [](const Piece &left, const Piece &right) {
        return left.begin < right.begin;
    });
    std::vector<int> sharers(now.size(), noSharer);
    std::vector<Piece> reaching;
    for (const Piece &piece : pieces) {
        reaching.erase(
            std::remove_if(reaching.begin(), reaching.end(),
                           [&piece](const Piece &other) { return other.end <= piece.begin; }),
            reaching.end());
        for (const Piece &other : reaching) {
            const auto &was = former[static_cast<std::size_t>(piece.leaf)];
            const auto &otherWas = former[static_cast<std::size_t>(other.leaf)];
            const bool isNew = !was || !otherWas || !share(*was, *otherWas);
            if (piece.leaf != other.leaf && collide(piece, other) && isNew) {
                note(sharers, piece.leaf, other.leaf);
                note(sharers, other.leaf, piece.leaf);
            }
        }
        if (reaching.size() == mostAtOnePlace) {
            reaching.erase(reaching.begin());
        }
        reaching.push_back(piece);
    }
    return sharers;
}

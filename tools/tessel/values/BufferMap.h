#pragma once

#include "values/LeafSlot.h"

#include <QVector>

#include <vector>

/// What lies where in a buffer: the values and error states of the leaves, and what is left between them.
///
/// Offsets count from the start of the buffer, in bytes. Takes memory and time in proportion to the number of
/// leaves, however they lie on each other.
class BufferMap
{
public:
    enum class What { Value, State, Hole };

    static constexpr int sm_none = -1;

    struct Piece
    {
        quint64 begin;
        quint64 end;
        What what;
        /// Index among the leaves; sm_none of a hole.
        int leaf;
        /// Of a single bit: its bits of the byte.
        quint32 bits;
        bool isBit;
        /// Index of a piece that has bytes of this one as well, or bits; sm_none if there is none.
        int sharedWith;

        quint64 size() const { return end - begin; }
    };

    struct Range
    {
        quint64 begin;
        quint64 end;
    };

    /// @p bufferSize 0: no memory is described, and the buffer ends where its last slot does.
    BufferMap(const QVector<LeafSlot> &leafSlots, quint32 bufferSize);

    /// In ascending order of their begin; of those at one place whole bytes stand before single bits, and the
    /// leaves in their own order.
    const std::vector<Piece> &pieces() const { return m_pieces; }
    /// The first byte that @p piece and what it shares bytes with both have.
    quint64 sharedByte(const Piece &piece) const;
    /// Where more than one leaf lies, without those that are single bits with masks of their own.
    const QVector<Range> &overlaps() const { return m_overlaps; }

    /// The size of the buffer, or the end of its last slot.
    quint64 end() const { return m_end; }
    bool isOutside(const Piece &piece) const { return piece.end > m_end; }

    // Bytes of the buffer.
    quint64 used() const { return m_end - m_free; }
    quint64 free() const { return m_free; }
    int holeCount() const { return m_holeCount; }
    quint64 overlapping() const;

private:
    void addSlots(const QVector<LeafSlot> &leafSlots);
    void findShared();
    void addHoles();
    void share(int earlier, int later);

    std::vector<Piece> m_pieces;
    QVector<Range> m_overlaps;
    quint64 m_end;
    quint64 m_free = 0;
    int m_holeCount = 0;
};

#pragma once

#include "recordings/SetImage.h"
#include "values/LeafSlot.h"

/// What the recorder knows of the values: the set before, as bytes, against which each new one is compared.
///
/// Bytes are compared, so that NaN equals itself; of single bits those of their mask.
class SlotCopies
{
public:
    /// All slots lie within the buffers that are taken.
    SlotCopies(const QVector<LeafSlot> &leafSlots, const ImageLayout &layout);

    /// Takes a set over from its buffer, and adds to @p changes what is not as in the one before. Its values
    /// come back: indices in ascending order, until the next call.
    const std::vector<int> &take(const unsigned char *buffer, QByteArray &changes);
    /// The set that was taken last, as ImageLayout has it.
    const QByteArray &image() const { return m_image; }

private:
    struct Copy
    {
        quint64 value;
        quint64 state;
        unsigned char mask; ///< of a single bit; 0 of whole bytes
        ImageLayout::Place place;
    };

    bool takeValue(const Copy &copy, const unsigned char *buffer);

    std::vector<Copy> m_copies;
    std::vector<int> m_changed;
    QByteArray m_image;
};

QVector<LeafSlot> slotsOf(const QVector<Leaf> &leaves);
/// What is recorded of a leaf. Of single bits the one byte is, without the bits of others.
RecordedValue recordedValueOf(const Leaf &leaf, const LeafSlot &slot);

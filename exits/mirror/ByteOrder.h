#pragma once

#include "mirror/SlotLayout.h"

#include <QVector>

/// Turns the numbers of a set around, for a machine whose byte order is the other one.
///
/// Values of several bytes, the units of texts and error states are turned, each place once however many
/// leaves share it; what is no leaf's stays. Leaves that reach out of the buffer are left alone.
class ByteOrder
{
public:
    enum class Order : quint8 { LowestFirst = 1, HighestFirst = 2 };

    explicit ByteOrder(const SlotLayout &layout);

    static Order ofThisMachine();
    /// @p bytes has to have the size of the buffer.
    void turn(unsigned char *bytes) const;

private:
    struct Place
    {
        quint32 offset;
        quint32 size;
    };

    QVector<Place> m_places;
};

#pragma once

#include "Companion/Exchange/OptimisticRead_p.h"
#include "ProcessData/Linux/NumberSlot_p.h"
#include "ProcessData/Linux/ProcessDataValue.h"

/// What the handles and readers of the library need to know of a leaf. Asked at each access, so
/// that a leaf which was bound anew is read where it is bound now.
class SlotAccess
{
public:
    /// Whether the leaf was found valid when it was bound.
    static bool isBound(const ProcessDataValue &leaf)
    {
        return leaf.m_bufferHandler != nullptr && leaf.m_isValid;
    }
    static const BufferHandlerInterface *handler(const ProcessDataValue &leaf)
    {
        return leaf.m_bufferHandler;
    }
    /// How many times the leaf was bound so far; counts on as long as the leaf lives.
    static const quint32 &bindingCount(const ProcessDataValue &leaf) { return leaf.m_bindingCount; }
    /// Size of the buffer that the leaf is bound to. Only where isBound().
    static quint32 bufferSize(const ProcessDataValue &leaf)
    {
        return leaf.m_bufferHandler->bufferSize();
    }
    /// What getValueNoLock() does, in @p buffer, which has bufferSize() bytes.
    static void read(const ProcessDataValue &leaf, const unsigned char *buffer, ProcessValue &value,
                     bool keepValueOnError)
    {
        // The slots of a leaf are found for reading and writing alike; this only reads.
        leaf.readValue(const_cast<unsigned char *>(buffer), value, keepValueOnError);
    }
    /// The slot, whether it lies inside the buffer or not; its form is None without a number.
    static NumberSlot slot(const ProcessDataValue &leaf) { return leaf.getNumberSlot(); }

    /// Form of a number inside a double buffer of this library; if None what follows must not be
    /// asked for.
    static SlotForm directForm(const ProcessDataValue &leaf) { return leaf.m_directForm; }
    static bool isDirect(const ProcessDataValue &leaf)
    {
        return leaf.m_directForm != SlotForm::None;
    }
    static const PingPongBufferHandler &directHandler(const ProcessDataValue &leaf)
    {
        return static_cast<const PingPongBufferHandler &>(*leaf.m_bufferHandler);
    }
    static NumberSlot directSlot(const ProcessDataValue &leaf)
    {
        return {leaf.m_offsetSharedMemory,
                quint64{leaf.m_offsetSharedMemory} + leaf.m_relativeOffsetMetadata,
                leaf.m_directForm, static_cast<quint8>(leaf.m_bitmask), leaf.m_sizeMetadata != 0};
    }
};

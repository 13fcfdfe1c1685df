#pragma once

#include "Companion/PingPongBufferHandler.h"
#include "Companion/SingleBufferHandler.h"

#include <typeinfo>

/// What tells a handler from all others that this process ever had: its address may be given again as soon
/// as it has ended.
class HandlerNumber
{
public:
    /// Of a live handler; 0 for none, and for one that is not of this library.
    static quint64 of(const BufferHandlerInterface *handler)
    {
        if (handler == nullptr) {
            return 0;
        }
        // The usual class, without a search through its bases.
        const auto *const pingPong = typeid(*handler) == typeid(PingPongBufferHandler)
                                         ? static_cast<const PingPongBufferHandler *>(handler)
                                         : dynamic_cast<const PingPongBufferHandler *>(handler);
        if (pingPong != nullptr) {
            return pingPong->m_number;
        }
        const auto *const single = dynamic_cast<const SingleBufferHandler *>(handler);
        return single != nullptr ? single->m_number : 0;
    }
};

#include "values/CacheLines.h"

#include "Companion/PingPongBufferHandler.h"

namespace {

bool crosses(quint64 begin, quint64 count)
{
    return count > 0 && count <= CacheLines::sm_size
           && begin / CacheLines::sm_size != (begin + count - 1) / CacheLines::sm_size;
}

} // namespace

CacheLines::CacheLines(bool isDoubleBuffered, quint32 bufferSize)
    : m_isDoubleBuffered(isDoubleBuffered)
    , m_firstBegin(isDoubleBuffered ? PingPongBufferHandler::getSizeManagementBuffer() : 0)
    , m_secondBegin(m_firstBegin + (isDoubleBuffered ? bufferSize : 0))
{
}

CacheLines::Crossing CacheLines::ofValue(const LeafSlot &slot) const
{
    if (slot.metaType == QMetaType::QString || slot.isBit()) {
        return {};
    }
    return ofBytes(slot.offset, slot.size);
}

CacheLines::Crossing CacheLines::ofState(const LeafSlot &slot) const
{
    return slot.hasMetadata() ? ofBytes(slot.stateBegin(), LeafSlot::sm_metadataWidth) : Crossing();
}

QString CacheLines::text(Crossing crossing) const
{
    if (!crossing.isAny()) {
        return {};
    }
    const QString where = !m_isDoubleBuffered ? QString()
                          : crossing.inFirst && crossing.inSecond
                              ? QStringLiteral(" in both buffers")
                          : crossing.inFirst ? QStringLiteral(" in the first buffer")
                                             : QStringLiteral(" in the second buffer");
    return QStringLiteral("crosses a cache line") + where;
}

CacheLines::Crossing CacheLines::ofBytes(quint64 offset, quint64 count) const
{
    return {crosses(m_firstBegin + offset, count),
            m_isDoubleBuffered && crosses(m_secondBegin + offset, count)};
}

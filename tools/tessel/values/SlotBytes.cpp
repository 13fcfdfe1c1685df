#include "values/SlotBytes.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "values/SizeOnlyBuffer.h"

#include <QJsonObject>

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

/// A buffer in the memory of this process.
class OwnBuffer : public SizeOnlyBuffer
{
public:
    explicit OwnBuffer(const QByteArray &bytes)
        : SizeOnlyBuffer(static_cast<quint32>(bytes.size()))
        , m_bytes(bytes)
    {
    }

    BufferPointer readBufferPointer() override
    {
        return reinterpret_cast<BufferPointer>(m_bytes.data());
    }

private:
    QByteArray m_bytes;
};

bool areZero(const QByteArray &bytes)
{
    return std::all_of(bytes.cbegin(), bytes.cend(), [](char byte) { return byte == 0; });
}

} // namespace

ProcessValue SlotBytes::decoded(const LeafSlot &slot) const
{
    ProcessValue read(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    if (value.isEmpty()) {
        return read;
    }
    // A leaf like it, in a buffer that holds nothing else.
    ProcessDataValue leaf({{Definitions::getKeyDataPropertyType(), slot.type},
                           {Definitions::getKeyDataPropertyOffsetSharedMemory(), 0},
                           {Definitions::getKeyDataPropertySizeValue(), value.size()},
                           {Definitions::getKeyDataPropertyRelativeOffsetMetadata(), value.size()},
                           {Definitions::getKeyDataPropertySizeMetadata(), state.size()},
                           {Definitions::getKeyDataPropertyBitmask(), qint64{slot.bitmask}}},
                          nullptr);
    OwnBuffer buffer(value + state);
    leaf.setBufferHandlerInterface(&buffer, false);
    leaf.getValueNoLock(read, true);
    return read;
}

bool SlotBytes::isZero() const
{
    return areZero(value) && areZero(state);
}

QString hexText(const SlotBytes &bytes)
{
    constexpr int mostBytes = 16;
    QString text = QString::fromLatin1(bytes.value.left(mostBytes).toHex());
    text += bytes.value.size() > mostBytes ? QStringLiteral("...") : QString();
    return bytes.state.isEmpty()
               ? text
               : text + QLatin1Char(' ') + QString::fromLatin1(bytes.state.toHex());
}

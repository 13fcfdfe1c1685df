#include "recordings/RecordedLeaves.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "values/SizeOnlyBuffer.h"

#include <QJsonObject>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;

QJsonObject descriptionOf(const RecordedValue &value, const ImageLayout::Place &place)
{
    return {
        {Definitions::getKeyDataPropertyType(), value.type},
        {Definitions::getKeyDataPropertyOffsetSharedMemory(), static_cast<double>(place.offset)},
        {Definitions::getKeyDataPropertySizeValue(), static_cast<double>(place.size)},
        {Definitions::getKeyDataPropertyRelativeOffsetMetadata(), static_cast<double>(place.size)},
        {Definitions::getKeyDataPropertySizeMetadata(), static_cast<double>(place.stateSize)},
        {Definitions::getKeyDataPropertyBitmask(), static_cast<double>(value.bitmask)}};
}

} // namespace

/// A buffer of values in the memory of this process.
class RecordedLeaves::Image : public SizeOnlyBuffer
{
public:
    explicit Image(quint32 size) : SizeOnlyBuffer(size) { }

    QByteArray bytes;

    BufferPointer readBufferPointer() override
    {
        // Nobody writes through it, so it need not be a copy.
        return reinterpret_cast<BufferPointer>(const_cast<char *>(bytes.constData()));
    }
};

RecordedLeaves::RecordedLeaves(const RecordingHead &head, const ImageLayout &layout)
    : m_image(std::make_unique<Image>(static_cast<quint32>(layout.size())))
{
    m_leaves.reserve(layout.places().size());
    for (std::size_t i = 0; i < layout.places().size(); ++i) {
        const QJsonObject json = descriptionOf(head.values[static_cast<int>(i)],
                                               layout.places()[i]);
        m_leaves.push_back(std::make_unique<ProcessDataValue>(json, nullptr));
        m_leaves.back()->setBufferHandlerInterface(m_image.get(), false);
    }
}

RecordedLeaves::~RecordedLeaves() = default;

void RecordedLeaves::show(const QByteArray &image)
{
    m_image->bytes = image;
}

ProcessValue RecordedLeaves::value(int index) const
{
    ProcessValue read(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    if (quint32(m_image->bytes.size()) == m_image->bufferSize()) {
        m_leaves[static_cast<std::size_t>(index)]->getValueNoLock(read);
    }
    return read;
}

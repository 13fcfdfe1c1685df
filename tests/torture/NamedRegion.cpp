#include "torture/NamedRegion.h"

#include "Companion/SingleBufferHandler.h"

#include <algorithm>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>

namespace Torture {

namespace {

constexpr std::size_t mappingSize = 4096;
/// The last word of the mapping tells all processes how large the buffers are at the moment.
constexpr std::size_t sizeAt = mappingSize - sizeof(quint32);
constexpr std::size_t valueSize = 8;

std::size_t bytesToAlignment(const unsigned char *address)
{
    return (valueSize - reinterpret_cast<quintptr>(address) % valueSize) % valueSize;
}

} // namespace

NamedRegion::NamedRegion(const QString &key, bool isDoubleBuffer)
    : m_isDoubleBuffer(isDoubleBuffer)
    , m_semaphores(key + QLatin1String("Semaphore"))
    , m_segment(key + QLatin1String("SharedMemory"))
{
    const int fd = shm_open(qPrintable(m_segment.name()), O_RDWR | O_CREAT | O_EXCL, 0666);
    if (fd < 0 || ftruncate(fd, mappingSize) != 0) {
        qFatal("no memory for a region");
    }
    void *const start = mmap(nullptr, mappingSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (start == MAP_FAILED) {
        qFatal("a region cannot be mapped");
    }
    m_start = static_cast<unsigned char *>(start);
}

NamedRegion::~NamedRegion()
{
    munmap(m_start, mappingSize);
}

void NamedRegion::reset(quint32 size) const
{
    m_semaphores.remove();
    std::memset(m_start, 0, mappingSize);
    std::memcpy(m_start + sizeAt, &size, sizeof size);
}

NamedRegion::Handler NamedRegion::makeHandler(SystemVSemaphoreBaseClass::CreationType type) const
{
    if (m_isDoubleBuffer) {
        return std::make_unique<PingPongBufferHandler>(management(), buffer(0), buffer(1), type,
                                                       size(), m_semaphores.key());
    }
    return std::make_unique<SingleBufferHandler>(buffer(0), type, size(), m_semaphores.key());
}

quint32 NamedRegion::size() const
{
    quint32 size = 0;
    std::memcpy(&size, m_start + sizeAt, sizeof size);
    return size;
}

PingPongBufferHandler::ManagementBuffer *NamedRegion::management() const
{
    return reinterpret_cast<PingPongBufferHandler::ManagementBuffer *>(m_start);
}

unsigned char *NamedRegion::buffer(quint64 index) const
{
    const std::size_t offset = m_isDoubleBuffer ? (index & 1U) * size() : 0;
    return m_start + PingPongBufferHandler::getSizeManagementBuffer() + offset;
}

int NamedRegion::numberIn(const unsigned char *buffer) const
{
    const bool isWhole = std::all_of(buffer, buffer + size(),
                                     [buffer](unsigned char byte) { return byte == buffer[0]; });
    return isWhole ? buffer[0] : sm_mixed;
}

bool NamedRegion::isEveryValueWhole() const
{
    for (int index = 0; index < (m_isDoubleBuffer ? 2 : 1); ++index) {
        const unsigned char *const end = buffer(static_cast<quint64>(index)) + size();
        const unsigned char *value = buffer(static_cast<quint64>(index));
        for (value += bytesToAlignment(value); value + valueSize <= end; value += valueSize) {
            if (std::memcmp(value, value + 1, valueSize - 1) != 0) {
                return false;
            }
        }
    }
    return true;
}

void fillBuffer(unsigned char *buffer, quint32 size, int number, bool isHalf)
{
    const auto byte = static_cast<unsigned char>(number);
    const quint64 value = byte * 0x0101010101010101U;
    volatile unsigned char *const bytes = buffer;
    const std::size_t begin = bytesToAlignment(buffer);
    for (std::size_t i = 0; i < begin; ++i) {
        bytes[i] = byte;
    }
    std::size_t i = begin;
    for (; i + valueSize <= (isHalf ? size / 2 : size); i += valueSize) {
        *reinterpret_cast<volatile quint64 *>(buffer + i) = value;
    }
    for (; !isHalf && i < size; ++i) {
        bytes[i] = byte;
    }
}

} // namespace Torture

#include "ProcessDataManagement/ProcessDataManager.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/Exchange/SetWaiting_p.h"
#include "Companion/PingPongBufferHandler.h"
#include "Companion/RegularFile_p.h"
#include "Companion/SingleReadingHandler_p.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/SortedLeaves_p.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessData/Linux/SegmentWord_p.h"
#include "ProcessDataManagement/LayoutNote_p.h"
#include "ProcessDataManagement/ManagerAccess_p.h"
#include "ProcessDataManagement/ProcessDataBufferHandler.h"

#include <QDebug>
#include <QFile>

#include <cstddef>
#include <cstring>
#include <deque>
#include <limits>
#include <typeinfo>
#include <utility>

using Definitions = ConfigurationAndProcessDataDefinitions;

const QString ProcessDataManager::sm_sharedMemoryKeyExtension = QStringLiteral("SharedMemory");
const QString ProcessDataManager::sm_semaphoreKeyExtension = QStringLiteral("Semaphore");

namespace {

ProcessDataBufferHandler::InitTypeBuffer bufferInitType(
    ProcessDataManager::InitTypeSharedMemory type)
{
    return type == ProcessDataManager::InitTypeSharedMemoryCreate
               ? ProcessDataBufferHandler::InitTypeBufferCreate
               : ProcessDataBufferHandler::InitTypeBufferAttach;
}

/// A segment counts its bytes in an int.
bool checkRegionSize(const QString &key, unsigned int size)
{
    constexpr unsigned int largest = std::numeric_limits<int>::max();
    if (size > largest) {
        qWarning() << "Shared memory" << key << "would be larger than" << largest
                   << "bytes: reduce the size in the process description.";
        return false;
    }
    return true;
}

/// Before the name leads to another memory.
void closeFormerRegion(const QString &key, const QString &semaphoreKey)
{
    constexpr int offset = offsetof(PingPongBufferHandler::ManagementBuffer, format);
    if (segmentWord(key, offset) != PingPongBufferHandler::formatWord()) {
        return;
    }
    SharedMemory former;
    former.setKey(key);
    if (former.attach(SharedMemory::ReadWrite)
        && former.size() >= static_cast<int>(PingPongBufferHandler::getSizeManagementBuffer())) {
        PingPongBufferHandler::closeFormerRegion(
            *static_cast<PingPongBufferHandler::ManagementBuffer *>(former.data()), semaphoreKey);
    }
}

bool createSegment(SharedMemory &memory, const QString &key, int size)
{
    if (!memory.create(size)) {
        qWarning() << "Error on creating shared memory:" << memory.errorString() << ","
                   << memory.error() << "!"
                   << "You can delete all sharedMemories with the command: ipcrm -a";
        return false;
    }
    if (memory.data() != nullptr) {
        std::memset(memory.data(), 0, static_cast<std::size_t>(size));
    }
    qDebug() << "Create: Key for shared memory (" << key << ")!";
    return true;
}

bool attachSegment(SharedMemory &memory, SharedMemory::AccessMode mode, const QString &key,
                   int size)
{
    if (!memory.attach(mode)) {
        qWarning() << "Attach to shared memory(" << key << ") fails" << memory.errorString() << ","
                   << memory.error();
        return false;
    }
    // Made from another description. The buffers would reach beyond the mapping.
    if (memory.size() < size) {
        qWarning() << "Shared memory" << key << "is too small: it has" << memory.size()
                   << "bytes, the process description needs" << size
                   << ". Start the creating process anew with the same description.";
        return false;
    }
    qDebug() << "Attach: Key for shared memory (" << key << ")!";
    return true;
}

/// Whether no lock of it could ever be had. The log says why.
bool isRefused(const BufferHandlerInterface &handler)
{
    const auto *const reading = dynamic_cast<const SingleReadingHandler *>(&handler);
    return reading != nullptr && reading->isRefused();
}

/// Null for any other.
ProcessDataValue *processValueOf(ConfigurationAndProcessDataBase *leaf)
{
    // The usual class, without a search through its bases.
    return leaf != nullptr && typeid(*leaf) == typeid(ProcessDataValue)
               ? static_cast<ProcessDataValue *>(leaf)
               : dynamic_cast<ProcessDataValue *>(leaf);
}

/// What the management block says of creator and layout. A region with a single buffer has none.
void exchangeLayout(SharedMemory &memory, const ProcessDataManager::BaseClassSharedPointer &root,
                    ProcessDataManager::InitTypeSharedMemory type, bool doubleBuffer,
                    const QString &key)
{
    const quint32 blockSize = PingPongBufferHandler::getSizeManagementBuffer();
    auto *management = static_cast<PingPongBufferHandler::ManagementBuffer *>(memory.data());
    // Where the description has a single buffer the region may be smaller than a block.
    if (management == nullptr || memory.size() < static_cast<int>(blockSize)
        || management->format.load(std::memory_order_acquire)
               != PingPongBufferHandler::formatWord()) {
        return;
    }
    // Of the region as it is: the creator's parts are those of its own buffer.
    const quint32 bufferSize = (static_cast<quint32>(memory.size()) - blockSize) / 2;
    const auto noting = memory.isWritable() ? LayoutNote::Noting::InRegion
                                            : LayoutNote::Noting::Nowhere;
    if (type == ProcessDataManager::InitTypeSharedMemoryCreate) {
        LayoutNote::write(*management, root, bufferSize);
    } else if (!doubleBuffer) {
        LayoutNote::compareSingle(*management, root, bufferSize, key, noting);
    } else {
        LayoutNote::compare(*management, root, bufferSize, key, noting);
    }
}

} // namespace

ProcessDataManager::ProcessDataManager() : m_bufferMutex(QMutex::Recursive)
{
    ManagerAccess::makeInThisProcess(*this);
}

ProcessDataManager::~ProcessDataManager()
{
    // What a child has inherited may be locked.
    ManagerAccess::beginInThisProcess(*this);
    // The handler ends behind the memory, and finds nobody there any more whom it could wake.
    if (const auto *const handler = dynamic_cast<const PingPongBufferHandler *>(
            m_bufferHandler.data())) {
        SetWaiting::wakeBeforeTheEnd(*handler);
    }
}

void ProcessDataManager::setAccessMode(SharedMemory::AccessMode mode)
{
    ManagerAccess::setAccessMode(*this, mode);
}

SharedMemory::AccessMode ProcessDataManager::getAccessMode() const
{
    return ManagerAccess::accessMode(*this);
}

ProcessDataManager::BaseClassSharedPointer ProcessDataManager::createProcessData(
    const BaseClassSharedPointer &root, ProcessDataManager::InitTypeSharedMemory type)
{
    if (root.isNull()) {
        qWarning() << "RootElement nullpointer!";
        return {};
    }
    // A description without memory is no error: it is used for its properties alone.
    if (root->getProperty(Definitions::getKeyDataPropertySizeOfSharedMemory()).toInt() < 1) {
        m_bufferHandler.clear();
        return root;
    }
    if (!createProcessDataMemory(root, type)) {
        m_bufferHandler.clear();
        qWarning() << "Can not create process data memory.";
        return {};
    }
    return root;
}

ProcessDataManager::BaseClassSharedPointer ProcessDataManager::createProcessDataFromJson(
    const QVariant &json, const QString &typeText, ProcessDataManager::InitTypeSharedMemory type)
{
    const ConfigurationAndProcessDataParser parser;
    const BaseClassSharedPointer root = parser.parseFromJson(json, typeText);
    if (root.isNull()) {
        qWarning() << "Cannot parse Json!";
        return {};
    }
    return createProcessData(root, type);
}

ProcessDataManager::BaseClassSharedPointer ProcessDataManager::createProcessDataFromFile(
    const QString &fileName, ProcessDataManager::InitTypeSharedMemory type)
{
    QFile file;
    if (!RegularFile::openForReading(fileName, file)) {
        return {};
    }
    const ConfigurationAndProcessDataParser parser;
    const QString typeText = parser.cutOutFileTypeAndExtension(fileName);
    if (typeText.isEmpty()) {
        qWarning() << "Cannot parse file:" << fileName;
        return {};
    }
    return createProcessDataFromJson(QVariant(RegularFile::readText(file)), typeText, type);
}

bool ProcessDataManager::createProcessDataMemory(const BaseClassSharedPointer &root,
                                                 ProcessDataManager::InitTypeSharedMemory type)
{
    if (root.isNull()) {
        qWarning() << "Pointer to root object is null!";
        return false;
    }
    const QString key = root->getProperty(Definitions::getStrKeyProcessDataMemory()).toString();
    if (key.isEmpty()) {
        qWarning() << "Key for process data memory is empty.";
        return false;
    }
    const unsigned int size =
        root->getProperty(Definitions::getKeyDataPropertySizeOfSharedMemory()).toUInt();
    const bool doubleBuffer =
        root->getProperty(Definitions::getKeyDataPropertyDoubleBuffer()).toBool();

    ProcessDataBufferHandler layout(doubleBuffer);
    if (!initSharedMemory(type, key, layout.calculateSizeSharedMemory(size))) {
        qWarning() << "Can not initialize shared memory.";
        return false;
    }
    m_bufferHandler = layout.initBufferHandler(bufferInitType(type), key + sm_semaphoreKeyExtension,
                                               size, m_sharedMemory);
    if (m_bufferHandler.isNull() || isRefused(*m_bufferHandler)) {
        qWarning() << "Can not initialize Buffer Handler.";
        return false;
    }
    // A leaf that cannot be bound or filled has said so in the log and does not stop the others.
    setPointerToBufferHandler(root, type);
    // A creator has cleared its memory: there is no block of a former region with two buffers.
    exchangeLayout(m_sharedMemory, root, type, doubleBuffer, key);
    initSharedMemoryValues(root, type);
    return true;
}

bool ProcessDataManager::initSharedMemory(ProcessDataManager::InitTypeSharedMemory type,
                                          const QString &key, unsigned int size)
{
    if (key.isEmpty()) {
        qWarning() << "Key for process data is empty.";
        return false;
    }
    if (!checkRegionSize(key, size)) {
        return false;
    }
    if (type == InitTypeSharedMemoryCreate && getAccessMode() == SharedMemory::ReadOnly) {
        qWarning() << "A manager for reading alone cannot create the shared memory" << key
                   << ". Attach to it, or set its access mode to SharedMemory::ReadWrite.";
        return false;
    }
    ManagerAccess::beginInThisProcess(*this);
    m_sharedMemory.setKey(key + sm_sharedMemoryKeyExtension);
    const int regionSize = static_cast<int>(size);
    if (type == InitTypeSharedMemoryCreate) {
        closeFormerRegion(key + sm_sharedMemoryKeyExtension, key + sm_semaphoreKeyExtension);
    }
    return type == InitTypeSharedMemoryCreate
               ? createSegment(m_sharedMemory, key, regionSize)
               : attachSegment(m_sharedMemory, getAccessMode(), key, regionSize);
}

bool ProcessDataManager::setPointerToBufferHandler(const BaseClassSharedPointer &root,
                                                   ProcessDataManager::InitTypeSharedMemory type)
{
    const std::deque<BaseClassSharedPointer> leaves = sortedLeavesOf(*root);
    bool anyBound = false;
    for (const auto &leaf : leaves) {
        auto *value = processValueOf(leaf.data());
        if (value == nullptr) {
            qWarning() << "Cannot cast to process element.";
            continue;
        }
        value->setBufferHandlerInterface(m_bufferHandler.data(),
                                         type == InitTypeSharedMemoryCreate);
        anyBound = true;
    }
    return anyBound;
}

void ProcessDataManager::initSharedMemoryValues(const BaseClassSharedPointer &root,
                                                ProcessDataManager::InitTypeSharedMemory type)
{
    if (type != InitTypeSharedMemoryCreate) {
        return;
    }
    ConfigurationAndProcessDataBase::ListElements leaves;
    root->collectElements(leaves, false);
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    if (!lockWriteBuffer()) {
        // The refused call holds the mutex too; the level that is given back here is its own.
        m_bufferMutex.unlock();
        qWarning() << "Can't initialisize shared memory (can't lock sharedMemory)";
        return;
    }
    for (const auto &leaf : std::as_const(leaves)) {
        ProcessDataValue *const element = processValueOf(leaf.data());
        if (element == nullptr) {
            qWarning() << "Nullpointer access. Can't cast BaseClassSharedPointer to "
                          "ProcessDataValueSharedPointer";
            continue;
        }
        // Reading gives the value the slot's own type; what it says about the state is of no use.
        element->getValueNoLock(value, false);
        value.setErrorType(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
        element->setValueNoLock(value);
    }
    if (!unlockWriteBuffer()) {
        qWarning() << "Can't unlock sharedMemroy after initialisation";
    }
    if (!swapReadAndWriteBuffer()) {
        qWarning() << "Can't swap sharedMemory after initialisation";
    }
}

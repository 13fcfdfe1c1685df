#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/Exchange/WriteLease_p.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Inspection/RegionInspectionPrivate_p.h"
#include "Inspection/RegionLockReading_p.h"
#include "Inspection/RegionUsers.h"
#include "ProcessDataManagement/LayoutDigest_p.h"
#include "ProcessDataManagement/ProcessDataBufferHandler.h"
#include "ProcessDataManagement/ProcessStart_p.h"

#include <QFileInfo>

#include <algorithm>
#include <limits>
#include <system_error>
#include <utility>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using BaseClassSharedPointer = RegionInspection::BaseClassSharedPointer;

const QLatin1String memoryEnding("SharedMemory");
const QLatin1String semaphoreEnding("Semaphore");

QString keyOf(const BaseClassSharedPointer &root)
{
    return root.isNull() ? QString()
                         : root->getProperty(Definitions::getStrKeyProcessDataMemory()).toString();
}

/// An empty key is none, whatever lies under the ending alone.
QString nameOf(const QString &key, QLatin1String ending)
{
    return key.isEmpty() ? QString() : key + ending;
}

} // namespace

RegionInspection::Private::Description::Description(const BaseClassSharedPointer &root)
    : isDoubleBuffer(root->getProperty(Definitions::getKeyDataPropertyDoubleBuffer()).toBool())
    , leaves(root)
{
    const QVariant size = root->getProperty(Definitions::getKeyDataPropertySizeOfSharedMemory());
    bufferSize = size.toInt() < 1 ? 0 : size.toUInt();
}

RegionInspection::Private::Private(const QString &memoryKey)
    : key(memoryKey)
    , name(nameOf(memoryKey, memoryEnding))
    , semaphoreKey(nameOf(memoryKey, semaphoreEnding))
    , file(name)
{
    Block block{};
    firstCreator = readBlock(block) ? creatorIn(block) : CreatorSearch::Creator{0, 0, 0};
    timeOfFirstCreator = ProcessList::Clock::now();
}

RegionInspection::Private::Private(const BaseClassSharedPointer &root) : Private(keyOf(root))
{
    if (!root.isNull()) {
        description.emplace(root);
    }
}

QString RegionInspection::Private::keyIn(const QString &nameOfMemory)
{
    return nameOfMemory.endsWith(memoryEnding) ? nameOfMemory.chopped(memoryEnding.size())
                                               : QString();
}

bool RegionInspection::Private::readBlock(Block &block) const
{
    return file.isOpen() && file.read(&block, sizeof block, 0)
           && block.format == PingPongBufferHandler::formatWord();
}

bool RegionInspection::Private::hasBlock() const
{
    Block block{};
    constexpr int versionBits = 16; // the lowest, below what every version says alike
    return file.isOpen() && file.read(&block, sizeof block, 0)
           && block.format >> versionBits == PingPongBufferHandler::formatWord() >> versionBits;
}

/// An id that none can have, such as one that would be a group of processes, is 0.
CreatorSearch::Creator RegionInspection::Private::creatorIn(const Block &block)
{
    const auto pid = static_cast<pid_t>(block.creatorPid.load());
    return {std::max(pid, 0), block.creatorStart, block.creatorNamespace};
}

bool RegionInspection::Private::hasSizeOfDescription() const
{
    const ProcessDataBufferHandler layout(description && description->isDoubleBuffer);
    return description
           && file.size() == qint64{layout.calculateSizeSharedMemory(description->bufferSize)};
}

std::optional<qint64> RegionInspection::Private::offsetOf(Buffer buffer) const
{
    Block block{};
    // In a region of another kind or size the leaves lie elsewhere, or are not there at all.
    if (!hasSizeOfDescription() || readBlock(block) != description->isDoubleBuffer
        || hasBlock() != description->isDoubleBuffer) {
        return {};
    }
    if (!description->isDoubleBuffer) {
        return buffer == Buffer::First ? std::optional<qint64>(0) : std::nullopt;
    }
    const qint64 first = PingPongBufferHandler::getSizeManagementBuffer();
    return buffer == Buffer::First ? first : first + description->bufferSize;
}

std::optional<OtherLayouts> RegionInspection::Private::otherLayouts() const
{
    Block block{};
    // Without a fingerprint there was nothing to compare with.
    if (!readBlock(block) || block.fingerprint == 0) {
        return {};
    }
    ProcessStart start;
    start.ticks = block.creatorStart;
    return OtherLayouts{{std::cbegin(block.otherLayouts), std::cend(block.otherLayouts)},
                        ProcessStart::wordOf(creatorIn(block).pid, start)};
}

std::optional<LayoutLeaf> RegionInspection::Private::findLeaf(const QString &url) const
{
    return description ? description->leaves.find(url.toUtf8()) : std::nullopt;
}

QByteArray RegionInspection::Private::bytes(Buffer buffer, quint64 offset, quint32 size) const
{
    const std::optional<qint64> begin = offsetOf(buffer);
    return begin && offset + size <= description->bufferSize
               ? file.read(*begin + static_cast<qint64>(offset), size)
               : QByteArray();
}

LayoutDigest::Leaves RegionInspection::Private::Description::inOrder() const
{
    return [this](const auto &take) { leaves.giveAll(take); };
}

RegionInspection::RegionInspection(const QString &key)
    : m_private(std::make_shared<const Private>(key))
{
}

RegionInspection::RegionInspection(const BaseClassSharedPointer &root)
    : m_private(std::make_shared<const Private>(root))
{
}

RegionInspection::~RegionInspection() = default;
RegionInspection::RegionInspection(const RegionInspection &other) = default;
RegionInspection &RegionInspection::operator=(const RegionInspection &other) = default;

RegionInspection RegionInspection::fromFile(const QString &fileName)
{
    return RegionInspection(ConfigurationAndProcessDataParser().parseFromFile(fileName));
}

RegionInspection RegionInspection::fromDirectory(const QString &processDir)
{
    BaseClassSharedPointer root;
    ConfigurationDataAndProcessDescriptionAccess::parseProcessDir(root, QFileInfo(processDir));
    return RegionInspection(root);
}

QStringList RegionInspection::findKeys()
{
    QStringList keys;
    findKeysWithStatus(keys);
    return keys;
}

int RegionInspection::findKeysWithStatus(QStringList &keys)
{
    keys.clear();
    QStringList names;
    const int error = RegionFile::findNames(names);
    for (const auto &name : std::as_const(names)) {
        const QString key = Private::keyIn(name);
        if (!key.isEmpty()) {
            keys.append(key);
        }
    }
    std::sort(keys.begin(), keys.end());
    return error;
}

QString RegionInspection::getKey() const
{
    return m_private->key;
}

bool RegionInspection::exists() const
{
    return m_private->file.isFound();
}

bool RegionInspection::isReadable() const
{
    return m_private->file.isOpen();
}

int RegionInspection::getError() const
{
    return m_private->file.error();
}

QString RegionInspection::getErrorString() const
{
    return getError() == 0 ? QString()
                           : QString::fromStdString(std::generic_category().message(getError()));
}

qint64 RegionInspection::getSize() const
{
    return m_private->file.size();
}

std::optional<bool> RegionInspection::isDoubleBuffer() const
{
    if (m_private->hasBlock()) {
        return true;
    }
    if (m_private->description) {
        return m_private->description->isDoubleBuffer;
    }
    if (!isReadable() || !RegionLockReading::hasSet(m_private->semaphoreKey)) {
        return {};
    }
    // The creator of a double buffer says so as soon as there are semaphores, maybe just now.
    return m_private->hasBlock();
}

std::optional<quint32> RegionInspection::getBufferSize() const
{
    const std::optional<bool> isDouble = isDoubleBuffer();
    const qint64 blockSize = PingPongBufferHandler::getSizeManagementBuffer();
    Private::Block block{};
    // That of another version may have another size.
    if (m_private->hasBlock() && !m_private->readBlock(block)) {
        return {};
    }
    // Once: somebody may change it in between.
    const qint64 size = getSize();
    if (!isReadable() || !isDouble || (*isDouble && size < blockSize)
        || size > std::numeric_limits<qint32>::max()) {
        return {};
    }
    return static_cast<quint32>(*isDouble ? (size - blockSize) / 2 : size);
}

std::optional<quint64> RegionInspection::getSwapCount() const
{
    Private::Block block{};
    return m_private->readBlock(block) ? std::optional<quint64>(block.swapCount) : std::nullopt;
}

std::optional<QDateTime> RegionInspection::getLastSwap() const
{
    Private::Block block{};
    constexpr qint64 perMillisecond = 1000000;
    if (!m_private->readBlock(block) || block.lastSwap <= 0) {
        return {};
    }
    return QDateTime::fromMSecsSinceEpoch(block.lastSwap / perMillisecond, Qt::UTC);
}

RegionCreator RegionInspection::getCreator() const
{
    Private::Block block{};
    const CreatorSearch::Creator creator = m_private->readBlock(block)
                                               ? Private::creatorIn(block)
                                               : CreatorSearch::Creator{0, 0, 0};
    if (creator.pid == 0) {
        return {};
    }
    // One that was not noted before may be younger than the last list of all processes.
    const bool isFirst = creator == m_private->firstCreator;
    return {creator.pid, CreatorSearch::isAlive(creator, isFirst ? m_private->timeOfFirstCreator
                                                                 : ProcessList::Clock::now())};
}

RegionLock RegionInspection::getLock() const
{
    Private::Block block{};
    const bool isOwnerInside = m_private->readBlock(block)
                               && WriteLease::isOwnerInside(block.lease);
    const RegionLock lock = RegionLockReading::read(m_private->semaphoreKey, isOwnerInside);
    // A later creator takes the name before it makes semaphores: these may be its own.
    return getName() == Name::Replaced ? RegionLock() : lock;
}

QVector<RegionUser> RegionInspection::getUsers() const
{
    return RegionUsers().getUsersOf(*this);
}

RegionInspection::Name RegionInspection::getName() const
{
    FileIdentity now{};
    if (!RegionFile::find(m_private->name, now)) {
        return Name::Removed;
    }
    return now == m_private->file.identity() ? Name::Current : Name::Replaced;
}

std::optional<quint64> RegionInspection::getFingerprint() const
{
    Private::Block block{};
    return m_private->readBlock(block) && block.fingerprint != 0
               ? std::optional<quint64>(block.fingerprint)
               : std::nullopt;
}

std::optional<bool> RegionInspection::hasLayoutOfDescription() const
{
    if (!m_private->description || !isReadable()) {
        return {};
    }
    const Private::Description &described = *m_private->description;
    if (!m_private->hasSizeOfDescription() || isDoubleBuffer() != described.isDoubleBuffer) {
        return false;
    }
    const std::optional<quint64> fingerprint = getFingerprint();
    return fingerprint
               ? std::optional<bool>(*fingerprint == LayoutDigest::valueOf(described.inOrder()))
               : std::nullopt;
}

QString RegionInspection::findFirstDifference() const
{
    Private::Block block{};
    const std::optional<quint32> bufferSize = getBufferSize();
    if (!m_private->description || !bufferSize || !m_private->readBlock(block)
        || block.fingerprint == 0) {
        return {};
    }
    LayoutFingerprint::Parts parts{};
    std::transform(std::cbegin(block.layoutParts), std::cend(block.layoutParts), parts.begin(),
                   [](const std::atomic<quint32> &part) { return part.load(); });
    return LayoutDigest::findFirstDifference(m_private->description->inOrder(), parts, *bufferSize);
}

std::optional<RegionInspection::Buffer> RegionInspection::getReadBuffer() const
{
    const std::optional<quint64> swapCount = getSwapCount();
    if (swapCount) {
        return *swapCount % 2 == 0 ? Buffer::First : Buffer::Second;
    }
    return isReadable() && isDoubleBuffer() == false ? std::optional<Buffer>(Buffer::First)
                                                     : std::nullopt;
}

QByteArray RegionInspection::getValueBytes(const QString &url,
                                           RegionInspection::Buffer buffer) const
{
    const std::optional<LayoutLeaf> leaf = m_private->findLeaf(url);
    return !leaf ? QByteArray() : m_private->bytes(buffer, leaf->offset, leaf->sizeValue);
}

QByteArray RegionInspection::getErrorStateBytes(const QString &url,
                                                RegionInspection::Buffer buffer) const
{
    const std::optional<LayoutLeaf> leaf = m_private->findLeaf(url);
    return !leaf || leaf->sizeMetadata == 0
               ? QByteArray()
               : m_private->bytes(buffer, quint64{leaf->offset} + leaf->relativeOffsetMetadata,
                                  sizeof(quint32));
}

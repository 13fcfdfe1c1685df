#include "Access/ProcessDataGuards.h"
#include "Access/ProcessDataSnapshot.h"
#include "Access/ProcessDataWatcher.h"
#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "FuzzTarget.h"
#include "Inspection/RegionInspection.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "ToolkitLeak.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <chrono>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

// A region over which somebody has written is read, written, watched and inspected without harm, and a new creator
// makes all well.
//
// An input is a process description; behind a zero byte follow the bytes that are written over its region, the
// management block first.

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Element = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

const qint64 largestBuffer = 4096;

/// With a key that nobody else has, and a size that costs little.
QByteArray ownDescription(const QByteArray &text)
{
    QJsonObject description = QJsonDocument::fromJson(text).object();
    const QString &sizeKey = Definitions::getKeyDataPropertySizeOfSharedMemory();
    const auto size = static_cast<qint64>(description.value(sizeKey).toDouble());
    description.insert(sizeKey, qAbs(size % largestBuffer) + 1);
    description.insert(Definitions::getStrKeyProcessDataMemory(),
                       QStringLiteral("tesselFuzz%1").arg(::getpid()));
    return QJsonDocument(description).toJson(QJsonDocument::Compact);
}

/// As any process of the machine may.
void writeOver(const QString &key, const QByteArray &bytes)
{
    const QByteArray name = QByteArray("/") + key.toUtf8() + "SharedMemory";
    const int descriptor = ::shm_open(name.constData(), O_RDWR, 0);
    require(descriptor >= 0, "a region has its name");
    const off_t size = ::lseek(descriptor, 0, SEEK_END);
    const auto count = static_cast<size_t>(qMin<qint64>(size, bytes.size()));
    require(::pwrite(descriptor, bytes.constData(), count, 0) == static_cast<ssize_t>(count),
            "a region can be written over");
    ::close(descriptor);
}

/// Whatever comes of it.
void use(ProcessDataManager &manager, const Element &root)
{
    ProcessDataSnapshot snapshot;
    snapshot.take(manager);
    ConfigurationAndProcessDataBase::ListElements elements;
    root->collectElements(elements, false);
    for (const auto &element : elements) {
        const auto leaf = element.dynamicCast<ProcessDataValue>();
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
        leaf->getValue(value);
        snapshot.getValue(*leaf, value);
        leaf->setValue(value);
    }
    {
        ProcessDataWriteGuard guard(manager);
        guard.publish();
    }
    ProcessDataWatcher watcher(manager);
    quint64 seen = 0;
    watcher.wait(seen, std::chrono::milliseconds(0));
}

void inspect(const Element &root)
{
    const RegionInspection inspection(root);
    require(inspection.exists(), "a region that was written over is still there");
    inspection.getLastSwap();
    inspection.getSwapCount();
    inspection.getCreator();
    inspection.getLock();
    inspection.getUsers();
    inspection.hasLayoutOfDescription();
    inspection.findFirstDifference();
    inspection.getReadBuffer();
}

Element make(ProcessDataManager &manager, const QByteArray &description,
             ProcessDataManager::InitTypeSharedMemory type)
{
    return manager.createProcessDataFromJson(description, QStringLiteral("process.json"), type);
}

/// What is published is read back, as in any region.
void checkNewRegion(const QByteArray &description)
{
    ProcessDataManager creator;
    const Element root = make(creator, description, ProcessDataManager::InitTypeSharedMemoryCreate);
    require(!root.isNull(), "a creator makes the region anew");
    ProcessDataManager reader;
    const Element other = make(reader, description, ProcessDataManager::InitTypeSharedMemoryAttach);
    require(!other.isNull(), "somebody attaches to the new region");
    ProcessDataWriteGuard guard(creator);
    require(guard.isLocked() && guard.publish(), "a set is published into the new region");
    ProcessDataSnapshot snapshot;
    require(snapshot.take(reader), "a set of the new region is read");
}

} // namespace

void runInput(const QByteArray &input)
{
    const int end = input.indexOf('\0');
    const QByteArray text = input.left(end);
    const ToolkitLeak leak(text);
    const QByteArray description = ownDescription(text);
    {
        ProcessDataManager creator;
        const Element root = make(creator, description,
                                  ProcessDataManager::InitTypeSharedMemoryCreate);
        if (root.isNull()) {
            return;
        }
        const QString key = root->getProperty(Definitions::getStrKeyProcessDataMemory()).toString();
        ProcessDataManager early;
        make(early, description, ProcessDataManager::InitTypeSharedMemoryAttach);
        writeOver(key, end < 0 ? QByteArray() : input.mid(end + 1));
        inspect(root);
        use(creator, root);
        ProcessDataManager late;
        const Element own = make(late, description, ProcessDataManager::InitTypeSharedMemoryAttach);
        if (!own.isNull()) {
            use(late, own);
        }
    }
    checkNewRegion(description);
}

#pragma once

#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "ProcessDataManagement/ProcessDescription.h"
#include "support/ExchangeMessages.h"
#include "support/LogCapture.h"

#include <memory>

/// One number with its state, in a region that others treat badly.
struct HostileDescription : ProcessDescription
{
    explicit HostileDescription(bool hasDoubleBuffer = true, qint64 sizeOfBuffer = 16)
        : ProcessDescription(sizeOfBuffer, hasDoubleBuffer)
    {
        leaves.insert(QStringLiteral("a"), int32Slot(0));
    }
};

/// A process with a manager and the one leaf of its tree.
struct HostileUser
{
    HostileUser(const ProcessDescription &description,
                ProcessDataManager::InitTypeSharedMemory type)
        : root(manager.createProcessData(description.parse(), type))
        , a(root ? root->getLeafProcessDataValue(QStringLiteral("a")) : nullptr)
    {
    }

    bool isAttached() const { return !a.isNull(); }
    bool write(int value) const { return a->setValue({value, valid}); }
    bool publish(int value) { return write(value) && manager.swapReadAndWriteBuffer(); }
    /// -1 if nothing came.
    int read() const
    {
        ProcessValue value(-1, valid);
        a->getValue(value);
        return value.getValue().isValid() ? value.getValue().toInt() : -1;
    }

    static constexpr auto valid = ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

    ProcessDataManager manager;
    ProcessDescription::Root root;
    ProcessDataValueSharedPointer a;
};

constexpr auto hostileCreate = ProcessDataManager::InitTypeSharedMemoryCreate;
constexpr auto hostileAttach = ProcessDataManager::InitTypeSharedMemoryAttach;

inline LogLine createdLine(const QString &key)
{
    return debugLine(QStringLiteral("Create: Key for shared memory ( \"%1\" )!").arg(key));
}
inline LogLine attachedLine(const QString &key)
{
    return debugLine(QStringLiteral("Attach: Key for shared memory ( \"%1\" )!").arg(key));
}
inline QList<LogLine> creationFailure(const QString &reason, int error)
{
    return {warning(QStringLiteral("Error on creating shared memory: \"SharedMemory::create: %1\" "
                                   ", %2 ! You can delete all sharedMemories with the command: "
                                   "ipcrm -a")
                        .arg(reason)
                        .arg(error)),
            warning(QStringLiteral("Can not initialize shared memory.")),
            warning(QStringLiteral("Can not create process data memory."))};
}
inline QList<LogLine> attachmentFailure(const QString &key, const QString &reason, int error)
{
    return {warning(QStringLiteral("Attach to shared memory( \"%1\" ) fails "
                                   "\"SharedMemory::attach: %2\" , %3")
                        .arg(key, reason)
                        .arg(error)),
            warning(QStringLiteral("Can not initialize shared memory.")),
            warning(QStringLiteral("Can not create process data memory."))};
}
inline LogLine nullWrite()
{
    return warning(QStringLiteral("Pointer to pingpongbuffer is nullptr."));
}

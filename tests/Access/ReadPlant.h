#pragma once

#include "Access/ProcessBulkReader.h"
#include "Access/ProcessDataGuards.h"
#include "Access/ProcessDataSnapshot.h"
#include "Access/ProcessDoubleHandle.h"
#include "Access/ReadingRegion.h"
#include "support/ChildProcess.h"

#include <QtTest>

#include <functional>

#include <sys/stat.h>
#include <unistd.h>

constexpr auto attach = ProcessDataManager::InitTypeSharedMemoryAttach;
constexpr auto create = ProcessDataManager::InitTypeSharedMemoryCreate;
constexpr int somebodyElse = 65534;

inline const QString number = QStringLiteral("number");

inline ProcessValue valid(const QVariant &content)
{
    return {content, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID};
}

/// An integer `number` and a `real` one, in buffers of @p size bytes.
struct ReadPlant : ProcessDescription
{
    explicit ReadPlant(bool hasDoubleBuffer, qint64 sizeOfBuffer = 24)
        : ProcessDescription(sizeOfBuffer, hasDoubleBuffer)
    {
        leaves.insert(number, int32Slot(0));
        SlotDescription real = int32Slot(8);
        real.type = QStringLiteral("double");
        real.sizeValue = 8;
        real.relativeOffsetMetadata = 8;
        leaves.insert(QStringLiteral("real"), real);
    }
};

inline bool publish(LiveRegion &region, int content)
{
    ProcessDataWriteGuard guard(region.manager);
    return region.leaf(number)->setValueNoLock(valid(content))
           && region.leaf(QStringLiteral("real"))->setValueNoLock(valid(content + 0.5))
           && guard.publish();
}

/// What every way to read gives for a set of publish(); the first that gives something else.
inline QString wrongWay(ReadingRegion &reader, int content)
{
    ProcessDataManager &manager = reader.manager();
    const double real = content + 0.5;
    if (reader.number(number) != content) {
        return QStringLiteral("getValue");
    }
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    manager.lockReadBuffer();
    reader.leaf(number)->getValueNoLock(value);
    bool repeat = true;
    if (!manager.unlockReadBuffer(repeat) || repeat || value.getValue() != QVariant(content)) {
        return QStringLiteral("getValueNoLock");
    }
    ProcessBulkReader bulk(&manager, reader.root(), {number, QStringLiteral("real")});
    double numbers[2] = {};
    ProcessDataDefinitions::ErrorTypes states[2] = {};
    if (!bulk.read(numbers, states) || numbers[0] != content || numbers[1] != real) {
        return QStringLiteral("bulk");
    }
    ProcessDataSnapshot set;
    if (!set.take(manager) || !set.getValue(*reader.leaf(number), value)
        || value.getValue() != QVariant(content)) {
        return QStringLiteral("snapshot");
    }
    const ProcessDoubleHandle handle(reader.root(), QStringLiteral("real"));
    double read = 0;
    ProcessDataDefinitions::ErrorTypes state =
        ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
    if (!handle.read(read, state) || read != real || !handle.readNoLock(read, state)
        || read != real) {
        return QStringLiteral("handle");
    }
    ProcessDataReadGuard guard(manager);
    const ProcessDataReadGuard inner(manager);
    return guard.isLocked() && inner.isLocked() ? QString() : QStringLiteral("guard");
}

inline void addBuffers()
{
    QTest::addColumn<bool>("hasDoubleBuffer");
    QTest::newRow("double") << true;
    QTest::newRow("single") << false;
}

/// Runs @p body as somebody who may read the segment and not write it.
inline int asReader(const ProcessDescription &description, const std::function<int()> &body)
{
    chmod(qPrintable(description.segment.path()), 0644);
    ChildProcess child([&](const ChildSide & /*parent*/) {
        return setuid(somebodyElse) == 0 && geteuid() != 0 ? body() : ChildProcess::sm_cannotTry;
    });
    return child.waitForExit();
}

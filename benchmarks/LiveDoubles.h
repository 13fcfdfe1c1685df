#pragma once

#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QVector>

/// A live description of so many doubles with error words, one slot behind the other in a double
/// buffer. A forked child attaches with an object of its own.
class LiveDoubles
{
public:
    using InitType = ProcessDataManager::InitTypeSharedMemory;

    /// @p topic keeps the regions of one program apart.
    LiveDoubles(const QString &topic, int count, InitType type, int creatorProcess);

    bool isLive() const { return m_isLive; }
    ProcessDataManager &manager() { return m_manager; }
    const QVector<ProcessDataValueSharedPointer> &leaves() const { return m_leaves; }

    /// Writes the number into every leaf, inside one write lock.
    bool writeAll(double number);
    /// Inside a write lock of the caller.
    bool writeAllNoLock(double number);
    bool publishAll(double number)
    {
        return writeAll(number) && m_manager.swapReadAndWriteBuffer();
    }

private:
    ProcessDataManager m_manager;
    ProcessDataManager::BaseClassSharedPointer m_root;
    QVector<ProcessDataValueSharedPointer> m_leaves;
    bool m_isLive = false;
};

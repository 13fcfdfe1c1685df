#pragma once

#include "Access/NumberRegion.h"
#include "support/LogCapture.h"

/// A manager that maps the region of a description for reading alone, with its messages kept back.
class ReadingRegion
{
public:
    explicit ReadingRegion(const ProcessDescription &description)
    {
        LogCapture log;
        m_manager.setAccessMode(SharedMemory::ReadOnly);
        m_root = m_manager.createProcessData(description.parse(),
                                             ProcessDataManager::InitTypeSharedMemoryAttach);
        m_lines = log.take();
    }

    bool isAttached() const { return m_root && m_manager.isBufferValid(); }
    ProcessDataManager &manager() { return m_manager; }
    ProcessDataManager::BaseClassSharedPointer root() const { return m_root; }
    /// What was logged while it attached.
    QList<LogLine> lines() const { return m_lines; }
    ProcessDataValueSharedPointer leaf(const QString &url) const
    {
        return m_root->getLeafProcessDataValue(url);
    }
    /// -1 if there is no valid one.
    int number(const QString &url) const
    {
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        leaf(url)->getValue(value);
        return value.getErrorType() == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
                   ? value.getValue().toInt()
                   : -1;
    }

private:
    ProcessDataManager m_manager;
    ProcessDataManager::BaseClassSharedPointer m_root;
    QList<LogLine> m_lines;
};

/// What writing says over such a mapping.
inline LogLine readingAlone(const ProcessDescription &description)
{
    return warning(
        QStringLiteral("The memory of \"%1Semaphore\" is attached for reading alone: nothing "
                       "is written. Attach with SharedMemory::ReadWrite to write.")
            .arg(description.key));
}

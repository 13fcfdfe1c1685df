#pragma once

#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "ToolDescription.h"

#include <QString>

/// The region of a description, created in the test's own process.
class HeldRegion
{
public:
    explicit HeldRegion(const QString &file)
        : m_root(m_manager.createProcessDataFromFile(
            file, ProcessDataManager::InitTypeSharedMemoryCreate))
    {
    }

    bool isValid() const { return m_root && m_manager.isBufferValid(); }
    ProcessDataManager &manager() { return m_manager; }

    /// Writes a value without publishing it.
    bool write(const QString &url, const ProcessValue &value)
    {
        return m_root->getLeafProcessDataValue(url)->setValue(value);
    }
    bool publish(const QString &url, const ProcessValue &value)
    {
        return write(url, value) && m_manager.swapReadAndWriteBuffer();
    }
    ProcessValue read(const QString &url)
    {
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        m_root->getLeafProcessDataValue(url)->getValue(value);
        return value;
    }

private:
    ProcessDataManager m_manager;
    ProcessDataManager::BaseClassSharedPointer m_root;
};

inline ProcessValue validValue(const QVariant &content)
{
    return {content, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID};
}

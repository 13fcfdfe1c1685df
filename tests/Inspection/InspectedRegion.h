#pragma once

#include "Inspection/RegionInspection.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "ProcessDataManagement/ProcessDescription.h"
#include "support/LogCapture.h"
#include "support/MappedRegion.h"

/// Numbers `a` and `b`, each with its error state, in buffers of 16 bytes.
struct TwoNumbers : ProcessDescription
{
    explicit TwoNumbers(bool hasDoubleBuffer = true) : ProcessDescription(16, hasDoubleBuffer)
    {
        leaves.insert(QStringLiteral("a"), int32Slot(0));
        leaves.insert(QStringLiteral("b"), int32Slot(8));
    }

    RegionInspection inspect() const { return RegionInspection(key); }
    RegionInspection inspectDescribed() const { return RegionInspection(parse()); }
};

/// A manager of a description, with its messages kept back.
class QuietManager
{
public:
    QuietManager(const ProcessDescription &description,
                 ProcessDataManager::InitTypeSharedMemory type)
    {
        const LogCapture log;
        m_root = m_manager.createProcessData(description.parse(), type);
    }

    bool isValid() const { return m_root && m_manager.isBufferValid(); }
    ProcessDataManager &manager() { return m_manager; }

    bool write(const char *url, int number)
    {
        const ProcessValue value(QVariant(number),
                                 ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        return m_root->getLeafProcessDataValue(QString::fromLatin1(url))->setValue(value);
    }
    bool publish(const char *url, int number)
    {
        return write(url, number) && m_manager.swapReadAndWriteBuffer();
    }

private:
    ProcessDataManager m_manager;
    ProcessDataManager::BaseClassSharedPointer m_root;
};

inline constexpr auto create = ProcessDataManager::InitTypeSharedMemoryCreate;
inline constexpr auto attach = ProcessDataManager::InitTypeSharedMemoryAttach;

#pragma once

#include "ProcessDataManagement/ProcessDataManager.h"
#include "support/StoppedProcess.h"

#include <QString>

/// A process that attaches to the region when told, and stands still with its write lock.
class StoppedWriter
{
public:
    /// Before there is another thread.
    explicit StoppedWriter(const QString &file)
        : m_child([file](const ChildSide &parent) {
            parent.waitForWord();
            ProcessDataManager manager;
            CHILD_VERIFY(manager.createProcessDataFromFile(
                file, ProcessDataManager::InitTypeSharedMemoryAttach));
            CHILD_VERIFY(manager.lockWriteBuffer());
            parent.say();
            parent.waitForWord();
            CHILD_VERIFY(manager.unlockWriteBuffer());
            return 0;
        })
    {
    }

    bool takeLock()
    {
        m_child.tell();
        return m_child.waitUntilReady() && m_child.stop();
    }
    int goOn()
    {
        m_child.resume();
        m_child.tell();
        return m_child.waitForExit();
    }
    bool kill() { return m_child.kill(); }

private:
    ChildProcess m_child;
};

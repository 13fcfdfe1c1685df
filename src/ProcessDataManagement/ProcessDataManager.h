#pragma once

#include "Companion/BufferHandlerInterface.h"
#include "Configuration/ConfigurationAndProcessDataBase.h"
#include "ProcessData/Linux/SharedMemory.h"

#include <QMutex>
#include <QString>
#include <QVariant>

/// Makes a process description live: creates or attaches its shared memory and binds every leaf of
/// the tree to its slot.
///
/// One manager serves one description and owns its memory and buffer handler; the tree that it
/// gave must not be used after it is gone. A process that attaches must come after the creating
/// one has finished. create...() runs on one thread; the buffer locks may be used from any thread
/// and keep the threads of this manager apart from lock to unlock.
class TESSEL_EXPORT ProcessDataManager
{
public:
    /// In which trees travel; null means failure.
    using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    /// Whether this process makes the region or joins it.
    enum InitTypeSharedMemory { InitTypeSharedMemoryCreate = 0, InitTypeSharedMemoryAttach = 1 };

    ProcessDataManager();
    virtual ~ProcessDataManager();

    /// How the next create...() maps the memory that it attaches to; ReadWrite unless it is set. With
    /// ReadOnly the mapping itself cannot be written, so that nothing in this process can spoil the region,
    /// and who may only read its file can attach. It leaves no trace in the region and its publishers do
    /// not hear of it: watchers look for new sets at intervals (see ProcessDataWatcher), and no read holds
    /// writers off (see BufferHandlerInterface). Whatever writes is refused with a warning, and so is
    /// creating. Of a single buffer the semaphores are joined, which takes the right to alter them: where
    /// that is missing attaching fails; none are made.
    void setAccessMode(SharedMemory::AccessMode mode);
    /// What setAccessMode() was given.
    SharedMemory::AccessMode getAccessMode() const;

    /// Binds the tree below @p root and returns it; null on failure, with the reason in the log. A
    /// description without memory comes back unbound. Creating sets every slot to
    /// NO_VALID_INPUT_VALUE.
    BaseClassSharedPointer createProcessData(const BaseClassSharedPointer &root,
                                             ProcessDataManager::InitTypeSharedMemory type);
    /// The same from JSON text; @p typeText is the postfix `process.json`.
    BaseClassSharedPointer createProcessDataFromJson(const QVariant &json, const QString &typeText,
                                                     ProcessDataManager::InitTypeSharedMemory type);
    /// The same from a file, whose name ends in `.process.json`.
    BaseClassSharedPointer createProcessDataFromFile(const QString &fileName,
                                                     ProcessDataManager::InitTypeSharedMemory type);

    /// The same for a directory of process descriptions. Creating first gives all files one layout
    /// and one key that begins with @p keyPrefix, and rewrites those in which something changed.
    BaseClassSharedPointer createProcessDataFromDir(const QString &keyPrefix,
                                                    const QString &processDir,
                                                    ProcessDataManager::InitTypeSharedMemory type);
    /// Lays the files of the directory out anew, with the key of the creation. Memory and tree stay
    /// as they are.
    bool updateProcessDataFromDirAfterConfigurationChanged(const QString &keyPrefix,
                                                           const QString &processDir);

    /// Locks the published set for reading values with getValueNoLock(). False if this thread holds
    /// the lock already. Every call, refused ones included, needs one unlock.
    bool lockReadBuffer();
    /// @p repeat true: what was read under this lock is not reliable, read it again.
    bool unlockReadBuffer(bool &repeat);
    /// Locks the set that is being written for setValueNoLock(). As lockReadBuffer().
    bool lockWriteBuffer();
    /// Releases the lock; publishes nothing. False if this manager holds none.
    bool unlockWriteBuffer();
    /// Publishes the written set. True without memory. Inside a write lock of this thread
    /// getPointerWriteBuffer() then gives the other buffer: the former one is what readers see.
    bool swapReadAndWriteBuffer();

    /// Null outside a lock of its kind.
    BufferHandlerInterface::BufferPointer getPointerReadBuffer() const;
    /// Null outside a lock of its kind.
    BufferHandlerInterface::BufferPointer getPointerWriteBuffer() const;
    /// Size of one buffer in bytes. Only while isBufferValid().
    unsigned int getSizeBuffer() const;
    /// Whether there is a memory behind the tree.
    bool isBufferValid() const;

private:
    friend class ManagerAccess; // for the guards and readers of the library
    Q_DISABLE_COPY(ProcessDataManager)

    bool createProcessDataMemory(const BaseClassSharedPointer &root,
                                 ProcessDataManager::InitTypeSharedMemory type);
    bool initSharedMemory(ProcessDataManager::InitTypeSharedMemory type, const QString &key,
                          unsigned int size);
    bool setPointerToBufferHandler(const BaseClassSharedPointer &root,
                                   ProcessDataManager::InitTypeSharedMemory type);
    void initSharedMemoryValues(const BaseClassSharedPointer &root,
                                ProcessDataManager::InitTypeSharedMemory type);

    static const QString sm_sharedMemoryKeyExtension;
    static const QString sm_semaphoreKeyExtension;

    // Destroyed from the last to the first: the memory goes before the handler, which therefore
    // must not touch it when it is destroyed.
    BufferHandlerInterface::HandlerSharedPointer m_bufferHandler;
    SharedMemory m_sharedMemory;
    QString m_sharedMemoryDirKeyName;
    BufferHandlerInterface::BufferPointer m_pointerReadBuffer = nullptr;
    BufferHandlerInterface::BufferPointer m_pointerWriteBuffer = nullptr;
    QMutex m_bufferMutex;
};

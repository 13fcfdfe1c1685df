#pragma once

#include "Companion/TesselExport.h"

#include <QByteArray>
#include <QString>

#include <atomic>

/// One POSIX shared-memory object, mapped into this process.
///
/// Who creates the object owns its name: the destructor removes the name, if it still leads to this
/// object, then unmaps. Who attaches only unmaps, and so does a forked child, which inherits the
/// mapping, but not the name. Call setKey(), then create() or attach() once. Takes no lock and is
/// meant for one thread.
class TESSEL_EXPORT SharedMemory
{
public:
    /// What attach() allows; ReadOnly makes the mapping itself unwritable.
    enum AccessMode { ReadOnly = 0, ReadWrite = 1 };

    SharedMemory() = default;
    virtual ~SharedMemory();

    /// Sets the name of the object exactly as it goes to shm_open().
    void setKey(const QString &key);
    /// Makes and maps an object of @p size bytes; one that is there already under this name is
    /// removed first. Any user may read and write it (mode 666). Its memory is reserved at once, so
    /// that a lack of it shows here and not at some later access.
    bool create(int size);
    /// Maps an existing object whole. It may be tried again after a failure.
    bool attach(SharedMemory::AccessMode mode);

    /// Whether there is a mapping that may be written into. A store into another one ends the process.
    bool isWritable() const;
    /// Size of the mapping in bytes, 0 without one.
    int size() const { return m_PrivateData.m_size; }
    /// First byte of the mapping; null without one.
    // NOLINTNEXTLINE(readability-make-member-function-const): gives what may be changed
    void *data() { return m_PrivateData.m_data; }
    /// First byte of the mapping; null without one.
    const void *data() const { return m_PrivateData.m_data; }
    /// What failed last, with the system's reason.
    QString errorString() const { return m_PrivateData.m_errorString; }
    /// errno of the last failure.
    int error() const { return m_PrivateData.m_error; }

private:
    friend class ManagerAccess; // for a manager that was inherited by a forked child
    Q_DISABLE_COPY(SharedMemory)

    enum Access : quint8 {
        IsMappedWritable = 1,
        IsForReading = 2 ///< wanted by the manager that owns this one
    };

    struct PrivateData
    {
        void *m_data = nullptr;
        qint32 m_size = 0;
        quint32 m_createdObject = 0; ///< number of the object that create() made; 0 if none
        QByteArray m_key;
        QString m_errorString;
        int m_error = 0;
        bool m_created = false;
        quint8 m_access = 0;               ///< bits of Access
        std::atomic<quint16> m_process{0}; ///< Identity::generation() of the process that uses it
    };

    void recordFailure(const char *what, int code);
    int openForCreation();
    bool mapDescriptor(int fd, qint32 size, int protection);
    void unmap();

    static_assert(sizeof(PrivateData) == sizeof(void *) * 3 + 8 + 8,
                  "applications hold such objects");

    PrivateData m_PrivateData;
};

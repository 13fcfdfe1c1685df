#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <sys/types.h>

/// Which memory it is, whatever its name.
struct FileIdentity
{
    dev_t device;
    ino_t inode;

    bool operator==(const FileIdentity &other) const
    {
        return device == other.device && inode == other.inode;
    }
};

/// A shared-memory object that is open for reading. Nothing is mapped: the first look into a page whose
/// memory was never taken would take it, and one behind an end that somebody moves would end the
/// process.
class RegionFile
{
public:
    /// @p name as it goes to shm_open(). Refuses, with an error, what is no file of at least one byte
    /// or more than a region can have.
    explicit RegionFile(const QString &name);
    ~RegionFile();

    RegionFile(const RegionFile &) = delete;
    RegionFile &operator=(const RegionFile &) = delete;

    /// 0, or errno of what hindered opening it.
    int error() const { return m_error; }
    bool isOpen() const { return m_fd >= 0; }
    /// Whether the name stood for something, be it to be opened or not. Never for a name that no
    /// shared-memory object can have.
    bool isFound() const { return m_isFound; }
    /// Also of what is found, but not open.
    const FileIdentity &identity() const { return m_identity; }
    /// In bytes, as it is now.
    qint64 size() const;
    /// False if not all bytes are there.
    bool read(void *target, std::size_t size, qint64 offset) const;
    /// All bytes or none.
    QByteArray read(qint64 offset, quint32 count) const;

    /// The names of all shared-memory objects, in no order. 0, or errno of what kept this process from looking:
    /// then there may be more of them.
    static int findNames(QStringList &names);
    /// To which memory a name leads now, without opening it. False if to none.
    static bool find(const QString &name, FileIdentity &identity);
    /// The path of a name as the kernel writes it into the tables of mappings.
    static QByteArray pathInTable(const QString &name);
    /// The name behind such a path; empty for one that is not of a shared-memory object.
    static QString nameInTable(QByteArray path);
    /// The device on which all shared-memory objects of this process's world lie; 0 if there is none.
    static dev_t deviceOfAll();

private:
    int m_fd = -1;
    int m_error = 0;
    bool m_isFound = false;
    FileIdentity m_identity{};
};

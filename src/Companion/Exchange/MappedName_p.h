#pragma once

#include <QByteArray>

#include <optional>
#include <utility>

#include <sys/types.h>

/// Whether the file that is mapped at @p address still has its name, so that whoever opens that name
/// gets the same memory. False where nothing is mapped, and for memory without a file. Reads
/// /proc/thread-self/maps: not for the ordinary way through a lock.
bool hasMappedName(const void *address);
/// The same for who must know what cannot be told: nothing where the table cannot be read, as without a free
/// descriptor, and where nothing is mapped.
std::optional<bool> findMappedName(const void *address);

/// Which memory is mapped at an address, wherever else it is mapped as well: device and inode of its file
/// as the table of mappings has them. Without such a table the address itself.
using MappedMemory = std::pair<QByteArray, quint64>;

/// The same question for who asks it again and again about one mapping: a single system call each time.
class MappedName
{
public:
    /// Looks in /proc/thread-self/maps.
    explicit MappedName(const void *address);

    /// True as well where there is no such table to look in.
    bool isCurrent() const;
    const MappedMemory &memory() const { return m_memory; }

private:
    MappedMemory m_memory;
    bool m_isKnown = false;
    QByteArray m_path; ///< empty: there was no name any more
    dev_t m_device = 0;
    ino_t m_inode = 0;
};

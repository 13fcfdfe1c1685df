#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

#include <optional>

#include <sys/types.h>

/// All semaphore sets of the machine, as the kernel lists them. Names no texts: whose set it is only who
/// knows the text of its key can tell.
class SemaphoreTable
{
public:
    struct Set
    {
        key_t key;
        int id;
        int mode;  ///< permissions alone
        int count; ///< of its semaphores
        uid_t owner;
    };

    /// As in /proc/sysvipc/sem. None if that is no such table.
    static std::optional<SemaphoreTable> parse(const QByteArray &text);

    const QVector<Set> &sets() const { return m_sets; }
    /// Semaphores of all sets together.
    qint64 count() const;
    /// The set under the System V key that belongs to the semaphores of a region; null if there is none.
    const Set *setOf(const QString &memoryKey) const;

private:
    QVector<Set> m_sets;
};

/// Whether a set that is under the key of a region, but not found to be the region's, is surely that of
/// another program or of another version of the memory format. False where only its owner could tell, and if
/// it has gone.
bool isSurelyOfAnother(const SemaphoreTable::Set &set);

/// Whether a set looks as those of this library do: number, mode and values. That of another program may
/// look so as well. None if its values cannot be read.
std::optional<bool> looksLikeOurs(const SemaphoreTable::Set &set);

#include "checks/SemaphoreTable.h"

#include "Companion/SystemVSemaphoreBaseClass.h"

#include <QList>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <sys/sem.h>

namespace {

using Set = SemaphoreTable::Set;

/// Gives away how many semaphores a set has, and where what tells two texts apart begins.
struct Names : SystemVSemaphoreBaseClass
{
    using SystemVSemaphoreBaseClass::SemaphoreClosed;
    using SystemVSemaphoreBaseClass::SemaphoreCount;
    using SystemVSemaphoreBaseClass::SemaphoreFingerprint;
    using SystemVSemaphoreBaseClass::SemaphoreLease;
    using SystemVSemaphoreBaseClass::SemaphoreWriteLock;
};

/// The argument of semctl(), which its caller has to declare.
union SemaphoreArgument {
    int value;
    semid_ds *status;
    unsigned short *values;
};

/// "key semid perms nsems uid ...", the permissions octal.
std::optional<Set> readSet(const QByteArray &line)
{
    constexpr int octal = 8;
    const QList<QByteArray> fields = line.simplified().split(' ');
    bool isKey = false;
    bool isId = false;
    bool isMode = false;
    bool isCount = false;
    bool isOwner = false;
    const Set set{static_cast<key_t>(fields.value(0).toLongLong(&isKey)),
                  fields.value(1).toInt(&isId), fields.value(2).toInt(&isMode, octal),
                  fields.value(3).toInt(&isCount), fields.value(4).toUInt(&isOwner)};
    return isKey && isId && isMode && isCount && isOwner ? std::make_optional(set) : std::nullopt;
}

using Values = std::array<unsigned short, Names::SemaphoreCount>;

/// Of a set that has as many. 0, or errno.
int readValues(const Set &set, Values &values)
{
    SemaphoreArgument argument{};
    argument.values = values.data();
    return semctl(set.id, 0, GETALL, argument) == 0 ? 0 : errno;
}

bool isOneAtMost(unsigned short value)
{
    return value <= 1;
}

} // namespace

std::optional<SemaphoreTable> SemaphoreTable::parse(const QByteArray &text)
{
    QList<QByteArray> lines = text.split('\n');
    if (lines.takeFirst().simplified().left(sizeof "key semid" - 1) != "key semid") {
        return {};
    }
    SemaphoreTable table;
    for (const auto &line : std::as_const(lines)) {
        const std::optional<Set> set = readSet(line);
        if (set) {
            table.m_sets.append(*set);
        } else if (!line.trimmed().isEmpty()) {
            return {};
        }
    }
    return table;
}

qint64 SemaphoreTable::count() const
{
    qint64 count = 0;
    for (const auto &set : m_sets) {
        count += set.count;
    }
    return count;
}

const Set *SemaphoreTable::setOf(const QString &memoryKey) const
{
    const key_t key = SystemVSemaphoreBaseClass::systemVKey(memoryKey + QLatin1String("Semaphore"));
    const auto *const found = std::find_if(m_sets.cbegin(), m_sets.cend(),
                                           [key](const Set &set) { return set.key == key; });
    return found == m_sets.cend() ? nullptr : found;
}

bool isSurelyOfAnother(const SemaphoreTable::Set &set)
{
    Values values{};
    // In what can be read the fingerprint would have been found.
    return set.count != Names::SemaphoreCount || readValues(set, values) == 0;
}

std::optional<bool> looksLikeOurs(const SemaphoreTable::Set &set)
{
    constexpr int ourMode = 0666;
    if (set.count != Names::SemaphoreCount || set.mode != ourMode || set.key == IPC_PRIVATE) {
        return false;
    }
    Values values{};
    if (const int error = readValues(set, values)) {
        // Gone since the table was read, it is nobody's.
        return error == EINVAL || error == EIDRM ? std::make_optional(false) : std::nullopt;
    }
    return isOneAtMost(values[Names::SemaphoreWriteLock])
           && isOneAtMost(values[Names::SemaphoreClosed])
           && isOneAtMost(values[Names::SemaphoreLease])
           && std::none_of(values.cbegin() + Names::SemaphoreFingerprint, values.cend(),
                           [](unsigned short value) { return value == 0; });
}

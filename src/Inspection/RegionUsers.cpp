#include "Inspection/RegionUsers.h"

#include "Inspection/ProcessList_p.h"
#include "Inspection/ProcessMappings_p.h"
#include "Inspection/RegionInspectionPrivate_p.h"
#include "ProcessDataManagement/ProcessStart_p.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace {

/// A process that has memory in /dev/shm mapped, as it was at the look: later its id may be another's.
struct User
{
    pid_t pid;
    pid_t ownPid; ///< in its own namespace
    ProcessStart start;
    bool hasOwnTime; ///< Otherwise it may itself tell another start.
    QString program;
    std::vector<ProcessMappings::Mapping> mappings;
};

QString programIn(const QString &folder)
{
    QString path = QFile::symLinkTarget(folder + QStringLiteral("/exe"));
    const QString mark = QStringLiteral(" (deleted)");
    if (path.endsWith(mark)) {
        path.chop(mark.size());
    }
    if (!path.isEmpty()) {
        return QFileInfo(path).fileName();
    }
    QFile name(folder + QStringLiteral("/comm"));
    return name.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(name.readAll()).trimmed()
                                          : QString();
}

/// Whether a process has left a word of itself in a block; unknown if it may have.
std::optional<bool> isNoted(quint64 word, const User &user)
{
    const pid_t noted = ProcessStart::pidOf(word);
    if (word == 0 || (user.ownPid != 0 && user.ownPid != noted)) {
        return false;
    }
    const bool hasStarts = user.start.ticks != 0 && word != ProcessStart::wordOf(noted, {});
    if (!hasStarts || word != ProcessStart::wordOf(noted, user.start)) {
        // In another time it has noted another start than the one that is told here.
        return hasStarts && user.hasOwnTime ? std::optional<bool>(false) : std::nullopt;
    }
    return user.ownPid != 0 ? std::optional<bool>(true) : std::nullopt;
}

/// Whether @p user may be a child of the process that left @p word, with its memory: a fork leaves none.
/// A child is not older, whatever the upper half of the start was, and in the time of its parent.
bool mayBeChildOf(quint64 word, const User &user)
{
    const pid_t noted = ProcessStart::pidOf(word);
    // Ids go round, but not in so short a time.
    if (noted == 0 || noted == user.ownPid) {
        return false;
    }
    const quint64 start = word - ProcessStart::wordOf(noted, {});
    return user.start.ticks == 0 || !user.hasOwnTime || start <= user.start.ticks;
}

/// By the words that such processes leave in the block.
std::optional<bool> isAmong(const OtherLayouts &others, const User &user)
{
    const std::vector<quint64> &words = others.words;
    // Who has made the memory has inherited it from nobody.
    const bool isCreator = user.ownPid != 0 && user.start.ticks != 0
                           && others.creator == ProcessStart::wordOf(user.ownPid, user.start);
    // Where all places are taken others have found none.
    bool isOpen = std::find(words.cbegin(), words.cend(), 0U) == words.cend();
    for (const quint64 word : words) {
        const std::optional<bool> isThis = isNoted(word, user);
        if (isThis == true) {
            return true;
        }
        isOpen = isOpen || !isThis || (!isCreator && mayBeChildOf(word, user));
    }
    return isOpen ? std::nullopt : std::optional<bool>(false);
}

/// Whoever cannot write leaves no word, and may have another layout all the same.
std::optional<bool> isAmong(const OtherLayouts &others, const User &user,
                            const ProcessMappings::Mapping &mapping)
{
    const std::optional<bool> isNotedAmong = isAmong(others, user);
    return isNotedAmong == false && mapping.isUnwritable ? std::nullopt : isNotedAmong;
}

} // namespace

struct RegionUsers::Private
{
    std::vector<User> users;
    dev_t device = RegionFile::deviceOfAll();
    bool isComplete = true;

    void look(pid_t process);
};

void RegionUsers::Private::look(pid_t process)
{
    const ProcessStart start = ProcessStart::of(process);
    const auto found = ProcessMappings::of(process, device);
    if (!found) {
        isComplete = false;
        return;
    }
    if (found->mappings.empty()) {
        return;
    }
    const User user{process,
                    ProcessStart::ownPid(process),
                    start,
                    ProcessStart::hasOwnTime(process),
                    programIn(QString::fromLatin1(found->folder)),
                    found->mappings};
    // Otherwise it has ended, and part of this is of the next one with its id: that one was not looked at.
    if (ProcessStart::of(process).ticks == start.ticks) {
        users.push_back(user);
    } else if (ProcessStart::isNamed(process)) {
        isComplete = false;
    }
}

RegionUsers::RegionUsers() : m_private(std::make_unique<Private>())
{
    const std::vector<pid_t> numbers = ProcessList::findNumbers();
    // Those outside of another namespace may share its /dev/shm, and none of them is named.
    m_private->isComplete = !numbers.empty() && ProcessList::areAllNamed()
                            && ProcessStart::ownNamespace() == ProcessStart::sm_firstNamespace;
    for (const pid_t number : numbers) {
        m_private->look(number);
    }
}

RegionUsers::~RegionUsers() = default;

QVector<RegionUser> RegionUsers::getUsersOf(const RegionInspection &region) const
{
    const QString name = region.m_private->name;
    const FileIdentity &inspected = region.m_private->file.identity();
    FileIdentity current{};
    const bool isThere = RegionFile::find(name, current);
    const QByteArray path = RegionFile::pathInTable(name);
    const std::optional<OtherLayouts> otherLayouts = region.m_private->otherLayouts();
    QVector<RegionUser> users;
    for (const auto &user : m_private->users) {
        for (const auto &mapping : user.mappings) {
            const bool isCurrent = isThere && mapping.memory == current;
            const bool isInspected = region.isReadable() && mapping.memory == inspected;
            // The same path on another device would be the name of another container.
            if (isCurrent || isInspected || mapping.path == path) {
                users.append({user.pid, user.program, !isCurrent,
                              isInspected && otherLayouts ? isAmong(*otherLayouts, user, mapping)
                                                          : std::nullopt});
            }
        }
    }
    return users;
}

QStringList RegionUsers::getKeys() const
{
    QStringList keys;
    for (const auto &user : m_private->users) {
        for (const auto &mapping : user.mappings) {
            keys.append(RegionInspection::Private::keyIn(RegionFile::nameInTable(mapping.path)));
        }
    }
    keys.removeAll(QString());
    keys.removeDuplicates();
    std::sort(keys.begin(), keys.end());
    return keys;
}

bool RegionUsers::isComplete() const
{
    return m_private->isComplete;
}

#include "checks/MachineCheck.h"

#include "Companion/SystemVSemaphoreBaseClass.h"

#include <QSet>

#include <algorithm>

#include <pwd.h>

namespace {

using Level = Finding::Level;
using Limits = MachineFacts::SemaphoreLimits;

/// What one region needs of a set, and of one call.
constexpr qint64 neededPerSet = 9;
constexpr qint64 neededOperations = 5;

Finding ofMachine(Level level, const char *rule, const QString &place, const QString &text,
                  const QString &cure)
{
    return {level, QString::fromLatin1(rule), {}, place, {}, text, cure};
}

/// None below nine tenths.
std::optional<Level> levelOf(const Fill &fill)
{
    constexpr double much = 0.9;
    if (fill.most == 0 || double(fill.taken) < much * double(fill.most)) {
        return {};
    }
    return fill.taken >= fill.most ? Level::Error : Level::Warning;
}

QString fillText(const Fill &fill)
{
    constexpr double percent = 100;
    return QStringLiteral("%1 of %2 (%3 %)")
        .arg(fill.taken)
        .arg(fill.most)
        .arg(static_cast<int>(percent * double(fill.taken) / double(fill.most)));
}

void addMemory(Findings &found, const MachineFacts &facts)
{
    const QString place = QStringLiteral("/dev/shm");
    if (!facts.memory || !facts.files) {
        found.append(ofMachine(Level::Unknown, "shm-unseen", place,
                               QStringLiteral("how full it is could not be seen"),
                               QStringLiteral("mount a tmpfs there")));
        return;
    }
    if (const auto level = levelOf(*facts.memory)) {
        found.append(ofMachine(*level, "shm-full", place,
                               QStringLiteral("%1 bytes are taken: new regions find no room")
                                   .arg(fillText(*facts.memory)),
                               QStringLiteral("remove what nobody uses (tessel regions, tessel rm "
                                              "KEY), or: mount -o remount,size=%1 /dev/shm")
                                   .arg(2 * facts.memory->most)));
    }
    if (const auto level = levelOf(*facts.files)) {
        found.append(ofMachine(*level, "shm-full", place,
                               QStringLiteral("%1 files are taken: new regions find no name")
                                   .arg(fillText(*facts.files)),
                               QStringLiteral("remove what nobody uses (tessel regions, tessel rm "
                                              "KEY), or: mount -o remount,nr_inodes=%1 /dev/shm")
                                   .arg(2 * facts.files->most)));
    }
}

/// Who may make and remove regions.
void addMemoryAccess(Findings &found, const MachineFacts &facts)
{
    const QString place = QStringLiteral("/dev/shm");
    if (facts.isMemoryReadOnly) {
        found.append(ofMachine(Level::Error, "shm-read-only", place,
                               QStringLiteral("it is mounted read-only: no region can be made"),
                               QStringLiteral("mount -o remount,rw /dev/shm")));
    }
    constexpr mode_t usualMode = 01777;
    constexpr mode_t everybody = 0777;
    const mode_t mode = facts.memoryMode.value_or(usualMode);
    if ((mode & usualMode) != usualMode) {
        const bool isOpen = (mode & everybody) == everybody;
        found.append(ofMachine(
            Level::Warning, "shm-mode", place,
            QStringLiteral("it has mode %1 in place of 1777: %2")
                .arg(mode, 3, 8, QLatin1Char('0'))
                .arg(isOpen ? QStringLiteral("users can remove the regions of others")
                            : QStringLiteral("it keeps users from making or reaching regions")),
            QStringLiteral("chmod 1777 /dev/shm")));
    }
}

QString commandFor(const Limits &limits)
{
    return QStringLiteral("sysctl -w kernel.sem='%1 %2 %3 %4'")
        .arg(std::max(limits.perSet, neededPerSet))
        .arg(limits.all)
        .arg(std::max(limits.operations, neededOperations))
        .arg(limits.sets);
}

void addFill(Findings &found, const Fill &fill, const QString &things, const Limits &raised)
{
    if (const auto level = levelOf(fill)) {
        found.append(ofMachine(
            *level, "semaphores-full", QStringLiteral("kernel.sem"),
            QStringLiteral("%1 %2 are taken: new regions find none").arg(fillText(fill), things),
            commandFor(raised)));
    }
}

void addSemaphores(Findings &found, const MachineFacts &facts)
{
    if (!facts.semaphoreLimits || !facts.semaphores) {
        found.append(ofMachine(Level::Unknown, "semaphores-unseen", QStringLiteral("kernel.sem"),
                               QStringLiteral("how many semaphores there are and may be could not "
                                              "be seen"),
                               QStringLiteral("look at ipcs -s -u and ipcs -s -l")));
        return;
    }
    const Limits &limits = *facts.semaphoreLimits;
    if (limits.perSet < neededPerSet || limits.operations < neededOperations) {
        found.append(
            ofMachine(Level::Error, "semaphores-small", QStringLiteral("kernel.sem"),
                      QStringLiteral("it allows %1 semaphores a set and %2 operations a call; a "
                                     "region needs %3 and %4")
                          .arg(limits.perSet)
                          .arg(limits.operations)
                          .arg(neededPerSet)
                          .arg(neededOperations),
                      commandFor(limits)));
    }
    const auto positive = [](qint64 number) {
        return static_cast<quint64>(std::max<qint64>(number, 1));
    };
    addFill(found, {quint64(facts.semaphores->sets().size()), positive(limits.sets)},
            QStringLiteral("sets of semaphores"),
            {limits.perSet, limits.all, limits.operations, 2 * limits.sets});
    addFill(found, {quint64(facts.semaphores->count()), positive(limits.all)},
            QStringLiteral("semaphores"),
            {limits.perSet, 2 * limits.all, limits.operations, limits.sets});
}

QString nameOf(uid_t user)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the tool has one thread where it asks.
    const passwd *const entry = ::getpwuid(user);
    return entry == nullptr ? QString() : QString::fromLocal8Bit(entry->pw_name);
}

} // namespace

Findings findingsOf(const MachineFacts &facts)
{
    Findings found;
    addMemoryAccess(found, facts);
    addMemory(found, facts);
    addSemaphores(found, facts);
    return found;
}

Findings removalFindings(const MachineFacts &facts, const QMap<uid_t, QStringList> &owners,
                         const QString &root)
{
    Findings found;
    for (auto owner = owners.cbegin(); owner != owners.cend() && facts.hasSessions; ++owner) {
        const QString name = nameOf(owner.key());
        if (owner.key() <= facts.lastSystemUser || lingers(name, root)) {
            continue;
        }
        const QString user = name.isEmpty() ? QString::number(owner.key()) : name;
        const QString keys = owner.value().join(QStringLiteral(", "));
        if (!facts.removedIpc) {
            found.append(ofMachine(
                Level::Unknown, "remove-ipc", QStringLiteral("RemoveIPC"),
                QStringLiteral("whether the regions of user %1 go with his last session could not "
                               "be read: %2")
                    .arg(user, keys),
                QStringLiteral("look as root")));
        } else if (facts.removedIpc->isOn) {
            found.append(ofMachine(
                Level::Warning, "remove-ipc", facts.removedIpc->file,
                QStringLiteral("RemoveIPC is on: when the last session of user %1 ends, these "
                               "regions and their semaphores are removed: %2")
                    .arg(user, keys),
                QStringLiteral("run it as a system user, or set RemoveIPC=no in [Login], or: "
                               "loginctl enable-linger %1")
                    .arg(user)));
        }
    }
    return found;
}

Findings unclaimedFindings(const MachineFacts &facts, const QStringList &knownKeys)
{
    QSet<key_t> known;
    for (const auto &key : knownKeys) {
        known.insert(SystemVSemaphoreBaseClass::systemVKey(key + QLatin1String("Semaphore")));
    }
    QStringList ids;
    const auto sets = facts.semaphores ? facts.semaphores->sets() : QVector<SemaphoreTable::Set>();
    for (const auto &set : sets) {
        if (!known.contains(set.key) && looksLikeOurs(set).value_or(false)) {
            ids.append(QString::number(set.id));
        }
    }
    if (ids.isEmpty()) {
        return {};
    }
    return {
        ofMachine(Level::Unknown, "semaphores-unclaimed", QStringLiteral("semaphores"),
                  QStringLiteral("these sets look as those of regions do, and belong to none "
                                 "that is known here, or to another program: %1")
                      .arg(ids.join(QStringLiteral(", "))),
                  QStringLiteral("name the descriptions whose regions were there: tessel doctor "
                                 "FILE"))};
}

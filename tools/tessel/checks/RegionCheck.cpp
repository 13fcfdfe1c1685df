#include "checks/RegionCheck.h"

#include "live/MirrorNote.h"
#include "live/RegionText.h"
#include "live/Suspicion.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

#include <sys/stat.h>

namespace {

using Level = Finding::Level;
using Fit = RegionLook::Fit;
using LockState = RegionLock::State;

constexpr int modeOfAll = 0666;

QString pathOf(const QString &key)
{
    return QStringLiteral("/dev/shm/%1SharedMemory").arg(key);
}

/// By a signal or a debugger: field 3 of its state, behind the name, which may hold anything.
bool isStopped(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QByteArray text = file.readAll();
    const char state = text.mid(text.lastIndexOf(')') + 2, 1).append('\0').at(0);
    return state == 'T' || state == 't';
}

QString killText(qint64 pid)
{
    return isStopped(pid) ? QStringLiteral("it is stopped; let it go on: kill -CONT %1").arg(pid)
                          : QStringLiteral("if it does not go on, end it: kill %1").arg(pid);
}

/// A set under the key of a region, of which it is not known to be: those of regions can be read by all.
bool isOfAnother(const SemaphoreTable::Set &set)
{
    return isSurelyOfAnother(set) || (set.mode & modeOfAll) == modeOfAll;
}

/// One look at a region, and what is found wrong with it.
class RegionCheck
{
public:
    RegionCheck(const CheckedRegion &region, const MachineFacts &facts, const RegionUsers &users)
        : m_region(region)
        , m_facts(facts)
        , m_look(region.description ? RegionLook(*region.description) : RegionLook(region.key))
    {
        if (m_look.fit() == Fit::Missing) {
            checkRemains(users);
        } else if (isOurs()) {
            check();
        } else {
            add(Level::Unknown, QStringLiteral("no-region-for-sure"), doubtText(),
                QStringLiteral("name its description, if there is one: tessel doctor FILE"));
        }
    }

    const Findings &found() const { return m_found; }

private:
    void add(Level level, const QString &rule, const QString &text, const QString &cure,
             std::optional<qint64> pid = {})
    {
        m_found.append({level, rule, m_region.key, m_region.key, pid, text, cure});
    }
    void add(const Suspicion &suspicion);

    bool isOurs() const;
    QString doubtText() const;
    const SemaphoreTable::Set *semaphoreSet() const;
    void check();
    void checkRemains(const RegionUsers &users);
    void checkSuspicions();
    void checkSemaphores();
    void checkModes();
    void checkOwners(const struct stat &memory);
    void checkCreator();
    void checkMirror();
    Level levelOf(const QString &rule) const;
    QString cureOf(const Suspicion &suspicion) const;
    QString silenceCure() const;
    QString deadCreatorCure() const;
    QString sinceText() const;

    const CheckedRegion &m_region;
    const MachineFacts &m_facts;
    RegionLook m_look;
    Findings m_found;
};

/// A description says so, the region itself, or its semaphores: other programs have files there, too.
bool RegionCheck::isOurs() const
{
    return m_region.description || m_look.region().isDoubleBuffer()
           || m_look.region().getLock().state != LockState::Unknown;
}

/// Why it may be none.
QString RegionCheck::doubtText() const
{
    const auto *const set = semaphoreSet();
    const bool isTaken = set != nullptr && isSurelyOfAnother(*set);
    if (m_look.fit() == Fit::Unreadable) {
        return QStringLiteral("it cannot be opened (%1)%2, so that it may be the memory of another "
                              "program")
            .arg(m_look.region().getErrorString(), m_facts.semaphores && set == nullptr
                                                       ? QStringLiteral(" and has no semaphores")
                                                       : QString());
    }
    if (isTaken) {
        return QStringLiteral("the semaphores under its key are those of another program, and it "
                              "does not say that it is a region, so that it may be the memory of "
                              "that program");
    }
    return set == nullptr && m_facts.semaphores
               ? QStringLiteral("it has no semaphores and does not say that it is a region, so "
                                "that it may be the memory of another program")
               : QStringLiteral("its semaphores may not be looked at and it does not say that it "
                                "is a region, so that it may be the memory of another program");
}

/// What the kernel lists under its key, be it the region's or not.
const SemaphoreTable::Set *RegionCheck::semaphoreSet() const
{
    return m_facts.semaphores ? m_facts.semaphores->setOf(m_region.key) : nullptr;
}

/// Where the name has gone.
void RegionCheck::checkRemains(const RegionUsers &users)
{
    if (m_region.description) {
        const auto suspicions = suspicionsOf(m_look, *m_region.description);
        std::for_each(suspicions.cbegin(), suspicions.cend(),
                      [this](const Suspicion &suspicion) { add(suspicion); });
    }
    const QVector<RegionUser> former = users.getUsersOf(m_look.region());
    for (const auto &user : former) {
        add(Level::Error, QStringLiteral("removed-region"),
            QStringLiteral("%1 %2 still has a region of this key that was removed: nobody else "
                           "sees it, and no new one is seen by that process")
                .arg(user.program, QString::number(user.pid)),
            QStringLiteral("end it, and start it behind its creator: kill %1").arg(user.pid),
            user.pid);
    }
    // Those who have the region keep them.
    if (former.isEmpty() && m_look.region().getLock().state != LockState::Unknown) {
        add(Level::Warning, QStringLiteral("semaphores-left"),
            QStringLiteral("there are semaphores without a region: somebody who was killed has "
                           "left them%1")
                .arg(users.isComplete() ? QString()
                                        : QStringLiteral(", or somebody who cannot be seen still "
                                                         "has the removed region")),
            QStringLiteral("tessel rm %1").arg(shellWord(m_region.key)));
    }
}

void RegionCheck::check()
{
    if (m_look.region().getName() != RegionInspection::Name::Current) {
        // All else may be of its end.
        const auto suspicions = suspicionsOf(m_look);
        std::for_each(suspicions.cbegin(), suspicions.cend(), [this](const Suspicion &suspicion) {
            if (levelOf(suspicion.name) == Level::Unknown) {
                add(suspicion);
            }
        });
        return;
    }
    checkSuspicions();
    checkModes();
    checkCreator();
    checkMirror();
}

void RegionCheck::checkSuspicions()
{
    const auto suspicions = m_region.description ? suspicionsOf(m_look, *m_region.description)
                                                 : suspicionsOf(m_look);
    for (const auto &suspicion : suspicions) {
        if (suspicion.name == QLatin1String("no-semaphores")) {
            // Those of another version are nobody's mistake.
            if (m_look.fit() != Fit::OtherFormat) {
                checkSemaphores();
            }
        } else {
            add(suspicion);
        }
    }
}

/// None that could be looked at: why?
void RegionCheck::checkSemaphores()
{
    const auto *const set = semaphoreSet();
    if (!m_facts.semaphores) {
        add(Level::Unknown, QStringLiteral("semaphores-unseen"),
            QStringLiteral("whether it has semaphores could not be seen"),
            QStringLiteral("look as root"));
    } else if (!set) {
        add(Level::Error, QStringLiteral("no-semaphores"),
            QStringLiteral("the region has no semaphores: nobody can lock it, and so nobody can "
                           "write"),
            QStringLiteral("start its creator again, which makes it anew"));
    } else if (isOfAnother(*set)) {
        add(Level::Error, QStringLiteral("semaphores-taken"),
            QStringLiteral("its System V key 0x%1 belongs to other semaphores, of another program "
                           "or another version of the memory format: nobody can lock the region")
                .arg(static_cast<quint32>(set->key), 8, 16, QLatin1Char('0')),
            QStringLiteral("see whose they are: ipcs -s -i %1; else choose another memory key")
                .arg(set->id));
    } // Their mode is told.
}

QString modeText(uint mode)
{
    return QString::number(mode & 0777U, 8).rightJustified(3, QLatin1Char('0'));
}

void RegionCheck::checkModes()
{
    struct stat memory = {};
    const bool isOpen = m_look.fit() != Fit::Unreadable;
    if (::stat(QFile::encodeName(pathOf(m_region.key)).constData(), &memory) != 0) {
        return;
    }
    if ((memory.st_mode & modeOfAll) != modeOfAll) {
        add(isOpen ? Level::Warning : Level::Error, QStringLiteral("mode"),
            QStringLiteral("the memory has mode %1 in place of 666: it keeps other users out")
                .arg(modeText(memory.st_mode)),
            QStringLiteral("chmod 666 %1").arg(shellWord(pathOf(m_region.key))));
    }
    checkOwners(memory);
}

void RegionCheck::checkOwners(const struct stat &memory)
{
    const auto *const set = semaphoreSet();
    const bool isReadable = m_look.region().getLock().state != LockState::Unknown;
    if (set == nullptr || (!isReadable && isOfAnother(*set))) {
        return;
    }
    if ((set->mode & modeOfAll) != modeOfAll) {
        add(isReadable ? Level::Warning : Level::Error, QStringLiteral("mode"),
            QStringLiteral("the semaphores have mode %1 in place of 666: they keep other users "
                           "out, who can neither write nor see them")
                .arg(modeText(static_cast<uint>(set->mode))),
            QStringLiteral("start its creator again, which makes them anew"));
    }
    if (memory.st_uid != 0 && memory.st_uid != set->owner) {
        add(Level::Warning, QStringLiteral("owner"),
            QStringLiteral("the memory belongs to user %1 and the semaphores to user %2, who alone "
                           "can remove them: the next creator fails")
                .arg(memory.st_uid)
                .arg(set->owner),
            QStringLiteral("end its processes, then as root: tessel rm %1")
                .arg(shellWord(m_region.key)));
    }
}

void RegionCheck::checkCreator()
{
    const RegionCreator &creator = m_look.creator();
    if (creator.pid && !creator.isAlive) {
        add(Level::Unknown, QStringLiteral("creator-hidden"),
            QStringLiteral("whether the creator, process %1, still runs could not be seen: it may "
                           "be in another container, or hidden")
                .arg(*creator.pid),
            QStringLiteral("look as root, outside of containers"));
    }
}

/// One whose receiver has ended is told by its creator.
void RegionCheck::checkMirror()
{
    const auto mirror = MirrorNote::find(m_region.key);
    if (mirror && mirror->host.isEmpty() && m_look.creator().isAlive != false) {
        add(Level::Warning, QStringLiteral("mirror-without-source"),
            QStringLiteral("it is the %1: all values are 'timeout'").arg(mirror->text()),
            QStringLiteral("look with 'tessel mirror status' who is there, and into the log of "
                           "'tessel mirror receive'"),
            m_look.creator().pid);
    }
}

Level RegionCheck::levelOf(const QString &rule) const
{
    if (rule == QLatin1String("replaced") || rule == QLatin1String("removed")) {
        return Level::Unknown;
    }
    if (rule == QLatin1String("unreadable") && m_look.region().getError() != EACCES) {
        return Level::Error;
    }
    const bool isWarning = rule == QLatin1String("clock") || rule == QLatin1String("silent");
    return rule == QLatin1String("unreadable") ? Level::Unknown
           : isWarning                         ? Level::Warning
                                               : Level::Error;
}

QString RegionCheck::silenceCure() const
{
    const auto pid = m_look.creator().pid;
    const bool isSeen = pid && m_look.creator().isAlive == true
                        && std::any_of(m_look.users().cbegin(), m_look.users().cend(),
                                       [&](const RegionUser &user) { return user.pid == *pid; });
    return isSeen && isStopped(*pid)
               ? QStringLiteral("its creator is stopped; let it go on: kill -CONT %1").arg(*pid)
               : QStringLiteral("look what its publisher waits for, or start it again");
}

/// A region that is still read is not removed.
QString RegionCheck::deadCreatorCure() const
{
    QStringList readers;
    for (const RegionUser &user : m_look.users()) {
        if (!user.isReplaced) {
            readers.append(QString::number(user.pid));
        }
    }
    const QString removal = QStringLiteral("tessel rm %1").arg(shellWord(m_region.key));
    return readers.isEmpty()
               ? QStringLiteral("start it again; if it is not needed any more: %1").arg(removal)
               : QStringLiteral("start it again; if it is not needed any more, end its readers "
                                "first: kill %1; then: %2")
                     .arg(readers.join(QLatin1Char(' ')), removal);
}

QString RegionCheck::cureOf(const Suspicion &suspicion) const
{
    const QString &rule = suspicion.name;
    const QString pid = QString::number(suspicion.pid.value_or(0));
    if (rule == QLatin1String("no-region")) {
        return QStringLiteral("start its creator");
    }
    if (rule == QLatin1String("unreadable")) {
        return QStringLiteral("see whose it is: ls -l %1").arg(shellWord(pathOf(m_region.key)));
    }
    if (rule == QLatin1String("other-layout")) {
        return QStringLiteral("start its creator again with this description, then all others");
    }
    if (rule == QLatin1String("other-format")) {
        return QStringLiteral("run all programs with one version of the library");
    }
    if (rule == QLatin1String("lock-held")) {
        return suspicion.pid ? killText(*suspicion.pid) : QStringLiteral("look as root, who it is");
    }
    if (rule == QLatin1String("creator-dead")) {
        return deadCreatorCure();
    }
    if (rule == QLatin1String("former-region")) {
        return QStringLiteral("start it again, so that it attaches anew: kill %1").arg(pid);
    }
    if (rule == QLatin1String("other-layout-attached")) {
        return QStringLiteral("start it again with the creator's description: kill %1").arg(pid);
    }
    if (rule == QLatin1String("silent")) {
        return silenceCure();
    }
    return rule == QLatin1String("clock") ? QStringLiteral("none needed, the next set heals it")
                                          : QStringLiteral("look again");
}

/// When the region took the place of the former one.
QString RegionCheck::sinceText() const
{
    const qint64 age = m_look.made().msecsTo(QDateTime::currentDateTimeUtc());
    return m_look.made().isValid() && age >= 0
               ? QStringLiteral("; the new one was made %1 ago").arg(durationText(age))
               : QString();
}

void RegionCheck::add(const Suspicion &suspicion)
{
    const bool isFormer = suspicion.name == QLatin1String("former-region");
    add(levelOf(suspicion.name), suspicion.name,
        isFormer ? suspicion.text + sinceText() : suspicion.text, cureOf(suspicion), suspicion.pid);
}

} // namespace

Findings findingsOf(const CheckedRegion &region, const MachineFacts &facts,
                    const RegionUsers &users)
{
    return RegionCheck(region, facts, users).found();
}

bool mayPass(const Findings &findings)
{
    return std::any_of(findings.cbegin(), findings.cend(), [](const Finding &finding) {
        for (const char *rule : {"replaced", "removed", "no-semaphores", "semaphores-left",
                                 "semaphores-taken", "former-region", "removed-region"}) {
            if (finding.rule == QLatin1String(rule)) {
                return true;
            }
        }
        return false;
    });
}

QString shellWord(const QString &word)
{
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_./:@%+=-]+$"));
    QString quoted = word;
    return plain.match(word).hasMatch()
               ? word
               : QLatin1Char('\'') + quoted.replace(QLatin1Char('\''), QLatin1String("'\\''"))
                     + QLatin1Char('\'');
}

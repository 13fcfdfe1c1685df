#include "checks/Checkup.h"

#include "Inspection/RegionInspection.h"
#include "checks/MachineCheck.h"
#include "live/AllRegions.h"

#include <QFile>

#include <algorithm>
#include <chrono>
#include <thread>

#include <sys/stat.h>

namespace {

using Level = Finding::Level;
using Regions = QVector<CheckedRegion>;

Regions regionsOf(const QStringList &descriptions)
{
    Regions regions;
    for (const auto &path : descriptions) {
        const auto description = std::make_shared<const DescriptionSource>(path);
        description->requireMemory();
        regions.append({description->key(), description});
    }
    return regions;
}

/// Also those whose names have gone and that somebody still has.
QStringList allKeys(const RegionUsers &users)
{
    QStringList keys = keysOfAllRegions() + users.getKeys();
    keys.removeDuplicates();
    keys.sort();
    return keys;
}

Regions allRegions(const RegionUsers &users)
{
    Regions regions;
    const QStringList keys = allKeys(users);
    for (const auto &key : keys) {
        regions.append({key, nullptr});
    }
    return regions;
}

QMap<uid_t, QStringList> ownersOf(const Regions &regions)
{
    QMap<uid_t, QStringList> owners;
    for (const auto &region : regions) {
        const QByteArray path = QFile::encodeName(
            QStringLiteral("/dev/shm/%1SharedMemory").arg(region.key));
        struct stat status = {};
        const bool isOurs = region.description || RegionInspection(region.key).isDoubleBuffer();
        if (isOurs && ::stat(path.constData(), &status) == 0) {
            owners[status.st_uid].append(region.key);
        }
    }
    return owners;
}

/// One that is being made, replaced or removed is whole again by then, and whoever notices the end of his
/// region has come back.
constexpr std::chrono::seconds secondLook{1};

Findings regionFindings(const Regions &regions, const MachineFacts &facts, const RegionUsers &users)
{
    Findings found;
    Regions passing;
    for (const auto &region : regions) {
        const Findings own = findingsOf(region, facts, users);
        if (mayPass(own)) {
            passing.append(region);
        } else {
            found += own;
        }
    }
    if (passing.isEmpty()) {
        return found;
    }
    std::this_thread::sleep_for(secondLook);
    const MachineFacts laterFacts = MachineFacts::of();
    const RegionUsers laterUsers;
    for (const auto &region : passing) {
        found += findingsOf(region, laterFacts, laterUsers);
    }
    return found;
}

Findings processFindings(const RegionUsers &users)
{
    if (users.isComplete()) {
        return {};
    }
    return {{Level::Unknown,
             QStringLiteral("processes-hidden"),
             {},
             QStringLiteral("processes"),
             {},
             QStringLiteral("not all processes could be looked at: others may have regions that "
                            "were replaced, or another layout"),
             QStringLiteral("look as root, outside of containers")}};
}

} // namespace

Findings checkup(const CheckupScope &scope)
{
    const RegionUsers users;
    const bool isWhole = scope.descriptions.isEmpty();
    const Regions regions = isWhole ? allRegions(users) : regionsOf(scope.descriptions);
    const MachineFacts facts = MachineFacts::of();
    Findings found = regionFindings(regions, facts, users);
    found += findingsOf(facts) + removalFindings(facts, ownersOf(regions)) + processFindings(users);
    if (isWhole) {
        found += unclaimedFindings(facts, allKeys(users));
    }
    std::stable_sort(found.begin(), found.end(), [](const Finding &one, const Finding &other) {
        return std::make_pair(one.level, one.key.isEmpty())
               < std::make_pair(other.level, other.key.isEmpty());
    });
    return found;
}

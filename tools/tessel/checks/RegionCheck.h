#pragma once

#include "Inspection/RegionUsers.h"
#include "checks/Finding.h"
#include "checks/MachineFacts.h"
#include "descriptions/DescriptionSource.h"

#include <memory>

/// A region that is to be looked over.
struct CheckedRegion
{
    QString key;
    std::shared_ptr<const DescriptionSource>
        description; ///< null: only what the region itself says
};

/// What is wrong with the region now, the worst first within a level. Takes no lock and changes nothing;
/// waits up to a second where somebody is inside the lock. @p users knows those of a region whose name has
/// gone.
Findings findingsOf(const CheckedRegion &region, const MachineFacts &facts,
                    const RegionUsers &users);
/// Whether some of the findings may be of a region that is just being made, replaced or removed, so that
/// they are worth a second look.
bool mayPass(const Findings &findings);

/// A word as a shell takes it.
QString shellWord(const QString &word);

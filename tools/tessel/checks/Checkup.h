#pragma once

#include "checks/RegionCheck.h"

#include <QStringList>

/// What is to be looked over.
struct CheckupScope
{
    /// Descriptions whose regions are looked over. None: all regions of the machine.
    QStringList descriptions;
};

/// What is wrong with the regions and with what of the machine they need, the worst first. What was just
/// being made or removed is looked at again a second later. Throws a Failure for a description that cannot
/// be read.
Findings checkup(const CheckupScope &scope);

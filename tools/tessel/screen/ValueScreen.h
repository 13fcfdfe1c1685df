#pragma once

#include "descriptions/DescriptionSource.h"
#include "text/SignalWait.h"

#include <QVector>

#include <chrono>

/// What `tessel watch --tui` is asked for.
struct ScreenOrder
{
    /// Leaves of the description, in the order in which they are shown.
    QVector<Leaf> leaves;
    /// What was asked for; empty is everything, of which unusable leaves are left out with a note.
    QStringList urls;
    /// From one look at a single buffer to the next, and at least from one picture to the next.
    std::chrono::milliseconds interval;
};

/// A Failure of WrongUse if there is no terminal, or none that can show it.
void requireScreen();
/// Shows the values as a full screen, until somebody ends it. A Failure as of requireScreen(), or if there is no region.
void showOnScreen(const DescriptionSource &description, const ScreenOrder &order,
                  SignalWait &signals);

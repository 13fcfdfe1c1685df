#pragma once

#include "support/LogCapture.h"

/// What the locks of a region say when its semaphores are gone.
inline LogLine removedWarning()
{
    return warning(QStringLiteral("The semaphores of this process data memory were removed: nobody "
                                  "can write any more. Attach again."));
}

/// What is said over the set of a writer that died.
inline LogLine takenBackWarning()
{
    return warning(QStringLiteral("A process ended in the middle of writing process data: values "
                                  "that were written but not yet published are taken back."));
}

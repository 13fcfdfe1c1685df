#pragma once

#include "RateOptions.h"

/// What a recording of a CountedPlant holds, read back.
struct RecordedCount
{
    quint64 sets = 0;
    quint64 dropped = 0;  ///< as the recording itself counts them
    quint64 notWhole = 0; ///< sets that hold something else than their number says
    QString problem;      ///< damage, or an end that is missing

    /// The first set is that of the number @p first. Throws a Failure of a file that is no recording.
    static RecordedCount of(const QString &file, const RateOptions &options, quint64 first);
};

#pragma once

#include "expressions/ExactNumber.h"
#include "snapshots/Snapshot.h"

#include <optional>

/// How far the numbers at a URL may be apart. The URL may be a pattern.
struct SnapshotTolerance
{
    QString url;
    ExactNumber most;
};

/// What is not as it was.
struct SnapshotDifference
{
    enum class Kind {
        Value,
        State,
        Type,
        Missing, ///< of the later one
        New      ///< of the former one
    };

    Kind kind;
    QString url;
    std::optional<Snapshot::Value> was; ///< none if it is new
    std::optional<Snapshot::Value> is;  ///< none if it is missing
    std::optional<ExactNumber> tolerance;
};

/// In the order of the former one, behind it what is new. Numbers are the same bit by bit, but for NaN, which
/// equals NaN, and where a tolerance allows more; of several that fit a URL the last one counts. Of what the
/// former one was not asked for nothing is said.
QVector<SnapshotDifference> differencesBetween(const Snapshot &was, const Snapshot &is,
                                               const QVector<SnapshotTolerance> &tolerances);

/// Whether the type is one of numbers, which a tolerance may be about.
bool isNumberType(const QString &type);

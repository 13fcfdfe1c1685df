#pragma once

#include "ProcessDataManagement/ProcessDataManager.h"
#include "TesselModels/ModelEnumerations.h"
#include "TesselModels/SourceDescription_p.h"

#include <QString>
#include <QVariant>

#include <optional>

/// Why a value was not written.
struct WriteProblem
{
    TesselModels::WriteError code;
    QString text;
};

/// A value for a leaf, checked as `tessel set` does it: its type, read-only leaves, limits, texts that do not fit,
/// numbers that would read back as an error state.
struct LeafWriting
{
    const SourceLeaf &leaf;
    ProcessDataValue &element; ///< bound

    /// Writes and publishes it as one set, or nothing. May wait for the lock of the region.
    std::optional<WriteProblem> publish(ProcessDataManager &manager, const QVariant &given) const;

private:
    std::optional<WriteProblem> check(const QVariant &given, QVariant &value) const;
    std::optional<WriteProblem> checkLimits(const QVariant &value) const;
};

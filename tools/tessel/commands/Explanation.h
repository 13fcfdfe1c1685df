#pragma once

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Validation/DescriptionPlaces.h"
#include "live/Suspicion.h"

#include <optional>

/// All that `tessel explain` tells of one leaf.
struct Explanation
{
    Leaf leaf;
    LeafSlot slot;
    std::optional<DescriptionPlace> place;
    QVector<BufferedSlot> buffers; ///< the one that readers see first
    QVector<Suspicion> suspicions;

    /// What readers get now; none if that cannot be had.
    std::optional<ProcessValue> value() const
    {
        const bool isKnown = !buffers.isEmpty() && buffers.constFirst().value.getValue().isValid();
        return isKnown ? std::make_optional(buffers.constFirst().value) : std::nullopt;
    }
    QString text(const QString &property) const { return textProperty(leaf, property); }
    QString unit() const
    {
        return text(ConfigurationAndProcessDataDefinitions::getKeyDataPropertyUnit());
    }
};

/// An object of the array that `--json` prints.
QString explanationJson(const Explanation &explanation, const RegionLook &look,
                        const DescriptionSource &description);

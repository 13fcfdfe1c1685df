#pragma once

#include "ProcessData/ProcessValue.h"

#include <QString>

#include <optional>

/// The values of one set, as the screen asks for them: only those that it shows.
class ShownValues
{
public:
    virtual ~ShownValues() = default;

    /// None if nothing is known of it.
    virtual std::optional<ProcessValue> value(int leaf) const = 0;
    virtual QString unit(int leaf) const = 0;
};

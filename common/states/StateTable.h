#pragma once

#include "ProcessData/ProcessValueErrorTypes.h"

#include <QString>

#include <array>

/// The ten error states as they are told to persons and other systems, in one place for all programs.
///
/// Shared memory holds the error state and nothing of NAMUR NE 107: the letter here is derived from
/// the state, and whoever passes it on has to call it so. What a device itself signals comes from a leaf
/// that a configuration names. The guide has the table with its sources.
struct StateRow
{
    ProcessDataDefinitions::ErrorTypes state;
    /// As the tool writes it, such as `overrange`.
    const char *name;
    /// In one sentence, for a person.
    const char *meaning;
    /// Derived from the state, never read from the device.
    ProcessDataDefinitions::NamurStateTypes derivedNamurState;
    /// Whether there is a value to pass on.
    bool hasValue;
};

namespace StateTable {

constexpr int count = 10;

/// All rows; the index is the number of the state.
const std::array<StateRow, count> &rows();

/// The row of @p state. A number that is no state has a row of its own: without value, a failure, and
/// called `unknown`.
const StateRow &rowOf(ProcessDataDefinitions::ErrorTypes state);

/// The name of the state; `state-77` for a number that is no state.
QString nameOf(ProcessDataDefinitions::ErrorTypes state);

} // namespace StateTable

#pragma once

#include "ProcessData/ProcessValueErrorTypes.h"

#include <cstddef>
#include <cstring>

/// A slot as the floors and the peers see it: a double with its error word behind it, without
/// alignment, as in the region.
namespace PlainSlot {

struct Value
{
    double value;
    ProcessDataDefinitions::ErrorTypes errorType;
};

constexpr std::size_t size = 12;

inline Value load(const unsigned char *slot)
{
    Value value = {};
    std::memcpy(&value.value, slot, sizeof value.value);
    std::memcpy(&value.errorType, slot + sizeof value.value, sizeof value.errorType);
    return value;
}

inline void store(unsigned char *slot, const Value &value)
{
    std::memcpy(slot, &value.value, sizeof value.value);
    std::memcpy(slot + sizeof value.value, &value.errorType, sizeof value.errorType);
}

} // namespace PlainSlot

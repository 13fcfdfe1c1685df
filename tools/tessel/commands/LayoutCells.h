#pragma once

#include "commands/BufferLayout.h"

#include <array>
#include <vector>

/// The colours of types in the picture of a layout.
namespace TypeColours {

struct TypeColour
{
    const char *type;
    const char *colour;
};

constexpr std::size_t count = 15;
const TypeColour &at(std::size_t index);
/// The last one of all types that have none of their own.
std::size_t indexOf(const QString &type);

} // namespace TypeColours

/// What lies in some bytes of a buffer.
struct LayoutCell
{
    /// By the colours of their types. Bytes that several leaves have count for each.
    std::array<quint64, TypeColours::count> bytes{};
    quint64 free = 0;
    quint64 overlapping = 0;
    /// Number of the values that begin here, and the leaf of the first one.
    int begins = 0;
    int first = BufferMap::sm_none;
};

/// The whole buffer in cells of @p unit bytes, with the leaves that were asked for.
std::vector<LayoutCell> layoutCells(const BufferLayout &layout, quint64 unit);

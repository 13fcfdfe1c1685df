#include "commands/LayoutCells.h"

#include <algorithm>

namespace {

/// Types of one width are shades of one colour; those that are none of these are grey.
constexpr std::array<TypeColours::TypeColour, TypeColours::count> colours{{{"double", "#4f8fd6"},
                                                                           {"float", "#86b9ee"},
                                                                           {"int64", "#3f9e6e"},
                                                                           {"uint64", "#74c29a"},
                                                                           {"int32", "#6aa84f"},
                                                                           {"uint32", "#a4cf86"},
                                                                           {"int16", "#b7b23a"},
                                                                           {"uint16", "#d8d27c"},
                                                                           {"int8", "#e0a030"},
                                                                           {"uint8", "#f0c674"},
                                                                           {"boolean", "#b07cc6"},
                                                                           {"bit", "#d3a8e2"},
                                                                           {"selector", "#3fb3b3"},
                                                                           {"string", "#e08a6a"},
                                                                           {"", "#b5bcc4"}}};

/// Adds the bytes of ranges to cells. A range costs the same however many cells it covers.
class CellSums
{
public:
    CellSums(std::size_t count, quint64 unit, quint64 end)
        : m_unit(unit)
        , m_end(end)
        , m_partly(count)
        , m_wholly(count + 1)
    {
    }

    void add(quint64 begin, quint64 end)
    {
        end = std::min(end, m_end);
        if (begin >= end) {
            return;
        }
        const quint64 first = begin / m_unit;
        const quint64 last = (end - 1) / m_unit;
        if (first == last) {
            m_partly[first] += end - begin;
            return;
        }
        m_partly[first] += (first + 1) * m_unit - begin;
        m_partly[last] += end - last * m_unit;
        ++m_wholly[first + 1];
        --m_wholly[last];
    }

    std::vector<quint64> sums() const
    {
        std::vector<quint64> all(m_partly);
        qint64 covering = 0;
        for (std::size_t i = 0; i < all.size(); ++i) {
            covering += m_wholly[i];
            all[i] += quint64(covering) * m_unit;
        }
        return all;
    }

private:
    quint64 m_unit;
    quint64 m_end;
    std::vector<quint64> m_partly;
    /// How many more ranges than the cell before each one lies in as a whole.
    std::vector<qint64> m_wholly;
};

} // namespace

const TypeColours::TypeColour &TypeColours::at(std::size_t index)
{
    return colours[index];
}

std::size_t TypeColours::indexOf(const QString &type)
{
    const auto *const found = std::find_if(
        colours.cbegin(), colours.cend() - 1,
        [&type](const TypeColour &candidate) { return type == QLatin1String(candidate.type); });
    return static_cast<std::size_t>(found - colours.cbegin());
}

std::vector<LayoutCell> layoutCells(const BufferLayout &layout, quint64 unit)
{
    const BufferMap &map = layout.map();
    std::vector<LayoutCell> cells((map.end() + unit - 1) / unit);
    const CellSums empty(cells.size(), unit, map.end());
    std::vector<CellSums> byType(TypeColours::count, empty);
    CellSums free = empty;
    CellSums overlapping = empty;
    for (const auto &piece : map.pieces()) {
        if (piece.what == BufferMap::What::Hole) {
            free.add(piece.begin, piece.end);
            continue;
        }
        if (!layout.isShown(piece)) {
            continue;
        }
        byType[TypeColours::indexOf(layout.slotOf(piece).type)].add(piece.begin, piece.end);
        if (piece.what == BufferMap::What::Value && piece.begin < map.end()) {
            LayoutCell &cell = cells[piece.begin / unit];
            cell.first = cell.begins++ == 0 ? piece.leaf : cell.first;
        }
    }
    for (const auto &range : map.overlaps()) {
        overlapping.add(range.begin, range.end);
    }
    const std::vector<quint64> frees = free.sums();
    const std::vector<quint64> shared = overlapping.sums();
    for (std::size_t i = 0; i < cells.size(); ++i) {
        cells[i].free = frees[i];
        cells[i].overlapping = shared[i];
    }
    for (std::size_t type = 0; type < byType.size(); ++type) {
        const std::vector<quint64> sums = byType[type].sums();
        for (std::size_t i = 0; i < cells.size(); ++i) {
            cells[i].bytes[type] = sums[i];
        }
    }
    return cells;
}

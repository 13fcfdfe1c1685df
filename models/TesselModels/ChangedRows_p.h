#pragma once

#include <vector>

/// Calls @p tell(first, last) for each run of neighbours among @p rows, which ascend; once for all of
/// @p rowCount rows where there are more runs than a view is better told of one by one.
template <class Tell>
void tellChangedRows(const std::vector<int> &rows, int rowCount, Tell tell)
{
    constexpr int mostRuns = 16;
    int runs = rows.empty() ? 0 : 1;
    for (std::size_t i = 1; i < rows.size(); ++i) {
        runs += rows[i] == rows[i - 1] + 1 ? 0 : 1;
    }
    if (runs > mostRuns) {
        tell(0, rowCount - 1);
        return;
    }
    std::size_t first = 0;
    for (std::size_t i = 1; i <= rows.size() && runs > 0; ++i) {
        if (i == rows.size() || rows[i] != rows[i - 1] + 1) {
            tell(rows[first], rows[i - 1]);
            first = i;
        }
    }
}

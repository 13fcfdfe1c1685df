#pragma once

#include "values/LeafSlot.h"

#include <optional>
#include <vector>

/// Stands for no leaf in what newSharers() gives.
constexpr int noSharer = -1;

/// For each slot of now the first other one that has bytes of it, or bits, and had none before; noSharer where there
/// is none. @p former has the slot that each of them had, or nothing for one that was not there.
std::vector<int> newSharers(const std::vector<LeafSlot> &now,
                            const std::vector<std::optional<LeafSlot>> &former);

#pragma once

#include <QVariant>

#include <cstddef>

/// A part of the row with these cells; empty, with a warning, where it does not fit them.
QVariantList partOfRow(const QVariantList &cells, std::size_t columnOffset,
                       std::size_t numberOfColumns);

#pragma once

#include "simulation/SimulatedLeaf.h"

#include <QVector>

/// What a simulation would publish, a row a leaf.
QString planText(const QVector<SimulatedLeaf> &leaves);
/// The same as a JSON array.
QString planJson(const QVector<SimulatedLeaf> &leaves);

#pragma once

#include "Validation/ProcessSlot_p.h"

#include <QVector>

/// Reports the leaves of one file that share bytes, which stand in the order of the text. Each two once.
void checkOverlaps(CheckedFile &file, const QVector<ProcessSlot> &leaves);

#pragma once

#include "Validation/ProcessSlot_p.h"

#include <QVector>

/// Slots of a region.
namespace SlotRules {

/// Of one leaf of a type that has a slot, wherever it lies.
void checkLeaf(const CheckedElement &leaf, const ProcessSlot &slot);
/// The region of a description that is used as it is written.
void checkRegion(const CheckedElement &root, const QVector<ProcessSlot> &leaves);
/// The slots of a file that is laid out together with others.
void checkForBuild(CheckedFile &file, const QVector<ProcessSlot> &leaves);
/// What a build needs of a leaf. False if the build is refused.
bool checkLeafForBuild(const CheckedElement &leaf);
bool checkRootForBuild(const CheckedElement &root);
/// The name of a region.
void checkMemoryKey(const CheckedElement &root);

} // namespace SlotRules

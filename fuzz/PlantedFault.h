#pragma once

#include <QByteArray>

/// The faults that a fuzz target must be able to tell, so that a quiet run means something.
namespace PlantedFault {

/// `promise`, `overrun`, `leak`, `undefined` or `endless`; every input meets the fault from now on.
/// False if there is none of that name.
bool plant(const QByteArray &name);

/// Meets what was planted; does nothing otherwise.
void meet();

} // namespace PlantedFault

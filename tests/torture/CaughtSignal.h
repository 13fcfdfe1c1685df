#pragma once

namespace Torture {

/// From here on a signal that asks the program to end is only remembered.
void catchSignals();
/// 0 if none came.
int caughtSignal();
/// In a child: such a signal is the driver's business. The terminal sends it to the whole group.
void ignoreSignals();

} // namespace Torture

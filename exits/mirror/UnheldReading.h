#pragma once

#include <functional>

class ProcessDataManager;

/// Has @p read read the newest set, again while a writer came between, as readConsistently() does, but without ever
/// keeping a writer off: nobody waits for whoever is stopped in the middle of it. False, and what was read is of no use,
/// if none of a few sets lasted as long as @p read took.
bool readWithoutHolding(ProcessDataManager &manager, const std::function<void()> &read);

#pragma once

#include "native/OpenRegion.h"

#include <pybind11/pybind11.h>

/// Whether a write holds to the limits of the leaf.
enum class Limits { Checked, Ignored };

// The checks of `tessel set`. A Failure says why the leaf must not be written so. All need the interpreter's
// lock, and none looks at the memory.

/// Of a value.
LeafWrite checkedValue(const OpenRegion &region, int index, pybind11::handle value, Limits limits);
/// Of an error state. A slot that cannot hold it would read back as a valid value.
LeafWrite checkedState(const OpenRegion &region, int index, int state);

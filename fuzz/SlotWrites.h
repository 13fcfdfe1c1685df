#pragma once

#include "HeapBuffers.h"
#include "ProcessData/Linux/ProcessDataValue.h"

/// Writes values of all kinds into a leaf that is bound to @p buffers. Each write must stay inside
/// the slot, be refused without a trace or be read back as it was written.
void checkSlotWrites(ProcessDataValue &leaf, HeapBuffers &buffers);

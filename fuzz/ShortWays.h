#pragma once

#include "DoubleBufferOnHeap.h"
#include "HeapBuffers.h"
#include "ProcessData/Linux/ProcessDataValue.h"

/// The short ways to a value in the library's own double buffer end as the general ones do: they
/// read the same and write the same bytes. Leaves @p leaf bound to @p general.
void checkShortWays(const ProcessDataValueSharedPointer &leaf, HeapBuffers &general,
                    DoubleBufferOnHeap &own);

#pragma once

/// Whether the file that is mapped at @p address still has its name, so that whoever opens that name
/// gets the same memory. False where nothing is mapped, and for memory without a file. Reads
/// /proc/self/maps: not for the ordinary way through a lock.
bool hasMappedName(const void *address);

#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <deque>

/// What collectElements() gives of @p node in order, with the same messages. Takes half the room of its
/// list, which has each element on the heap alone, where all nodes are of the library's own class: one of
/// another class gets that list, with all that was collected before it.
std::deque<ConfigurationAndProcessDataBase::BaseClassSharedPointer> sortedLeavesOf(
    const ConfigurationAndProcessDataBase &node);

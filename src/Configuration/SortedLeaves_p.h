#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <deque>

/// Appends what collectElements() gives of @p node in order, with the same messages. Takes half the room
/// of its list, which has each element on the heap alone, and never holds any of it twice.
void addSortedLeaves(const ConfigurationAndProcessDataBase &node,
                     std::deque<ConfigurationAndProcessDataBase::BaseClassSharedPointer> &leaves);

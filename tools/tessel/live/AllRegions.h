#pragma once

#include <QStringList>

/// The memory keys of all regions of the machine. Refuses, by a Failure, where it cannot be told which there
/// are: nobody is to take that for none.
QStringList keysOfAllRegions();

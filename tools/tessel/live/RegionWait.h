#pragma once

#include <chrono>

class DescriptionSource;

/// How long a wait for a region came.
enum class RegionProgress {
    Missing,  ///< There is no region, or its creator is still making it.
    Silent,   ///< Nothing was published yet.
    Published ///< A set is there to be read.
};

/// Waits until the region of a description is there and published, at most until @p deadline. How far
/// it came by then. A Failure says that the region cannot be opened or was made from another
/// description.
RegionProgress waitUntilPublished(const DescriptionSource &description,
                                  std::chrono::steady_clock::time_point deadline);

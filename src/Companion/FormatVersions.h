#pragma once

/// The versions of the formats by which files and processes understand each other.
///
/// A number grows when a reader of the former format would misunderstand the new one.
namespace FormatVersions {

/// Of description files, as `schemeVersion` in their root says it.
constexpr int description = 1;

/// Of the region in shared memory and its semaphores. All processes that share one have to agree on
/// it: a double buffer says it in its management block, and the number of semaphores is another.
constexpr int memory = 2;

} // namespace FormatVersions

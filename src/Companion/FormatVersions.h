#pragma once

/// The versions of the formats by which files and processes understand each other.
///
/// A number grows when a reader of the former format would misunderstand the new one.
namespace FormatVersions {

/// Of description files, as `schemeVersion` in their root says it.
constexpr int description = 1;

/// Of the region in shared memory and its semaphores. It stands nowhere in the region: all processes
/// that share one have to agree on it.
constexpr int memory = 1;

} // namespace FormatVersions

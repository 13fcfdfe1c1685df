#pragma once

#include "Validation/CheckedFolder_p.h"

#include <vector>

/// What the process descriptions of folders have in common.
namespace FolderRules {

/// Key, size and double buffer, and the layout of a build.
void check(const CheckedFolder &folder);
/// The keys of several folders.
void checkKeys(const std::vector<std::unique_ptr<CheckedFolder>> &folders);

} // namespace FolderRules

#pragma once

#include "mirror/WriteRequest.h"
#include "region/RegionFollower.h"
#include "region/UrlChoice.h"

/// Writes what @p request asks for as one set, or nothing, by the checks of `tessel set`: only into leaves
/// that @p allowed leads to.
WriteAnswer carryOut(RegionFollower &region, const UrlChoice &allowed, const WriteRequest &request);

#pragma once

#include "mirror/DomainStatus.h"
#include "mirror/MirrorDomain.h"

/// What is said in @p domain within so many milliseconds.
DomainStatus lookAround(const MirrorDomain &domain, int milliseconds);

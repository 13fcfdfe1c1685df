#pragma once

#include "http/HttpMessage.h"
#include "region/RegionFollower.h"

/// Writes what the body of a request asks for, all of it as one set or nothing, and tells what was and what
/// is. The checks are those of `tessel apply`. The log has a line for each value that was written, with who
/// asked for it.
HttpResponse answerWrite(RegionFollower &region, const HttpRequest &request);

#pragma once

#include "http/HttpMessage.h"

#include <cstddef>
#include <optional>

struct MHD_Connection;

/// A request on its way in.
///
/// The HTTP library hands out texts that end at their first zero byte, and takes bodies whose length is said
/// twice. Who stands in front of this program may read such a request differently, so none is answered.
class IncomingRequest
{
public:
    /// @p target is what stands between method and version, in the memory of the request; null if nothing does.
    explicit IncomingRequest(const char *target);

    bool isBegun() const { return m_isBegun; }
    /// Reads what stands in front of the body. What is wrong with it; nothing if it may be answered.
    std::optional<HttpProblem> begin(MHD_Connection *connection, const char *method,
                                     const char *version);
    /// A piece of the body. One that grows beyond @p most bytes is passed over.
    void take(const char *bytes, std::size_t size, int most);
    const HttpRequest &request() const { return m_request; }

private:
    const char *m_targetEnd;
    bool m_isBegun = false;
    HttpRequest m_request;
};

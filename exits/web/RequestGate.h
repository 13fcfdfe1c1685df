#pragma once

#include "http/HttpMessage.h"
#include "web/ErrorAnswer.h"

#include <QSet>

#include <optional>

/// Which requests are answered at all, and which may write.
///
/// A page of somebody else that a browser has open must not reach the values: neither by asking for this
/// address under a name of its own, nor by sending what the user did not ask for.
class RequestGate
{
public:
    struct Rules
    {
        QSet<QByteArray> hosts; ///< by which the page may be asked for, in small letters
        bool isEncrypted = false;
        QByteArray token; ///< empty: nothing can be written
    };

    RequestGate() = default;
    explicit RequestGate(Rules rules) : m_rules(std::move(rules)) { }

    /// Why @p request is not answered; none if it is.
    std::optional<WebError> problemOf(const HttpRequest &request) const;
    /// Why it must not write, which problemOf() has nothing against; none if it may.
    std::optional<WebError> problemOfWrite(const HttpRequest &request) const;

private:
    bool isOwnOrigin(const HttpRequest &request) const;

    Rules m_rules;
};

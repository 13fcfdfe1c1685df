#include "web/RequestGate.h"

#include "web/HostName.h"
#include "web/TokenCheck.h"

#include <QString>

namespace {

bool isJson(const QByteArray &contentType)
{
    const int end = contentType.indexOf(';');
    const QByteArray type =
        contentType.left(end < 0 ? contentType.size() : end).trimmed().toLower();
    const QByteArray rest = end < 0 ? QByteArray() : contentType.mid(end + 1).trimmed().toLower();
    return type == "application/json" && (rest.isEmpty() || rest == "charset=utf-8");
}

} // namespace

std::optional<WebError> RequestGate::problemOf(const HttpRequest &request) const
{
    const QByteArray name = hostNameOf(request.header("Host"));
    if (request.countOf("Host") != 1 || !m_rules.hosts.contains(name)) {
        return WebError{421, QStringLiteral("this server does not answer under that name"),
                        QStringLiteral("Host"),
                        QStringLiteral("ask for localhost or the address that it listens on, or "
                                       "have 'host' in its configuration name yours")};
    }
    if (request.countOf("Origin") != 0 && !isOwnOrigin(request)) {
        return WebError{403, QStringLiteral("the request comes from a page of another server"),
                        QStringLiteral("Origin"),
                        QStringLiteral("open the page of this server, and ask from there")};
    }
    return std::nullopt;
}

bool RequestGate::isOwnOrigin(const HttpRequest &request) const
{
    const QByteArray scheme = m_rules.isEncrypted ? "https://" : "http://";
    return request.countOf("Origin") == 1
           && request.header("Origin").toLower() == scheme + request.header("Host").toLower();
}

std::optional<WebError> RequestGate::problemOfWrite(const HttpRequest &request) const
{
    if (m_rules.token.isEmpty()) {
        return WebError{403, QStringLiteral("this server writes nothing"),
                        QStringLiteral("/api/values"),
                        QStringLiteral("start tessel-web with --token-file FILE to allow it")};
    }
    const QByteArray bearer = TokenCheck::bearerOf(request.header("Authorization"));
    if (request.countOf("Authorization") != 1 || !TokenCheck::isSame(bearer, m_rules.token)) {
        return WebError{401,
                        request.countOf("Authorization") == 0
                            ? QStringLiteral("writing needs the token")
                            : QStringLiteral("this is not the token"),
                        QStringLiteral("Authorization"),
                        QStringLiteral("send 'Authorization: Bearer TOKEN' with the first line of "
                                       "the token file of tessel-web")};
    }
    if (!isJson(request.header("Content-Type"))) {
        return WebError{415, QStringLiteral("only JSON is taken"), QStringLiteral("Content-Type"),
                        QStringLiteral("send 'Content-Type: application/json'")};
    }
    if (request.isBodyCut) {
        return WebError{413, QStringLiteral("the request brings more than 1 MiB"),
                        QStringLiteral("body"), QStringLiteral("write fewer values at once")};
    }
    return std::nullopt;
}

#include "http/IncomingRequest.h"

#include "http/PeerAddress.h"

#include <QVector>

#include <algorithm>
#include <cstring>

#include <microhttpd.h>

namespace {

/// Of a request line with all headers.
constexpr std::size_t mostHeaderBytes = std::size_t{16} * 1024;
/// Each costs the HTTP library far more than its bytes.
constexpr int mostHeaders = 200;

/// In the memory of the request, where all follow each other as they came.
struct HeaderPlace
{
    const char *name;
    const char *value;
};

MHD_Result appendHeader(void *target, MHD_ValueKind, const char *name, const char *value)
{
    static_cast<QVector<HeaderPlace> *>(target)->append(
        HeaderPlace{name, value == nullptr ? "" : value});
    return MHD_YES;
}

/// Whether behind the text that ends at @p begin there is nothing but the ends of @p lines lines, which the HTTP
/// library has overwritten with zeros.
bool isEndOfLine(const char *begin, const char *end, int lines)
{
    constexpr std::ptrdiff_t longestEnd = 2;
    return begin < end && end - begin <= longestEnd * lines
           && std::all_of(begin, end, [](char character) { return character == '\0'; });
}

/// Whether the texts of the HTTP library have all that was sent. One that goes on over several lines lies
/// elsewhere, and is taken for cut: nobody sends it any more.
bool areWhole(const QVector<HeaderPlace> &headers, const char *end)
{
    for (int i = 0; i < headers.size(); ++i) {
        const bool isLast = i + 1 == headers.size();
        const char *next = isLast ? end : headers[i + 1].name;
        if (!isEndOfLine(headers[i].value + std::strlen(headers[i].value), next, isLast ? 2 : 1)) {
            return false;
        }
    }
    return true;
}

bool isTokenCharacter(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z')
           || (character >= '0' && character <= '9')
           || (character != '\0' && std::strchr("!#$%&'*+-.^_`|~", character) != nullptr);
}

bool isWellFormed(const HttpHeaders &headers)
{
    const auto isText = [](char character) {
        const auto code = static_cast<unsigned char>(character);
        constexpr unsigned char del = 0x7f;
        return (code >= ' ' || code == '\t') && code != del;
    };
    return std::all_of(headers.cbegin(), headers.cend(), [&](const auto &header) {
        return !header.first.isEmpty()
               && std::all_of(header.first.cbegin(), header.first.cend(), isTokenCharacter)
               && std::all_of(header.second.cbegin(), header.second.cend(), isText);
    });
}

/// Whether it is clear where the body ends.
bool hasOneLength(const HttpRequest &request)
{
    const int lengths = request.countOf("Content-Length");
    const int encodings = request.countOf("Transfer-Encoding");
    return lengths + encodings <= 1
           && (encodings == 0 || request.header("Transfer-Encoding").toLower() == "chunked");
}

std::size_t headerSizeOf(MHD_Connection *connection)
{
    const MHD_ConnectionInfo *info = MHD_get_connection_info(
        connection, MHD_CONNECTION_INFO_REQUEST_HEADER_SIZE);
    return info == nullptr ? 0 : info->header_size;
}

} // namespace

IncomingRequest::IncomingRequest(const char *target)
    : m_targetEnd(target == nullptr ? nullptr : target + std::strlen(target))
{
    const QByteArray path(target,
                          target == nullptr ? 0 : static_cast<int>(std::strcspn(target, "?")));
    m_request.path = QByteArray::fromPercentEncoding(path);
}

std::optional<HttpProblem> IncomingRequest::begin(MHD_Connection *connection, const char *method,
                                                  const char *version)
{
    m_isBegun = true;
    m_request.method = method;
    m_request.peer = peerAddressOf(connection);
    QVector<HeaderPlace> places;
    MHD_get_connection_values(connection, MHD_HEADER_KIND, appendHeader, &places);
    for (const auto &place : std::as_const(places)) {
        m_request.headers.append(qMakePair(QByteArray(place.name), QByteArray(place.value)));
    }
    const std::size_t size = headerSizeOf(connection);
    if (size > mostHeaderBytes || places.size() > mostHeaders) {
        return HttpProblem{431, "the headers are larger than 16 KiB, or more than 200", "headers",
                           "send fewer and shorter ones"};
    }
    if (m_targetEnd == nullptr || m_targetEnd + 1 != version || m_request.path.contains('\0')) {
        return HttpProblem{400, "the path has a zero byte", "path", "leave it out"};
    }
    if (!areWhole(places, method + size) || !isWellFormed(m_request.headers)) {
        return HttpProblem{400, "a header has characters that it must not have", "headers",
                           "send names without blanks, and values of one line without control "
                           "characters"};
    }
    if (!hasOneLength(m_request)) {
        return HttpProblem{400, "it is not clear where the body ends", "Content-Length",
                           "send either one 'Content-Length' or 'Transfer-Encoding: chunked'"};
    }
    return std::nullopt;
}

void IncomingRequest::take(const char *bytes, std::size_t size, int most)
{
    const int left = most - m_request.body.size();
    m_request.isBodyCut = m_request.isBodyCut || left < 0 || size > static_cast<std::size_t>(left);
    if (m_request.isBodyCut) {
        m_request.body.clear();
    } else {
        m_request.body.append(bytes, static_cast<int>(size));
    }
}

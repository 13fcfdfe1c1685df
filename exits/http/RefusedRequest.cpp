#include "http/RefusedRequest.h"

#include <utility>

namespace {

constexpr HttpProblem crowd{503, "too many connections", "connections",
                            "close others, or have 'connections' allow more"};

} // namespace

HttpResponse RefusedRequest::plainAnswer(const HttpProblem &problem)
{
    HttpResponse response;
    response.body = QByteArray(problem.what) + "; " + problem.cure + '\n';
    return response;
}

HttpResponse RefusedRequest::answer(const Refuser &refuser, const HttpProblem &problem)
{
    HttpResponse response = refuser(problem);
    response.status = problem.status;
    response.headers.append(qMakePair(QByteArray("Connection"), QByteArray("close")));
    return response;
}

HttpResponse RefusedRequest::crowdedAnswer(const Refuser &refuser)
{
    HttpResponse response = answer(refuser, crowd);
    response.headers.append(qMakePair(QByteArray("Retry-After"), QByteArray("1")));
    return response;
}

QByteArray RefusedRequest::crowdedText(const Refuser &refuser)
{
    const HttpResponse response = crowdedAnswer(refuser);
    HttpHeaders headers{{"Content-Type", response.contentType},
                        {"Content-Length", QByteArray::number(response.body.size())}};
    headers += response.headers;
    QByteArray text = "HTTP/1.1 503 Service Unavailable\r\n";
    for (const auto &header : std::as_const(headers)) {
        text += header.first + ": " + header.second + "\r\n";
    }
    return text + "\r\n" + response.body;
}

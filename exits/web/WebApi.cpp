#include "web/WebApi.h"

#include "service/Refusal.h"
#include "web/ConfigurationJson.h"
#include "web/ErrorAnswer.h"
#include "web/EventStream.h"
#include "web/JsonText.h"
#include "web/WriteRequest.h"

#include <QCryptographicHash>
#include <QFileInfo>

namespace {

HttpResponse jsonAnswer(const QByteArray &json)
{
    HttpResponse response;
    response.contentType = "application/json";
    response.body = json;
    return response;
}

bool isReading(const HttpRequest &request)
{
    return request.method == "GET" || request.method == "HEAD";
}

/// With the content, or with 304 where the asker has it.
HttpResponse tagged(const HttpRequest &request, HttpResponse response, const QByteArray &tag)
{
    response.headers.append({"ETag", tag});
    const QList<QByteArray> allKnown = request.header("If-None-Match").split(',');
    for (const auto &known : allKnown) {
        const QByteArray name = known.trimmed();
        if (name == tag || name == "W/" + tag || name == "*") {
            response.status = 304;
            response.body.clear();
        }
    }
    return response;
}

HttpResponse refusedMethod(const QByteArray &method, const QByteArray &allowed)
{
    HttpResponse response = errorAnswer(
        {405, QStringLiteral("%1 is not answered here").arg(QString::fromUtf8(method.left(20))),
         QStringLiteral("method"), QStringLiteral("use %1").arg(QString::fromLatin1(allowed))});
    response.headers.append({"Allow", allowed});
    return response;
}

HttpResponse missing(const QByteArray &path)
{
    return errorAnswer({404, QStringLiteral("there is nothing at this path"),
                        QString::fromUtf8(path.left(200)),
                        QStringLiteral("the page is at /, and for programs there are "
                                       "/api/description, /api/values, /api/events and "
                                       "/api/configuration")});
}

void guardHeaders(HttpResponse &response, bool isStored)
{
    response.headers += HttpHeaders{{"Content-Security-Policy", "default-src 'self'"},
                                    {"X-Frame-Options", "DENY"},
                                    {"X-Content-Type-Options", "nosniff"},
                                    {"Referrer-Policy", "no-referrer"},
                                    {"Cache-Control", isStored ? "no-cache" : "no-store"}};
}

} // namespace

void WebApi::use(const WebSettings &settings, const std::shared_ptr<LiveFeed> &feed)
{
    m_settings = settings;
    m_gate = RequestGate({settings.hostNames(), !settings.certificate.isEmpty(), settings.token});
    m_feed = feed;
}

HttpResponse WebApi::answer(const HttpRequest &request)
{
    const auto problem = m_gate.problemOf(request);
    HttpResponse response = problem ? errorAnswer(*problem) : route(request);
    // What is inside the program is kept by browsers as long as it is the same.
    guardHeaders(response, !request.path.startsWith("/api/") && response.status < 400);
    return response;
}

HttpResponse WebApi::refuse(const HttpProblem &problem)
{
    HttpResponse response = errorAnswer({problem.status, QString::fromLatin1(problem.what),
                                         QString::fromLatin1(problem.where),
                                         QString::fromLatin1(problem.cure)});
    guardHeaders(response, false);
    return response;
}

HttpResponse WebApi::route(const HttpRequest &request)
{
    struct Row
    {
        const char *path;
        bool isWritable;
        Answer answer;
    };
    static constexpr Row rows[] = {{"/api/description", false, &WebApi::answerDescription},
                                   {"/api/values", true, &WebApi::answerValues},
                                   {"/api/events", false, &WebApi::answerEvents},
                                   {"/api/configuration", false, &WebApi::answerConfiguration}};
    for (const auto &row : rows) {
        if (request.path == row.path) {
            const bool isTaken = isReading(request) || (request.method == "POST" && row.isWritable);
            return isTaken ? (this->*row.answer)(request)
                           : refusedMethod(request.method,
                                           row.isWritable ? "GET, HEAD, POST" : "GET, HEAD");
        }
    }
    const QByteArray folder("/app/");
    const bool isPage = request.path == "/";
    if (!isPage && !request.path.startsWith(folder)) {
        return missing(request.path);
    }
    if (!isReading(request)) {
        return refusedMethod(request.method, "GET, HEAD");
    }
    return answerFile(request, isPage ? "index.html" : request.path.mid(folder.size()));
}

HttpResponse WebApi::answerFile(const HttpRequest &request, const QByteArray &name) const
{
    const PageFiles::File *file = m_page.find(name);
    if (file == nullptr) {
        return missing(request.path);
    }
    HttpResponse response;
    response.contentType = file->contentType;
    response.body = file->content;
    return tagged(request, response, file->tag);
}

HttpResponse WebApi::answerDescription(const HttpRequest &request)
{
    const RegionFollower &region = m_feed->region();
    const QByteArray json =
        JsonText::object({{"program", "\"tessel-web\""},
                          {"version", "\"" TESSEL_VERSION "\""},
                          {"description", JsonText::text(QFileInfo(region.path()).fileName())},
                          {"region", JsonText::text(region.key())},
                          {"fingerprint", '"' + m_feed->fingerprint() + '"'},
                          {"rate", QByteArray::number(m_settings.rate)},
                          {"writing", JsonText::boolean(!m_settings.token.isEmpty())},
                          {"configuration", JsonText::boolean(!m_settings.configuration.isEmpty())},
                          {"leaves", m_feed->leavesJson()}})
        + '\n';
    const QByteArray digest = QCryptographicHash::hash(json, QCryptographicHash::Sha256);
    return tagged(request, jsonAnswer(json), '"' + digest.toHex().left(16) + '"');
}

HttpResponse WebApi::answerPost(const HttpRequest &request)
{
    const auto problem = m_gate.problemOfWrite(request);
    if (!problem) {
        return answerWrite(m_feed->region(), request);
    }
    HttpResponse response = errorAnswer(*problem);
    if (problem->status == 401) {
        response.headers.append(
            qMakePair(QByteArray("WWW-Authenticate"), QByteArray("Bearer realm=\"tessel-web\"")));
    }
    return response;
}

HttpResponse WebApi::answerValues(const HttpRequest &request)
{
    if (request.method == "POST") {
        return answerPost(request);
    }
    m_feed->region().lookNow();
    if (!m_feed->isUp()) {
        return absentAnswer(m_feed->region().key(), m_feed->region().absence());
    }
    if (!m_feed->takeSet()) {
        return errorAnswer({503, QStringLiteral("no consistent set was to be had"),
                            m_feed->region().key(),
                            QStringLiteral("ask again; the log of tessel-web has the reason")});
    }
    return jsonAnswer(m_feed->valuesJson());
}

HttpResponse WebApi::answerEvents(const HttpRequest & /*request*/)
{
    HttpResponse response;
    response.contentType = "text/event-stream";
    const auto stream = std::make_shared<EventStream>(m_feed);
    response.nextPiece = [stream] { return stream->next(); };
    return response;
}

// NOLINTNEXTLINE(readability-make-member-function-const): the table of the paths holds members of one kind.
HttpResponse WebApi::answerConfiguration(const HttpRequest & /*request*/)
{
    if (m_settings.configuration.isEmpty()) {
        return errorAnswer({404, QStringLiteral("no configuration is shown"),
                            QStringLiteral("/api/configuration"),
                            QStringLiteral("start tessel-web with --configuration FILE|DIR")});
    }
    try {
        return jsonAnswer(configurationAsJson(m_settings.configuration));
    } catch (const Refusal &refusal) {
        return errorAnswer({503, refusal.text, QStringLiteral("/api/configuration"),
                            QStringLiteral("mend the file, or have 'configuration' name another")});
    }
}

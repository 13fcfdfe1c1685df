#include "FuzzTarget.h"
#include "web/ErrorAnswer.h"
#include "web/HostName.h"
#include "web/RequestGate.h"
#include "web/TokenCheck.h"
#include "web/WriteBody.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QSet>

// A request is answered only under a name of the server and never for a page of another one, writes only with
// the token, and what it brings is refused with its place, or is an object of URLs and values as the toolkit's
// parser sees it.
//
// An input is the path, a line of each header, `Name: value`, an empty line, and the body.

namespace {

const QByteArray ownName("press3");
const QByteArray token("0123456789abcdef");

HttpRequest requestOf(const QByteArray &input)
{
    HttpRequest request;
    const int end = input.indexOf("\n\n");
    const QList<QByteArray> lines = input.left(end < 0 ? input.size() : end).split('\n');
    request.path = lines.first();
    for (int i = 1; i < lines.size(); ++i) {
        const int colon = lines[i].indexOf(": ");
        if (colon >= 0) {
            request.headers.append(qMakePair(lines[i].left(colon), lines[i].mid(colon + 2)));
        }
    }
    request.body = end < 0 ? QByteArray() : input.mid(end + 2);
    return request;
}

void checkError(const std::optional<WebError> &error)
{
    if (!error) {
        return;
    }
    require(error->status >= 400 && error->status < 500, "a refusal is the asker's");
    require(!error->what.isEmpty() && !error->where.isEmpty() && !error->cure.isEmpty(),
            "a refusal has cause, place and cure");
    const QByteArray body = errorAnswer(*error).body;
    require(QJsonDocument::fromJson(body).isObject(), "a refusal is JSON");
    require(!body.contains(token), "a refusal tells no secret");
}

void checkGate(const HttpRequest &request)
{
    const RequestGate gate({{ownName}, false, token});
    const auto problem = gate.problemOf(request);
    checkError(problem);
    if (!problem) {
        const QByteArray host = request.header("Host").toLower();
        require(host == ownName || host.startsWith(ownName + ':'), "a name is one of the server's");
        require(hostNameOf(host) == ownName, "a name is told from its port");
        require(request.countOf("Origin") == 0
                    || request.header("Origin").toLower() == "http://" + host,
                "a page is the server's own");
    }
    const auto refusal = gate.problemOfWrite(request);
    checkError(refusal);
    require(refusal || request.header("Authorization").contains(token), "who writes has the token");
    require(RequestGate({{ownName}, false, {}}).problemOfWrite(request).has_value(),
            "without a token nothing is written");
}

void checkBody(const QByteArray &body)
{
    const WriteBody read = WriteBody::read(body);
    require(read.problem.isEmpty() != read.writes.isEmpty(), "there are writes, or a problem");
    require(read.problem.isEmpty() == read.where.isEmpty(), "a problem has a place");
    if (read.writes.isEmpty()) {
        return;
    }
    // The toolkit takes a byte order mark away, and has bounds of its own.
    QJsonParseError error{};
    const QJsonObject object = QJsonDocument::fromJson(body, &error).object();
    if (error.error != QJsonParseError::NoError) {
        return;
    }
    QSet<QString> urls;
    for (const auto &write : read.writes) {
        require(!urls.contains(write.url), "a URL is there once");
        urls.insert(write.url);
        const QJsonValue value = object.value(write.url);
        require(write.kind != AskedWrite::Kind::Boolean || value.isBool(), "a boolean is one");
        require(write.kind != AskedWrite::Kind::Number || value.isDouble(), "a number is one");
        require(write.kind != AskedWrite::Kind::Text || value.isString(), "a text is one");
        require(write.kind != AskedWrite::Kind::State || value.isObject(), "a state is one");
    }
    require(urls.size() == object.size(), "nothing is left out");
}

} // namespace

void runInput(const QByteArray &input)
{
    const HttpRequest request = requestOf(input);
    checkGate(request);
    checkBody(request.body);
}

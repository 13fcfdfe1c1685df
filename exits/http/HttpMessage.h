#pragma once

#include <QByteArray>
#include <QPair>
#include <QVector>

#include <functional>

/// Names and values, in the order in which they came.
using HttpHeaders = QVector<QPair<QByteArray, QByteArray>>;

/// What somebody asks for.
struct HttpRequest
{
    QByteArray method;
    QByteArray path; ///< without what stands behind a question mark
    HttpHeaders headers;
    QByteArray body;
    bool isBodyCut = false; ///< it was larger than the limit, and is left out
    /// Address of the other end of the connection, which may be that of a proxy; empty if unknown.
    QByteArray peer = {};

    /// All headers of that name, in whatever case, joined by commas.
    QByteArray header(const char *name) const;
    int countOf(const char *name) const;
};

/// Why a request is refused before anybody is asked for an answer.
struct HttpProblem
{
    int status;
    const char *what;
    const char *where;
    const char *cure;
};

/// What is answered.
struct HttpResponse
{
    int status = 200;
    QByteArray contentType = "text/plain; charset=utf-8";
    QByteArray body;
    HttpHeaders headers;
    /// Of an answer that goes on, in place of a body: gives the next piece. An empty one: there is none
    /// now; it is asked again after HttpServer::wakeStreams(). The next piece is only asked for when the
    /// one before has gone to the system, so whoever does not read holds one piece and no more.
    std::function<QByteArray()> nextPiece;
};

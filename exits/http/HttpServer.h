#pragma once

#include "http/ListenAddress.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QPair>
#include <QTimer>
#include <QVector>

#include <chrono>
#include <functional>

struct MHD_Daemon;
struct MHD_Connection;
class QSocketNotifier;

/// What somebody asks for. Views of the library's memory, for the time of the call.
struct HttpRequest
{
    QByteArray method;
    QByteArray path;   ///< without what stands behind a question mark
    QByteArray accept; ///< all headers of that name, joined by commas
};

/// What is answered.
struct HttpResponse
{
    int status = 200;
    QByteArray contentType = "text/plain; charset=utf-8";
    QByteArray body;
    QVector<QPair<QByteArray, QByteArray>> headers;
};

/// A server for short answers, inside the event loop of its thread: no thread of its own, so that whoever
/// answers needs no lock. A connection that is slow or idle costs a bounded time, and all of them a
/// bounded memory.
class HttpServer : public QObject
{
    Q_OBJECT

public:
    using Handler = std::function<HttpResponse(const HttpRequest &)>;

    struct Limits
    {
        int connections = 16; ///< at once, 1000 at most; those above are answered 503 and closed
        /// For a whole request with its answer, and for silence between two.
        std::chrono::seconds time{30};
    };

    /// Listens at once. Throws a Refusal if that cannot be.
    HttpServer(const ListenAddress &address, const Limits &limits, Handler handler,
               QObject *parent = nullptr);
    /// Closes all connections.
    ~HttpServer() override;

    const ListenAddress &address() const { return m_address; }
    /// The one that was chosen where the address has 0.
    quint16 port() const { return m_port; }
    /// Holds for connections that come from now on.
    void setLimits(const Limits &limits) { m_limits = limits; }

private:
    struct Callbacks;
    using Clock = std::chrono::steady_clock;

    void run();
    void endSlowOnes();
    int answer(MHD_Connection *connection, const HttpRequest &request);

    ListenAddress m_address;
    Limits m_limits;
    Handler m_handler;
    quint16 m_port = 0;
    MHD_Daemon *m_daemon = nullptr;
    QSocketNotifier *m_readable = nullptr;
    QTimer m_due;                              ///< when the daemon has something to do by itself
    QTimer m_care;                             ///< looks for slow connections
    QHash<int, Clock::time_point> m_deadlines; ///< by the descriptors of connections
};

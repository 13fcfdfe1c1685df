#pragma once

#include "http/HttpMessage.h"
#include "http/ListenAddress.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <chrono>
#include <functional>

struct MHD_Daemon;
struct MHD_Connection;
struct MHD_Response;
class QSocketNotifier;

/// A server inside the event loop of its thread: no thread of its own, not even for answers that go on, so
/// that whoever answers needs no lock. A connection that is slow or idle costs a bounded time, and all of
/// them a bounded memory.
class HttpServer : public QObject
{
    Q_OBJECT

public:
    using Handler = std::function<HttpResponse(const HttpRequest &)>;

    struct Limits
    {
        int connections = 16; ///< at once, 1000 at most; those above are answered 503 and closed
        /// For a whole request with its answer, and for silence between two. Not for answers that go on.
        std::chrono::seconds time{30};
        /// Bytes of what a request brings; more is passed over and told to the handler. With 0 a method
        /// that brings something is answered without waiting for it.
        int body = 0;
    };

    /// For encrypted connections; both in the form PEM.
    struct Certificate
    {
        QByteArray chain;
        QByteArray key;

        bool isEmpty() const { return chain.isEmpty(); }
    };

    /// Listens at once, encrypted with a @p certificate that is not empty. Throws a Refusal if that cannot
    /// be.
    HttpServer(const ListenAddress &address, const Limits &limits, Handler handler,
               const Certificate &certificate = {}, QObject *parent = nullptr);
    /// Closes all connections.
    ~HttpServer() override;

    const ListenAddress &address() const { return m_address; }
    /// The one that was chosen where the address has 0.
    quint16 port() const { return m_port; }
    /// Holds for connections that come from now on.
    void setLimits(const Limits &limits) { m_limits = limits; }
    /// What those above the limit of connections are told, with the status 503.
    void setCrowdedAnswer(const HttpResponse &answer) { m_crowdedAnswer = answer; }

    /// Has every answer that goes on and had nothing to say asked again.
    void wakeStreams();
    /// Ends all answers that go on, each behind what it has said.
    void endStreams();

private:
    struct Callbacks;
    struct Stream;
    using Clock = std::chrono::steady_clock;

    void start(int socket, const Certificate &certificate);
    void run();
    void endSlowOnes();
    void endDesertedStreams();
    void wake(Stream &stream);
    int answer(MHD_Connection *connection, const HttpRequest &request);
    MHD_Response *makeStream(MHD_Connection *connection, const HttpResponse &response);

    ListenAddress m_address;
    Limits m_limits;
    Handler m_handler;
    HttpResponse m_crowdedAnswer;
    quint16 m_port = 0;
    MHD_Daemon *m_daemon = nullptr;
    QSocketNotifier *m_readable = nullptr;
    QTimer m_due;                              ///< when the daemon has something to do by itself
    QTimer m_care;                             ///< looks for slow connections
    QHash<int, Clock::time_point> m_deadlines; ///< by the descriptors of connections
    QSet<Stream *> m_streams;                  ///< each belongs to its answer
};

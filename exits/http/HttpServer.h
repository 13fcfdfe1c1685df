#pragma once

#include "http/ConnectionTable.h"
#include "http/HttpMessage.h"
#include "http/ListenAddress.h"
#include "http/RefusedRequest.h"

#include <QObject>
#include <QSet>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>

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
        /// For a whole request with its answer, and again for silence between two. Not for answers that go on.
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
        QString name; ///< for messages; without one there is none, whereas a file may well be empty

        bool isEmpty() const { return name.isEmpty(); }
        bool operator==(const Certificate &other) const
        {
            return chain == other.chain && key == other.key && isEmpty() == other.isEmpty();
        }
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
    void setLimits(const Limits &limits);
    /// Makes the answers to requests that the server refuses by itself; without it they are plain text.
    void setRefuser(const RefusedRequest::Refuser &refuser) { m_refuser = refuser; }
    /// Serves with @p certificate, or without encryption if it is empty, from now on; a change closes all
    /// connections. Throws a Refusal if it is none, and goes on as before.
    void setCertificate(const Certificate &certificate);

    /// Has every answer that goes on and had nothing to say asked again.
    void wakeStreams();
    /// Ends all answers that go on, each behind what it has said.
    void endStreams();

private:
    struct Callbacks;
    struct Stream;

    MHD_Daemon *makeDaemon(int socket, const Certificate &certificate);
    void follow(MHD_Daemon *daemon);
    void endDaemon();
    void run();
    void care();
    void endDesertedStreams();
    void wake(Stream &stream);
    void greet(MHD_Connection *connection);
    int answer(MHD_Connection *connection, const HttpRequest &request);
    int send(MHD_Connection *connection, const HttpResponse &response, const QByteArray &method);
    MHD_Response *makeStream(MHD_Connection *connection, const HttpResponse &response);

    ListenAddress m_address;
    Limits m_limits;
    Handler m_handler;
    RefusedRequest::Refuser m_refuser;
    Certificate m_certificate;
    quint16 m_port = 0;
    MHD_Daemon *m_daemon = nullptr;
    std::unique_ptr<QSocketNotifier> m_readable;
    QTimer m_due;  ///< when the daemon has something to do by itself
    QTimer m_care; ///< looks for slow connections, and for free descriptors
    ConnectionTable m_connections;
    QSet<Stream *> m_streams; ///< each belongs to its answer
};

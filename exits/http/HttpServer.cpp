#include "http/HttpServer.h"

#include "http/PeerAddress.h"
#include "service/Refusal.h"

#include <QSocketNotifier>

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include <microhttpd.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

/// Connections above the limit that are still told so; further ones are closed without a word.
constexpr int refusedAtOnce = 16;
/// What no limit goes beyond.
constexpr int mostConnections = 1000;
/// Of a request; larger ones are answered 431.
constexpr std::size_t headerBytes = 16 * 1024;
constexpr std::size_t pieceSize = 64 * 1024;
/// What the system holds of an answer that goes on while nobody reads it.
constexpr int streamBufferBytes = 64 * 1024;

/// A request on its way in.
struct Exchange
{
    QByteArray body;
    bool isCut = false;

    void take(const char *bytes, std::size_t size, int most)
    {
        isCut = isCut || size > static_cast<std::size_t>(std::max(most - body.size(), 0));
        if (isCut) {
            body.clear();
        } else {
            body.append(bytes, static_cast<int>(size));
        }
    }
};

ssize_t readBody(void *body, uint64_t position, char *target, size_t most)
{
    const QByteArray &bytes = *static_cast<const QByteArray *>(body);
    const auto left = static_cast<std::size_t>(bytes.size()) - static_cast<std::size_t>(position);
    const std::size_t size = std::min(left, most);
    std::memcpy(target, bytes.constData() + position, size);
    return static_cast<ssize_t>(size);
}

void freeBody(void *body)
{
    delete static_cast<QByteArray *>(body);
}

MHD_Response *makeWhole(const HttpResponse &response)
{
    auto body = std::make_unique<QByteArray>(response.body);
    const auto size = static_cast<uint64_t>(body->size());
    MHD_Response *made = MHD_create_response_from_callback(size, pieceSize, readBody, body.get(),
                                                           freeBody);
    if (made != nullptr) {
        // It belongs to the response now.
        [[maybe_unused]] const QByteArray *owned = body.release();
    }
    return made;
}

int descriptorOf(MHD_Connection *connection)
{
    const MHD_ConnectionInfo *info = MHD_get_connection_info(connection,
                                                             MHD_CONNECTION_INFO_CONNECTION_FD);
    return info == nullptr ? -1 : info->connect_fd;
}

void setIdleTime(MHD_Connection *connection, std::chrono::seconds time)
{
    MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT,
                              static_cast<unsigned int>(time.count()));
}

MHD_Result appendHeader(void *target, MHD_ValueKind, const char *key, const char *value)
{
    static_cast<HttpHeaders *>(target)->append(qMakePair(QByteArray(key), QByteArray(value)));
    return MHD_YES;
}

bool isReading(const char *method)
{
    return qstrcmp(method, "GET") == 0 || qstrcmp(method, "HEAD") == 0;
}

} // namespace

/// An answer that goes on.
struct HttpServer::Stream
{
    HttpServer &server;
    MHD_Connection *connection;
    std::function<QByteArray()> nextPiece;
    QByteArray piece;
    int position = 0;
    bool isSuspended = false;
    bool isEnding = false;
    bool isDeserted = false;
};

/// What the library calls, always on the thread of the server.
struct HttpServer::Callbacks
{
    static MHD_Result handle(void *self, MHD_Connection *connection, const char *url,
                             const char *method, const char * /*version*/, const char *uploaded,
                             size_t *uploadedSize, void **state)
    {
        auto &server = *static_cast<HttpServer *>(self);
        const bool isWaitedFor = isReading(method) || server.m_limits.body > 0;
        // An answer before the end of the request closes the connection, which is right for what brings
        // a body where nobody wants one. One that comes with a question is passed over.
        if (isWaitedFor && *state == nullptr) {
            *state = new Exchange;
            return MHD_YES;
        }
        auto *exchange = static_cast<Exchange *>(*state);
        if (isWaitedFor && *uploadedSize != 0) {
            exchange->take(uploaded, *uploadedSize, isReading(method) ? 0 : server.m_limits.body);
            *uploadedSize = 0;
            return MHD_YES;
        }
        HttpRequest request{method, url, {}, {}, false};
        if (exchange != nullptr) {
            request.body = exchange->body;
            request.isBodyCut = exchange->isCut && !isReading(method);
        }
        MHD_get_connection_values(connection, MHD_HEADER_KIND, appendHeader, &request.headers);
        request.peer = peerAddressOf(connection);
        return server.answer(connection, request) == 0 ? MHD_YES : MHD_NO;
    }

    static void hearOfConnection(void *self, MHD_Connection *connection, void ** /*context*/,
                                 MHD_ConnectionNotificationCode what)
    {
        auto &server = *static_cast<HttpServer *>(self);
        if (what == MHD_CONNECTION_NOTIFY_STARTED) {
            const int descriptor = descriptorOf(connection);
            server.m_deadlines.insert(descriptor, Clock::now() + server.m_limits.time);
            setIdleTime(connection, server.m_limits.time);
            if (server.m_deadlines.size() > server.m_limits.connections + refusedAtOnce) {
                ::shutdown(descriptor, SHUT_RDWR);
            }
        } else {
            server.m_deadlines.remove(descriptorOf(connection));
        }
    }

    static void hearOfEnd(void *self, MHD_Connection *connection, void **state,
                          MHD_RequestTerminationCode /*how*/)
    {
        delete static_cast<Exchange *>(*state);
        *state = nullptr;
        auto &server = *static_cast<HttpServer *>(self);
        const auto deadline = server.m_deadlines.find(descriptorOf(connection));
        if (deadline != server.m_deadlines.end()) {
            // Silence, and then the next request.
            *deadline = Clock::now() + 2 * server.m_limits.time;
            setIdleTime(connection, server.m_limits.time);
        }
    }

    static ssize_t readStream(void *opaque, uint64_t /*position*/, char *target, size_t most)
    {
        auto &stream = *static_cast<Stream *>(opaque);
        if (stream.isDeserted) {
            return MHD_CONTENT_READER_END_WITH_ERROR;
        }
        if (stream.position == stream.piece.size()) {
            stream.piece = stream.isEnding ? QByteArray() : stream.nextPiece();
            stream.position = 0;
        }
        if (stream.piece.isEmpty()) {
            if (stream.isEnding) {
                return MHD_CONTENT_READER_END_OF_STREAM;
            }
            stream.isSuspended = true;
            MHD_suspend_connection(stream.connection);
            return 0;
        }
        const std::size_t size = std::min(
            static_cast<std::size_t>(stream.piece.size() - stream.position), most);
        std::memcpy(target, stream.piece.constData() + stream.position, size);
        stream.position += static_cast<int>(size);
        return static_cast<ssize_t>(size);
    }

    static void freeStream(void *opaque)
    {
        auto *stream = static_cast<Stream *>(opaque);
        stream->server.m_streams.remove(stream);
        delete stream;
    }

    static void ignoreMessage(void * /*self*/, const char * /*format*/, va_list /*arguments*/) { }
};

HttpServer::HttpServer(const ListenAddress &address, const Limits &limits, Handler handler,
                       const Certificate &certificate, QObject *parent)
    : QObject(parent)
    , m_address(address)
    , m_limits(limits)
    , m_handler(std::move(handler))
    , m_due(this)
    , m_care(this)
{
    m_crowdedAnswer.body = "too many connections\n";
    const int socket = address.listen();
    m_port = ListenAddress::portOf(socket);
    start(socket, certificate);
    const MHD_DaemonInfo *info = m_daemon == nullptr
                                     ? nullptr
                                     : MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_EPOLL_FD);
    if (info == nullptr) {
        // The socket goes with the daemon, also with one that does not start.
        if (m_daemon != nullptr) {
            MHD_stop_daemon(m_daemon);
        }
        throw Refusal{ExitCode::Internal,
                      certificate.isEmpty()
                          ? QStringLiteral("the HTTP library does not start")
                          : QStringLiteral("the HTTP library does not start with this certificate "
                                           "and key; both have to be PEM, and belong together")};
    }
    m_readable = new QSocketNotifier(info->epoll_fd, QSocketNotifier::Read, this);
    connect(m_readable, &QSocketNotifier::activated, this, &HttpServer::run);
    m_due.setSingleShot(true);
    connect(&m_due, &QTimer::timeout, this, &HttpServer::run);
    connect(&m_care, &QTimer::timeout, this, &HttpServer::endSlowOnes);
    m_care.start(std::chrono::seconds(1));
}

void HttpServer::start(int socket, const Certificate &certificate)
{
    const unsigned int plain = MHD_USE_EPOLL | MHD_USE_ERROR_LOG | MHD_ALLOW_SUSPEND_RESUME;
    std::vector<MHD_OptionItem> tls;
    if (!certificate.isEmpty()) {
        tls = {{MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char *>(certificate.chain.constData())},
               {MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char *>(certificate.key.constData())}};
    }
    tls.push_back({MHD_OPTION_END, 0, nullptr});
    m_daemon = MHD_start_daemon(
        certificate.isEmpty() ? plain : plain | MHD_USE_TLS, 0, nullptr, nullptr, Callbacks::handle,
        this, MHD_OPTION_EXTERNAL_LOGGER, Callbacks::ignoreMessage, this, MHD_OPTION_LISTEN_SOCKET,
        socket, MHD_OPTION_CONNECTION_LIMIT,
        static_cast<unsigned int>(mostConnections + 2 * refusedAtOnce),
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, headerBytes, MHD_OPTION_NOTIFY_CONNECTION,
        Callbacks::hearOfConnection, this, MHD_OPTION_NOTIFY_COMPLETED, Callbacks::hearOfEnd, this,
        MHD_OPTION_ARRAY, tls.data(), MHD_OPTION_END);
}

HttpServer::~HttpServer()
{
    delete m_readable;
    m_readable = nullptr;
    // The daemon does not end with suspended connections.
    wakeStreams();
    MHD_stop_daemon(m_daemon);
}

void HttpServer::wakeStreams()
{
    for (Stream *stream : std::as_const(m_streams)) {
        wake(*stream);
    }
}

void HttpServer::endStreams()
{
    for (Stream *stream : std::as_const(m_streams)) {
        stream->isEnding = true;
    }
    wakeStreams();
}

void HttpServer::wake(Stream &stream)
{
    if (stream.isSuspended) {
        stream.isSuspended = false;
        MHD_resume_connection(stream.connection);
        // Nothing of it shows in the descriptor of the library.
        m_due.start(0);
    }
}

void HttpServer::run()
{
    MHD_run(m_daemon);
    MHD_UNSIGNED_LONG_LONG bound = 0;
    if (MHD_get_timeout(m_daemon, &bound) == MHD_YES) {
        constexpr MHD_UNSIGNED_LONG_LONG longest = 60 * 1000;
        m_due.start(static_cast<int>(std::min(bound, longest)));
    } else {
        m_due.stop();
    }
}

void HttpServer::endSlowOnes()
{
    const Clock::time_point now = Clock::now();
    for (auto deadline = m_deadlines.cbegin(); deadline != m_deadlines.cend(); ++deadline) {
        if (deadline.value() < now) {
            // The library sees its end, and closes it.
            ::shutdown(deadline.key(), SHUT_RDWR);
        }
    }
    endDesertedStreams();
}

/// A suspended connection is not looked at by the library, so that it would not hear of its end.
void HttpServer::endDesertedStreams()
{
    for (Stream *stream : std::as_const(m_streams)) {
        pollfd look{descriptorOf(stream->connection), POLLRDHUP, 0};
        if (stream->isSuspended && poll(&look, 1, 0) > 0) {
            stream->isDeserted = true;
            wake(*stream);
        }
    }
}

/// 0, or another number if the connection is to be closed without a word.
int HttpServer::answer(MHD_Connection *connection, const HttpRequest &request)
{
    HttpResponse response;
    if (m_deadlines.size() > m_limits.connections) {
        response = m_crowdedAnswer;
        response.status = 503;
        response.headers += HttpHeaders{{"Connection", "close"}, {"Retry-After", "1"}};
    } else {
        response = m_handler(request);
    }
    const bool isStream = response.nextPiece != nullptr && request.method != "HEAD";
    MHD_Response *made = isStream ? makeStream(connection, response) : makeWhole(response);
    if (made == nullptr) {
        return 1;
    }
    MHD_add_response_header(made, MHD_HTTP_HEADER_CONTENT_TYPE, response.contentType.constData());
    for (const auto &header : response.headers) {
        MHD_add_response_header(made, header.first.constData(), header.second.constData());
    }
    const MHD_Result queued = MHD_queue_response(connection,
                                                 static_cast<unsigned int>(response.status), made);
    MHD_destroy_response(made);
    return queued == MHD_YES ? 0 : 1;
}

MHD_Response *HttpServer::makeStream(MHD_Connection *connection, const HttpResponse &response)
{
    auto stream = std::make_unique<Stream>(Stream{*this, connection, response.nextPiece, {}});
    MHD_Response *made = MHD_create_response_from_callback(
        MHD_SIZE_UNKNOWN, pieceSize, Callbacks::readStream, stream.get(), Callbacks::freeStream);
    if (made == nullptr) {
        return nullptr;
    }
    m_streams.insert(stream.release());
    // It may take as long as both like. A reader that has stopped holds little of the system's memory, and one
    // that has vanished is found out by the system.
    const int descriptor = descriptorOf(connection);
    m_deadlines.insert(descriptor, Clock::time_point::max());
    setIdleTime(connection, std::chrono::seconds(0));
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &streamBufferBytes, sizeof streamBufferBytes);
    return made;
}

#include "http/HttpServer.h"

#include "http/IncomingRequest.h"
#include "service/Refusal.h"

#include <QSocketNotifier>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <microhttpd.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// Connections at once, whatever the limit is: those above it are still to be told so.
constexpr unsigned int mostConnections = 1100;
/// What the HTTP library has for the headers of a request, what it makes of them, and the head of the answer: enough
/// for all that IncomingRequest takes. A smaller one is closed without a word where the answer finds no room.
constexpr std::size_t connectionBytes = std::size_t{64} * 1024;
constexpr std::size_t pieceSize = std::size_t{64} * 1024;
/// What the system holds of an answer that goes on while nobody reads it.
constexpr int streamBufferBytes = 64 * 1024;

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
    static void *beginRequest(void * /*self*/, const char *target, MHD_Connection * /*connection*/)
    {
        return new IncomingRequest(target);
    }

    // NOLINTNEXTLINE(readability-function-size): the HTTP library calls it.
    static MHD_Result handle(void *self, MHD_Connection *connection, const char * /*url*/,
                             const char *method, const char *version, const char *uploaded,
                             size_t *uploadedSize, void **state)
    {
        auto &server = *static_cast<HttpServer *>(self);
        auto &incoming = *static_cast<IncomingRequest *>(*state);
        // An answer before the end of the request closes the connection, which is right for what brings
        // a body where nobody wants one. One that comes with a question is passed over.
        const bool isWaitedFor = isReading(method) || server.m_limits.body > 0;
        if (!incoming.isBegun()) {
            server.m_connections.beginRequest(descriptorOf(connection));
            const auto problem = incoming.begin(connection, method, version);
            if (problem) {
                const auto refused = RefusedRequest::answer(server.m_refuser, *problem);
                return server.send(connection, refused, {}) == 0 ? MHD_YES : MHD_NO;
            }
            if (isWaitedFor) {
                return MHD_YES;
            }
        }
        if (isWaitedFor && *uploadedSize != 0) {
            if (!isReading(method)) {
                incoming.take(uploaded, *uploadedSize, server.m_limits.body);
            }
            *uploadedSize = 0;
            return MHD_YES;
        }
        return server.answer(connection, incoming.request()) == 0 ? MHD_YES : MHD_NO;
    }

    static void hearOfConnection(void *self, MHD_Connection *connection, void ** /*context*/,
                                 MHD_ConnectionNotificationCode what)
    {
        auto &server = *static_cast<HttpServer *>(self);
        if (what == MHD_CONNECTION_NOTIFY_STARTED) {
            server.greet(connection);
        } else {
            server.m_connections.remove(descriptorOf(connection));
        }
    }

    static void hearOfEnd(void *self, MHD_Connection *connection, void **state,
                          MHD_RequestTerminationCode /*how*/)
    {
        delete static_cast<IncomingRequest *>(*state);
        *state = nullptr;
        auto &server = *static_cast<HttpServer *>(self);
        server.m_connections.endRequest(descriptorOf(connection));
        setIdleTime(connection, server.m_connections.time());
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
    , m_refuser(RefusedRequest::plainAnswer)
    , m_certificate(certificate)
    , m_due(this)
    , m_care(this)
{
    setLimits(limits);
    const int socket = address.listen();
    m_port = ListenAddress::portOf(socket);
    follow(makeDaemon(socket, certificate));
    m_due.setSingleShot(true);
    connect(&m_due, &QTimer::timeout, this, &HttpServer::run);
    connect(&m_care, &QTimer::timeout, this, &HttpServer::care);
    m_care.start(std::chrono::seconds(1));
}

/// The socket goes with the daemon, also with one that does not start.
MHD_Daemon *HttpServer::makeDaemon(int socket, const Certificate &certificate)
{
    const unsigned int plain = MHD_USE_EPOLL | MHD_USE_ERROR_LOG | MHD_ALLOW_SUSPEND_RESUME;
    std::vector<MHD_OptionItem> tls;
    if (!certificate.isEmpty()) {
        tls = {{MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char *>(certificate.chain.constData())},
               {MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char *>(certificate.key.constData())}};
    }
    tls.push_back({MHD_OPTION_END, 0, nullptr});
    MHD_Daemon *daemon = MHD_start_daemon(
        certificate.isEmpty() ? plain : plain | MHD_USE_TLS, 0, nullptr, nullptr, Callbacks::handle,
        this, MHD_OPTION_EXTERNAL_LOGGER, Callbacks::ignoreMessage, this, MHD_OPTION_LISTEN_SOCKET,
        socket, MHD_OPTION_CONNECTION_LIMIT, mostConnections, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
        connectionBytes, MHD_OPTION_NOTIFY_CONNECTION, Callbacks::hearOfConnection, this,
        MHD_OPTION_NOTIFY_COMPLETED, Callbacks::hearOfEnd, this, MHD_OPTION_URI_LOG_CALLBACK,
        Callbacks::beginRequest, this, MHD_OPTION_ARRAY, tls.data(), MHD_OPTION_END);
    if (daemon == nullptr) {
        throw certificate.isEmpty()
            ? Refusal{ExitCode::Internal, QStringLiteral("the HTTP library does not start")}
            : Refusal{ExitCode::InputOutputFile,
                      QStringLiteral("%1: no certificate that the key goes with; both have to be "
                                     "PEM, and belong together")
                          .arg(certificate.name)};
    }
    return daemon;
}

void HttpServer::follow(MHD_Daemon *daemon)
{
    m_daemon = daemon;
    const int descriptor = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
    m_readable = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Read);
    connect(m_readable.get(), &QSocketNotifier::activated, this, &HttpServer::run);
}

void HttpServer::endDaemon()
{
    m_readable.reset();
    // The daemon does not end with suspended connections.
    wakeStreams();
    MHD_stop_daemon(m_daemon);
}

HttpServer::~HttpServer()
{
    endDaemon();
}

void HttpServer::setLimits(const Limits &limits)
{
    m_limits = limits;
    m_connections.setLimits(limits.connections, limits.time);
}

void HttpServer::setCertificate(const Certificate &certificate)
{
    if (certificate == m_certificate) {
        return;
    }
    // Both listen to the same socket for a moment: nobody else can take the address meanwhile, and the former one
    // stays if the other does not begin.
    const int listening = MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_LISTEN_FD)->listen_fd;
    const int socket = fcntl(listening, F_DUPFD_CLOEXEC, 0);
    if (socket < 0) {
        throw Refusal{
            ExitCode::NoAccess,
            QStringLiteral("no second descriptor for %1: %2; allow the program more open files")
                .arg(m_address.urlAuthority(m_port), qt_error_string(errno))};
    }
    MHD_Daemon *daemon = makeDaemon(socket, certificate);
    ::close(MHD_quiesce_daemon(m_daemon));
    endDaemon();
    follow(daemon);
    m_certificate = certificate;
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
    // The library tells of a request when its first line is there, which may be late.
    m_connections.noticeBeginnings();
    MHD_run(m_daemon);
    MHD_UNSIGNED_LONG_LONG bound = 0;
    if (MHD_get_timeout(m_daemon, &bound) == MHD_YES) {
        constexpr MHD_UNSIGNED_LONG_LONG longest = 60'000;
        m_due.start(static_cast<int>(std::min(bound, longest)));
    } else {
        m_due.stop();
    }
}

/// The library sees the end of those that are shut down, and closes them.
void HttpServer::care()
{
    m_connections.shutDownOldOnes();
    endDesertedStreams();
    // Where no descriptor was left the library stops to listen, and nothing tells it to begin again once all
    // connections have gone.
    run();
}

/// The library looks for the end of a connection neither while it is suspended nor while it cannot write to it.
void HttpServer::endDesertedStreams()
{
    for (Stream *stream : std::as_const(m_streams)) {
        pollfd look{descriptorOf(stream->connection), POLLRDHUP, 0};
        if (poll(&look, 1, 0) <= 0) {
            continue;
        }
        stream->isDeserted = true;
        if (stream->isSuspended) {
            wake(*stream);
        } else {
            ::shutdown(look.fd, SHUT_RDWR);
        }
    }
}

void HttpServer::greet(MHD_Connection *connection)
{
    const int descriptor = descriptorOf(connection);
    setIdleTime(connection, m_connections.time());
    if (m_connections.add(descriptor) != ConnectionTable::Place::Refused) {
        return;
    }
    if (m_certificate.isEmpty()) {
        const QByteArray text = RefusedRequest::crowdedText(m_refuser);
        ::send(descriptor, text.constData(), static_cast<std::size_t>(text.size()),
               MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    ::shutdown(descriptor, SHUT_RDWR);
}

/// 0, or another number if the connection is to be closed without a word.
int HttpServer::answer(MHD_Connection *connection, const HttpRequest &request)
{
    const bool isAdmitted = m_connections.admit(descriptorOf(connection));
    return send(connection,
                isAdmitted ? m_handler(request) : RefusedRequest::crowdedAnswer(m_refuser),
                request.method);
}

int HttpServer::send(MHD_Connection *connection, const HttpResponse &response,
                     const QByteArray &method)
{
    const bool isStream = response.nextPiece != nullptr && method != "HEAD";
    MHD_Response *made = isStream ? makeStream(connection, response) : makeWhole(response);
    if (made == nullptr) {
        return 1;
    }
    MHD_add_response_header(made, MHD_HTTP_HEADER_CONTENT_TYPE, response.contentType.constData());
    for (const auto &header : response.headers) {
        MHD_add_response_header(made, header.first.constData(), header.second.constData());
    }
    m_connections.beginAnswer(descriptorOf(connection));
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
    m_connections.allowAnyTime(descriptor);
    setIdleTime(connection, std::chrono::seconds(0));
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &streamBufferBytes, sizeof streamBufferBytes);
    return made;
}

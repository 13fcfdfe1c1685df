#include "http/HttpServer.h"

#include "service/Refusal.h"

#include <QSocketNotifier>

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include <microhttpd.h>
#include <sys/socket.h>

namespace {

/// Connections above the limit that are still told so; further ones are closed without a word.
constexpr int refusedAtOnce = 16;
/// What no limit goes beyond.
constexpr int mostConnections = 1000;
/// Of a request; larger ones are answered 431.
constexpr std::size_t headerBytes = 16 * 1024;
constexpr std::size_t pieceSize = 64 * 1024;

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

MHD_Response *makeResponse(const HttpResponse &response)
{
    auto body = std::make_unique<QByteArray>(response.body);
    const auto size = static_cast<uint64_t>(body->size());
    MHD_Response *made = MHD_create_response_from_callback(size, pieceSize, readBody, body.get(),
                                                           freeBody);
    if (made != nullptr) {
        // It belongs to the response now.
        [[maybe_unused]] const QByteArray *owned = body.release();
        MHD_add_response_header(made, MHD_HTTP_HEADER_CONTENT_TYPE,
                                response.contentType.constData());
        for (const auto &header : response.headers) {
            MHD_add_response_header(made, header.first.constData(), header.second.constData());
        }
    }
    return made;
}

int descriptorOf(MHD_Connection *connection)
{
    const MHD_ConnectionInfo *info = MHD_get_connection_info(connection,
                                                             MHD_CONNECTION_INFO_CONNECTION_FD);
    return info == nullptr ? -1 : info->connect_fd;
}

MHD_Result joinAccept(void *target, MHD_ValueKind, const char *key, const char *value)
{
    if (value != nullptr && qstricmp(key, MHD_HTTP_HEADER_ACCEPT) == 0) {
        auto &accept = *static_cast<QByteArray *>(target);
        accept += accept.isEmpty() ? "" : ",";
        accept += value;
    }
    return MHD_YES;
}

} // namespace

/// What the library calls, always on the thread of the server.
struct HttpServer::Callbacks
{
    static MHD_Result handle(void *self, MHD_Connection *connection, const char *url,
                             const char *method, const char * /*version*/,
                             const char * /*uploaded*/, size_t *uploadedSize, void **state)
    {
        static char seen;
        const bool isReading = qstrcmp(method, "GET") == 0 || qstrcmp(method, "HEAD") == 0;
        // An answer before the end of the request closes the connection, which is right for what brings
        // a body: nobody wants it. One that comes with a question is passed over.
        if (isReading && (*state == nullptr || *uploadedSize != 0)) {
            *state = &seen;
            *uploadedSize = 0;
            return MHD_YES;
        }
        HttpRequest request{method, url, {}};
        MHD_get_connection_values(connection, MHD_HEADER_KIND, joinAccept, &request.accept);
        return static_cast<HttpServer *>(self)->answer(connection, request) == 0 ? MHD_YES : MHD_NO;
    }

    static void hearOfConnection(void *self, MHD_Connection *connection, void ** /*context*/,
                                 MHD_ConnectionNotificationCode what)
    {
        auto &server = *static_cast<HttpServer *>(self);
        if (what == MHD_CONNECTION_NOTIFY_STARTED) {
            const int descriptor = descriptorOf(connection);
            server.m_deadlines.insert(descriptor, Clock::now() + server.m_limits.time);
            MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT,
                                      static_cast<unsigned int>(server.m_limits.time.count()));
            if (server.m_deadlines.size() > server.m_limits.connections + refusedAtOnce) {
                ::shutdown(descriptor, SHUT_RDWR);
            }
        } else {
            server.m_deadlines.remove(descriptorOf(connection));
        }
    }

    static void hearOfEnd(void *self, MHD_Connection *connection, void ** /*state*/,
                          MHD_RequestTerminationCode /*how*/)
    {
        auto &server = *static_cast<HttpServer *>(self);
        const auto deadline = server.m_deadlines.find(descriptorOf(connection));
        if (deadline != server.m_deadlines.end()) {
            // Silence, and then the next request.
            *deadline = Clock::now() + 2 * server.m_limits.time;
        }
    }

    static void ignoreMessage(void * /*self*/, const char * /*format*/, va_list /*arguments*/) { }
};

HttpServer::HttpServer(const ListenAddress &address, const Limits &limits, Handler handler,
                       QObject *parent)
    : QObject(parent)
    , m_address(address)
    , m_limits(limits)
    , m_handler(std::move(handler))
    , m_due(this)
    , m_care(this)
{
    const int socket = address.listen();
    m_port = ListenAddress::portOf(socket);
    m_daemon = MHD_start_daemon(
        MHD_USE_EPOLL | MHD_USE_ERROR_LOG, 0, nullptr, nullptr, Callbacks::handle, this,
        MHD_OPTION_EXTERNAL_LOGGER, Callbacks::ignoreMessage, this, MHD_OPTION_LISTEN_SOCKET,
        socket, MHD_OPTION_CONNECTION_LIMIT,
        static_cast<unsigned int>(mostConnections + 2 * refusedAtOnce),
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, headerBytes, MHD_OPTION_NOTIFY_CONNECTION,
        Callbacks::hearOfConnection, this, MHD_OPTION_NOTIFY_COMPLETED, Callbacks::hearOfEnd, this,
        MHD_OPTION_END);
    const MHD_DaemonInfo *info = m_daemon == nullptr
                                     ? nullptr
                                     : MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_EPOLL_FD);
    if (info == nullptr) {
        // The socket goes with the daemon, also with one that does not start.
        if (m_daemon != nullptr) {
            MHD_stop_daemon(m_daemon);
        }
        throw Refusal{ExitCode::Internal, QStringLiteral("the HTTP library does not start")};
    }
    m_readable = new QSocketNotifier(info->epoll_fd, QSocketNotifier::Read, this);
    connect(m_readable, &QSocketNotifier::activated, this, &HttpServer::run);
    m_due.setSingleShot(true);
    connect(&m_due, &QTimer::timeout, this, &HttpServer::run);
    connect(&m_care, &QTimer::timeout, this, &HttpServer::endSlowOnes);
    m_care.start(std::chrono::seconds(1));
}

HttpServer::~HttpServer()
{
    delete m_readable;
    m_readable = nullptr;
    MHD_stop_daemon(m_daemon);
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
}

/// 0, or another number if the connection is to be closed without a word.
int HttpServer::answer(MHD_Connection *connection, const HttpRequest &request)
{
    HttpResponse response;
    if (m_deadlines.size() > m_limits.connections) {
        response.status = 503;
        response.body = "too many connections\n";
        response.headers = {{"Connection", "close"}, {"Retry-After", "1"}};
    } else {
        response = m_handler(request);
    }
    MHD_Response *made = makeResponse(response);
    if (made == nullptr) {
        return 1;
    }
    const MHD_Result queued = MHD_queue_response(connection,
                                                 static_cast<unsigned int>(response.status), made);
    MHD_destroy_response(made);
    return queued == MHD_YES ? 0 : 1;
}

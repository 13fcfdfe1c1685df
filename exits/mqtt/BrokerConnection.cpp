#include "mqtt/BrokerConnection.h"

#include "service/Refusal.h"

#include <QElapsedTimer>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <vector>

#include <mosquitto.h>

namespace {

/// A broker that takes a connection, or a subscription, and says nothing is no broker.
constexpr qint64 longestHandshake = 10000;
/// Longer ones are for somebody else: no command has that many bytes.
constexpr int mostPayload = 256 * 1024;
/// Messages, and their bytes, that wait for the thread of the maker. Behind these the broker has to wait: whoever
/// can send commands must neither fill the memory nor keep the program from anything else.
constexpr int mostReceived = 16;
constexpr qint64 mostReceivedBytes = qint64{2} * mostPayload;
/// By which the library numbers what is on its way, with some room: twice the same would never count as sent.
constexpr int mostQueuedMessages = 60000;
/// How long the thread of a connection may sleep before it looks whether it is still wanted.
constexpr int loopInterval = 100;

void startLibrary()
{
    static const int started = mosquitto_lib_init();
    Q_UNUSED(started)
}

QString reasonOf(int code)
{
    return code == MOSQ_ERR_ERRNO ? qt_error_string(errno)
                                  : QString::fromUtf8(mosquitto_strerror(code));
}

const char *orNone(const QByteArray &text)
{
    return text.isEmpty() ? nullptr : text.constData();
}

} // namespace

/// What the two threads share. Lives until both have gone.
struct BrokerConnection::Core
{
    ~Core() { mosquitto_destroy(handle); }

    /// Calls @p action with the connection on its own thread, if it still lives by then.
    template <class Action>
    void tell(const Action &action)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (owner != nullptr) {
            BrokerConnection *const connection = owner;
            QMetaObject::invokeMethod(
                connection, [connection, action] { action(*connection); }, Qt::QueuedConnection);
        }
    }

    /// Gives the owner time to take what was received before.
    void waitForRoom()
    {
        std::unique_lock<std::mutex> lock(mutex);
        hasRoom.wait(lock, [this] {
            return isUnwanted || (received < mostReceived && receivedBytes < mostReceivedBytes);
        });
    }
    void countReceived(int messages, qint64 bytes)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        received += messages;
        receivedBytes += bytes;
        hasRoom.notify_all();
    }

    mosquitto *handle = nullptr;
    BrokerAccess access;
    std::mutex mutex; ///< of the owner, and of what waits for it
    std::condition_variable hasRoom;
    BrokerConnection *owner = nullptr;
    int received = 0;
    qint64 receivedBytes = 0;
    std::atomic<bool> isUnwanted{false};
    std::atomic<bool> hasEnded{false};
    // Of the thread of the connection.
    bool isAnswered = false;
    QString refusal;
};

/// Called on the thread of the connection.
struct BrokerCallbacks
{
    using Core = BrokerConnection::Core;

    static void onConnect(mosquitto *, void *data, int code)
    {
        auto *const core = static_cast<Core *>(data);
        if (code == 0) {
            core->tell([](BrokerConnection &connection) {
                connection.m_isConnected = true;
                Q_EMIT connection.connected();
            });
        } else {
            core->refusal = QString::fromUtf8(mosquitto_connack_string(code));
            core->isUnwanted = true;
        }
    }
    static void onMessage(mosquitto *, void *data, const mosquitto_message *message)
    {
        if (message->payloadlen > mostPayload) {
            return;
        }
        auto *const core = static_cast<Core *>(data);
        const QString topic = QString::fromUtf8(message->topic);
        const QByteArray payload(static_cast<const char *>(message->payload), message->payloadlen);
        core->waitForRoom();
        core->countReceived(1, payload.size());
        core->tell([topic, payload](BrokerConnection &connection) {
            connection.m_core->countReceived(-1, -qint64{payload.size()});
            Q_EMIT connection.received(topic, payload);
        });
    }
    static void onPublish(mosquitto *, void *data, int number)
    {
        static_cast<Core *>(data)->tell(
            [number](BrokerConnection &connection) { connection.markSent(number); });
    }
    static void onSubscribe(mosquitto *, void *data, int, int count, const int *granted)
    {
        constexpr int refused = 0x80;
        static_cast<Core *>(data)->isAnswered = true;
        bool isGranted = true;
        for (int i = 0; i < count; ++i) {
            isGranted = isGranted && granted[i] < refused;
        }
        static_cast<Core *>(data)->tell(
            [isGranted](BrokerConnection &connection) { Q_EMIT connection.subscribed(isGranted); });
    }
};

namespace {

void setUp(mosquitto *handle, const BrokerAccess &access, const BrokerMessage &will)
{
    const auto check = [](int code, const QString &what) {
        if (code != MOSQ_ERR_SUCCESS) {
            throw Refusal{ExitCode::InputOutputFile,
                          QStringLiteral("%1: %2").arg(what, reasonOf(code))};
        }
    };
    mosquitto_threaded_set(handle, true);
    check(mosquitto_will_set(handle, will.topic.toUtf8().constData(), will.payload.size(),
                             will.payload.constData(), will.qos, false),
          QStringLiteral("the will of the session"));
    if (!access.user.isEmpty()) {
        check(mosquitto_username_pw_set(handle, access.user.toUtf8().constData(),
                                        orNone(access.password.toUtf8())),
              QStringLiteral("user and password"));
    }
    if (!access.caFile.isEmpty()) {
        check(mosquitto_tls_set(handle, access.caFile.toLocal8Bit().constData(), nullptr,
                                orNone(access.certFile.toLocal8Bit()),
                                orNone(access.keyFile.toLocal8Bit()), nullptr),
              QStringLiteral("%1 and the files beside it").arg(access.caFile));
    }
    mosquitto_connect_callback_set(handle, BrokerCallbacks::onConnect);
    mosquitto_message_callback_set(handle, BrokerCallbacks::onMessage);
    mosquitto_publish_callback_set(handle, BrokerCallbacks::onPublish);
    mosquitto_subscribe_callback_set(handle, BrokerCallbacks::onSubscribe);
}

/// The signals of the program are for its event loop.
class BlockedSignals
{
public:
    BlockedSignals()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_former);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &m_former, nullptr); }

    BlockedSignals(const BlockedSignals &) = delete;
    BlockedSignals &operator=(const BlockedSignals &) = delete;

private:
    sigset_t m_former;
};

} // namespace

BrokerConnection::BrokerConnection(const BrokerAccess &access, const BrokerMessage &will,
                                   QObject *parent)
    : QObject(parent)
    , m_core(std::make_shared<Core>())
{
    startLibrary();
    m_core->access = access;
    m_core->owner = this;
    m_core->handle = mosquitto_new(access.clientId.toUtf8().constData(), true, m_core.get());
    if (m_core->handle == nullptr) {
        throw Refusal{ExitCode::Internal,
                      QStringLiteral("no MQTT client: %1").arg(qt_error_string(errno))};
    }
    setUp(m_core->handle, access, will);
    const BlockedSignals blocked;
    m_thread = std::thread([core = m_core] { run(core); });
}

BrokerConnection::~BrokerConnection()
{
    {
        const std::lock_guard<std::mutex> lock(m_core->mutex);
        m_core->owner = nullptr;
        m_core->isUnwanted = true;
    }
    m_core->hasRoom.notify_all();
    // One that waits for a name or for a machine that does not answer cannot be called back, and has
    // nothing to lose.
    if (m_isConnected || m_core->hasEnded) {
        m_thread.join();
    } else {
        m_thread.detach();
    }
}

bool BrokerConnection::publish(const BrokerMessage &message, qint64 mostQueued)
{
    const qint64 size = message.topic.size() + message.payload.size();
    const bool isFull = m_queued.size() >= mostQueuedMessages
                        || (m_queuedBytes > 0 && m_queuedBytes + size > mostQueued);
    if (!m_isConnected || isFull) {
        return false;
    }
    int number = 0;
    const int code = mosquitto_publish(m_core->handle, &number, message.topic.toUtf8().constData(),
                                       message.payload.size(), message.payload.constData(),
                                       message.qos, false);
    if (code != MOSQ_ERR_SUCCESS) {
        return false;
    }
    m_queued.insert(number, size);
    m_queuedBytes += size;
    return true;
}

void BrokerConnection::subscribe(const QStringList &topics)
{
    std::vector<QByteArray> names;
    std::vector<char *> pointers;
    names.reserve(static_cast<std::size_t>(topics.size()));
    for (const auto &topic : topics) {
        names.push_back(topic.toUtf8());
        pointers.push_back(names.back().data());
    }
    mosquitto_subscribe_multiple(m_core->handle, nullptr, static_cast<int>(pointers.size()),
                                 pointers.data(), 1, 0, nullptr);
}

void BrokerConnection::disconnectInOrder()
{
    mosquitto_disconnect(m_core->handle);
}

void BrokerConnection::run(const std::shared_ptr<Core> &core)
{
    const BrokerAccess &access = core->access;
    int code = mosquitto_connect(core->handle, access.host.toUtf8().constData(), access.port,
                                 access.keepAlive);
    const bool wasSent = code == MOSQ_ERR_SUCCESS;
    QString reason = wasSent ? QString() : reasonOf(code);
    QElapsedTimer sinceSent;
    sinceSent.start();
    while (code == MOSQ_ERR_SUCCESS && !core->isUnwanted) {
        code = mosquitto_loop(core->handle, loopInterval, 1);
        if (code != MOSQ_ERR_SUCCESS) {
            reason = reasonOf(code);
        } else if (!core->isAnswered && sinceSent.hasExpired(longestHandshake)) {
            reason = QStringLiteral("it does not answer");
            break;
        }
    }
    if (!core->refusal.isEmpty()) {
        reason = core->refusal;
    }
    core->hasEnded = true;
    core->tell([reason, wasSent](BrokerConnection &connection) {
        connection.m_isConnected = false;
        Q_EMIT connection.ended(reason, wasSent);
    });
}

void BrokerConnection::markSent(int message)
{
    m_queuedBytes -= m_queued.take(message);
    Q_EMIT sent();
}

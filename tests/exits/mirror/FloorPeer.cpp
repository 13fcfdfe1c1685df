// What the same bytes take on the way without a mirror:
//   udp-echo ADDRESS                       says its port, and sends back what comes
//   udp-ping ADDRESS PORT SIZE RATE SECONDS
//   mqtt-publish ADDRESS PORT SIZE RATE SECONDS
//   mqtt-subscribe ADDRESS PORT SECONDS    says "ready"
// All but the first end with a line of JSON, of nanoseconds by the clock of the machine, which both ends have.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <mosquitto.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t mostInDatagram = 60000;
constexpr char topic[] = "set";

std::int64_t now()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
        .count();
}

[[noreturn]] void fail(const char *what)
{
    std::perror(what);
    std::exit(EXIT_FAILURE);
}

long long part(std::vector<std::int64_t> times, std::size_t percent)
{
    std::sort(times.begin(), times.end());
    return times.empty() ? -1 : times[(times.size() - 1) * percent / 100];
}

void ready(const std::string &word)
{
    std::puts(word.c_str());
    std::fflush(stdout);
}

/// Calls @p tick at the times of the rate.
template <class Tick>
void pace(double rate, double seconds, Tick tick)
{
    const std::chrono::duration<double> period(1 / rate);
    const auto begin = Clock::now();
    for (int i = 0; i < static_cast<int>(rate * seconds); ++i) {
        std::this_thread::sleep_until(begin
                                      + std::chrono::duration_cast<Clock::duration>(i * period));
        tick();
    }
}

/// In front of each datagram.
struct Head
{
    std::uint64_t number;  ///< of the message
    std::uint64_t size;    ///< of all its datagrams
    std::int64_t sent;     ///< when the first of them was
    std::int64_t received; ///< when the last of them was; 0 on the way there
};

class UdpSocket
{
public:
    explicit UdpSocket(const char *address) : m_socket(::socket(AF_INET, SOCK_DGRAM, 0))
    {
        sockaddr_in own{};
        own.sin_family = AF_INET;
        own.sin_addr.s_addr = ::inet_addr(address);
        const int room = 4 << 20;
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        const timeval longest = {1, 0};
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof longest);
        if (m_socket < 0 || ::bind(m_socket, reinterpret_cast<sockaddr *>(&own), sizeof own) != 0) {
            fail(address);
        }
    }
    ~UdpSocket() { ::close(m_socket); }
    UdpSocket(const UdpSocket &) = delete;
    UdpSocket &operator=(const UdpSocket &) = delete;

    int port() const
    {
        sockaddr_in own{};
        socklen_t size = sizeof own;
        ::getsockname(m_socket, reinterpret_cast<sockaddr *>(&own), &size);
        return ntohs(own.sin_port);
    }
    void setPeer(const char *address, int port)
    {
        m_peer.sin_family = AF_INET;
        m_peer.sin_addr.s_addr = ::inet_addr(address);
        m_peer.sin_port = htons(static_cast<std::uint16_t>(port));
    }
    void send(const Head &head)
    {
        for (std::size_t left = head.size; left > 0;) {
            const std::size_t size = std::min(std::max(left, sizeof head), mostInDatagram);
            std::memcpy(m_bytes.data(), &head, sizeof head);
            if (::sendto(m_socket, m_bytes.data(), size, 0, reinterpret_cast<sockaddr *>(&m_peer),
                         sizeof m_peer)
                < 0) {
                fail("sendto");
            }
            left -= std::min(left, size);
        }
    }
    /// A whole message; false if none came in a second.
    bool receive(Head &head)
    {
        std::uint64_t number = 0;
        std::size_t taken = 0;
        do {
            socklen_t size = sizeof m_peer;
            const ssize_t read = ::recvfrom(m_socket, m_bytes.data(), m_bytes.size(), 0,
                                            reinterpret_cast<sockaddr *>(&m_peer), &size);
            if (read < static_cast<ssize_t>(sizeof head)) {
                return false;
            }
            std::memcpy(&head, m_bytes.data(), sizeof head);
            taken = head.number == number ? taken + static_cast<std::size_t>(read)
                                          : static_cast<std::size_t>(read);
            number = head.number;
        } while (taken < head.size);
        return true;
    }

private:
    int m_socket;
    sockaddr_in m_peer{};
    std::vector<char> m_bytes = std::vector<char>(1 << 16);
};

int udpEcho(const char *address)
{
    UdpSocket socket(address);
    ready(std::to_string(socket.port()));
    for (;;) {
        Head head{};
        if (socket.receive(head)) {
            head.received = now();
            socket.send(head);
        }
    }
}

int udpPing(const char *address, int port, std::size_t size, double rate, double seconds)
{
    UdpSocket socket("0.0.0.0");
    socket.setPeer(address, port);
    std::vector<std::int64_t> ways;
    std::vector<std::int64_t> rounds;
    std::uint64_t number = 0;
    std::uint64_t lost = 0;
    pace(rate, seconds, [&] {
        Head head{++number, size, now(), 0};
        socket.send(head);
        const std::uint64_t sent = head.number;
        bool isBack = false;
        while (!isBack && socket.receive(head)) {
            isBack = head.number == sent;
        }
        lost += isBack ? 0 : 1;
        if (isBack) {
            rounds.push_back(now() - head.sent);
            ways.push_back(head.received - head.sent);
        }
    });
    std::printf("{\"count\": %zu, \"lost\": %llu, \"median\": %lld, \"ninetyNine\": %lld, "
                "\"roundMedian\": %lld}\n",
                ways.size(), static_cast<unsigned long long>(lost), part(ways, 50), part(ways, 99),
                part(rounds, 50));
    return EXIT_SUCCESS;
}

mosquitto *connected(const char *address, int port, void *data)
{
    mosquitto_lib_init();
    mosquitto *const client = mosquitto_new(nullptr, true, data);
    mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
    if (mosquitto_connect(client, address, port, 60) != MOSQ_ERR_SUCCESS) {
        fail("mosquitto_connect");
    }
    return client;
}

int mqttPublish(const char *address, int port, std::size_t size, double rate, double seconds)
{
    mosquitto *const client = connected(address, port, nullptr);
    mosquitto_loop_start(client);
    std::vector<char> bytes(std::max(size, sizeof(std::int64_t)));
    int failed = 0;
    pace(rate, seconds, [&] {
        const std::int64_t time = now();
        std::memcpy(bytes.data(), &time, sizeof time);
        failed += mosquitto_publish(client, nullptr, topic, static_cast<int>(bytes.size()),
                                    bytes.data(), 0, false)
                          == MOSQ_ERR_SUCCESS
                      ? 0
                      : 1;
    });
    mosquitto_disconnect(client);
    mosquitto_loop_stop(client, false);
    mosquitto_destroy(client);
    std::printf("{\"failed\": %d}\n", failed);
    return EXIT_SUCCESS;
}

void takeMessage(mosquitto *, void *data, const mosquitto_message *message)
{
    std::int64_t time = 0;
    if (message->payloadlen >= static_cast<int>(sizeof time)) {
        std::memcpy(&time, message->payload, sizeof time);
        static_cast<std::vector<std::int64_t> *>(data)->push_back(now() - time);
    }
}

int mqttSubscribe(const char *address, int port, double seconds)
{
    std::vector<std::int64_t> ways;
    mosquitto *const client = connected(address, port, &ways);
    mosquitto_message_callback_set(client, takeMessage);
    mosquitto_subscribe_callback_set(
        client, [](mosquitto *, void *, int, int, const int *) { ready("ready"); });
    mosquitto_subscribe(client, nullptr, topic, 0);
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (Clock::now() < end && mosquitto_loop(client, 100, 1) == MOSQ_ERR_SUCCESS) { }
    mosquitto_destroy(client);
    std::printf("{\"count\": %zu, \"median\": %lld, \"ninetyNine\": %lld}\n", ways.size(),
                part(ways, 50), part(ways, 99));
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char *argv[])
{
    const std::string role = argc > 2 ? argv[1] : "";
    const auto number = [&](int index) { return std::atof(argv[index]); };
    if (role == "udp-echo" && argc == 3) {
        return udpEcho(argv[2]);
    }
    if (role == "mqtt-subscribe" && argc == 5) {
        return mqttSubscribe(argv[2], std::atoi(argv[3]), number(4));
    }
    if ((role == "udp-ping" || role == "mqtt-publish") && argc == 7) {
        const auto size = static_cast<std::size_t>(std::atoi(argv[4]));
        return (role == "udp-ping" ? udpPing : mqttPublish)(argv[2], std::atoi(argv[3]), size,
                                                            number(5), number(6));
    }
    return EXIT_FAILURE;
}

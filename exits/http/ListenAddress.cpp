#include "http/ListenAddress.h"

#include "service/Refusal.h"

#include <QByteArray>

#include <cerrno>
#include <cstring>
#include <memory>

#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>

namespace {

constexpr int waitingConnections = 64;

struct FreeAddresses
{
    void operator()(addrinfo *addresses) const { freeaddrinfo(addresses); }
};

QString cureOf(int error)
{
    switch (error) {
    case EADDRINUSE: return QStringLiteral("another program listens there; choose another port");
    case EACCES: return QStringLiteral("ports below 1024 are for root; choose a higher one");
    case EADDRNOTAVAIL: return QStringLiteral("this machine has no such address; see 'ip address'");
    default: return QStringLiteral("choose another address");
    }
}

/// Listens, or leaves errno.
int listenOn(const addrinfo &address)
{
    const int socket = ::socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0) {
        return -1;
    }
    const int on = 1;
    // A program that was started again does not wait for connections of the former one.
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const bool isAny = address.ai_family == AF_INET6 && (address.ai_flags & AI_PASSIVE) != 0;
    const int only = isAny ? 0 : 1;
    if (address.ai_family == AF_INET6) {
        setsockopt(socket, IPPROTO_IPV6, IPV6_V6ONLY, &only, sizeof only);
    }
    if (bind(socket, address.ai_addr, address.ai_addrlen) == 0
        && ::listen(socket, waitingConnections) == 0) {
        return socket;
    }
    const int error = errno;
    ::close(socket);
    errno = error;
    return -1;
}

bool isLoopbackAddress(const sockaddr &address)
{
    constexpr quint32 net = 127;
    if (address.sa_family == AF_INET) {
        const auto &four = reinterpret_cast<const sockaddr_in &>(address);
        return ntohl(four.sin_addr.s_addr) >> 24U == net;
    }
    const auto &six = reinterpret_cast<const sockaddr_in6 &>(address).sin6_addr;
    return address.sa_family == AF_INET6
           && (std::memcmp(&six, &in6addr_loopback, sizeof six) == 0
               || (IN6_IS_ADDR_V4MAPPED(&six) && six.s6_addr[12] == net));
}

} // namespace

ListenAddress ListenAddress::fromText(const QString &text)
{
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    QString host = text.left(std::max(colon, 0));
    const bool isBracketed = host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']'));
    bool isPort = false;
    const quint16 port = text.midRef(colon + 1).toUShort(&isPort);
    if (colon < 0 || !isPort || (host.contains(QLatin1Char(':')) && !isBracketed)
        || host == QLatin1String("[]")) {
        throw Refusal{ExitCode::WrongUse,
                      QStringLiteral("'%1' is no ADDRESS:PORT; write 127.0.0.1:9200, [::1]:9200 or "
                                     ":9200")
                          .arg(text)};
    }
    ListenAddress address;
    address.m_host = isBracketed ? host.mid(1, host.size() - 2) : host;
    address.m_port = port;
    return address;
}

int ListenAddress::listen() const
{
    addrinfo wanted{};
    wanted.ai_family = AF_UNSPEC;
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_flags = AI_NUMERICSERV | (m_host.isEmpty() ? AI_PASSIVE : 0);
    addrinfo *found = nullptr;
    const QByteArray host = m_host.toUtf8();
    const int problem = getaddrinfo(host.isEmpty() ? nullptr : host.constData(),
                                    QByteArray::number(m_port).constData(), &wanted, &found);
    if (problem != 0) {
        throw Refusal{
            ExitCode::NoAccess,
            QStringLiteral("cannot listen on %1: %2; name an address of this machine")
                .arg(urlAuthority(m_port), QString::fromLocal8Bit(gai_strerror(problem)))};
    }
    const std::unique_ptr<addrinfo, FreeAddresses> addresses(found);
    // All addresses at once are those of IPv6, where the kernel has it.
    for (const int family : {m_host.isEmpty() ? AF_INET6 : AF_UNSPEC, AF_UNSPEC}) {
        for (addrinfo *one = found; one != nullptr; one = one->ai_next) {
            one->ai_flags = wanted.ai_flags;
            const int socket = family == AF_UNSPEC || one->ai_family == family ? listenOn(*one)
                                                                               : -1;
            if (socket >= 0) {
                return socket;
            }
        }
    }
    const int error = errno;
    throw Refusal{ExitCode::NoAccess,
                  QStringLiteral("cannot listen on %1: %2; %3")
                      .arg(urlAuthority(m_port), qt_error_string(error), cureOf(error))};
}

bool ListenAddress::isLoopback() const
{
    if (m_host.isEmpty()) {
        return false;
    }
    addrinfo wanted{};
    wanted.ai_family = AF_UNSPEC;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(m_host.toUtf8().constData(), nullptr, &wanted, &found) != 0) {
        return false;
    }
    const std::unique_ptr<addrinfo, FreeAddresses> addresses(found);
    for (const addrinfo *one = found; one != nullptr; one = one->ai_next) {
        if (!isLoopbackAddress(*one->ai_addr)) {
            return false;
        }
    }
    return true;
}

quint16 ListenAddress::portOf(int socket)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        return 0;
    }
    return ntohs(address.ss_family == AF_INET6
                     ? reinterpret_cast<const sockaddr_in6 &>(address).sin6_port
                     : reinterpret_cast<const sockaddr_in &>(address).sin_port);
}

QString ListenAddress::urlAuthority(quint16 port) const
{
    const QString host = m_host.contains(QLatin1Char(':'))
                             ? QLatin1Char('[') + m_host + QLatin1Char(']')
                         : m_host.isEmpty() ? QStringLiteral("[::]")
                                            : m_host;
    return QStringLiteral("%1:%2").arg(host, QString::number(port));
}

#include "http/PeerAddress.h"

#include <array>

#include <microhttpd.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

QByteArray peerAddressOf(MHD_Connection *connection)
{
    const MHD_ConnectionInfo *info = MHD_get_connection_info(connection,
                                                             MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    if (info == nullptr || info->client_addr == nullptr) {
        return {};
    }
    const bool isSix = info->client_addr->sa_family == AF_INET6;
    std::array<char, NI_MAXHOST> text{};
    const int error = getnameinfo(info->client_addr,
                                  isSix ? sizeof(sockaddr_in6) : sizeof(sockaddr_in), text.data(),
                                  text.size(), nullptr, 0, NI_NUMERICHOST);
    return error == 0 ? QByteArray(text.data()) : QByteArray();
}

#pragma once

#include "mirror/MirrorDomain.h"

#include <QByteArray>

#include <cstddef>
#include <cstring>
#include <memory>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// A domain over the loopback that no other test has while this one goes on: mirrors.py asks for the same names.
class OwnDomain
{
public:
    OwnDomain()
    {
        DomainSettings settings;
        settings.domain = takeNumber();
        settings.interfaces = QStringList{QStringLiteral("lo")};
        m_domain = std::make_unique<MirrorDomain>(settings);
    }
    ~OwnDomain()
    {
        m_domain.reset();
        // Goes with the socket, however this process ends.
        ::close(m_socket);
    }
    Q_DISABLE_COPY(OwnDomain)

    const MirrorDomain &domain() const { return *m_domain; }

private:
    quint32 takeNumber()
    {
        for (quint32 number = 1; number < 200; ++number) {
            m_socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            const QByteArray name = "tessel-mirror-test-" + QByteArray::number(number);
            const auto length = static_cast<std::size_t>(name.size());
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            std::memcpy(address.sun_path + 1, name.constData(), length);
            const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
            if (::bind(m_socket, reinterpret_cast<const sockaddr *>(&address), size) == 0) {
                return number;
            }
            ::close(m_socket);
        }
        qFatal("no domain is free");
    }

    int m_socket = -1;
    std::unique_ptr<MirrorDomain> m_domain;
};

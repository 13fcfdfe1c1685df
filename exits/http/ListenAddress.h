#pragma once

#include <QString>
#include <QVector>

#include <sys/socket.h>

/// Where a program listens, as a person writes it: `127.0.0.1:9200`, `[::1]:9200`, `localhost:9200`, or
/// `:9200` for all addresses of the machine. Port 0 lets the system choose.
class ListenAddress
{
public:
    /// Throws a Refusal that shows the form. Names are looked up by listen() only.
    static ListenAddress fromText(const QString &text);

    /// A socket that listens, not inherited and not blocking; the caller closes it. Throws a Refusal with the
    /// address, the reason and what to do.
    int listen() const;
    /// The port of a socket that listens.
    static quint16 portOf(int socket);
    /// Whether nobody but this machine can reach it. A name is looked up; one that leads nowhere is none.
    bool isLoopback() const;
    /// As it was written, without brackets; empty for all addresses of the machine.
    const QString &host() const { return m_host; }
    quint16 port() const { return m_port; }
    /// The same address with the port that was chosen, fit for a URL.
    QString urlAuthority(quint16 port) const;

    bool operator==(const ListenAddress &other) const
    {
        return m_host == other.m_host && m_port == other.m_port;
    }

private:
    QString m_host; ///< empty: all addresses
    quint16 m_port = 0;
};

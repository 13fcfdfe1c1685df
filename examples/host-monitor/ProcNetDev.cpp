#include "ProcNetDev.h"

#include <QList>

namespace {

constexpr int receivedBytesField = 0;
constexpr int receiveErrorsField = 2;
constexpr int sentBytesField = 8;
constexpr int sendErrorsField = 10;

} // namespace

ProcNetDev ProcNetDev::parse(const QByteArray &text)
{
    ProcNetDev netDev;
    const auto lines = text.split('\n');
    for (const auto &line : lines) {
        // "  eth0: 35653121 1036 ..."; the first number may follow the colon at once.
        const int colon = line.lastIndexOf(':');
        const QByteArray name = line.left(colon).trimmed();
        const auto fields = line.mid(colon + 1).simplified().split(' ');
        if (colon < 0 || fields.size() <= sendErrorsField || name == "lo") {
            continue;
        }
        netDev.interfaces.append(
            {QString::fromUtf8(name), fields[receivedBytesField].toULongLong(),
             fields[sentBytesField].toULongLong(),
             fields[receiveErrorsField].toULongLong() + fields[sendErrorsField].toULongLong()});
    }
    return netDev;
}

quint64 ProcNetDev::receivedBytes() const
{
    quint64 sum = 0;
    for (const auto &interface : interfaces) {
        sum += interface.receivedBytes;
    }
    return sum;
}

quint64 ProcNetDev::sentBytes() const
{
    quint64 sum = 0;
    for (const auto &interface : interfaces) {
        sum += interface.sentBytes;
    }
    return sum;
}

quint64 ProcNetDev::errors() const
{
    quint64 sum = 0;
    for (const auto &interface : interfaces) {
        sum += interface.errors;
    }
    return sum;
}

QString ProcNetDev::busiest() const
{
    QString name;
    quint64 most = 0;
    for (const auto &interface : interfaces) {
        const quint64 traffic = interface.receivedBytes + interface.sentBytes;
        if (name.isEmpty() || traffic > most) {
            name = interface.name;
            most = traffic;
        }
    }
    return name;
}

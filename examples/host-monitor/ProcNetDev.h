#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

/// What /proc/net/dev tells of the interfaces that lead out of the machine.
struct ProcNetDev
{
    struct Interface
    {
        QString name;
        quint64 receivedBytes;
        quint64 sentBytes;
        quint64 errors;
    };

    QVector<Interface> interfaces;

    static ProcNetDev parse(const QByteArray &text);

    quint64 receivedBytes() const;
    quint64 sentBytes() const;
    quint64 errors() const;
    /// The name of the interface with the most traffic; empty without one.
    QString busiest() const;
};

#pragma once

#include "ProcessData/ProcessValue.h"

#include <QProcess>
#include <QString>
#include <QVariant>

/// A second process on the same memory, driven by commands that it answers one by one.
class ExchangePeer
{
public:
    /// Starts the process and waits until it has attached.
    explicit ExchangePeer(const QString &descriptionFile);
    ~ExchangePeer();

    bool isReady() const { return m_isReady; }
    bool write(const QString &url, const ProcessValue &value);
    ProcessValue read(const QString &url);
    bool swap();
    /// Takes the write lock, writes one value inside it and stays there.
    bool stayInsideWriteLock(const QString &url, const ProcessValue &value);
    void kill();
    /// Ends the process properly. True if it ended by itself and without an error.
    bool quit();

private:
    QVariantMap command(const QVariantMap &request);

    QProcess m_process;
    bool m_isReady = false;
};

#pragma once

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>
#include <thread>

/// A broker and how it is spoken to.
struct BrokerAccess
{
    QString host;
    int port = 1883;
    QString clientId;
    int keepAlive = 30; ///< seconds
    // Empty: without.
    QString caFile;
    QString certFile;
    QString keyFile;
    QString user;
    QString password;
};

struct BrokerMessage
{
    QString topic;
    QByteArray payload;
    int qos = 0;
};

/// One MQTT connection from its CONNECT to its end. Whoever wants another one makes another object: so no
/// CONNECT is ever made with the will of an earlier one, and nothing that an earlier one left unsent comes
/// up again.
///
/// A thread of its own talks to the broker. Everything else, the signals too, belongs to the thread of the
/// maker. Clean session, MQTT 3.1.1.
class BrokerConnection : public QObject
{
    Q_OBJECT

public:
    /// Begins to connect. Throws a Refusal for an access that no connection can be made with.
    BrokerConnection(const BrokerAccess &access, const BrokerMessage &will,
                     QObject *parent = nullptr);
    /// A connection that stands is cut, so that the broker sends the will.
    ~BrokerConnection() override;

    /// False if there is no connection, or more than @p mostQueued bytes, or 60,000 messages, wait to be sent with it.
    bool publish(const BrokerMessage &message, qint64 mostQueued);
    /// With QoS 1, all at once; subscribed() answers, or the connection ends.
    void subscribe(const QStringList &topics);
    /// DISCONNECT; the broker throws the will away.
    void disconnectInOrder();
    /// Bytes that wait to be sent.
    qint64 queuedBytes() const { return m_queuedBytes; }

Q_SIGNALS:
    void connected();
    void subscribed(bool isGranted);
    void received(const QString &topic, const QByteArray &payload);
    /// A message was sent; one with QoS 1 has been acknowledged.
    void sent();
    /// Nothing comes any more. @p wasSent: whether a CONNECT went out.
    void ended(const QString &reason, bool wasSent);

private:
    struct Core;
    friend struct BrokerCallbacks;

    static void run(const std::shared_ptr<Core> &core);
    void markSent(int message);

    std::shared_ptr<Core> m_core;
    std::thread m_thread;
    QHash<int, qint64> m_queued;
    qint64 m_queuedBytes = 0;
    bool m_isConnected = false;
};

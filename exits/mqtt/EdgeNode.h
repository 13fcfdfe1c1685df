#pragma once

#include "mqtt/Backoff.h"
#include "mqtt/BirthCounter.h"
#include "mqtt/Commands.h"
#include "mqtt/HistoryRing.h"
#include "mqtt/HostState.h"
#include "mqtt/NodeValues.h"

#include <QElapsedTimer>

#include <memory>

/// An edge node of Sparkplug B 3.0: its sessions with brokers, one after the other, from birth to death.
///
/// While there is none, what is news goes into the ring, and out of it once the next births are told.
class EdgeNode : public QObject
{
    Q_OBJECT

public:
    /// All have to live longer. Nothing is done before start().
    EdgeNode(RegionFollower &follower, const NodeSettings &settings, BirthCounter &counter,
             HistoryRing &history, QObject *parent = nullptr);
    ~EdgeNode() override;

    void start();
    /// Tells the death of the node and takes leave of the broker; finished() comes within half a second,
    /// whatever the broker does.
    void finish();

Q_SIGNALS:
    void finished();
    /// In one line, for a person.
    void statusChanged(const QString &status);

private:
    enum class Stage {
        Away,     ///< no connection, or one that does not stand yet
        Waiting,  ///< subscribed, for the primary host
        Born,     ///< births told, data flow
        Leaving,  ///< death told, to be followed by a new session
        Finishing ///< death told, to be followed by nothing
    };

    void connectToBroker();
    void handleConnected();
    void handleSubscribed(bool isGranted);
    void handleEnded(const QString &reason, bool wasSent);
    void handleMessage(const QString &name, const QByteArray &bytes);
    void handleSent();
    void handleHost(HostState::Change change);
    void handleNodeCommand(const Payload &payload);

    void giveBirth();
    void giveBirthAgain();
    void giveBirthToDevices();
    void tellDevicesDead();
    void leave(Stage next);
    void report();
    void keep(const QString &device, const Payload &news);
    void sendHistory();
    void handleUp(bool isUp);

    QString topic(const char *type, const QString &device = {}) const;
    Metric sessionMetric() const;
    /// With the next number of the sequence. False if it could not be queued.
    bool publish(const char *type, const QString &device, Payload payload, qint64 mostQueued);
    const BrokerAccess &broker() const { return m_settings.brokers[m_broker]; }
    QString brokerName() const;
    void tellStatus(const QString &status);

    RegionFollower &m_follower;
    const NodeSettings &m_settings;
    BirthCounter &m_counter;
    HistoryRing &m_history;
    NodeValues m_values;
    Commands m_commands;
    HostState m_host;
    Backoff m_backoff;
    Stage m_stage = Stage::Away;
    std::unique_ptr<BrokerConnection> m_connection;
    int m_broker = 0; ///< of the settings
    int m_session = 0;
    int m_sequence = 0;
    QStringList m_bornDevices;
    bool m_isFirstSet = true;
    bool m_isRebirthDue = false;
    bool m_isHeldBack = false; ///< news found no room on the way to the broker
    QElapsedTimer m_sinceBirth;
    QTimer m_reconnect;
    QTimer m_later; ///< for news that have to wait
    QTimer m_rebirth;
    QTimer m_leaving;
    QString m_toldReason;
};

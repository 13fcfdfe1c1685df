#pragma once

#include "mirror/MirrorDomain.h"
#include "mirror/MirroredRegion.h"
#include "mirror/RequestQueue.h"
#include "mirror/SampleSignal.h"
#include "service/BoundedLog.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

class ProcessDataNotifier;
struct tessel_mirror_WriteAnswer;

/// Asks the source of a mirror for what local programs write into it, and shows its values again where it
/// refuses. Belongs to the thread and the event loop of its maker.
class WriteForwarder : public QObject
{
    Q_OBJECT

public:
    /// Both have to live longer. @p own: identity of the mirror. Only leaves that @p commands leads to are asked
    /// for. Throws a Refusal.
    WriteForwarder(const MirrorDomain &domain, MirroredRegion &region, const QByteArray &own,
                   UrlChoice commands);
    ~WriteForwarder() override;

    /// What is asked from now on. @p name: for messages.
    void setSource(const QByteArray &identity, const QString &name);
    /// A sign of the source, at @p timeStamp by its clock.
    void noteSign(qint64 timeStamp);
    /// Nobody can be asked any more, nor answer.
    void loseSource();
    /// Takes on what the region has found.
    void takeFound();

private:
    void takeOn(const QVector<RequestedValue> &written);
    QString problemOf(const QVector<RequestedValue> &values) const;
    void proceed();
    void send(const RequestQueue::Request &request);
    void takeAnswers();
    void take(const tessel_mirror_WriteAnswer &sample);
    void tellUnanswered(const RequestQueue::Request &request, const QString &until,
                        const QString &meaning);
    /// Whether there is anybody who takes requests.
    bool isHeard() const;
    void tellUnsent(const QVector<RequestedValue> &values, const QString &why);

    MirroredRegion &m_region;
    QByteArray m_own;
    UrlChoice m_commands;
    QByteArray m_source; ///< empty: none
    QString m_name;
    qint64 m_signTime = 0;  ///< by the clock of the source
    qint64 m_signTicks = 0; ///< by that of m_clock
    QElapsedTimer m_clock;
    RequestQueue m_queue;
    QTimer m_next;
    BoundedLog m_log{10, std::chrono::seconds(1), QStringLiteral("writes")};
    SampleSignal m_arrival;
    ProcessDataNotifier *m_notifier;
    dds_entity_t m_writer;
    dds_entity_t m_reader;
};

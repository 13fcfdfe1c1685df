#pragma once

#include "mirror/MirrorDomain.h"
#include "mirror/RequestGate.h"
#include "mirror/SampleSignal.h"
#include "region/RegionFollower.h"
#include "region/UrlChoice.h"
#include "service/BoundedLog.h"

#include <QElapsedTimer>
#include <QObject>

struct tessel_mirror_WriteRequest;

/// Carries out at a source what mirrors ask for, and answers. Belongs to the thread and the event loop of its
/// maker.
class RequestTaker : public QObject
{
    Q_OBJECT

public:
    /// Both have to live longer. @p own: identity of the source. Throws a Refusal.
    RequestTaker(const MirrorDomain &domain, RegionFollower &region, const QByteArray &own,
                 UrlChoice commands);
    ~RequestTaker() override;

private:
    void takeAll();
    void take(const tessel_mirror_WriteRequest &sample, quint64 publisher);
    void tell(const WriteRequest &request, const WriteAnswer &answer);
    void send(const WriteRequest &request, const WriteAnswer &answer);

    RegionFollower &m_region;
    QByteArray m_own;
    UrlChoice m_commands;
    RequestGate m_gate;
    QElapsedTimer m_clock;
    BoundedLog m_log{10, std::chrono::seconds(1), QStringLiteral("writes")};
    SampleSignal m_arrival;
    dds_entity_t m_writer;
    dds_entity_t m_reader;
};

#include "mirror/StatusLook.h"

#include "mirror/SampleFields.h"
#include "mirror/SampleTaking.h"

#include <QDeadlineTimer>

#include <algorithm>

#include <MirrorTopics.h>

namespace {

template <std::size_t size>
QByteArray bytesOf(const uint8_t (&identity)[size])
{
    return QByteArray(reinterpret_cast<const char *>(identity), size);
}

void takeOne(DomainStatus &status, const tessel_mirror_SourceSet &sample,
             const dds_sample_info_t &info)
{
    const QString region = sampleText(sample.region);
    if (info.valid_data) {
        status.take(region, bytesOf(sample.source),
                    DomainStatus::Source{sampleText(sample.host), sample.status, sample.attachment,
                                         sample.generation, sample.time_stamp,
                                         sample.bytes._length});
    }
    if (info.instance_state != DDS_IST_ALIVE) {
        status.removeSource(region, bytesOf(sample.source));
    }
}

void takeOne(DomainStatus &status, const tessel_mirror_MirrorReport &sample,
             const dds_sample_info_t &info)
{
    const QString region = sampleText(sample.region);
    const QByteArray source = bytesOf(sample.source);
    const bool hasSource = source.count('\0') < source.size();
    if (info.valid_data) {
        status.take(region, bytesOf(sample.receiver),
                    DomainStatus::Receiver{sampleText(sample.host), sampleText(sample.mirror),
                                           hasSource ? source : QByteArray(), sample.generation,
                                           sample.sets, sample.left_out, sample.lag,
                                           sample.time_stamp});
    }
    if (info.instance_state != DDS_IST_ALIVE) {
        status.removeReceiver(region, bytesOf(sample.receiver));
    }
}

template <typename Sample>
void takeAll(DomainStatus &status, dds_entity_t reader)
{
    takeSamples<Sample>(
        reader, [&status](const auto &sample, const auto &info) { takeOne(status, sample, info); });
}

} // namespace

StatusReaders::StatusReaders(const MirrorDomain &domain, Of of)
    : m_sets(of == Of::All ? domain.makeSetReader(nullptr) : 0)
    , m_reports(domain.makeReportReader())
{
}

StatusReaders::~StatusReaders()
{
    for (const dds_entity_t one : {m_sets, m_reports}) {
        dds_delete(one);
    }
}

void StatusReaders::take(DomainStatus &status) const
{
    if (m_sets != 0) {
        takeAll<tessel_mirror_SourceSet>(status, m_sets);
    }
    takeAll<tessel_mirror_MirrorReport>(status, m_reports);
}

DomainStatus lookAround(const MirrorDomain &domain, int milliseconds)
{
    const StatusReaders readers(domain, StatusReaders::Of::All);
    const dds_entity_t either = domain.makeWaitset({readers.sets(), readers.reports()});
    DomainStatus status;
    for (QDeadlineTimer end(milliseconds); !end.hasExpired();) {
        dds_waitset_wait(either, nullptr, 0, DDS_MSECS(std::max<qint64>(1, end.remainingTime())));
        readers.take(status);
    }
    dds_delete(either);
    return status;
}

#include "mirror/MirrorDomain.h"

#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QMutex>
#include <QStringList>

#include <memory>

#include <MirrorTopics.h>
#include <dds/ddsrt/log.h>

namespace {

using QosPointer = std::unique_ptr<dds_qos_t, decltype(&dds_delete_qos)>;

/// Keeps what the engine says while it starts; later its words are warnings of the log.
class EngineWords
{
public:
    static EngineWords &instance()
    {
        static EngineWords words;
        return words;
    }
    void startKeeping()
    {
        const QMutexLocker locker(&m_mutex);
        m_kept.clear();
        m_isKeeping = true;
    }
    QString endKeeping()
    {
        const QMutexLocker locker(&m_mutex);
        m_isKeeping = false;
        return m_kept.join(QLatin1String("; "));
    }
    static void take(void *, const dds_log_data_t *data)
    {
        const QString text = QString::fromUtf8(data->message + data->hdrsize,
                                               int(data->size - data->hdrsize))
                                 .trimmed();
        if (!text.isEmpty()) {
            instance().add(text);
        }
    }

private:
    void add(const QString &text)
    {
        const QMutexLocker locker(&m_mutex);
        if (m_isKeeping) {
            m_kept.append(text);
        } else {
            ServiceLog::warning(QStringLiteral("the engine says: %1").arg(text));
        }
    }

    QMutex m_mutex;
    QStringList m_kept;
    bool m_isKeeping = false;
};

QString textOf(dds_return_t code)
{
    return QString::fromUtf8(dds_strretcode(code));
}

dds_entity_t require(dds_entity_t entity, const char *what)
{
    if (entity < 0) {
        throw Refusal{
            ExitCode::Internal,
            QStringLiteral("the engine makes no %1: %2").arg(QLatin1String(what), textOf(entity))};
    }
    return entity;
}

/// The newest of each source, also for whoever comes late.
QosPointer newestOfEach()
{
    QosPointer qos(dds_create_qos(), &dds_delete_qos);
    // A write that finds no room says so at once.
    dds_qset_reliability(qos.get(), DDS_RELIABILITY_RELIABLE, 0);
    dds_qset_durability(qos.get(), DDS_DURABILITY_TRANSIENT_LOCAL);
    dds_qset_durability_service(qos.get(), 0, DDS_HISTORY_KEEP_LAST, 1, DDS_LENGTH_UNLIMITED,
                                DDS_LENGTH_UNLIMITED, DDS_LENGTH_UNLIMITED);
    dds_qset_history(qos.get(), DDS_HISTORY_KEEP_LAST, 1);
    return qos;
}

} // namespace

MirrorDomain::MirrorDomain(const DomainSettings &settings)
{
    EngineWords &words = EngineWords::instance();
    words.startKeeping();
    dds_set_log_sink(&EngineWords::take, nullptr);
    m_domain = dds_create_domain(settings.domain, settings.engineText().constData());
    if (m_domain > 0) {
        m_participant = dds_create_participant(settings.domain, nullptr, nullptr);
    }
    const QString reasons = words.endKeeping();
    if (m_domain < 0 || m_participant < 0) {
        const QString code = textOf(m_domain < 0 ? m_domain : m_participant);
        if (m_domain > 0) {
            dds_delete(m_domain);
        }
        throw Refusal{
            ExitCode::NoAccess,
            QStringLiteral("domain %1 cannot be joined: %2; check 'interface', 'peer' and "
                           "'port-base', and whether 32 programs of this domain run here")
                .arg(QString::number(settings.domain), reasons.isEmpty() ? code : reasons)};
    }
    m_sets = makeTopic(tessel_mirror_SourceSet_desc, "TesselMirrorSet1");
    m_layouts = makeTopic(tessel_mirror_SourceLayout_desc, "TesselMirrorLayout1");
    m_reports = makeTopic(tessel_mirror_MirrorReport_desc, "TesselMirrorReport1");
    m_descriptions = makeTopic(tessel_mirror_SourceDescription_desc, "TesselMirrorDescription1");
}

MirrorDomain::~MirrorDomain()
{
    dds_delete(m_domain);
}

dds_entity_t MirrorDomain::makeTopic(const dds_topic_descriptor_t &type, const char *name) const
{
    return require(dds_create_topic(m_participant, &type, name, nullptr, nullptr), name);
}

dds_entity_t MirrorDomain::makeSetWriter(int lease) const
{
    const auto qos = newestOfEach();
    dds_qset_liveliness(qos.get(), DDS_LIVELINESS_AUTOMATIC, DDS_MSECS(lease));
    return require(dds_create_writer(m_participant, m_sets, qos.get(), nullptr), "writer");
}

dds_entity_t MirrorDomain::makeLayoutWriter() const
{
    return require(dds_create_writer(m_participant, m_layouts, newestOfEach().get(), nullptr),
                   "writer");
}

dds_entity_t MirrorDomain::makeSetReader(const dds_listener_t *listener) const
{
    return require(dds_create_reader(m_participant, m_sets, newestOfEach().get(), listener),
                   "reader");
}

dds_entity_t MirrorDomain::makeLayoutReader() const
{
    return require(dds_create_reader(m_participant, m_layouts, newestOfEach().get(), nullptr),
                   "reader");
}

dds_entity_t MirrorDomain::makeReportWriter() const
{
    return require(dds_create_writer(m_participant, m_reports, newestOfEach().get(), nullptr),
                   "writer");
}

dds_entity_t MirrorDomain::makeReportReader() const
{
    return require(dds_create_reader(m_participant, m_reports, newestOfEach().get(), nullptr),
                   "reader");
}

dds_entity_t MirrorDomain::makeDescriptionWriter() const
{
    return require(dds_create_writer(m_participant, m_descriptions, newestOfEach().get(), nullptr),
                   "writer");
}

dds_entity_t MirrorDomain::makeDescriptionReader() const
{
    return require(dds_create_reader(m_participant, m_descriptions, newestOfEach().get(), nullptr),
                   "reader");
}

dds_entity_t MirrorDomain::makeWaitset(std::initializer_list<dds_entity_t> readers) const
{
    const dds_entity_t waitset = require(dds_create_waitset(m_participant), "waitset");
    for (const dds_entity_t reader : readers) {
        dds_set_status_mask(reader, DDS_DATA_AVAILABLE_STATUS);
        require(dds_waitset_attach(waitset, reader, reader), "waitset");
    }
    return waitset;
}

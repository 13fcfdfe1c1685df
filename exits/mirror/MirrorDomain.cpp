#include "mirror/MirrorDomain.h"

#include "service/BoundedLog.h"
#include "service/Refusal.h"

#include <QMutex>
#include <QRegularExpression>
#include <QStringList>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include <MirrorTopics.h>
#include <dds/ddsrt/log.h>
#include <fcntl.h>
#include <unistd.h>

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
        // Its header, with time and thread, lies before the message.
        const QString text = QString::fromUtf8(data->message, int(data->size)).trimmed();
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
            m_log.warning(QStringLiteral("the engine says: %1").arg(text));
        }
    }

    QMutex m_mutex;
    QStringList m_kept;
    bool m_isKeeping = false;
    /// What others send causes some of it.
    BoundedLog m_log{60, std::chrono::seconds(60), QStringLiteral("what the engine says")};
};

QString textOf(dds_return_t code)
{
    return QString::fromUtf8(dds_strretcode(code));
}

dds_entity_t require(dds_entity_t entity, const char *what)
{
    if (entity == DDS_RETCODE_NOT_ALLOWED_BY_SECURITY) {
        throw Refusal{ExitCode::NoAccess,
                      QStringLiteral("permissions.p7s does not allow the %1; with "
                                     "'script/authority --commands' it allows requests")
                          .arg(QLatin1String(what))};
    }
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

/// The newest of each, for whoever is there.
QosPointer passingOfEach()
{
    QosPointer qos(dds_create_qos(), &dds_delete_qos);
    dds_qset_reliability(qos.get(), DDS_RELIABILITY_RELIABLE, 0);
    dds_qset_durability(qos.get(), DDS_DURABILITY_VOLATILE);
    dds_qset_history(qos.get(), DDS_HISTORY_KEEP_LAST, 1);
    return qos;
}

/// The addresses in what the engine says, such as `udp/192.0.2.7:7411@2`.
QString addressesIn(const QString &text)
{
    static const QRegularExpression form(
        QStringLiteral("/\\[?([^\\],@]*?)\\]?(?::\\d+)?(?:@\\d+)?(?:,|$)"));
    QStringList addresses;
    for (auto match = form.globalMatch(text); match.hasNext();) {
        addresses.append(match.next().captured(1));
    }
    addresses.removeDuplicates();
    return addresses.join(QLatin1String(", "));
}

/// The engine's own words for what a program says of itself.
constexpr char addressProperty[] = "__NetworkAddresses";

/// Of the program with that key, as a reader of who is there has it.
QString addressOf(dds_entity_t participants, const dds_guid_t &program)
{
    QString address;
    constexpr int most = 64;
    void *samples[most] = {};
    dds_sample_info_t infos[most];
    const dds_return_t count = dds_read(participants, samples, infos, most, most);
    for (int i = 0; i < count; ++i) {
        const auto &one = *static_cast<const dds_builtintopic_participant_t *>(samples[i]);
        char *text = nullptr;
        if (infos[i].valid_data && std::memcmp(one.key.v, program.v, sizeof program.v) == 0
            && dds_qget_prop(one.qos, addressProperty, &text)) {
            address = addressesIn(QString::fromUtf8(text));
            dds_free(text);
        }
    }
    if (count > 0) {
        dds_return_loan(participants, samples, count);
    }
    return address;
}

/// Where a socket of the engine finds no descriptor it ends the program while it takes back what it has begun: so many
/// have to be free before it begins.
void requireDescriptors(quint32 domain)
{
    constexpr std::size_t enough = 32;
    std::vector<int> held;
    int error = 0;
    while (held.size() < enough && error == 0) {
        const int descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (descriptor < 0) {
            error = errno;
        } else {
            held.push_back(descriptor);
        }
    }
    for (const int descriptor : held) {
        ::close(descriptor);
    }
    if (error != 0) {
        throw Refusal{
            ExitCode::NoAccess,
            QStringLiteral("domain %1 cannot be joined: %2; its engine needs some %3 open files: "
                           "allow more of them (ulimit -n, LimitNOFILE=)")
                .arg(QString::number(domain), qt_error_string(error), QString::number(enough))};
    }
}

} // namespace

MirrorDomain::MirrorDomain(const DomainSettings &settings)
{
    requireDescriptors(settings.domain);
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
    m_participants = require(
        dds_create_reader(m_participant, DDS_BUILTIN_TOPIC_DCPSPARTICIPANT, nullptr, nullptr),
        "reader");
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

dds_entity_t MirrorDomain::makeRequestTopic() const
{
    return makeTopic(tessel_mirror_WriteRequest_desc, "TesselMirrorRequest1");
}

dds_entity_t MirrorDomain::makeAnswerTopic() const
{
    return makeTopic(tessel_mirror_WriteAnswer_desc, "TesselMirrorAnswer1");
}

dds_entity_t MirrorDomain::makeRequestWriter() const
{
    return require(
        dds_create_writer(m_participant, makeRequestTopic(), passingOfEach().get(), nullptr),
        "writing of requests");
}

dds_entity_t MirrorDomain::makeRequestReader(const dds_listener_t *listener) const
{
    return require(
        dds_create_reader(m_participant, makeRequestTopic(), passingOfEach().get(), listener),
        "reading of requests");
}

dds_entity_t MirrorDomain::makeAnswerWriter() const
{
    return require(
        dds_create_writer(m_participant, makeAnswerTopic(), passingOfEach().get(), nullptr),
        "writing of answers");
}

dds_entity_t MirrorDomain::makeAnswerReader(const dds_listener_t *listener) const
{
    return require(
        dds_create_reader(m_participant, makeAnswerTopic(), passingOfEach().get(), listener),
        "reading of answers");
}

QString MirrorDomain::addressOf(dds_entity_t reader, dds_instance_handle_t publisher) const
{
    dds_builtintopic_endpoint_t *const endpoint = dds_get_matched_publication_data(reader,
                                                                                   publisher);
    if (endpoint == nullptr) {
        return {};
    }
    const QString address = ::addressOf(m_participants, endpoint->participant_key);
    dds_builtintopic_free_endpoint(endpoint);
    return address;
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

#include "mirror/SetSource.h"

#include "mirror/ByteOrder.h"
#include "mirror/DescriptionBundle.h"
#include "mirror/SampleFields.h"
#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QDateTime>
#include <QFile>
#include <QSysInfo>
#include <QUuid>

#include <cstring>
#include <vector>

#include <MirrorTopics.h>

namespace {

/// Milliseconds until the newest is said again.
constexpr int againInterval = 1000;
/// The same of one that found no room: what was sent before is on its way still.
constexpr int roomInterval = 5;

QByteArray bootIdentity()
{
    QFile file(QStringLiteral("/proc/sys/kernel/random/boot_id"));
    const QByteArray text = file.open(QIODevice::ReadOnly) ? file.readAll().trimmed()
                                                           : QByteArray();
    return QUuid(QString::fromLatin1(text)).toRfc4122();
}

const QString &hostName()
{
    static const QString name = QSysInfo::machineHostName();
    return name;
}

DescriptionTree doubleBuffered(const QString &path)
{
    DescriptionTree tree = DescriptionTree::read(path);
    if (!tree.isDoubleBuffered) {
        throw Refusal{ExitCode::InputOutputFile,
                      QStringLiteral("%1: has a single buffer, which has no whole sets; a mirror "
                                     "needs 'doubleBuffer'")
                          .arg(path)};
    }
    if (tree.key.toUtf8().size() >= sampleTextRoom) {
        throw Refusal{ExitCode::InputOutputFile,
                      QStringLiteral("%1: its memory key is longer than 255 bytes").arg(path)};
    }
    return tree;
}

} // namespace

SetSource::SetSource(const QString &path, const MirrorDomain &domain, const Pace &pace,
                     const UrlChoice &commands)
    : m_region(path, pace.leastInterval,
               commands.isEmpty() ? RegionFollower::Use::Reading : RegionFollower::Use::Writing)
    , m_pace(pace)
    , m_layout(SlotLayout::of(doubleBuffered(path)))
    , m_identity(QUuid::createUuid().toRfc4122())
    , m_writer(domain.makeSetWriter(pace.lease))
    , m_layoutWriter(domain.makeLayoutWriter())
    , m_descriptionWriter(domain.makeDescriptionWriter())
{
    connect(&m_region, &RegionFollower::upChanged, this, &SetSource::handleUp);
    connect(&m_region, &RegionFollower::setPublished, this, &SetSource::handlePublished);
    connect(&m_region, &RegionFollower::leavesChanged, this, &SetSource::readLayout);
    connect(&m_again, &QTimer::timeout, this, &SetSource::sendNewest);
    connect(&m_silence, &QTimer::timeout, this, &SetSource::handleSilence);
    m_again.setSingleShot(true);
    m_silence.setSingleShot(true);
    if (!commands.isEmpty()) {
        m_requests = std::make_unique<RequestTaker>(domain, m_region, m_identity, commands);
    }
    readLayout();
    handleUp(m_region.isUp());
}

SetSource::~SetSource()
{
    dds_delete(m_writer);
    dds_delete(m_layoutWriter);
    dds_delete(m_descriptionWriter);
}

void SetSource::tell(DomainStatus &status) const
{
    const bool isLive = m_state == SourceState::Live;
    status.take(m_region.key(), m_identity,
                DomainStatus::Source{hostName(), static_cast<quint8>(m_state), m_attachment,
                                     m_generation, sampleTime(), isLive ? m_set.getSize() : 0});
}

void SetSource::readLayout()
{
    try {
        m_layout = SlotLayout::of(doubleBuffered(m_region.path()));
    } catch (const Refusal &refusal) {
        ServiceLog::error(refusal.text);
        return;
    }
    std::vector<QByteArray> texts;
    std::vector<tessel_mirror_LayoutLeaf> leaves;
    texts.reserve(2 * static_cast<std::size_t>(m_layout.leaves.size()));
    for (const auto &leaf : std::as_const(m_layout.leaves)) {
        char *const url = texts.emplace_back(leaf.url.toUtf8()).data();
        char *const type = texts.emplace_back(leaf.type.toUtf8()).data();
        leaves.push_back({url, type, leaf.offset, leaf.sizeValue, leaf.relativeOffsetMetadata,
                          leaf.sizeMetadata, leaf.mask});
    }
    tessel_mirror_SourceLayout sample{};
    setSampleText(sample.region, m_region.key());
    std::memcpy(sample.source, m_identity.constData(), sizeof sample.source);
    sample.fingerprint = m_layout.fingerprint;
    sample.buffer_size = m_layout.bufferSize;
    sample.leaves._length = sample.leaves._maximum = static_cast<uint32_t>(leaves.size());
    sample.leaves._buffer = leaves.data();
    dds_write(m_layoutWriter, &sample);
    offerDescription();
}

void SetSource::offerDescription()
{
    DescriptionBundle bundle;
    QString problem;
    try {
        bundle = DescriptionBundle::read(m_region.path());
        problem = bundle.problem();
    } catch (const Refusal &refusal) {
        problem = refusal.text;
    }
    if (!problem.isEmpty()) {
        ServiceLog::warning(QStringLiteral("%1: this description cannot be fetched: %2")
                                .arg(m_region.path(), problem));
        return;
    }
    std::vector<QByteArray> names;
    std::vector<tessel_mirror_DescriptionFile> files;
    for (const auto &file : std::as_const(bundle.files)) {
        tessel_mirror_DescriptionFile one{};
        one.name = names.emplace_back(file.name.toUtf8()).data();
        one.content._length = one.content._maximum = static_cast<uint32_t>(file.content.size());
        one.content._buffer = reinterpret_cast<uint8_t *>(
            const_cast<char *>(file.content.constData()));
        files.push_back(one);
    }
    tessel_mirror_SourceDescription sample{};
    setSampleText(sample.region, m_region.key());
    setSampleText(sample.host, hostName());
    std::memcpy(sample.source, m_identity.constData(), sizeof sample.source);
    sample.is_folder = bundle.isFolder;
    sample.files._length = sample.files._maximum = static_cast<uint32_t>(files.size());
    sample.files._buffer = files.data();
    dds_write(m_descriptionWriter, &sample);
}

void SetSource::handleUp(bool isUp)
{
    if (isUp) {
        ++m_attachment;
        m_generation = 0;
        handlePublished();
        return;
    }
    m_silence.stop();
    const RegionInspection region(m_region.key());
    setState(region.exists() && region.getCreator().isAlive == true ? SourceState::RegionReplaced
                                                                    : SourceState::CreatorGone);
}

void SetSource::handlePublished()
{
    const quint64 former = m_generation;
    if (!takeNewest() || m_generation == former) {
        return;
    }
    listenForSilence(m_pace.silentAfter);
    if (m_state == SourceState::Silent) {
        ServiceLog::notice(
            QStringLiteral("region '%1' is published into again").arg(m_region.key()));
    }
    m_state = SourceState::Live;
    m_again.start(againInterval);
    send(m_set.getBytes(), m_set.getSize());
}

/// By itself and not by the follower, which looks at the time of a set as well: that is much of the way of a set.
bool SetSource::takeNewest()
{
    if (!m_region.isUp() || !m_set.take(*m_region.manager())) {
        return false;
    }
    m_generation = m_set.getGeneration();
    return true;
}

/// @p milliseconds: of silence; 0: it is no matter.
void SetSource::listenForSilence(int milliseconds)
{
    m_countAtSilence = m_region.swapCount().value_or(0);
    if (milliseconds > 0) {
        m_silence.start(milliseconds);
    }
}

/// What was published and not sent, as of one that is faster than the rate, is no silence.
void SetSource::handleSilence()
{
    const auto last = m_region.lastSwap();
    if (last && m_region.swapCount().value_or(0) != m_countAtSilence) {
        const qint64 passed = last->msecsTo(QDateTime::currentDateTimeUtc());
        listenForSilence(m_pace.silentAfter
                         - static_cast<int>(qBound<qint64>(0, passed, m_pace.silentAfter - 1)));
        return;
    }
    ServiceLog::warning(QStringLiteral("nothing was published into region '%1' for %2 ms; its "
                                       "mirrors show 'timeout' until something is")
                            .arg(m_region.key(), QString::number(m_pace.silentAfter)));
    setState(SourceState::Silent);
}

void SetSource::setState(SourceState state)
{
    m_state = state;
    sendNewest();
}

/// A newer one, which waits for its time by the rate, is left to the follower.
void SetSource::sendNewest()
{
    m_again.start(againInterval);
    if (m_state != SourceState::Live) {
        send(nullptr, 0);
    } else if (!m_set.isEmpty()) {
        send(m_set.getBytes(), m_set.getSize());
    }
}

void SetSource::send(const unsigned char *bytes, quint32 size)
{
    static const QByteArray boot = bootIdentity();
    tessel_mirror_SourceSet sample{};
    setSampleText(sample.region, m_region.key());
    setSampleText(sample.host, hostName());
    std::memcpy(sample.source, m_identity.constData(), sizeof sample.source);
    std::memcpy(sample.boot, boot.constData(), sizeof sample.boot);
    sample.attachment = m_attachment;
    sample.generation = m_generation;
    sample.time_stamp = sampleTime();
    sample.fingerprint = m_layout.fingerprint;
    sample.byte_order = static_cast<uint8_t>(ByteOrder::ofThisMachine());
    sample.status = static_cast<uint8_t>(m_state);
    sample.bytes._buffer = const_cast<unsigned char *>(bytes);
    sample.bytes._length = sample.bytes._maximum = size;
    const dds_return_t result = dds_write(m_writer, &sample);
    if (result == DDS_RETCODE_TIMEOUT) {
        m_again.start(roomInterval);
    } else if (result != DDS_RETCODE_OK) {
        ServiceLog::warning(QStringLiteral("a set of region '%1' was not sent: %2; the next one is "
                                           "tried")
                                .arg(m_region.key(), QLatin1String(dds_strretcode(result))));
    }
}

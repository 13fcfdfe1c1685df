#include "mirror/SetSource.h"

#include "mirror/DescriptionBundle.h"
#include "mirror/SampleFields.h"
#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QSysInfo>
#include <QUuid>

#include <cstring>
#include <vector>

#include <MirrorTopics.h>

namespace {

/// Milliseconds. The sets are the sender's own; the follower looks after a region that comes and goes.
constexpr int followInterval = 1000;

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
                     RegionFollower::Use use, const UrlChoice &commands)
    : m_region(path, followInterval, commands.isEmpty() ? use : RegionFollower::Use::Writing)
    , m_pace(pace)
    , m_layout(SlotLayout::of(doubleBuffered(path)))
    , m_identity(QUuid::createUuid().toRfc4122())
    , m_sender(domain, {m_region.key(), hostName(), m_identity}, pace.lease, pace.leastInterval)
    , m_layoutWriter(domain.makeLayoutWriter())
    , m_descriptionWriter(domain.makeDescriptionWriter())
{
    connect(&m_region, &RegionFollower::aboutToDetach, &m_sender, &SetSender::rest);
    connect(&m_region, &RegionFollower::upChanged, this, &SetSource::handleUp);
    connect(&m_region, &RegionFollower::leavesChanged, this, &SetSource::readLayout);
    connect(&m_sender, &SetSender::revived, this, &SetSource::handleRevival);
    connect(&m_silenceLooks, &QTimer::timeout, this, &SetSource::handleSilence);
    m_silenceLooks.setSingleShot(true);
    // The usual one may be late by a twentieth.
    m_silenceLooks.setTimerType(Qt::PreciseTimer);
    if (!commands.isEmpty()) {
        m_requests = std::make_unique<RequestTaker>(domain, m_region, m_identity, commands);
    }
    readLayout();
    if (m_region.isUp()) {
        begin();
    } else {
        end();
    }
}

SetSource::~SetSource()
{
    dds_delete(m_layoutWriter);
    dds_delete(m_descriptionWriter);
}

void SetSource::tell(DomainStatus &status) const
{
    status.take(m_region.key(), m_identity, m_sender.sent());
}

void SetSource::readLayout()
{
    try {
        m_layout = SlotLayout::of(doubleBuffered(m_region.path()));
    } catch (const Refusal &refusal) {
        ServiceLog::error(refusal.text);
        return;
    }
    m_sender.setFingerprint(m_layout.fingerprint);
    std::vector<QByteArray> texts;
    std::vector<tessel_mirror_LayoutLeaf> leaves;
    texts.reserve(2 * static_cast<std::size_t>(m_layout.leaves.size()));
    for (const auto &leaf : std::as_const(m_layout.leaves)) {
        char *const url = texts.emplace_back(leaf.url.toUtf8()).data();
        char *const type = texts.emplace_back(leaf.type.toUtf8()).data();
        // cppcheck-suppress invalidContainer ; the bytes of a text stay where they are, wherever the text goes
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
    if (!isUp) {
        end();
        return;
    }
    try {
        begin();
    } catch (const Refusal &refusal) {
        // Nobody above the event loop catches it.
        ServiceLog::error(refusal.text);
        Q_EMIT failed(static_cast<int>(refusal.code));
    }
}

void SetSource::begin()
{
    m_sender.follow(*m_region.manager());
    listenForSilence();
}

void SetSource::end()
{
    m_silenceLooks.stop();
    // Before its state is told: the region of a creator that has died stays, and others may publish into it.
    m_sender.rest();
    const RegionInspection region(m_region.key());
    m_sender.tellState(region.exists() && region.getCreator().isAlive == true
                           ? SourceState::RegionReplaced
                           : SourceState::CreatorGone);
}

void SetSource::setSilentAfter(int milliseconds)
{
    m_pace.silentAfter = milliseconds;
    if (m_region.isUp() && m_sender.isLive()) {
        listenForSilence();
    }
}

void SetSource::handleRevival()
{
    ServiceLog::notice(QStringLiteral("region '%1' is published into again").arg(m_region.key()));
    if (m_region.isUp()) {
        listenForSilence();
    }
}

/// From now on, if it matters.
void SetSource::listenForSilence()
{
    m_silence.begin(m_region.swapCount().value_or(0), SilenceWatch::Clock::now());
    m_silenceLooks.stop();
    if (m_pace.silentAfter > 0) {
        m_silenceLooks.start(m_pace.silentAfter);
    }
}

/// Each set begins another silence, of which only its end is looked at: a timer for each would take an event loop.
void SetSource::handleSilence()
{
    const quint64 count = m_region.swapCount().value_or(0);
    const auto left = m_silence.look(count, m_sender.readAt(count), SilenceWatch::Clock::now(),
                                     std::chrono::milliseconds(m_pace.silentAfter));
    if (left) {
        m_silenceLooks.start(*left);
        return;
    }
    if (!m_sender.tellSilent(count)) {
        listenForSilence();
        return;
    }
    ServiceLog::warning(QStringLiteral("nothing was published into region '%1' for %2 ms; its "
                                       "mirrors show 'timeout' until something is")
                            .arg(m_region.key(), QString::number(m_pace.silentAfter)));
}

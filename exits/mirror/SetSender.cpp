#include "mirror/SetSender.h"

#include "Access/ProcessDataWatcher.h"
#include "mirror/ByteOrder.h"
#include "mirror/SampleFields.h"
#include "mirror/UnheldReading.h"
#include "service/ServiceLog.h"

#include <QFile>
#include <QUuid>

#include <cstring>
#include <utility>

#include <MirrorTopics.h>

namespace {

/// From one time that the newest is said to the next.
constexpr std::chrono::milliseconds againInterval{1000};
/// The same of one that found no room: what was sent before is on its way still.
constexpr std::chrono::milliseconds roomInterval{5};

QByteArray bootIdentity()
{
    QFile file(QStringLiteral("/proc/sys/kernel/random/boot_id"));
    const QByteArray text = file.open(QIODevice::ReadOnly) ? file.readAll().trimmed()
                                                           : QByteArray();
    return QUuid(QString::fromLatin1(text)).toRfc4122();
}

std::unique_ptr<tessel_mirror_SourceSet> sampleOf(const SetSender::Name &name)
{
    static const QByteArray boot = bootIdentity();
    auto sample = std::make_unique<tessel_mirror_SourceSet>();
    setSampleText(sample->region, name.key);
    setSampleText(sample->host, name.host);
    std::memcpy(sample->source, name.identity.constData(), sizeof sample->source);
    std::memcpy(sample->boot, boot.constData(), sizeof sample->boot);
    sample->byte_order = static_cast<uint8_t>(ByteOrder::ofThisMachine());
    return sample;
}

} // namespace

SetSender::SetSender(const MirrorDomain &domain, Name name, int lease, int leastInterval)
    : m_name(std::move(name))
    , m_sample(sampleOf(m_name))
    , m_leastInterval(leastInterval)
    , m_writer(domain.makeSetWriter(lease))
{
    m_again.setSingleShot(true);
    connect(&m_again, &QTimer::timeout, this, &SetSender::sayAgain);
    // A set that the thread finds room for meanwhile takes its place.
    connect(this, &SetSender::foundNoRoom, this, [this] { m_again.start(roomInterval); });
    m_again.start(againInterval);
}

SetSender::~SetSender()
{
    rest();
    dds_delete(m_writer);
}

void SetSender::setFingerprint(quint64 fingerprint)
{
    const std::lock_guard lock(m_mutex);
    m_fingerprint = fingerprint;
}

void SetSender::follow(ProcessDataManager &manager)
{
    rest();
    {
        const std::lock_guard lock(m_mutex);
        ++m_attachment;
        m_generation = 0;
    }
    m_watcher = std::make_unique<ProcessDataWatcher>(manager);
    m_thread = std::thread([this, &manager] { run(*m_watcher, manager); });
}

void SetSender::rest()
{
    if (!m_watcher) {
        return;
    }
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
    }
    m_ended.notify_all();
    m_watcher->stop();
    m_thread.join();
    m_watcher.reset();
    m_isEnding = false;
}

/// The thread. While it rests by the rate, the publisher has nobody to wake.
void SetSender::run(ProcessDataWatcher &watcher, ProcessDataManager &manager)
{
    constexpr std::chrono::milliseconds unbounded{-1};
    quint64 seen = 0;
    while (watcher.wait(seen, unbounded) == ProcessDataWatcher::Result::NewSet) {
        const Clock::time_point woken = Clock::now();
        if (!sendNewest(manager)) {
            // It may have been the last one.
            seen = 0;
        }
        if (!restUntil(woken + m_leastInterval)) {
            return;
        }
    }
}

bool SetSender::restUntil(Clock::time_point time)
{
    std::unique_lock lock(m_mutex);
    return !m_ended.wait_until(lock, time, [this] { return m_isEnding; });
}

/// False if no set was to be had.
bool SetSender::sendNewest(ProcessDataManager &manager)
{
    const std::lock_guard lock(m_mutex);
    bool isTaken = false;
    if (!readWithoutHolding(manager, [&] { isTaken = m_next.take(manager); }) || !isTaken) {
        return false;
    }
    if (m_next.getGeneration() == m_generation) {
        return true;
    }
    std::swap(m_set, m_next);
    m_generation = m_set.getGeneration();
    if (std::exchange(m_state, SourceState::Live) == SourceState::Silent) {
        Q_EMIT revived();
    }
    if (!sendKept()) {
        Q_EMIT foundNoRoom();
    }
    return true;
}

void SetSender::tellState(SourceState state)
{
    const std::lock_guard lock(m_mutex);
    m_state = state;
    m_again.start(sendKept() ? againInterval : roomInterval);
}

bool SetSender::tellSilent(quint64 generation)
{
    const std::lock_guard lock(m_mutex);
    if (m_generation > generation) {
        return false;
    }
    m_state = SourceState::Silent;
    m_again.start(sendKept() ? againInterval : roomInterval);
    return true;
}

bool SetSender::isLive() const
{
    const std::lock_guard lock(m_mutex);
    return m_state == SourceState::Live;
}

DomainStatus::Source SetSender::sent() const
{
    const std::lock_guard lock(m_mutex);
    const bool isLive = m_state == SourceState::Live;
    return {m_name.host,  static_cast<quint8>(m_state), m_attachment, m_generation,
            sampleTime(), isLive ? m_set.getSize() : 0};
}

/// What the thread has sent meanwhile is counted in, so that it leaves the timer alone.
void SetSender::sayAgain()
{
    const std::lock_guard lock(m_mutex);
    const auto left = m_sentAt + againInterval - Clock::now();
    if (!m_isWaitingForRoom && left > Clock::duration::zero()) {
        m_again.start(std::chrono::ceil<std::chrono::milliseconds>(left));
        return;
    }
    m_again.start(sendKept() ? againInterval : roomInterval);
}

/// A newer one, which waits for its time by the rate, is left to the thread. True but for want of room.
bool SetSender::sendKept()
{
    if (m_state != SourceState::Live) {
        return send(nullptr, 0);
    }
    return m_set.isEmpty() || send(m_set.getBytes(), m_set.getSize());
}

bool SetSender::send(const unsigned char *bytes, quint32 size)
{
    tessel_mirror_SourceSet &sample = *m_sample;
    sample.attachment = m_attachment;
    sample.generation = m_generation;
    sample.time_stamp = sampleTime();
    sample.fingerprint = m_fingerprint;
    sample.status = static_cast<uint8_t>(m_state);
    sample.bytes._buffer = const_cast<unsigned char *>(bytes);
    sample.bytes._length = sample.bytes._maximum = size;
    const dds_return_t result = dds_write(m_writer, &sample);
    m_sentAt = Clock::now();
    m_isWaitingForRoom = result == DDS_RETCODE_TIMEOUT;
    if (result != DDS_RETCODE_OK && !m_isWaitingForRoom) {
        ServiceLog::warning(QStringLiteral("a set of region '%1' was not sent: %2; the next one is "
                                           "tried")
                                .arg(m_name.key, QLatin1String(dds_strretcode(result))));
    }
    return !m_isWaitingForRoom;
}

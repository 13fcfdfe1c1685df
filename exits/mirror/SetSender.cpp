#include "mirror/SetSender.h"

#include "Access/ProcessDataWatcher.h"
#include "mirror/ByteOrder.h"
#include "mirror/SampleFields.h"
#include "mirror/UnheldReading.h"
#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QFile>
#include <QUuid>

#include <algorithm>
#include <cstring>
#include <system_error>
#include <utility>

#include <MirrorTopics.h>

namespace {

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
    , m_writer(domain.makeSetWriter(lease))
    , m_plan(std::chrono::milliseconds(leastInterval))
{
    m_again.setSingleShot(true);
    connect(&m_again, &QTimer::timeout, this, &SetSender::sayAgain);
    // A set that the thread finds room for meanwhile takes its place.
    connect(this, &SetSender::foundNoRoom, this, [this] {
        const std::lock_guard lock(m_mutex);
        startAgain();
    });
    m_plan.noteSaid(true, Clock::now());
    startAgain();
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
        m_plan.beginRegion();
    }
    auto watcher = std::make_unique<ProcessDataWatcher>(manager);
    try {
        m_thread = std::thread([this, &watched = *watcher, &manager] { run(watched, manager); });
    } catch (const std::system_error &error) {
        throw Refusal{
            ExitCode::Internal,
            QStringLiteral("the sets of region '%1' are not sent, as no thread can be started: %2; "
                           "let this user or unit have more threads (ulimit -u, TasksMax=) or "
                           "memory, and start this program again")
                .arg(m_name.key, QString::fromLocal8Bit(error.code().message().c_str()))};
    }
    m_watcher = std::move(watcher);
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
        std::unique_lock lock(m_mutex);
        // What was said again while it slept has taken a turn.
        if (!restByRate(lock, {})) {
            return;
        }
        if (!sendNewest(manager)) {
            // It may have been the last one.
            seen = 0;
        }
        if (!restByRate(lock, woken)) {
            return;
        }
    }
}

/// False if the thread is to end.
bool SetSender::restByRate(std::unique_lock<std::mutex> &lock, Clock::time_point since)
{
    while (!m_isEnding && Clock::now() < m_plan.nextTurn(since)) {
        m_ended.wait_until(lock, m_plan.nextTurn(since));
    }
    return !m_isEnding;
}

/// False if no set was to be had.
bool SetSender::sendNewest(ProcessDataManager &manager)
{
    bool isTaken = false;
    if (!readWithoutHolding(manager, [&] { isTaken = m_next.take(manager); }) || !isTaken) {
        return false;
    }
    const SendingPlan::Answer answer = m_plan.take(m_next.getGeneration(), Clock::now());
    if (answer == SendingPlan::Answer::Leave) {
        return true;
    }
    std::swap(m_set, m_next);
    if (answer == SendingPlan::Answer::Revive) {
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
    m_plan.tell(state);
    sendKept();
    startAgain();
}

bool SetSender::tellSilent(quint64 generation)
{
    const std::lock_guard lock(m_mutex);
    if (!m_plan.tellSilent(generation)) {
        return false;
    }
    sendKept();
    startAgain();
    return true;
}

bool SetSender::isLive() const
{
    const std::lock_guard lock(m_mutex);
    return m_plan.state() == SourceState::Live;
}

std::optional<SetSender::Clock::time_point> SetSender::readAt(quint64 generation) const
{
    const std::lock_guard lock(m_mutex);
    return m_plan.readAt(generation);
}

DomainStatus::Source SetSender::sent() const
{
    const std::lock_guard lock(m_mutex);
    const bool isLive = m_plan.state() == SourceState::Live;
    return {m_name.host,         static_cast<quint8>(m_plan.state()),
            m_plan.attachment(), m_plan.generation(),
            sampleTime(),        isLive ? m_set.getSize() : 0};
}

/// What the thread has sent meanwhile is counted in, so that it leaves the timer alone.
void SetSender::sayAgain()
{
    const std::lock_guard lock(m_mutex);
    if (Clock::now() >= nextAgain()) {
        sendKept();
    }
    startAgain();
}

SetSender::Clock::time_point SetSender::nextAgain() const
{
    return m_plan.nextAgain(m_watcher ? m_watcher->getGeneration() : 0);
}

void SetSender::startAgain()
{
    const auto left = std::max(nextAgain() - Clock::now(), Clock::duration::zero());
    m_again.start(std::chrono::ceil<std::chrono::milliseconds>(left));
}

/// True but for want of room.
bool SetSender::sendKept()
{
    if (m_plan.state() != SourceState::Live) {
        return send(nullptr, 0);
    }
    return send(m_set.getBytes(), m_set.getSize());
}

bool SetSender::send(const unsigned char *bytes, quint32 size)
{
    tessel_mirror_SourceSet &sample = *m_sample;
    sample.attachment = m_plan.attachment();
    sample.generation = m_plan.generation();
    sample.time_stamp = sampleTime();
    sample.fingerprint = m_fingerprint;
    sample.status = static_cast<uint8_t>(m_plan.state());
    sample.bytes._buffer = const_cast<unsigned char *>(bytes);
    sample.bytes._length = sample.bytes._maximum = size;
    const dds_return_t result = dds_write(m_writer, &sample);
    const bool hasFoundRoom = result != DDS_RETCODE_TIMEOUT;
    m_plan.noteSaid(hasFoundRoom, Clock::now());
    if (result != DDS_RETCODE_OK && hasFoundRoom) {
        ServiceLog::warning(QStringLiteral("a set of region '%1' was not sent: %2; the next one is "
                                           "tried")
                                .arg(m_name.key, QLatin1String(dds_strretcode(result))));
    }
    return hasFoundRoom;
}

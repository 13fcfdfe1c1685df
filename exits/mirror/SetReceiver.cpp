#include "mirror/SetReceiver.h"

#include "mirror/SampleFields.h"
#include "mirror/SampleTaking.h"
#include "service/ServiceLog.h"

#include <QSysInfo>

#include <algorithm>
#include <cstring>

#include <MirrorTopics.h>

namespace {

/// Who is refused is told of once, as long as there are not more of them.
constexpr int mostRefused = 100;
/// Looks for the layout of a refused source, and milliseconds between two.
constexpr int mostLooks = 100;
constexpr int lookInterval = 20;
/// Milliseconds from one report to the next.
constexpr int reportInterval = 1000;

QByteArray identityOf(const uint8_t (&source)[16])
{
    return QByteArray(reinterpret_cast<const char *>(source), sizeof source);
}

bool isOf(const tessel_mirror_SourceSet &sample, const QByteArray &identity)
{
    return identity.size() == int{sizeof sample.source}
           && std::memcmp(sample.source, identity.constData(), sizeof sample.source) == 0;
}

/// @p source and @p host are as it says; whoever knows them needs no room for them.
ReceivedSet received(const tessel_mirror_SourceSet &sample, const dds_sample_info_t &info,
                     const QByteArray &source, const QString &host)
{
    return {source,
            info.publication_handle,
            host,
            sample.attachment,
            sample.generation,
            sample.time_stamp,
            sample.fingerprint,
            sample.byte_order,
            sample.status,
            sample.bytes._buffer,
            sample.bytes._length};
}

SlotLayout layoutOf(const tessel_mirror_SourceLayout &sample)
{
    SlotLayout layout;
    layout.fingerprint = sample.fingerprint;
    layout.bufferSize = sample.buffer_size;
    for (uint32_t i = 0; i < sample.leaves._length; ++i) {
        const auto &leaf = sample.leaves._buffer[i];
        layout.leaves.append({QString::fromUtf8(leaf.url), QString::fromUtf8(leaf.type),
                              leaf.offset, leaf.size_value, leaf.relative_offset_metadata,
                              leaf.size_metadata, leaf.mask});
    }
    return layout;
}

QString nameOf(const ReceivedSet &set)
{
    return QStringLiteral("%1 (%2)").arg(set.host, QString::fromLatin1(set.source.toHex().left(8)));
}

} // namespace

SetReceiver::SetReceiver(const MirrorDomain &domain,
                         std::vector<std::unique_ptr<MirroredRegion>> regions, int watchdog,
                         const QStringList &commands)
    : m_domain(domain)
    , m_watchdog(watchdog)
{
    for (auto &region : regions) {
        m_mirrors.push_back(std::make_unique<Mirror>(std::move(region), commands));
        Mirror *const mirror = m_mirrors.back().get();
        connect(&mirror->watchdog, &QTimer::timeout, this,
                [this, mirror] { handleWatchdog(*mirror); });
        if (!commands.isEmpty()) {
            mirror->forwarder = std::make_unique<WriteForwarder>(m_domain, *mirror->region,
                                                                 mirror->own, UrlChoice(commands));
        }
    }
    m_arrival.setShortcut([this](dds_entity_t reader) { return takeNext(reader); });
    connect(&m_arrival, &SampleSignal::arrived, this, &SetReceiver::takeAll);
    connect(&m_looks, &QTimer::timeout, this, &SetReceiver::lookForLayout);
    connect(&m_reports, &QTimer::timeout, this, [this] {
        const std::lock_guard lock(m_mutex);
        for (const auto &mirror : m_mirrors) {
            mirror->region->lookAfter();
            report(*mirror);
        }
    });
    m_reportWriter = m_domain.makeReportWriter();
    m_reports.start(reportInterval);
    for (const auto &mirror : m_mirrors) {
        report(*mirror);
    }
    // Last: from here on a thread of the engine is at work as well.
    m_reader = m_domain.makeSetReader(m_arrival.listener());
}

SetReceiver::~SetReceiver()
{
    dds_delete(m_reader);
    dds_delete(m_reportWriter);
}

SetReceiver::SampleRoom::SampleRoom() : sample(new tessel_mirror_SourceSet{}) { }

SetReceiver::SampleRoom::~SampleRoom()
{
    dds_sample_free(sample, &tessel_mirror_SourceSet_desc, DDS_FREE_CONTENTS);
    delete sample;
}

void SetReceiver::setWatchdog(int milliseconds)
{
    const std::lock_guard lock(m_mutex);
    m_watchdog = milliseconds;
    for (const auto &mirror : m_mirrors) {
        mirror->watchdog.stop();
        if (milliseconds > 0 && mirror->gate.hasSource()) {
            mirror->watchdog.start(milliseconds);
        }
    }
}

void SetReceiver::handleWatchdog(Mirror &mirror)
{
    const std::lock_guard lock(m_mutex);
    const qint64 left = m_watchdog - mirror.sinceSign.elapsed();
    if (left > 0) {
        mirror.watchdog.start(static_cast<int>(left));
        return;
    }
    mirror.gate.release();
    lose(mirror, QStringLiteral("nothing came from it for %1 ms").arg(m_watchdog));
}

SetReceiver::Mirror *SetReceiver::mirrorOf(const tessel_mirror_SourceSet &sample) const
{
    const auto found = std::find_if(m_mirrors.cbegin(), m_mirrors.cend(), [&](const auto &one) {
        return isSampleText(sample.region, one->sourceKey);
    });
    return found == m_mirrors.cend() ? nullptr : found->get();
}

/// On a thread of the engine. What it takes and cannot show is not lost: nothing is taken behind it.
bool SetReceiver::takeNext(dds_entity_t reader)
{
    const std::unique_lock lock(m_mutex, std::try_to_lock);
    if (!lock || m_isNextLeft) {
        return false;
    }
    void *sample = m_next.sample;
    while (dds_take(reader, &sample, &m_next.info, 1, 1) == 1) {
        if (!showNext(*m_next.sample, m_next.info)) {
            m_isNextLeft = true;
            return false;
        }
    }
    return true;
}

/// What show() does with the next set of the source that is shown; false, and nothing done, with any other sample.
bool SetReceiver::showNext(const tessel_mirror_SourceSet &sample, const dds_sample_info_t &info)
{
    Mirror *const mirror = mirrorOf(sample);
    if (mirror == nullptr) {
        return true;
    }
    if (!info.valid_data || info.instance_state != DDS_IST_ALIVE || !isOf(sample, mirror->identity)
        || mirror->forwarder) {
        return false;
    }
    const ReceivedSet set = received(sample, info, mirror->identity, {});
    switch (mirror->gate.take(set)) {
    case SourceGate::Answer::Show: publish(*mirror, set); break;
    case SourceGate::Answer::Keep: break;
    // The event loop gets the same answer once more.
    default: return false;
    }
    mirror->sinceSign.start();
    return true;
}

void SetReceiver::takeAll()
{
    const std::lock_guard lock(m_mutex);
    if (m_isNextLeft) {
        take(*m_next.sample, m_next.info);
        m_isNextLeft = false;
    }
    takeSamples<tessel_mirror_SourceSet>(
        m_reader, [this](const auto &sample, const auto &info) { take(sample, info); });
}

void SetReceiver::take(const tessel_mirror_SourceSet &sample, const dds_sample_info_t &info)
{
    Mirror *const found = mirrorOf(sample);
    if (found == nullptr) {
        return;
    }
    Mirror &mirror = *found;
    if (info.valid_data) {
        show(mirror, received(sample, info, identityOf(sample.source), sampleText(sample.host)));
    }
    if (info.instance_state != DDS_IST_ALIVE && mirror.gate.release(identityOf(sample.source))) {
        lose(mirror, QStringLiteral("it is no longer there"));
    }
}

void SetReceiver::show(Mirror &mirror, const ReceivedSet &set)
{
    const SourceGate::Answer answer = mirror.gate.take(set);
    switch (answer) {
    case SourceGate::Answer::OtherSource:
        refuse(mirror, set, QStringLiteral("%1 is its source").arg(mirror.followed));
        return;
    case SourceGate::Answer::NotASet: refuse(mirror, set, mirror.gate.problem()); return;
    case SourceGate::Answer::OtherLayout:
        // What is shown is of its former region, whose end may have been left out on the way.
        if (mirror.gate.release(set.source)) {
            lose(mirror, QStringLiteral("its layout has changed"));
        }
        askForLayout(mirror, set);
        return;
    case SourceGate::Answer::Fail:
        mirror.followed = nameOf(set);
        lose(mirror,
             QStringLiteral("it says that %1").arg(textOf(static_cast<SourceState>(set.state))));
        break;
    case SourceGate::Answer::Show: publish(mirror, set); break;
    case SourceGate::Answer::Keep: break;
    }
    if (mirror.forwarder) {
        mirror.forwarder->noteSign(set.timeStamp);
        mirror.forwarder->takeFound();
    }
    mirror.sinceSign.start();
    if (m_watchdog > 0) {
        mirror.watchdog.start(m_watchdog);
    }
}

void SetReceiver::publish(Mirror &mirror, const ReceivedSet &set)
{
    const bool isNew = mirror.source.isEmpty();
    if (isNew) {
        mirror.source = mirror.followed = nameOf(set);
        mirror.identity = set.source;
        mirror.mark.setSource(set.host, m_domain.addressOf(m_reader, set.publisher));
        if (mirror.forwarder) {
            mirror.forwarder->setSource(mirror.identity, mirror.source);
        }
    }
    if (mirror.region->show(set.bytes, static_cast<ByteOrder::Order>(set.byteOrder))) {
        mirror.count.addShown(set, sampleTime());
    } else {
        mirror.gate.noteUnshown();
    }
    if (isNew) {
        report(mirror);
        // Last: whoever reads it finds the values, and the tools know the source.
        m_log.notice(QStringLiteral("region '%1' mirrors '%2' of %3")
                         .arg(mirror.region->key(), mirror.region->sourceKey(), mirror.source));
    }
}

void SetReceiver::lose(Mirror &mirror, const QString &why)
{
    const bool wasShown = !mirror.source.isEmpty();
    if (wasShown) {
        mirror.region->showTimeout();
    }
    if (wasShown || mirror.trouble != why) {
        m_log.warning(QStringLiteral("the source of region '%1'%2 is lost: %3; all values are "
                                     "'timeout' until it is back")
                          .arg(mirror.region->key(),
                               wasShown ? QStringLiteral(", %1,").arg(mirror.source) : QString(),
                               why));
    }
    mirror.trouble = why;
    mirror.source.clear();
    mirror.identity.clear();
    mirror.mark.clearSource();
    mirror.watchdog.stop();
    if (mirror.forwarder) {
        mirror.forwarder->loseSource();
        mirror.forwarder->takeFound();
    }
    if (wasShown) {
        report(mirror);
    }
}

void SetReceiver::report(const Mirror &mirror)
{
    tessel_mirror_MirrorReport sample{};
    setSampleText(sample.region, mirror.region->sourceKey());
    setSampleText(sample.host, QSysInfo::machineHostName());
    setSampleText(sample.mirror, mirror.region->key());
    std::memcpy(sample.receiver, mirror.own.constData(), sizeof sample.receiver);
    std::memcpy(sample.source, mirror.identity.constData(),
                static_cast<std::size_t>(mirror.identity.size()));
    sample.generation = mirror.count.generation();
    sample.sets = mirror.count.sets();
    sample.left_out = mirror.count.leftOut();
    sample.lag = mirror.count.lag();
    sample.time_stamp = sampleTime();
    // One that finds no room is followed by the next.
    dds_write(m_reportWriter, &sample);
}

void SetReceiver::refuse(Mirror &mirror, const ReceivedSet &set, const QString &why)
{
    if (mirror.refused.size() >= mostRefused || mirror.refused.contains(set.source)) {
        return;
    }
    mirror.refused.insert(set.source);
    m_log.warning(QStringLiteral(
                      "a set for region '%1' from %2 was refused: %3; further ones are not told of")
                      .arg(mirror.region->key(), nameOf(set), why));
}

void SetReceiver::askForLayout(Mirror &mirror, const ReceivedSet &set)
{
    if (m_question || mirror.asked.size() >= mostRefused || mirror.asked.contains(set.source)) {
        return;
    }
    mirror.asked.insert(set.source);
    m_question = Question{&mirror, set.source, nameOf(set), 0, m_domain.makeLayoutReader()};
    m_looks.start(lookInterval);
}

void SetReceiver::lookForLayout()
{
    const std::lock_guard lock(m_mutex);
    QString difference;
    void *samples[1] = {};
    dds_sample_info_t info;
    while (difference.isEmpty() && dds_take(m_question->reader, samples, &info, 1, 1) == 1) {
        const auto &sample = *static_cast<const tessel_mirror_SourceLayout *>(samples[0]);
        if (info.valid_data && identityOf(sample.source) == m_question->source) {
            difference = m_question->mirror->region->layout().firstDifference(layoutOf(sample));
        }
        dds_return_loan(m_question->reader, samples, 1);
    }
    if (!difference.isEmpty() || ++m_question->looks == mostLooks) {
        endQuestion(difference);
    }
}

void SetReceiver::endQuestion(const QString &difference)
{
    Mirror &mirror = *m_question->mirror;
    ServiceLog::error(
        QStringLiteral(
            "source %1 of region '%2' has another layout than %3: %4; give both the same "
            "description")
            .arg(m_question->host, mirror.region->sourceKey(), mirror.region->path(),
                 difference.isEmpty() ? QStringLiteral("it does not tell in what") : difference));
    dds_delete(m_question->reader);
    m_question.reset();
    m_looks.stop();
    if (!mirror.gate.hadSource()) {
        Q_EMIT layoutRefused();
    }
}

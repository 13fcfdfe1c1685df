#include "mirror/WriteForwarder.h"

#include "Access/ProcessDataNotifier.h"
#include "mirror/SampleFields.h"
#include "mirror/SampleTaking.h"

#include <QSysInfo>

#include <cstring>
#include <vector>

#include <MirrorTopics.h>

namespace {

constexpr qint64 microseconds = 1000;

/// A text of 16 bits that is none of Unicode has no other form.
bool canTravel(const QString &text)
{
    return QString::fromUtf8(text.toUtf8()) == text;
}

QString laterText()
{
    return QStringLiteral("its next set shows whether it was written");
}

} // namespace

WriteForwarder::WriteForwarder(const MirrorDomain &domain, MirroredRegion &region,
                               const QByteArray &own, UrlChoice commands)
    : m_region(region)
    , m_own(own)
    , m_commands(std::move(commands))
    , m_notifier(new ProcessDataNotifier(region.manager(), this))
    , m_writer(domain.makeRequestWriter())
    , m_reader(domain.makeAnswerReader(m_arrival.listener()))
{
    m_clock.start();
    m_next.setSingleShot(true);
    m_region.watchWrites();
    connect(&m_next, &QTimer::timeout, this, &WriteForwarder::proceed);
    connect(&m_arrival, &SampleSignal::arrived, this, &WriteForwarder::takeAnswers);
    connect(m_notifier, &ProcessDataNotifier::published, this, [this] {
        m_region.writes()->look();
        takeFound();
    });
}

WriteForwarder::~WriteForwarder()
{
    dds_delete(m_reader);
    dds_delete(m_writer);
}

void WriteForwarder::setSource(const QByteArray &identity, const QString &name)
{
    m_source = identity;
    m_name = name;
}

void WriteForwarder::noteSign(qint64 timeStamp)
{
    m_signTime = timeStamp;
    m_signTicks = m_clock.elapsed();
}

void WriteForwarder::loseSource()
{
    m_source.clear();
    while (const auto request = m_queue.giveUp()) {
        if (request->number != 0) {
            tellUnanswered(*request, QStringLiteral("before it was lost"), laterText());
        } else {
            tellUnsent(request->values, QStringLiteral("its source is lost"));
        }
    }
    proceed();
}

void WriteForwarder::takeFound()
{
    const auto found = m_region.writes()->takeFound();
    for (const auto &written : found) {
        takeOn(written);
    }
    proceed();
}

void WriteForwarder::takeOn(const QVector<RequestedValue> &written)
{
    QVector<RequestedValue> asked;
    QVector<RequestedValue> others;
    for (const auto &value : written) {
        if (m_commands.leadsTo(value.url)) {
            asked.append(value);
        } else {
            others.append(value);
        }
    }
    if (!others.isEmpty()) {
        m_log.warning(QStringLiteral("what was written into %1 of region '%2' stays there until "
                                     "the next set of its source: --commands does not name it")
                          .arg(namesOf(others), m_region.key()));
    }
    if (asked.isEmpty()) {
        return;
    }
    QString problem = problemOf(asked);
    if (problem.isEmpty() && !m_queue.add(asked, m_clock.elapsed())) {
        problem = QStringLiteral("%1 requests wait already").arg(RequestQueue::sm_mostWaiting);
    }
    if (!problem.isEmpty()) {
        tellUnsent(asked, problem);
        m_region.showAgain();
    }
}

QString WriteForwarder::problemOf(const QVector<RequestedValue> &values) const
{
    if (m_source.isEmpty()) {
        return QStringLiteral("it has no source now");
    }
    if (values.size() > WriteRequest::sm_mostValues) {
        return QStringLiteral("a request holds at most %1 values, not %2")
            .arg(WriteRequest::sm_mostValues)
            .arg(values.size());
    }
    for (const auto &value : values) {
        if (!canTravel(value.text)) {
            return QStringLiteral("the text of '%1' is no Unicode").arg(value.url);
        }
    }
    return {};
}

void WriteForwarder::proceed()
{
    while (const auto request = m_queue.takeExpired(m_clock.elapsed())) {
        tellUnanswered(*request, QStringLiteral("within %1 ms").arg(WriteRequest::sm_lifetime),
                       isHeard()
                           ? laterText()
                           : QStringLiteral("it takes no requests: 'tessel mirror send' there "
                                            "does with --commands"));
        m_region.showAgain();
    }
    if (const auto *const request = m_queue.takeNext(m_clock.elapsed())) {
        send(*request);
    }
    const auto pause = m_queue.pause(m_clock.elapsed());
    if (pause) {
        m_next.start(*pause);
    } else {
        m_next.stop();
    }
}

void WriteForwarder::send(const RequestQueue::Request &request)
{
    std::vector<QByteArray> texts;
    std::vector<tessel_mirror_RequestedValue> values;
    texts.reserve(2 * static_cast<std::size_t>(request.values.size()));
    for (const auto &value : request.values) {
        char *const url = texts.emplace_back(value.url.toUtf8()).data();
        char *const text = texts.emplace_back(value.text.toUtf8()).data();
        // cppcheck-suppress invalidContainer ; the bytes of a text stay where they are, wherever the text goes
        values.push_back({url, value.state, text});
    }
    tessel_mirror_WriteRequest sample{};
    setSampleText(sample.region, m_region.sourceKey());
    setSampleText(sample.host, QSysInfo::machineHostName());
    std::memcpy(sample.receiver, m_own.constData(), sizeof sample.receiver);
    std::memcpy(sample.source, m_source.constData(), sizeof sample.source);
    sample.number = request.number;
    sample.asked = m_signTime + (request.asked - m_signTicks) * microseconds;
    sample.values._length = sample.values._maximum = static_cast<uint32_t>(values.size());
    sample.values._buffer = values.data();
    // One that finds no room is said again.
    dds_write(m_writer, &sample);
}

void WriteForwarder::takeAnswers()
{
    takeSamples<tessel_mirror_WriteAnswer>(m_reader, [this](const auto &sample, const auto &info) {
        if (info.valid_data) {
            take(sample);
        }
    });
    proceed();
}

void WriteForwarder::take(const tessel_mirror_WriteAnswer &sample)
{
    if (m_source.isEmpty() || sampleText(sample.region) != m_region.sourceKey()
        || std::memcmp(sample.receiver, m_own.constData(), sizeof sample.receiver) != 0
        || std::memcmp(sample.source, m_source.constData(), sizeof sample.source) != 0) {
        return;
    }
    const auto request = m_queue.answer(sample.number);
    if (!request) {
        return;
    }
    const QString names = namesOf(request->values);
    if (sample.result == static_cast<uint8_t>(WriteResult::Written)) {
        m_log.notice(QStringLiteral("what was written into %1 of region '%2' was written at its "
                                    "source, %3")
                         .arg(names, m_region.key(), m_name));
        return;
    }
    m_log.warning(
        QStringLiteral("what was written into %1 of region '%2' was refused by its source, %3: "
                       "%4 (%5)")
            .arg(names, m_region.key(), m_name, QString::fromUtf8(sample.text).left(1000))
            .arg(sample.result));
    m_region.showAgain();
}

void WriteForwarder::tellUnanswered(const RequestQueue::Request &request, const QString &until,
                                    const QString &meaning)
{
    m_log.warning(QStringLiteral(
                      "what was written into %1 of region '%2' was not answered by its source, %3, "
                      "%4; %5")
                      .arg(namesOf(request.values), m_region.key(), m_name, until, meaning));
}

bool WriteForwarder::isHeard() const
{
    dds_publication_matched_status_t matched{};
    dds_get_publication_matched_status(m_writer, &matched);
    return matched.current_count > 0;
}

void WriteForwarder::tellUnsent(const QVector<RequestedValue> &values, const QString &why)
{
    m_log.warning(QStringLiteral("what was written into %1 of region '%2' was not sent on: %3")
                      .arg(namesOf(values), m_region.key(), why));
}

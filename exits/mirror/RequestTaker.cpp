#include "mirror/RequestTaker.h"

#include "mirror/RequestedWrites.h"
#include "mirror/SampleFields.h"
#include "mirror/SampleTaking.h"

#include <algorithm>
#include <cstring>

#include <MirrorTopics.h>

namespace {

WriteRequest received(const tessel_mirror_WriteRequest &sample, quint64 publisher)
{
    WriteRequest request;
    request.publisher = publisher;
    request.receiver = QByteArray(reinterpret_cast<const char *>(sample.receiver),
                                  sizeof sample.receiver);
    request.host = sampleText(sample.host);
    request.number = sample.number;
    request.asked = sample.asked;
    // One too many tells as well that they are.
    const auto count = std::min<uint32_t>(sample.values._length, WriteRequest::sm_mostValues + 1);
    for (uint32_t i = 0; i < count; ++i) {
        const auto &value = sample.values._buffer[i];
        request.values.append(
            {QString::fromUtf8(value.url), value.state, QString::fromUtf8(value.text)});
    }
    return request;
}

} // namespace

RequestTaker::RequestTaker(const MirrorDomain &domain, RegionFollower &region,
                           const QByteArray &own, UrlChoice commands)
    : m_region(region)
    , m_own(own)
    , m_commands(std::move(commands))
    , m_writer(domain.makeAnswerWriter())
    , m_reader(domain.makeRequestReader(m_arrival.listener()))
{
    m_clock.start();
    connect(&m_arrival, &SampleSignal::arrived, this, &RequestTaker::takeAll);
}

RequestTaker::~RequestTaker()
{
    dds_delete(m_reader);
    dds_delete(m_writer);
}

void RequestTaker::takeAll()
{
    takeSamples<tessel_mirror_WriteRequest>(m_reader, [this](const auto &sample, const auto &info) {
        if (info.valid_data) {
            take(sample, info.publication_handle);
        }
    });
}

void RequestTaker::take(const tessel_mirror_WriteRequest &sample, quint64 publisher)
{
    if (sampleText(sample.region) != m_region.key()
        || std::memcmp(sample.source, m_own.constData(), sizeof sample.source) != 0) {
        return;
    }
    const WriteRequest request = received(sample, publisher);
    const auto verdict = m_gate.take(request, sampleTime(), m_clock.elapsed());
    switch (verdict.what) {
    case RequestGate::Verdict::What::LeaveAlone: return;
    case RequestGate::Verdict::What::Repeat: send(request, verdict.answer); return;
    case RequestGate::Verdict::What::Refuse:
        tell(request, verdict.answer);
        send(request, verdict.answer);
        return;
    case RequestGate::Verdict::What::CarryOut: break;
    }
    const WriteAnswer answer = carryOut(m_region, m_commands, request);
    m_gate.note(request, answer);
    tell(request, answer);
    send(request, answer);
}

void RequestTaker::tell(const WriteRequest &request, const WriteAnswer &answer)
{
    const QString who = QStringLiteral("%1 (%2)").arg(
        request.host, QString::fromLatin1(request.receiver.toHex().left(8)));
    if (answer.result == WriteResult::Written) {
        m_log.notice(QStringLiteral("the mirror at %1 has written %2 into region '%3'")
                         .arg(who, textOf(request.values), m_region.key()));
    } else {
        m_log.warning(
            QStringLiteral("a request of the mirror at %1 to write %2 into region '%3' is "
                           "refused: %4 (%5)")
                .arg(who, textOf(request.values), m_region.key(), answer.text)
                .arg(static_cast<int>(answer.result)));
    }
}

void RequestTaker::send(const WriteRequest &request, const WriteAnswer &answer)
{
    QByteArray text = answer.text.toUtf8();
    tessel_mirror_WriteAnswer sample{};
    setSampleText(sample.region, m_region.key());
    std::memcpy(sample.source, m_own.constData(), sizeof sample.source);
    std::memcpy(sample.receiver, request.receiver.constData(), sizeof sample.receiver);
    sample.number = answer.number;
    sample.result = static_cast<uint8_t>(answer.result);
    sample.text = text.data();
    // One that finds no room is asked for again.
    dds_write(m_writer, &sample);
}

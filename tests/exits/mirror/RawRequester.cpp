// Asks a source for writes as no mirror would, as its standard input says. A line is
//   KEY NUMBER AGE REPEATS [URL STATE TEXT]...
// with one blank between, AGE in milliseconds, and TEXT in hexadecimal, "-" for none. The request is written
// REPEATS times, once each when the one before was answered, and each answer is told: "NUMBER RESULT TEXT".
#include "mirror/MirrorDomain.h"
#include "mirror/SampleFields.h"
#include "service/Refusal.h"

#include <QByteArray>
#include <QList>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include <MirrorTopics.h>

namespace {

constexpr qint64 microseconds = 1000;

/// Waits for the next sample that @p isWanted takes.
template <typename Sample, typename IsWanted>
void take(const MirrorDomain &domain, dds_entity_t reader, const IsWanted &isWanted)
{
    const dds_entity_t waitset = domain.makeWaitset({reader});
    for (bool isTaken = false; !isTaken;) {
        dds_waitset_wait(waitset, nullptr, 0, DDS_INFINITY);
        void *samples[1] = {};
        dds_sample_info_t info;
        while (!isTaken && dds_take(reader, samples, &info, 1, 1) == 1) {
            isTaken = info.valid_data && isWanted(*static_cast<const Sample *>(samples[0]));
            dds_return_loan(reader, samples, 1);
        }
    }
    dds_delete(waitset);
}

class Requester
{
public:
    explicit Requester(const MirrorDomain &domain)
        : m_domain(domain)
        , m_writer(domain.makeRequestWriter())
        , m_answers(domain.makeAnswerReader(nullptr))
    {
    }

    void ask(const QList<QByteArray> &words)
    {
        findSource(words[0]);
        std::vector<QByteArray> texts;
        std::vector<tessel_mirror_RequestedValue> values;
        texts.reserve(static_cast<std::size_t>(words.size()));
        for (int i = 4; i + 2 < words.size(); i += 3) {
            char *const text = texts
                                   .emplace_back(words[i + 2] == "-"
                                                     ? QByteArray()
                                                     : QByteArray::fromHex(words[i + 2]))
                                   .data();
            char *const url = texts.emplace_back(words[i]).data();
            values.push_back({url, static_cast<uint8_t>(words[i + 1].toUInt()), text});
        }
        tessel_mirror_WriteRequest sample{};
        setSampleText(sample.region, QString::fromUtf8(words[0]));
        setSampleText(sample.host, QStringLiteral("raw"));
        std::memset(sample.receiver, 'r', sizeof sample.receiver);
        std::memcpy(sample.source, m_source.data(), sizeof sample.source);
        sample.number = words[1].toULongLong();
        sample.asked = m_time - words[2].toLongLong() * microseconds;
        sample.values._length = sample.values._maximum = static_cast<uint32_t>(values.size());
        sample.values._buffer = values.data();
        for (int i = 0; i < words[3].toInt(); ++i) {
            write(sample);
        }
    }

private:
    void findSource(const QByteArray &key)
    {
        const dds_entity_t sets = m_domain.makeSetReader(nullptr);
        take<tessel_mirror_SourceSet>(m_domain, sets, [&](const auto &sample) {
            std::memcpy(m_source.data(), sample.source, m_source.size());
            m_time = sample.time_stamp;
            return sampleText(sample.region) == QString::fromUtf8(key);
        });
        dds_delete(sets);
        dds_publication_matched_status_t matched{};
        while (matched.current_count == 0) {
            dds_sleepfor(DDS_MSECS(1));
            dds_get_publication_matched_status(m_writer, &matched);
        }
        dds_subscription_matched_status_t answered{};
        while (answered.current_count == 0) {
            dds_sleepfor(DDS_MSECS(1));
            dds_get_subscription_matched_status(m_answers, &answered);
        }
    }
    void write(const tessel_mirror_WriteRequest &request)
    {
        if (dds_write(m_writer, &request) != DDS_RETCODE_OK) {
            std::exit(EXIT_FAILURE);
        }
        take<tessel_mirror_WriteAnswer>(m_domain, m_answers, [](const auto &answer) {
            std::printf("%llu %u %s\n", static_cast<unsigned long long>(answer.number),
                        unsigned{answer.result}, answer.text);
            std::fflush(stdout);
            return true;
        });
    }

    const MirrorDomain &m_domain;
    dds_entity_t m_writer;
    dds_entity_t m_answers;
    std::array<unsigned char, 16> m_source{};
    qint64 m_time = 0;
};

} // namespace

int main(int argc, char *argv[])
try {
    DomainSettings settings;
    settings.domain = argc > 1 ? static_cast<quint32>(std::atoi(argv[1])) : 0;
    settings.interfaces = QStringList(QStringLiteral("lo"));
    const MirrorDomain domain(settings);
    Requester requester(domain);
    std::string line;
    while (std::getline(std::cin, line)) {
        requester.ask(QByteArray::fromStdString(line).split(' '));
    }
    return EXIT_SUCCESS;
} catch (const Refusal &refusal) {
    std::fputs(qPrintable(refusal.text), stderr);
    return EXIT_FAILURE;
}

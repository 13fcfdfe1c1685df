// What the engine alone takes for the bytes of a set, by a writer and a reader as tessel-mirror makes them:
//   engine-subscribe DOMAIN INTERFACE SECONDS              says "ready"; the time begins with a writer
//   engine-publish DOMAIN INTERFACE SIZE RATE SECONDS      begins when it has heard of a reader
// Both end with a line of JSON, of nanoseconds by the clock of the machine, which both ends have.
#include "mirror/MirrorDomain.h"
#include "service/Refusal.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <MirrorTopics.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int lease = 20000; // ms

std::int64_t now()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
        .count();
}

long long part(std::vector<std::int64_t> times, std::size_t percent)
{
    std::sort(times.begin(), times.end());
    return times.empty() ? -1 : times[(times.size() - 1) * percent / 100];
}

DomainSettings settingsOf(const char *domain, const char *interface)
{
    DomainSettings settings;
    settings.domain = static_cast<quint32>(std::atoi(domain));
    settings.interfaces = QStringList{QString::fromLatin1(interface)};
    return settings;
}

template <class Seen>
void waitUntil(Seen seen)
{
    constexpr std::chrono::milliseconds betweenLooks{10};
    while (!seen()) {
        std::this_thread::sleep_for(betweenLooks);
    }
}

int publish(const MirrorDomain &domain, std::size_t size, double rate, double seconds)
{
    const dds_entity_t writer = domain.makeSetWriter(lease);
    waitUntil([writer] {
        dds_publication_matched_status_t status;
        return dds_get_publication_matched_status(writer, &status) == DDS_RETCODE_OK
               && status.current_count > 0;
    });
    std::vector<std::uint8_t> bytes(size);
    tessel_mirror_SourceSet sample{};
    std::strcpy(sample.region, "engine");
    sample.bytes._buffer = bytes.data();
    sample.bytes._length = sample.bytes._maximum = static_cast<std::uint32_t>(bytes.size());
    const std::chrono::duration<double> period(1 / rate);
    const auto begin = Clock::now();
    int failed = 0;
    for (int i = 0; i < static_cast<int>(rate * seconds); ++i) {
        std::this_thread::sleep_until(begin
                                      + std::chrono::duration_cast<Clock::duration>(i * period));
        ++sample.generation;
        sample.time_stamp = now();
        failed += dds_write(writer, &sample) == DDS_RETCODE_OK ? 0 : 1;
    }
    dds_delete(writer);
    std::printf("{\"failed\": %d}\n", failed);
    return EXIT_SUCCESS;
}

void take(dds_entity_t reader, void *ways)
{
    void *samples[1] = {};
    dds_sample_info_t info;
    while (dds_take(reader, samples, &info, 1, 1) == 1) {
        if (info.valid_data) {
            static_cast<std::vector<std::int64_t> *>(ways)->push_back(
                now() - static_cast<const tessel_mirror_SourceSet *>(samples[0])->time_stamp);
        }
        dds_return_loan(reader, samples, 1);
    }
}

int subscribe(const MirrorDomain &domain, double seconds)
{
    std::vector<std::int64_t> ways;
    dds_listener_t *const listener = dds_create_listener(&ways);
    dds_lset_data_available(listener, &take);
    const dds_entity_t reader = domain.makeSetReader(listener);
    std::puts("ready");
    std::fflush(stdout);
    waitUntil([reader] {
        dds_subscription_matched_status_t status;
        return dds_get_subscription_matched_status(reader, &status) == DDS_RETCODE_OK
               && status.current_count > 0;
    });
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    // No thread of the engine is in take() behind this.
    dds_delete(reader);
    dds_delete_listener(listener);
    std::printf("{\"count\": %zu, \"median\": %lld, \"ninetyNine\": %lld}\n", ways.size(),
                part(ways, 50), part(ways, 99));
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char *argv[])
{
    const std::string role = argc > 1 ? argv[1] : "";
    try {
        if (role == "engine-subscribe" && argc == 5) {
            return subscribe(MirrorDomain(settingsOf(argv[2], argv[3])), std::atof(argv[4]));
        }
        if (role == "engine-publish" && argc == 7) {
            return publish(MirrorDomain(settingsOf(argv[2], argv[3])),
                           static_cast<std::size_t>(std::atoi(argv[4])), std::atof(argv[5]),
                           std::atof(argv[6]));
        }
    } catch (const Refusal &refusal) {
        std::fprintf(stderr, "%s\n", qPrintable(refusal.text));
    }
    return EXIT_FAILURE;
}

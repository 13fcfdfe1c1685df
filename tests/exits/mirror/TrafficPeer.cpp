// What the two ends of a mirror see of sets whose leaves all hold the number of the set, but for the first, which
// holds when it was published:
//   publish FILE RATE SECONDS [torn|older]   creates the region, says "ready", and publishes; with a word some
//                                            sets are wrong on purpose
//   watch FILE SECONDS                       says "ready", and looks at every set that it is woken for
// Each ends with a line of JSON; times are in nanoseconds. A rate of a publisher that comes too late is left out,
// as a device does.
#include "Access/ProcessDataGuards.h"
#include "Access/ProcessDataSnapshot.h"
#include "Access/ProcessDataWatcher.h"
#include "Access/ProcessDoubleHandle.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QString>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>

namespace {

using Clock = std::chrono::steady_clock;

/// Each leaf is an int64 with an error state behind it, and the next one behind that.
constexpr unsigned int slotSize = 12;
/// Of so many one is wrong on purpose, if that is asked for.
constexpr quint64 wrongAmong = 20;

/// Of the machine, and so of both ends.
qint64 now()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
        .count();
}

/// How often this thread gave its processor away by itself: to wait for somebody, not because others want it too.
long waits()
{
    rusage usage{};
    ::getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

class Region
{
public:
    Region(const char *file, ProcessDataManager::InitTypeSharedMemory type)
        : m_root(manager.createProcessDataFromFile(QString::fromLocal8Bit(file), type))
    {
        if (!m_root) {
            std::exit(EXIT_FAILURE);
        }
        ConfigurationAndProcessDataBase::ListElements elements;
        m_root->collectElements(elements, false);
        for (const auto &element : elements) {
            leaves.push_back(qSharedPointerDynamicCast<ProcessDataValue>(element));
        }
        std::sort(leaves.begin(), leaves.end(), [](const auto &left, const auto &right) {
            const QString key = QStringLiteral("offsetSharedMemory");
            return left->getProperty(key).toUInt() < right->getProperty(key).toUInt();
        });
        std::puts("ready");
        std::fflush(stdout);
    }

    ProcessDataManager manager;
    std::vector<ProcessDataValueSharedPointer> leaves;

private:
    ConfigurationAndProcessDataBase::BaseClassSharedPointer m_root;
};

qint64 part(std::vector<qint64> &times, std::size_t percent)
{
    std::sort(times.begin(), times.end());
    return times.empty() ? -1 : times[(times.size() - 1) * percent / 100];
}

bool publishSet(Region &region, const std::vector<ProcessDoubleHandle> &numbers, quint64 number)
{
    ProcessDataWriteGuard guard(region.manager);
    for (const auto &leaf : numbers) {
        leaf.writeNoLock(static_cast<double>(number));
    }
    const ProcessValue time(QVariant(now()),
                            ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    return region.leaves[0]->setValueNoLock(time) && guard.publish();
}

bool publishWrong(Region &region, const std::vector<ProcessDoubleHandle> &numbers, quint64 number,
                  const std::string &wrong)
{
    if (wrong == "older") {
        // Alone: one that is followed at once is overtaken on the way.
        return publishSet(region, numbers, number - 2);
    }
    return publishSet(region, {numbers.begin(), numbers.begin() + 1}, number);
}

int publish(const char *file, double rate, double seconds, const std::string &wrong)
{
    Region region(file, ProcessDataManager::InitTypeSharedMemoryCreate);
    const std::vector<ProcessDoubleHandle> numbers(region.leaves.begin() + 1, region.leaves.end());
    std::vector<qint64> times;
    quint64 number = 0;
    int waited = 0; ///< sets in which somebody was waited for
    const std::chrono::duration<double> period(1 / rate);
    const auto begin = Clock::now();
    const auto timeOf = [&](int tick) {
        return begin + std::chrono::duration_cast<Clock::duration>(tick * period);
    };
    for (int tick = 0; tick < static_cast<int>(rate * seconds); ++tick) {
        if (Clock::now() > timeOf(tick + 1)) {
            continue;
        }
        std::this_thread::sleep_until(timeOf(tick));
        const long waitsBefore = waits();
        const qint64 before = now();
        ++number;
        const bool isWrong = number % wrongAmong == 0 && !wrong.empty();
        if (!(isWrong ? publishWrong(region, numbers, number, wrong)
                      : publishSet(region, numbers, number))) {
            return EXIT_FAILURE;
        }
        times.push_back(now() - before);
        waited += waits() == waitsBefore ? 0 : 1;
    }
    const qint64 median = part(times, 50);
    const qint64 most = part(times, 99);
    std::printf("{\"sets\": %zu, \"median\": %lld, \"ninetyNine\": %lld, \"most\": %lld, "
                "\"waited\": %d}\n",
                times.size(), static_cast<long long>(median), static_cast<long long>(most),
                static_cast<long long>(part(times, 100)), waited);
    return EXIT_SUCCESS;
}

/// What a watcher found.
struct Findings
{
    std::vector<qint64> delays;
    qint64 first = 0; ///< number of the first set
    qint64 newest = 0;
    qint64 sets = 0;
    int torn = 0;
    int older = 0;
    int states = 0;  ///< sets without valid values between two that had some
    int pending = 0; ///< the same behind the last that had some
};

void look(const ProcessDataSnapshot &set, qint64 then, Findings &findings)
{
    const unsigned char *const bytes = set.getBytes();
    for (unsigned int at = 2 * slotSize; at < set.getSize(); at += slotSize) {
        if (std::memcmp(bytes + slotSize, bytes + at, slotSize) != 0) {
            ++findings.torn;
            return;
        }
    }
    quint32 state = 0;
    qint64 published = 0;
    qint64 number = 0;
    std::memcpy(&published, bytes, sizeof published);
    std::memcpy(&number, bytes + slotSize, sizeof number);
    std::memcpy(&state, bytes + slotSize + sizeof number, sizeof state);
    if (state != 0) {
        // What a creator makes and leaves has no values; between two sets with values there are some.
        findings.pending += findings.first == 0 ? 0 : 1;
        return;
    }
    findings.states += findings.pending;
    findings.pending = 0;
    findings.older += number < findings.newest ? 1 : 0;
    findings.first = findings.first == 0 ? number : findings.first;
    if (number > findings.newest) {
        findings.newest = number;
        findings.delays.push_back(then - published);
        ++findings.sets;
    }
}

int watch(const char *file, double seconds)
{
    Region region(file, ProcessDataManager::InitTypeSharedMemoryAttach);
    ProcessDataWatcher watcher(region.manager);
    ProcessDataSnapshot set;
    Findings findings;
    quint64 seen = watcher.getGeneration();
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (Clock::now() < end) {
        if (watcher.wait(seen, std::chrono::milliseconds(100)) == ProcessDataWatcher::Result::NewSet
            && set.take(region.manager)) {
            look(set, now(), findings);
        }
    }
    const qint64 median = part(findings.delays, 50);
    const qint64 most = part(findings.delays, 99);
    std::printf(
        "{\"sets\": %lld, \"published\": %lld, \"torn\": %d, \"older\": %d, \"states\": %d, "
        "\"median\": %lld, \"ninetyNine\": %lld}\n",
        static_cast<long long>(findings.sets),
        static_cast<long long>(findings.first == 0 ? 0 : findings.newest - findings.first + 1),
        findings.torn, findings.older, findings.states, static_cast<long long>(median),
        static_cast<long long>(most));
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc >= 5 && std::strcmp(argv[1], "publish") == 0) {
        return publish(argv[2], std::atof(argv[3]), std::atof(argv[4]), argc == 6 ? argv[5] : "");
    }
    if (argc == 4 && std::strcmp(argv[1], "watch") == 0) {
        return watch(argv[2], std::atof(argv[3]));
    }
    return EXIT_FAILURE;
}

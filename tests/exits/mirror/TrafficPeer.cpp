// What the two ends of a mirror see of sets whose leaves all hold the microsecond of their writing:
//   publish FILE RATE SECONDS   creates the region, says "ready", and publishes
//   watch FILE SECONDS          says "ready", and looks at every set that it is woken for
// Each ends with a line of JSON.
#include "Access/ProcessDataGuards.h"
#include "Access/ProcessDataSnapshot.h"
#include "Access/ProcessDataWatcher.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QString>
#include <QVector>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

/// Of the machine, and so of both ends.
qint64 now()
{
    return std::chrono::duration_cast<microseconds>(Clock::now().time_since_epoch()).count();
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
            leaves.append(qSharedPointerDynamicCast<ProcessDataValue>(element));
        }
        std::puts("ready");
        std::fflush(stdout);
    }

    ProcessDataManager manager;
    QVector<ProcessDataValueSharedPointer> leaves;

private:
    ConfigurationAndProcessDataBase::BaseClassSharedPointer m_root;
};

qint64 part(std::vector<qint64> &sorted, std::size_t percent)
{
    std::sort(sorted.begin(), sorted.end());
    return sorted.empty() ? -1 : sorted[(sorted.size() - 1) * percent / 100];
}

int publish(const char *file, int rate, int seconds)
{
    Region region(file, ProcessDataManager::InitTypeSharedMemoryCreate);
    std::vector<qint64> times;
    const auto begin = Clock::now();
    for (int i = 0; i < rate * seconds; ++i) {
        std::this_thread::sleep_until(begin + microseconds(qint64{1000000} * i / rate));
        const qint64 before = now();
        ProcessDataWriteGuard guard(region.manager);
        const ProcessValue value(QVariant(before),
                                 ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        for (const auto &leaf : std::as_const(region.leaves)) {
            leaf->setValueNoLock(value);
        }
        if (!guard.publish()) {
            return EXIT_FAILURE;
        }
        times.push_back(now() - before);
    }
    const qint64 median = part(times, 50);
    std::printf("{\"sets\": %zu, \"median\": %lld, \"most\": %lld}\n", times.size(),
                static_cast<long long>(median), static_cast<long long>(part(times, 100)));
    return EXIT_SUCCESS;
}

/// What all leaves hold; nothing if they do not hold the same.
std::optional<ProcessValue> commonValue(const Region &region, const ProcessDataSnapshot &set)
{
    ProcessValue first(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    ProcessValue other = first;
    for (int i = 0; i < region.leaves.size(); ++i) {
        set.getValue(*region.leaves[i], i == 0 ? first : other);
        if (i > 0 && (first != other || first.getErrorType() != other.getErrorType())) {
            return {};
        }
    }
    return first;
}

int watch(const char *file, int seconds)
{
    Region region(file, ProcessDataManager::InitTypeSharedMemoryAttach);
    ProcessDataWatcher watcher(region.manager);
    ProcessDataSnapshot set;
    std::vector<qint64> delays;
    int torn = 0;
    int older = 0;
    int states = 0;
    qint64 newest = 0;
    quint64 seen = watcher.getGeneration();
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    while (Clock::now() < end) {
        if (watcher.wait(seen, std::chrono::milliseconds(100)) != ProcessDataWatcher::Result::NewSet
            || !set.take(region.manager)) {
            continue;
        }
        const qint64 then = now();
        const auto value = commonValue(region, set);
        if (!value) {
            ++torn;
        } else if (value->getErrorType()
                   != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID) {
            ++states;
        } else {
            const qint64 written = value->getValue().toLongLong();
            older += written < newest ? 1 : 0;
            if (written > newest) {
                delays.push_back(then - written);
            }
            newest = std::max(newest, written);
        }
    }
    const qint64 median = part(delays, 50);
    const qint64 most = part(delays, 99);
    std::printf("{\"sets\": %zu, \"torn\": %d, \"older\": %d, \"states\": %d, \"median\": %lld, "
                "\"ninetyNine\": %lld}\n",
                delays.size(), torn, older, states, static_cast<long long>(median),
                static_cast<long long>(most));
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc == 5 && std::strcmp(argv[1], "publish") == 0) {
        return publish(argv[2], std::atoi(argv[3]), std::atoi(argv[4]));
    }
    if (argc == 4 && std::strcmp(argv[1], "watch") == 0) {
        return watch(argv[2], std::atoi(argv[3]));
    }
    return EXIT_FAILURE;
}

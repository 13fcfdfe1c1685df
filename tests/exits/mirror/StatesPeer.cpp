// When something happened, by the monotonic clock of the machine in nanoseconds:
//   states FILE   attaches, says "ready", and prints a line of JSON with the leaves of each set that is seen, from the
//                 one that is there on
//   late CPU      sleeps for a millisecond, again and again, on that processor, says "ready", and prints from when to
//                 when it overslept; and every 20 ms that it is awake, as if overslept by nothing
// Both go on until they are ended.
#include "Access/ProcessDataSnapshot.h"
#include "Access/ProcessDataWatcher.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sched.h>
#include <time.h>

namespace {

constexpr qint64 second = 1000 * 1000 * 1000;
constexpr qint64 period = second / 1000;
/// Less than that is the way of a wake-up on any machine.
constexpr qint64 leastLate = period;
constexpr qint64 signInterval = 20 * period;

qint64 now()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * second + time.tv_nsec;
}

void say(const QByteArray &line)
{
    std::puts(line.constData());
    std::fflush(stdout);
}

/// URL to value and number of the state.
QJsonObject leavesOf(const ProcessDataSnapshot &set,
                     const QMap<QString, ProcessDataValueSharedPointer> &elements)
{
    QJsonObject leaves;
    for (auto one = elements.cbegin(); one != elements.cend(); ++one) {
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        if (set.getValue(**one, value)) {
            leaves.insert(one.key(), QJsonArray{value.getValue().toString(),
                                                static_cast<int>(value.getErrorType())});
        }
    }
    return leaves;
}

int tellStates(const char *file)
{
    ProcessDataManager manager;
    const auto root = manager.createProcessDataFromFile(
        QString::fromLocal8Bit(file), ProcessDataManager::InitTypeSharedMemoryAttach);
    if (!root) {
        return EXIT_FAILURE;
    }
    QStringList urls;
    QString prefix;
    root->collectUrlsOfElements(urls, prefix);
    QMap<QString, ProcessDataValueSharedPointer> elements;
    for (const auto &url : std::as_const(urls)) {
        // As the tools name it.
        elements.insert(url.mid(1), root->getLeafProcessDataValue(url));
    }
    ProcessDataWatcher watcher(manager);
    ProcessDataSnapshot set;
    quint64 seen = watcher.getGeneration();
    say("ready");
    while (true) {
        if (set.take(manager)) {
            const qint64 time = now();
            const QJsonObject line{{QStringLiteral("time"), QString::number(time)},
                                   {QStringLiteral("leaves"), leavesOf(set, elements)}};
            say(QJsonDocument(line).toJson(QJsonDocument::Compact));
        }
        while (watcher.wait(seen, std::chrono::seconds(1)) != ProcessDataWatcher::Result::NewSet) {
        }
    }
}

int tellLateness(int processor)
{
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(static_cast<std::size_t>(processor), &processors);
    if (::sched_setaffinity(0, sizeof processors, &processors) != 0) {
        return EXIT_FAILURE;
    }
    say("ready");
    for (qint64 told = now();;) {
        const qint64 due = now() + period;
        const timespec until{due / second, due % second};
        ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
        const qint64 awake = now();
        const bool isLate = awake - due > leastLate;
        if (isLate || awake - told > signInterval) {
            told = awake;
            std::printf("%lld %lld\n", static_cast<long long>(isLate ? due : awake),
                        static_cast<long long>(awake));
            std::fflush(stdout);
        }
    }
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc == 3 && std::strcmp(argv[1], "states") == 0) {
        return tellStates(argv[2]);
    }
    if (argc == 3 && std::strcmp(argv[1], "late") == 0) {
        return tellLateness(std::atoi(argv[2]));
    }
    return EXIT_FAILURE;
}

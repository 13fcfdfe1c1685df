// The sets of the library's own torture across a mirror: leaves of every type, on odd addresses, with and without
// error states, each of which follows from the number of its set.
//   describe KEY                prints a description
//   publish FILE RATE SECONDS   creates the region, says "ready", and publishes
//   watch FILE SECONDS          says "ready", and checks all leaves of each set that it is woken for
// The last two end with a line of JSON.
#include "Access/ProcessDataGuards.h"
#include "Access/ProcessDataWatcher.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "torture/SetCodec.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
using Torture::FirstGroup;
using Torture::SecondGroup;
using Torture::SetCodec;
using Torture::SetNumber;

class Region
{
public:
    Region(const char *file, ProcessDataManager::InitTypeSharedMemory type)
        : m_root(manager.createProcessDataFromFile(QString::fromLocal8Bit(file), type))
        , codec(m_root)
    {
        if (!m_root || !codec.isComplete()) {
            std::exit(EXIT_FAILURE);
        }
        std::puts("ready");
        std::fflush(stdout);
    }

    ProcessDataManager manager;

private:
    ConfigurationAndProcessDataBase::BaseClassSharedPointer m_root;

public:
    SetCodec codec;
};

bool publishSet(Region &region, quint64 number)
{
    ProcessDataWriteGuard guard(region.manager);
    bool isWritten = true;
    for (const auto group : {FirstGroup, SecondGroup}) {
        for (int leaf = 0; leaf < region.codec.size(group); ++leaf) {
            isWritten = region.codec.writeLeaf(group, leaf, number) && isWritten;
        }
    }
    return isWritten && guard.publish();
}

int publish(const char *file, double rate, double seconds)
{
    Region region(file, ProcessDataManager::InitTypeSharedMemoryCreate);
    const std::chrono::duration<double> period(1 / rate);
    const auto begin = Clock::now();
    const int sets = static_cast<int>(rate * seconds);
    for (int i = 0; i < sets; ++i) {
        std::this_thread::sleep_until(begin
                                      + std::chrono::duration_cast<Clock::duration>(i * period));
        const auto count = static_cast<quint64>(i) + 1;
        if (!publishSet(region, SetNumber::make(count, 0, Torture::Content::Both))) {
            return EXIT_FAILURE;
        }
    }
    std::printf("{\"sets\": %d}\n", sets);
    return EXIT_SUCCESS;
}

/// Both groups of one set; false if it has to be read again.
bool readSet(Region &region, Torture::GroupValues &first, Torture::GroupValues &second)
{
    if (!region.manager.lockReadBuffer()) {
        return false;
    }
    region.codec.readGroup(FirstGroup, first);
    region.codec.readGroup(SecondGroup, second);
    bool isToRepeat = false;
    return region.manager.unlockReadBuffer(isToRepeat) && !isToRepeat;
}

/// What is wrong with a set, of which @p number becomes that of its values; empty if nothing is.
QString problemOf(const SetCodec &codec, const Torture::GroupValues &first,
                  const Torture::GroupValues &second, quint64 &number)
{
    quint64 other = 0;
    if (!SetCodec::numberOf(first, number) || !SetCodec::numberOf(second, other)
        || number != other) {
        return QStringLiteral("sets %1 and %2 in one").arg(number).arg(other);
    }
    const QString foreign = codec.findForeign(FirstGroup, first, number);
    return foreign.isEmpty() ? codec.findForeign(SecondGroup, second, number) : foreign;
}

/// What a mirror shows while it has no source: before the first set, and behind the last one.
bool isWithoutSource(const Torture::GroupValues &values)
{
    return values.front().getErrorType()
           == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT;
}

int watch(const char *file, double seconds)
{
    Region region(file, ProcessDataManager::InitTypeSharedMemoryAttach);
    ProcessDataWatcher watcher(region.manager);
    Torture::GroupValues first;
    Torture::GroupValues second;
    quint64 newest = 0;
    int sets = 0;
    bool isLost = false;
    QString problem;
    quint64 seen = watcher.getGeneration();
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (problem.isEmpty() && Clock::now() < end) {
        if (watcher.wait(seen, std::chrono::milliseconds(100)) != ProcessDataWatcher::Result::NewSet
            || !readSet(region, first, second)) {
            continue;
        }
        // A busy machine has the watch begin late, and see the end of the publisher.
        if (isWithoutSource(first) && isWithoutSource(second)) {
            isLost = newest > 0;
            continue;
        }
        quint64 number = 0;
        problem = isLost ? QStringLiteral("lost and back, behind set %1").arg(newest)
                         : problemOf(region.codec, first, second, number);
        if (problem.isEmpty() && number < newest) {
            problem = QStringLiteral("set %1 behind %2").arg(number).arg(newest);
        }
        sets += number > newest ? 1 : 0;
        newest = number;
    }
    std::printf("{\"sets\": %d, \"problem\": \"%s\"}\n", sets, qPrintable(problem));
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char *argv[])
{
    const std::string role = argc > 2 ? argv[1] : "";
    if (role == "describe") {
        std::puts(SetCodec::description(QString::fromLocal8Bit(argv[2]), true).constData());
        return EXIT_SUCCESS;
    }
    if (role == "publish" && argc == 5) {
        return publish(argv[2], std::atof(argv[3]), std::atof(argv[4]));
    }
    if (role == "watch" && argc == 4) {
        return watch(argv[2], std::atof(argv[3]));
    }
    return EXIT_FAILURE;
}

// What the Python module is compared with: the same work in C++. Run by benchmarks/python-module.
//
//     python-floor wake DESCRIPTION COUNT   nanoseconds from each publication until it was read
//     python-floor decode DESCRIPTION COUNT nanoseconds of each decoding of a whole set

#include "Access/ProcessDataSnapshot.h"
#include "Access/ProcessDataWatcher.h"
#include "ProcessData/Linux/ProcessDataValue.h"

#include <QString>
#include <QVector>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;

struct Attached
{
    explicit Attached(const char *path)
        : root(manager.createProcessDataFromFile(QString::fromLocal8Bit(path),
                                                 ProcessDataManager::InitTypeSharedMemoryAttach))
    {
        ConfigurationAndProcessDataBase::ListElements elements;
        if (root) {
            root->collectElements(elements, true);
        }
        for (const auto &element : elements) {
            leaves.append(qSharedPointerDynamicCast<ProcessDataValue>(element));
        }
    }

    ProcessDataManager manager;
    ConfigurationAndProcessDataBase::BaseClassSharedPointer root;
    QVector<ProcessDataValueSharedPointer> leaves;
};

qint64 now()
{
    return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
}

/// Each set holds the moment at which it was published.
void wake(Attached &region, int count)
{
    ProcessDataWatcher watcher(region.manager);
    quint64 seen = watcher.getGeneration();
    std::puts("ready");
    std::fflush(stdout);
    for (int i = 0; i < count; ++i) {
        if (watcher.wait(seen, std::chrono::seconds(60)) != ProcessDataWatcher::Result::NewSet) {
            return;
        }
        ProcessDataSnapshot set;
        set.take(region.manager);
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
        set.getValue(*region.leaves.first(), value);
        std::printf("%lld\n", static_cast<long long>(now() - value.getValue().toLongLong()));
        std::fflush(stdout);
    }
}

void decode(Attached &region, int count)
{
    ProcessDataSnapshot set;
    set.take(region.manager);
    std::vector<unsigned char> copy(set.getSize());
    std::vector<double> numbers(static_cast<std::size_t>(region.leaves.size()));
    for (int i = 0; i < count; ++i) {
        const qint64 begin = now();
        std::memcpy(copy.data(), set.getBytes(), copy.size());
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
        for (int leaf = 0; leaf < region.leaves.size(); ++leaf) {
            set.getValue(*region.leaves[leaf], value);
            numbers[static_cast<std::size_t>(leaf)] = value.toDouble();
        }
        std::printf("%lld\n", static_cast<long long>(now() - begin));
    }
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 4) {
        std::fputs("python-floor wake|decode DESCRIPTION COUNT\n", stderr);
        return 2;
    }
    Attached region(argv[2]);
    if (!region.root) {
        return 3;
    }
    const int count = QString::fromLocal8Bit(argv[3]).toInt();
    if (std::strcmp(argv[1], "wake") == 0) {
        wake(region, count);
    } else {
        decode(region, count);
    }
    return 0;
}

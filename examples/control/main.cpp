#include "Access/ProcessDataGuards.h"
#include "Access/ProcessDataWatcher.h"
#include "Access/ProcessDoubleHandle.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QTextStream>

using namespace ProcessDataDefinitions;

namespace {

/// Lets a tank that is too full down by half.
void letDown(ProcessDataManager &manager, const ProcessDoubleHandle &level,
             const ProcessDoubleHandle &temperature, double metres)
{
    //! [guard]
    ProcessDataWriteGuard guard(manager);
    level.writeNoLock(metres / 2);
    temperature.writeNoLock(0, PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    guard.publish(); // without it the lock ends with the guard, and nobody sees the set yet
    //! [guard]
}

/// Prints what is published now.
bool print(ProcessDataManager &manager, const ProcessDataValueSharedPointer &levelLeaf,
           const ProcessDataValueSharedPointer &temperatureLeaf)
{
    //! [consistently]
    ProcessValue levelNow(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    ProcessValue temperatureNow(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    const bool isOneSet = readConsistently(manager, [&] {
        levelLeaf->getValueNoLock(levelNow);
        temperatureLeaf->getValueNoLock(temperatureNow);
    });
    //! [consistently]
    QTextStream(stdout) << "level " << levelNow.toDouble() << ' '
                        << getProcessValueStateTypeAsString(levelNow.getErrorType()) << '\n'
                        << "temperature "
                        << getProcessValueStateTypeAsString(temperatureNow.getErrorType()) << '\n';
    return isOneSet;
}

} // namespace

/// control FILE [LOOKS]: attaches to the region of a tank, lets a tank that is too full down by half, and
/// prints what is published then. Looks once, or so many times: each time as soon as a set is published,
/// those of its own included.
int main(int argc, char *argv[])
{
    const QString file = QString::fromLocal8Bit(argc > 1 ? argv[1] : "tank.process.json");
    ProcessDataManager manager;
    const auto tree = manager.createProcessDataFromFile(
        file, ProcessDataManager::InitTypeSharedMemoryAttach);
    //! [handle]
    const ProcessDoubleHandle level(tree, "tank/level"); // once
    //! [handle]
    const ProcessDoubleHandle temperature(tree, "tank/temperature");
    if (!level.isValid() || !temperature.isValid()) {
        return 1;
    }

    ProcessDataWatcher watcher(manager);
    quint64 seen = watcher.getGeneration(); // before the first read, so that no set is missed
    for (int looks = argc > 2 ? atoi(argv[2]) : 1; looks > 0; --looks) {
        //! [read]
        double metres = 0;
        ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;
        const bool isKnown = level.read(metres, state) && state == PROCESS_VALUE_ERROR_TYPE_VALID;
        //! [read]
        if (isKnown && metres > 1) {
            letDown(manager, level, temperature, metres);
        }
        if (!print(manager, level.getLeaf(), temperature.getLeaf())) {
            return 1;
        }
        constexpr std::chrono::milliseconds endless{-1};
        if (looks > 1 && watcher.wait(seen, endless) != ProcessDataWatcher::Result::NewSet) {
            return 1; // the region is gone
        }
    }
    return 0;
}

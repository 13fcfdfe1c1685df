#include "Access/ProcessDataGuards.h"
#include "Access/ProcessDoubleHandle.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QTextStream>

using namespace ProcessDataDefinitions;

/// control FILE: attaches to the region of a tank, lets a tank that is too full down by half, and
/// prints what is published then.
int main(int argc, char *argv[])
{
    const QString file = QString::fromLocal8Bit(argc > 1 ? argv[1] : "tank.process.json");
    ProcessDataManager manager;
    const auto tree = manager.createProcessDataFromFile(
        file, ProcessDataManager::InitTypeSharedMemoryAttach);
    //! [handle]
    const ProcessDoubleHandle level(tree, "tank/level"); // once
    double metres = 0;
    ErrorTypes state = PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;
    const bool isKnown = level.read(metres, state) && state == PROCESS_VALUE_ERROR_TYPE_VALID;
    //! [handle]
    const ProcessDoubleHandle temperature(tree, "tank/temperature");
    if (!level.isValid() || !temperature.isValid()) {
        return 1;
    }
    if (isKnown && metres > 1) {
        //! [guard]
        ProcessDataWriteGuard guard(manager);
        level.writeNoLock(metres / 2);
        temperature.writeNoLock(0, PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
        guard.publish(); // without it the lock ends with the guard, and nobody sees the set yet
        //! [guard]
    }

    QTextStream output(stdout);
    const auto &levelLeaf = level.getLeaf();
    const auto &temperatureLeaf = temperature.getLeaf();
    //! [consistently]
    ProcessValue levelNow(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    ProcessValue temperatureNow(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    const bool isOneSet = readConsistently(manager, [&] {
        levelLeaf->getValueNoLock(levelNow);
        temperatureLeaf->getValueNoLock(temperatureNow);
    });
    //! [consistently]
    output << "level " << levelNow.toDouble() << ' '
           << getProcessValueStateTypeAsString(levelNow.getErrorType()) << '\n'
           << "temperature " << getProcessValueStateTypeAsString(temperatureNow.getErrorType())
           << '\n';
    return isOneSet ? 0 : 1;
}

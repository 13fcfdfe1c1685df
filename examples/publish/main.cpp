#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <cstdio>

using namespace ProcessDataDefinitions;

/// publish FILE: creates the region of a tank and publishes one set. Ends with its standard input.
int main(int argc, char *argv[])
{
    const QString file = QString::fromLocal8Bit(argc > 1 ? argv[1] : "tank.process.json");
    //! [publish]
    ProcessDataManager manager;
    const auto tree = manager.createProcessDataFromFile(
        file, ProcessDataManager::InitTypeSharedMemoryCreate);
    //! [publish]
    if (!tree) {
        return 1;
    }
    //! [publish]
    const auto level = tree->getLeafProcessDataValue("tank/level");
    const auto temperature = tree->getLeafProcessDataValue("tank/temperature");
    manager.lockWriteBuffer();
    level->setValueNoLock({1.25, PROCESS_VALUE_ERROR_TYPE_VALID});
    temperature->setValueNoLock(PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE);
    manager.unlockWriteBuffer();
    manager.swapReadAndWriteBuffer(); // from now on readers see both
    //! [publish]
    std::puts("published; Ctrl-D ends");
    std::fflush(stdout);
    while (std::getchar() != EOF) { }
    return 0;
}

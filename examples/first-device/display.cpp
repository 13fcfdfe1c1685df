#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QTextStream>

using namespace ProcessDataDefinitions;

/// Attaches to the region of a boiler and prints one set.
int main()
{
    ProcessDataManager manager;
    const auto tree = manager.createProcessDataFromFile(
        "boiler.process.json", ProcessDataManager::InitTypeSharedMemoryAttach);
    if (!tree) {
        return 1;
    }
    const auto temperatureLeaf = tree->getLeafProcessDataValue("boiler/temperature");
    const auto heatingLeaf = tree->getLeafProcessDataValue("boiler/heating");

    ProcessValue temperature(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    ProcessValue heating(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    bool repeat = false;
    do { // again if a writer got in between
        manager.lockReadBuffer();
        temperatureLeaf->getValueNoLock(temperature);
        heatingLeaf->getValueNoLock(heating);
        manager.unlockReadBuffer(repeat);
    } while (repeat);

    QTextStream output(stdout);
    if (temperature.getErrorType() == PROCESS_VALUE_ERROR_TYPE_VALID) {
        output << "temperature " << temperature.toDouble() << '\n';
    } else {
        output << "temperature unknown: "
               << getProcessValueStateTypeAsString(temperature.getErrorType()) << '\n';
    }
    output << "heating " << (heating.toBool() ? "on" : "off") << '\n';
    return 0;
}

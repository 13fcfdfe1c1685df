#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QTextStream>

using namespace ProcessDataDefinitions;

/// Creates the region of a boiler and publishes a set for each line that is typed.
int main()
{
    ProcessDataManager manager;
    const auto tree = manager.createProcessDataFromFile(
        "boiler.process.json", ProcessDataManager::InitTypeSharedMemoryCreate);
    if (!tree) {
        return 1;
    }
    const auto temperature = tree->getLeafProcessDataValue("boiler/temperature");
    const auto heating = tree->getLeafProcessDataValue("boiler/heating");

    QTextStream input(stdin);
    QTextStream output(stdout);
    output << "a number is a temperature, anything else a broken sensor; Ctrl-D ends" << Qt::endl;
    QString line;
    while (input.readLineInto(&line)) {
        bool isNumber = false;
        const double celsius = line.toDouble(&isNumber);

        manager.lockWriteBuffer();
        temperature->setValueNoLock(isNumber
                                        ? ProcessValue(celsius, PROCESS_VALUE_ERROR_TYPE_VALID)
                                        : ProcessValue(PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE));
        heating->setValueNoLock({isNumber && celsius < 60, PROCESS_VALUE_ERROR_TYPE_VALID});
        manager.unlockWriteBuffer();
        manager.swapReadAndWriteBuffer(); // both at once

        output << "published" << Qt::endl;
    }
    return 0;
}

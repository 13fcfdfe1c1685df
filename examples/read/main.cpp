#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QTextStream>

using namespace ProcessDataDefinitions;

/// read FILE: attaches to the region of a tank and prints one set.
int main(int argc, char *argv[])
{
    const QString file = QString::fromLocal8Bit(argc > 1 ? argv[1] : "tank.process.json");
    //! [read]
    ProcessDataManager manager;
    const auto tree = manager.createProcessDataFromFile(
        file, ProcessDataManager::InitTypeSharedMemoryAttach);
    //! [read]
    if (!tree) {
        return 1;
    }
    //! [read]
    ProcessValue level(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    ProcessValue temperature(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
    bool repeat = false;
    do { // again if a writer got in between
        manager.lockReadBuffer();
        tree->getLeafProcessDataValue("tank/level")->getValueNoLock(level);
        tree->getLeafProcessDataValue("tank/temperature")->getValueNoLock(temperature);
        manager.unlockReadBuffer(repeat);
    } while (repeat);
    //! [read]
    QTextStream output(stdout);
    output << "level " << level.toDouble() << ' '
           << getProcessValueStateTypeAsString(level.getErrorType()) << '\n'
           << "temperature " << temperature.toDouble() << ' '
           << getProcessValueStateTypeAsString(temperature.getErrorType()) << '\n';
    return 0;
}

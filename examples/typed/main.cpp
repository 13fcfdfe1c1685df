#include "ProcessDataManagement/ProcessDataManager.h"
#include "tank.hpp"

#include <QTextStream>

/// typed FILE: attaches to the region of a tank, and prints its level by an accessor that was made by
/// `tessel gen cpp tank.process.json -o tank.hpp`.
int main(int argc, char *argv[])
{
    const QString file = QString::fromLocal8Bit(argc > 1 ? argv[1] : "tank.process.json");
    ProcessDataManager manager;
    const auto tree = manager.createProcessDataFromFile(
        file, ProcessDataManager::InitTypeSharedMemoryAttach);
    //! [accessors]
    const tank::Values values(tree);
    if (!values.isValid()) { // there is no region, or it has another layout
        QTextStream(stderr) << values.getProblem() << '\n';
        return 1;
    }
    double level = 0;
    tank::State state = tank::leaf::valid;
    if (values->tank.level.read(level, state)) { // a name that is not there does not compile
        QTextStream(stdout) << "level " << level << ' ' << getProcessValueStateTypeAsString(state)
                            << '\n';
    }
    //! [accessors]
    return 0;
}

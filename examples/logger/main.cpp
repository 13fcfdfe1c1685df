#include "Access/ProcessBulkReader.h"
#include "Access/ProcessDataWatcher.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QCoreApplication>
#include <QTextStream>

#include <chrono>
#include <thread>
#include <vector>

using namespace ProcessDataDefinitions;

namespace {

QString cellOf(double value, ErrorTypes state)
{
    return state == PROCESS_VALUE_ERROR_TYPE_VALID ? QString::number(value, 'g', 12)
                                                   : getProcessValueStateTypeAsString(state);
}

/// How long a line waits for a new set at most.
constexpr std::chrono::milliseconds longestInterval{100};

} // namespace

/// logger FILE LINES URL...: attaches to the region of a description and writes a table of values, a
/// line as soon as a set is published, and at least one each 100 milliseconds. An erroneous value is
/// written as the name of its state.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 4) {
        return 2;
    }
    const QStringList urls = arguments.mid(3);
    ProcessDataManager manager;
    const auto tree = manager.createProcessDataFromFile(
        arguments[1], ProcessDataManager::InitTypeSharedMemoryAttach);
    //! [reader]
    ProcessBulkReader reader(&manager, tree, urls);
    //! [reader]
    if (!reader.isComplete()) {
        return 1;
    }

    //! [reader]
    std::vector<double> values(static_cast<std::size_t>(urls.size()));
    std::vector<ErrorTypes> states(values.size());
    //! [reader]
    //! [watcher]
    ProcessDataWatcher watcher(manager);
    quint64 seen = watcher.getGeneration();
    //! [watcher]
    QTextStream output(stdout);
    output << urls.join(QLatin1Char(',')) << '\n';
    for (int line = arguments[2].toInt(); line > 0; --line) {
        if (!reader.read(values.data(), states.data())) {
            return 1;
        }
        QStringList cells;
        for (std::size_t i = 0; i < values.size(); ++i) {
            cells.append(cellOf(values[i], states[i]));
        }
        output << cells.join(QLatin1Char(',')) << '\n';
        output.flush();
        if (line == 1) {
            break;
        }
        //! [wait]
        const auto result = watcher.wait(seen, longestInterval);
        //! [wait]
        using Result = ProcessDataWatcher::Result;
        if (result == Result::NotSupported || result == Result::RegionGone) {
            std::this_thread::sleep_for(longestInterval); // nobody to wait for
        }
    }
    return 0;
}

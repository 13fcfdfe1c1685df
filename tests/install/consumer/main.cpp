// A program as an application's developer writes it, against the installed package: it publishes a
// value in a region of its own and reads it back, and has the parser make leaves of its own class.
#include "Companion/FileSearch.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Factories/Factory.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QDebug>
#include <QString>

#include <cstdlib>
#include <memory>

#include <unistd.h>

namespace {

const char description[] = R"({
    "type": "treenode",
    "sizeOfSharedMemory": 8,
    "doubleBuffer": true,
    "keyProcessDataMemory": "consumer-%1-",
    "value": {
        "level": {
            "type": "int32",
            "offsetSharedMemory": 0,
            "relativeOffsetMetadata": 4,
            "sizeValue": 4,
            "sizeMetadata": 4,
            "readOnly": false
        }
    }
})";

bool publishAndReadBack(ProcessDataManager &manager, ProcessDataValue &level)
{
    const ProcessValue written(42, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    ProcessValue read(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    const bool published = level.setValue(written) && manager.swapReadAndWriteBuffer();
    level.getValue(read);
    qDebug() << "written:" << written << "read:" << read;
    return published && read == written;
}

class Recipe : public ConfigurationDataValue
{
public:
    using ConfigurationDataValue::ConfigurationDataValue;
};

template <class Leaf>
bool parsesTo(const QString &postfix)
{
    const ConfigurationAndProcessDataBase::BaseClassSharedPointer leaf =
        ConfigurationAndProcessDataParser().parseFromJson(
            QStringLiteral(R"({"type": "int32", "value": 7})"), postfix);
    return !leaf.dynamicCast<Leaf>().isNull();
}

/// Beside the classes of the library, which stay what they were.
bool registerOwnClass()
{
    using VEXOFactories::LeafFactory;
    LeafFactory::instance().registerCreator(QStringLiteral("recipe.json"),
                                            std::make_unique<LeafFactory::Creator<Recipe>>());
    return parsesTo<Recipe>(QStringLiteral("recipe.json"))
           && parsesTo<ConfigurationDataValue>(QStringLiteral("config.json"))
           && parsesTo<ProcessDataValue>(QStringLiteral("process.json"));
}

} // namespace

int main()
{
    if (!registerOwnClass()) {
        return EXIT_FAILURE;
    }
    ProcessDataManager manager;
    const auto root = manager.createProcessDataFromJson(
        QString::fromLatin1(description).arg(getpid()), QStringLiteral("process.json"),
        ProcessDataManager::InitTypeSharedMemoryCreate);
    if (root.isNull()) {
        return EXIT_FAILURE;
    }
    // The cast needs the class information that the library exports.
    auto *level = qobject_cast<ProcessDataValue *>(root->getLeaf(QStringLiteral("level")).data());
    QList<QFileInfo> files;
    searchFilesOnPathRecursive(QStringLiteral("no-such-folder"), {QStringLiteral("*")}, files);
    return level != nullptr && publishAndReadBack(manager, *level) ? EXIT_SUCCESS : EXIT_FAILURE;
}

#include "EndOfProcess.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/StringConversionsDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationModificationHandler.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <cstdio>

#include <unistd.h>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;
using Element = Base::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

const char regionDescription[] = R"({
    "type": "treenode",
    "sizeOfSharedMemory": 8,
    "doubleBuffer": true,
    "keyProcessDataMemory": "end-of-process-%1-",
    "displayPosition": 0,
    "value": {
        "level": {
            "type": "int32",
            "displayPosition": 0,
            "offsetSharedMemory": 0,
            "relativeOffsetMetadata": 4,
            "sizeValue": 4,
            "sizeMetadata": 4,
            "readOnly": false
        }
    }
})";

/// Debug messages tell of every region, and are of no interest here.
void showWarnings(QtMsgType type, const QMessageLogContext & /*context*/, const QString &text)
{
    if (type != QtDebugMsg) {
        std::fprintf(stderr, "%s\n", qPrintable(text));
    }
}

bool expect(bool isTrue, const char *statement)
{
    if (!isTrue) {
        std::fprintf(stderr, "false: %s\n", statement);
    }
    return isTrue;
}

#define EXPECT(statement) expect(statement, #statement)

Element parsedRegion()
{
    return ConfigurationAndProcessDataParser().parseFromJson(
        QString::fromLatin1(regionDescription).arg(getpid()), QStringLiteral("process.json"));
}

bool changeAndStamp(const Element &root, int value)
{
    ConfigurationModificationHandler &handler = ConfigurationModificationHandler::getInstance();
    handler.clearModifiedInstances();
    QList<ModifiedInstanceItem> stamped;
    const bool isDone = EXPECT(Tools::isNumberType(root->getLeaf(QStringLiteral("level"))))
                        && EXPECT(root->getLeaf(QStringLiteral("empty"))->isNumberNoInput())
                        && EXPECT(Tools::setConfigValue(QStringLiteral("level"), root, value))
                        && EXPECT(Tools::setConfigValue(QStringLiteral("table#0,1"), root, value))
                        && EXPECT(Tools::setProperty(QStringLiteral("level"),
                                                     QStringLiteral("notes[1]/x"), root, value))
                        // Such an index is none that the short way knows.
                        && EXPECT(root->getProperty(QStringLiteral("note[1,,]")).isNull())
                        && EXPECT(
                            handler.touch(root, QStringLiteral("module"), QStringLiteral("object"),
                                          QStringLiteral("instance"), QStringLiteral("Device")));
    handler.getModifiedInstances(stamped);
    return isDone && EXPECT(stamped.size() == 1)
           && EXPECT(stamped.first().instanceName == QLatin1String("instance"));
}

bool exchangeValues(int value)
{
    using namespace ProcessDataDefinitions;
    ProcessDataManager manager;
    const Element root = manager.createProcessData(parsedRegion(),
                                                   ProcessDataManager::InitTypeSharedMemoryCreate);
    if (!EXPECT(!root.isNull())) {
        return false;
    }
    const auto level = root->getLeafProcessDataValue(QStringLiteral("level"));
    ProcessValue read(PROCESS_VALUE_ERROR_TYPE_TIMEOUT);
    bool isWhole = EXPECT(level->setValue(ProcessValue(value, PROCESS_VALUE_ERROR_TYPE_VALID)))
                   && EXPECT(manager.swapReadAndWriteBuffer());
    level->getValue(read);
    isWhole = isWhole && EXPECT(read.getValue() == QVariant(value));
    return EXPECT(getProcessValueStateTypeAsString(PROCESS_VALUE_ERROR_TYPE_TIMEOUT)
                  != QLatin1String("not defined"))
           && EXPECT(getNamurStateTypeAsString(NAMUR_STATE_TYPE_FAILURE) == QLatin1String("F"))
           && EXPECT(ProcessValueErrorTypeMapDefinitions::getMapStateTypeToDoubleValue().size() > 2)
           && EXPECT(ProcessValueErrorTypeMapDefinitions::getMapFloatValueToStateType().size() > 2)
           && EXPECT(StringConversionsDefinitions::getBoolValueTrue() == QLatin1String("true"))
           && isWhole;
}

bool mergeDescriptions()
{
    Element root = parsedRegion();
    Element part = parsedRegion();
    int size = 0;
    int offset = 0;
    return EXPECT(ProcessDataBuilder().buildProcessData(root, part, QStringLiteral("part"), size,
                                                        offset))
           && EXPECT(!part->hasProperty(Definitions::getStrKeyProcessDataMemory()));
}

} // namespace

bool useTheLibrary(const char *path, int value)
{
    qInstallMessageHandler(showWarnings);
    const QString file = QString::fromLocal8Bit(path);
    const ConfigurationAndProcessDataParser parser;
    const Element root = parser.parseFromFile(file);
    return EXPECT(!root.isNull()) && changeAndStamp(root, value)
           && EXPECT(parser.frameToFile(root, file)) && exchangeValues(value)
           && mergeDescriptions();
}

#include "qml/TesselPlugin.h"

#include "TesselModels/ConfigurationModel.h"
#include "TesselModels/ModelEnumerations.h"
#include "TesselModels/ProcessDataItem.h"
#include "TesselModels/ProcessDataListModel.h"
#include "TesselModels/ProcessDataModel.h"
#include "TesselModels/ProcessDataSource.h"

#include <QtQml>

void TesselPlugin::registerTypes(const char *uri)
{
    constexpr int major = 1;
    constexpr int minor = 0;
    qmlRegisterType<ConfigurationModel>(uri, major, minor, "ConfigurationModel");
    qmlRegisterType<ProcessDataItem>(uri, major, minor, "ProcessDataItem");
    qmlRegisterType<ProcessDataListModel>(uri, major, minor, "ProcessDataListModel");
    qmlRegisterType<ProcessDataModel>(uri, major, minor, "ProcessDataModel");
    qmlRegisterType<ProcessDataSource>(uri, major, minor, "ProcessDataSource");
    qmlRegisterUncreatableMetaObject(TesselModels::staticMetaObject, uri, major, minor, "Tessel",
                                     QStringLiteral("Tessel holds enumerations alone"));
}

#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Configuration/ConfigurationModificationHandler.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QMetaEnum>

#include <cstdio>

namespace {

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Base = ConfigurationAndProcessDataBase;
using Root = Base::BaseClassSharedPointer;
using Tools = ConfigurationAndProcessDataTools;

void print(const QString &line)
{
    std::printf("%s\n", qPrintable(line));
}

QString textOf(const QVariant &value)
{
    if (value.userType() == QMetaType::QVariantList) {
        return QString::fromUtf8(QJsonDocument(QJsonArray::fromVariantList(value.toList()))
                                     .toJson(QJsonDocument::Compact));
    }
    return value.toString();
}

void printStatus(const QString &what, Base::SetValueStatus status)
{
    const auto names = QMetaEnum::fromType<Base::SetValueStatus>();
    print(QStringLiteral("%1: %2").arg(what, QLatin1String(names.valueToKey(status))));
}

/// Says what the leaf signals, as long as the tree lives.
void listen(const Root &root, const QString &url)
{
    //! [listen]
    const auto leaf = root->getLeafConfigurationData(url);
    QObject::connect(leaf.data(), &ConfigurationDataValue::valueChanged, leaf.data(),
                     [url](const QVariant &value) {
                         print(QStringLiteral("  signal: %1 is %2 now").arg(url, textOf(value)));
                     });
    //! [listen]
}

void readTypedValues(const Root &root)
{
    //! [read]
    double filter = 0;
    int language = 0;
    QString tag;
    if (Tools::extractConfigValueDouble("inputs/channel1/filter", root, filter)
        && Tools::extractConfigValueInt("device/language", root, language)
        && Tools::extractConfigValueQString("device/tag", root, tag)) {
        const QStringList languages = Tools::extractPropertyStringList("device/language",
                                                                       "selectionList", root);
        print(QStringLiteral("%1 speaks %2 and filters with %3 s")
                  .arg(tag, Tools::selectionIndexToSelectionString(language, languages))
                  .arg(filter));
    }
    if (Tools::isNoInputValueIndicatorSet("inputs/channel1/alarmDelay", root)) {
        print("nobody has entered an alarm delay");
    }
    //! [read]
}

void tryWrites(const Root &root)
{
    //! [write]
    const auto write = [&root](const QString &url, const QVariant &value) {
        const auto status = Tools::setConfigValueWithStatus(url, root, value);
        printStatus(QStringLiteral("%1 = %2").arg(url, value.toString()), status);
    };
    write("device/tag", "PT-205"); // accepted
    write("device/tag", "PT-205"); // stands there already
    write("device/tag", "pt 205"); // refused by the regular expression
    write("device/tga", "PT-205"); // leads nowhere
    //! [write]
    const auto status = Tools::setPropertyWithStatus("device/tag", "regularExpresion", root, ".*");
    printStatus("a property that the element does not have", status);
}

void editCells(const Root &root, const QString &url)
{
    //! [cells]
    auto status = Tools::setConfigValueWithStatus(url + "#1,1", root, 25.3);
    printStatus("cell 1,1", status);
    status = Tools::setConfigValueWithStatus(url + "#9,1", root, 25.3);
    printStatus("cell 9,1", status);
    print("cell 1,1 is " + textOf(Tools::extractConfigValueWithArrayIndexUrl(url + "#1,1", root)));
    //! [cells]
}

void editTable(const Root &root, const QString &url)
{
    //! [table]
    Array2dDataTypeWrapper table(root, url);
    table.setRowValues({20.0, 99.8, 0}, 3);
    if (table.isDynamicArray() && table.getNumberOfRows() < table.getMaxNumberOfRows()) {
        table.addNewRow(); // with the columns' default values
        table.setCellValue(table.getNumberOfRows() - 1, 0, 16.0);
    }
    printStatus("the cells of the table", table.setArrayCellsWithStatus());
    table.setColumnUnitType(1, "volume");
    printStatus("the unit types of its columns", table.setArrayInfoWithStatus(root, url));
    //! [table]
    print(QStringLiteral("%1 rows; unit types '%2'")
              .arg(table.getNumberOfRows())
              .arg(table.getColumnUnitTypes().join("', '")));
}

/// Stamps and writes every configuration file of the directory.
bool writeBack(const Root &root, const QDir &directory, const QString &name)
{
    //! [write back]
    if (!Access::setParsedConfigurationProcessDescription(directory, "configure", "device", name,
                                                          root, false)) {
        return false;
    }
    QList<ModifiedInstanceItem> stamped;
    ConfigurationModificationHandler::getInstance().getModifiedInstances(stamped);
    for (const auto &item : std::as_const(stamped)) {
        print("stamped " + item.instanceName);
    }
    //! [write back]
    return true;
}

} // namespace

/// configure DIR: changes the configuration in a copy of examples/device, and says what happens.
int main(int argc, char *argv[])
{
    const QFileInfo instance(
        QDir::cleanPath(QString::fromLocal8Bit(argc > 1 ? argv[1] : "device")));
    const QDir directory = instance.dir();
    const QString name = instance.fileName();
    //! [open]
    const Root root = Access::getParsedConfigurationProcessDescription(directory, name, false);
    //! [open]
    const QString url = QStringLiteral("inputs/calibration/table");
    if (!root || !root->getLeafConfigurationData(url)
        || !root->getLeafConfigurationData("device/tag")) {
        std::fprintf(stderr, "no copy of examples/device: %s\n", qPrintable(instance.filePath()));
        return 1;
    }
    listen(root, "device/tag");
    listen(root, url);
    readTypedValues(root);
    tryWrites(root);
    editCells(root, url);
    editTable(root, url);
    return writeBack(root, directory, name) ? 0 : 1;
}

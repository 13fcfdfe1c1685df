#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/PropertyManagerConst.h"
#include "Companion/SelectorUrlArrayIndex.h"
#include "Configuration/ConfigurationAndProcessDataTools.h"
#include "Configuration/ConfigurationArray2dDataTypeWrapper.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/ConfigurationDataValue.h"
#include "TesselModels/ConfigurationValue_p.h"
#include "TesselModels/ConfigurationWorker_p.h"
#include "trees/ChildrenInOrder.h"

#include <QDir>
#include <QFileInfo>

#include <mutex>

using namespace TesselModels;

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Tools = ConfigurationAndProcessDataTools;
using Access = ConfigurationDataAndProcessDescriptionAccess;
using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

/// An instance is named without extension.
QString instanceName(const QFileInfo &entry)
{
    return entry.isDir() ? entry.fileName() : entry.fileName().section(QLatin1Char('.'), 0, 0);
}

QString problemOf(const QString &path)
{
    const QFileInfo entry(path);
    if (!entry.exists()) {
        return QStringLiteral("%1: no such configuration file or folder").arg(path);
    }
    const QString ending = QLatin1Char('.') + PropertyManagerConst::getConfigFileExtension();
    if (!entry.isDir() && instanceName(entry) + ending != entry.fileName()) {
        return QStringLiteral("%1: not the name of a configuration, which is NAME%2")
            .arg(path, ending);
    }
    const QFileInfo folder(entry.absoluteDir().filePath(instanceName(entry)));
    return !entry.isDir() && folder.isDir()
               ? QStringLiteral("%1: the folder '%2' beside it is the instance of that name; give "
                                "that one")
                     .arg(path, folder.fileName())
               : QString();
}

ConfigurationLeaf describe(const QString &url, const ConfigurationDataValue &element)
{
    const auto text = [&](const QString &key) { return element.getProperty(key).toString(); };
    ConfigurationLeaf leaf;
    leaf.url = url;
    leaf.type = text(Definitions::getKeyDataPropertyType());
    leaf.unit = text(Definitions::getKeyDataPropertyUnit());
    leaf.label = text(Definitions::getKeyDataPropertyLabelTextId());
    leaf.pattern = text(Definitions::getKeyDataPropertyRegularExpression());
    leaf.minimum = ChildrenInOrder::given(element, Definitions::getKeyDataPropertyMinLimit());
    leaf.maximum = ChildrenInOrder::given(element, Definitions::getKeyDataPropertyMaxLimit());
    leaf.displayPosition = ChildrenInOrder::given(element,
                                                  Definitions::getKeyDataPropertyDisplayPosition());
    leaf.selection = element.getProperty(QStringLiteral("selectionList")).toStringList();
    leaf.isReadOnly = element.getProperty(Definitions::getKeyDataPropertyReadOnly()).toBool();
    const QVariant value = element.getValue();
    leaf.value = value.isNull() ? QVariant() : value;
    return leaf;
}

/// Files that did not parse are null here, and left out.
void collect(const BaseClassSharedPointer &node, const QString &prefix,
             std::vector<ConfigurationLeaf> &leaves)
{
    const auto &children = node->getChildMap();
    const QStringList keys = ChildrenInOrder::keys(children);
    for (const auto &key : keys) {
        const BaseClassSharedPointer child = children[key];
        const QString url = prefix + key;
        if (const auto leaf = qSharedPointerDynamicCast<ConfigurationDataValue>(child)) {
            leaves.push_back(describe(url, *leaf));
        } else if (child) {
            collect(child, url + QLatin1Char('/'), leaves);
        }
    }
}

/// The records of the stamps are one for the whole process, and not made for two threads.
std::mutex &stamping()
{
    static auto *const mutex = new std::mutex;
    return *mutex;
}

} // namespace

ConfigurationWorker::ConfigurationWorker()
{
    qRegisterMetaType<std::shared_ptr<const ShownConfiguration>>();
}

ConfigurationWorker::~ConfigurationWorker() = default;

void ConfigurationWorker::load(const QString &path)
{
    const auto shown = std::make_shared<ShownConfiguration>();
    m_path = path;
    m_root.reset();
    shown->errorText = path.isEmpty() ? QString() : problemOf(path);
    if (!path.isEmpty() && shown->errorText.isEmpty()) {
        // A path such as "." does not show the name of the folder.
        const QFileInfo entry(QFileInfo(path).canonicalFilePath());
        m_directory = entry.absoluteDir();
        m_instance = instanceName(entry);
        m_root = Access::getParsedConfigurationProcessDescription(m_directory, m_instance, false);
        if (m_root) {
            collect(m_root, {}, shown->leaves);
        } else {
            shown->errorText = QStringLiteral(
                                   "%1: cannot be read or parsed; 'tessel validate' shows where")
                                   .arg(path);
        }
    }
    shown->isLoaded = !m_root.isNull();
    Q_EMIT loaded(shown);
}

QSharedPointer<ConfigurationDataValue> ConfigurationWorker::leafAt(const QString &url) const
{
    return m_root ? m_root->getLeafConfigurationData(url)
                  : QSharedPointer<ConfigurationDataValue>();
}

void ConfigurationWorker::write(const QString &url, const QVariant &value)
{
    QString leafUrl = url;
    auto element = leafAt(leafUrl);
    const bool isCell = !element && url.contains(QLatin1Char('#'));
    if (isCell) {
        leafUrl.truncate(url.lastIndexOf(QLatin1Char('#')));
        element = leafAt(leafUrl);
    }
    if (!element) {
        Q_EMIT written(url, ConfigurationTargetMissing,
                       configurationStatusText(ConfigurationTargetMissing), url, {});
        return;
    }
    // The cells of an array have no type of their own here.
    ConfigurationEntry entry{value, ConfigurationChanged, {}};
    if (!isCell) {
        entry = ConfigurationEntry::of(*element, value);
    }
    if (entry.status == ConfigurationChanged) {
        entry.status = static_cast<ConfigurationStatus>(
            Tools::setConfigValueWithStatus(url, m_root, entry.value));
        entry.text = configurationStatusText(entry.status);
    }
    const QVariant held = element->getValue();
    Q_EMIT written(url, entry.status, entry.text, leafUrl, held.isNull() ? QVariant() : held);
}

void ConfigurationWorker::save(const QString &moduleName, const QString &objectName)
{
    if (!m_root) {
        Q_EMIT saved(false, QStringLiteral("there is no configuration to be saved"));
        return;
    }
    const std::lock_guard<std::mutex> lock(stamping());
    const bool isSaved = Access::setParsedConfigurationProcessDescription(
        m_directory, moduleName, objectName, m_instance, m_root, false);
    Q_EMIT saved(isSaved,
                 isSaved ? QString()
                         : QStringLiteral("%1: not all was written, the log has the reason; look "
                                          "after space and permissions and save again")
                               .arg(m_path));
}

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "TesselModels/SourceDescription_p.h"
#include "TesselModels/UrlTree_p.h"
#include "trees/ChildrenInOrder.h"

#include <QFileInfo>

#include <algorithm>
#include <limits>
#include <tuple>
#include <utility>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

/// Null, with the reason in @p problem.
BaseClassSharedPointer parse(const QString &path, QString &problem)
{
    const QFileInfo entry(path);
    if (!entry.exists()) {
        problem = QStringLiteral("%1: no such description file or folder").arg(path);
        return {};
    }
    BaseClassSharedPointer root;
    if (!entry.isDir()) {
        root = ConfigurationAndProcessDataParser().parseFromFile(path);
        // A path such as "." does not show the name of the folder.
    } else if (!ConfigurationDataAndProcessDescriptionAccess::parseProcessDir(
                   root, QFileInfo(entry.canonicalFilePath()))) {
        root.reset();
    }
    if (!root) {
        problem =
            QStringLiteral("%1: cannot be read or parsed; 'tessel validate' shows where").arg(path);
    }
    return root;
}

SourceLeaf describe(const QString &url, const ProcessDataValue &element)
{
    const auto text = [&](const QString &key) { return element.getProperty(key).toString(); };
    SourceLeaf leaf;
    leaf.url = url;
    leaf.name = url.section(QLatin1Char('/'), -1);
    leaf.type = text(Definitions::getKeyDataPropertyType());
    leaf.content = Definitions::getBasicDataTypeMapForProcessData().value(leaf.type,
                                                                          QMetaType::UnknownType);
    leaf.unit = text(Definitions::getKeyDataPropertyUnit());
    leaf.label = text(Definitions::getKeyDataPropertyLabelTextId());
    leaf.minimum = ChildrenInOrder::given(element, Definitions::getKeyDataPropertyMinLimit());
    leaf.maximum = ChildrenInOrder::given(element, Definitions::getKeyDataPropertyMaxLimit());
    leaf.displayPosition = ChildrenInOrder::given(element,
                                                  Definitions::getKeyDataPropertyDisplayPosition());
    leaf.entries = element.getProperty(QStringLiteral("selectionList")).toStringList();
    leaf.isReadOnly = element.getProperty(Definitions::getKeyDataPropertyReadOnly()).toBool();
    return leaf;
}

/// Files that did not parse are null here, and left out.
void collect(const BaseClassSharedPointer &node, const QString &prefix,
             SourceDescription &description, QVector<ProcessDataValueSharedPointer> &elements)
{
    const auto &children = node->getChildMap();
    const QStringList keys = ChildrenInOrder::keys(children);
    for (const auto &key : keys) {
        const BaseClassSharedPointer child = children[key];
        const QString url = prefix + key;
        if (const auto leaf = qSharedPointerDynamicCast<ProcessDataValue>(child)) {
            SourceLeaf described = describe(url, *leaf);
            if (described.content == QMetaType::QString) {
                described.textIndex = description.textCount++;
            }
            description.leafAt.insert(url, elements.size());
            description.leaves.push_back(std::move(described));
            elements.append(leaf);
        } else if (child) {
            collect(child, url + QLatin1Char('/'), description, elements);
        }
    }
}

} // namespace

bool SourceLeaf::operator==(const SourceLeaf &other) const
{
    const auto facts = [](const SourceLeaf &leaf) {
        return std::tie(leaf.url, leaf.type, leaf.unit, leaf.label, leaf.minimum, leaf.maximum,
                        leaf.displayPosition, leaf.entries, leaf.isReadOnly);
    };
    return facts(*this) == facts(other);
}

QStringList SourceDescription::urls() const
{
    QStringList all;
    all.reserve(static_cast<int>(leaves.size()));
    for (const auto &leaf : leaves) {
        all.append(leaf.url);
    }
    return all;
}

int SourceDescription::find(const QString &url) const
{
    const auto exact = leafAt.constFind(url);
    return exact != leafAt.cend() ? exact.value() : leafAt.value(plainUrl(url), -1);
}

DescriptionReading DescriptionReading::read(const QString &path)
{
    DescriptionReading reading;
    reading.root = parse(path, reading.problem);
    if (!reading.root) {
        return reading;
    }
    static_cast<DescribedRegion &>(reading) = DescribedRegion::of(*reading.root, path,
                                                                  reading.problem);
    if (!reading.problem.isEmpty()) {
        return reading;
    }
    SourceDescription description;
    collect(reading.root, {}, description, reading.elements);
    if (description.leaves.empty()) {
        reading.problem = QStringLiteral("%1: holds no process value").arg(path);
        return reading;
    }
    reading.description = std::make_shared<const SourceDescription>(std::move(description));
    return reading;
}

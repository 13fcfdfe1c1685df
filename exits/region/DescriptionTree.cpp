#include "region/DescriptionTree.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "region/ParsedFiles.h"
#include "service/Refusal.h"
#include "service/ServiceLog.h"
#include "trees/ChildrenInOrder.h"

#include <QFileInfo>

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

std::optional<QVariant> given(const ProcessDataValueSharedPointer &element, const QString &key)
{
    const QVariant value = element->getProperty(key);
    return value.isValid() && !value.isNull() ? std::make_optional(value) : std::nullopt;
}

FollowedLeaf::Kind kindOf(const QString &type)
{
    switch (Definitions::getBasicDataTypeMapForProcessData().value(type, QMetaType::UnknownType)) {
    case QMetaType::QString: return FollowedLeaf::Kind::Text;
    case QMetaType::Bool: return FollowedLeaf::Kind::Boolean;
    default: return FollowedLeaf::Kind::Number;
    }
}

FollowedLeaf describe(const QString &url, const ProcessDataValueSharedPointer &element)
{
    const auto text = [&](const QString &key) { return element->getProperty(key).toString(); };
    FollowedLeaf leaf;
    leaf.url = url;
    leaf.type = text(Definitions::getKeyDataPropertyType());
    leaf.kind = kindOf(leaf.type);
    leaf.unit = text(Definitions::getKeyDataPropertyUnit());
    leaf.label = text(Definitions::getKeyDataPropertyLabelTextId());
    leaf.minLimit = given(element, Definitions::getKeyDataPropertyMinLimit());
    leaf.maxLimit = given(element, Definitions::getKeyDataPropertyMaxLimit());
    leaf.viewStart = given(element, Definitions::getKeyDataPropertyViewStart());
    leaf.viewEnd = given(element, Definitions::getKeyDataPropertyViewEnd());
    leaf.entries = element->getProperty(QStringLiteral("selectionList")).toStringList();
    leaf.isReadOnly = element->getProperty(Definitions::getKeyDataPropertyReadOnly()).toBool();
    leaf.element = element;
    return leaf;
}

void collect(const BaseClassSharedPointer &node, const QString &prefix,
             QVector<FollowedLeaf> &leaves)
{
    const auto &children = node->getChildMap();
    const QStringList keys = ChildrenInOrder::keys(children);
    for (const auto &key : keys) {
        const BaseClassSharedPointer child = children[key];
        const QString url = prefix + key;
        if (!child) {
            ServiceLog::warning(
                QStringLiteral("'%1' is left out: its file does not parse; 'tessel validate' shows "
                               "where")
                    .arg(url));
        } else if (const auto leaf = qSharedPointerDynamicCast<ProcessDataValue>(child)) {
            leaves.append(describe(url, leaf));
        } else {
            collect(child, url + QLatin1Char('/'), leaves);
        }
    }
}

void nameDevices(QVector<FollowedLeaf> &leaves, const QString &path)
{
    const QFileInfo entry(path);
    const bool isFolder = entry.isDir();
    const QString ofFile = entry.fileName().section(QLatin1Char('.'), 0, 0);
    for (auto &leaf : leaves) {
        leaf.device = isFolder ? leaf.url.section(QLatin1Char('/'), 0, 0) : ofFile;
        leaf.urlInDevice = isFolder ? leaf.url.section(QLatin1Char('/'), 1) : leaf.url;
    }
}

} // namespace

DescriptionTree DescriptionTree::read(const QString &path)
{
    DescriptionTree tree;
    tree.root = parsedFiles(path, FileKind::ProcessDescription);
    QString problem;
    static_cast<DescribedRegion &>(tree) = DescribedRegion::of(*tree.root, path, problem);
    if (!problem.isEmpty()) {
        throw Refusal{ExitCode::InputOutputFile, problem};
    }
    collect(tree.root, {}, tree.leaves);
    if (tree.leaves.isEmpty()) {
        throw Refusal{ExitCode::InputOutputFile,
                      QStringLiteral("%1: holds no process value").arg(path)};
    }
    nameDevices(tree.leaves, path);
    return tree;
}

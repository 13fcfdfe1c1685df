#include "native/DescriptionTree.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "ProcessDataManagement/ProcessDataBufferHandler.h"
#include "native/Failure.h"
#include "native/LibraryMessages.h"
#include "trees/ChildrenInOrder.h"

#include <QFileInfo>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

[[noreturn]] void refuse(Failure::Kind kind, const QString &path, const QString &reason)
{
    throw Failure{kind, QStringLiteral("%1: %2").arg(path, reason)};
}

Leaf describe(const QString &url, const ProcessDataValueSharedPointer &element)
{
    const auto property = [&](const QString &key) { return element->getProperty(key); };
    const auto given = [&](const QString &key) {
        const QVariant value = property(key);
        return value.isNull() ? QVariant() : value;
    };
    Leaf leaf;
    leaf.url = url;
    leaf.type = property(Definitions::getKeyDataPropertyType()).toString();
    leaf.metaType = Definitions::getBasicDataTypeMapForProcessData().value(leaf.type,
                                                                           QMetaType::UnknownType);
    leaf.sizeValue = property(Definitions::getKeyDataPropertySizeValue()).toUInt();
    leaf.bitmask = property(Definitions::getKeyDataPropertyBitmask()).toUInt();
    leaf.hasMetadata = property(Definitions::getKeyDataPropertySizeMetadata()).toUInt() != 0;
    leaf.unit = property(Definitions::getKeyDataPropertyUnit()).toString();
    leaf.label = property(Definitions::getKeyDataPropertyLabelTextId()).toString();
    leaf.minLimit = given(Definitions::getKeyDataPropertyMinLimit());
    leaf.maxLimit = given(Definitions::getKeyDataPropertyMaxLimit());
    leaf.viewStart = given(Definitions::getKeyDataPropertyViewStart());
    leaf.viewEnd = given(Definitions::getKeyDataPropertyViewEnd());
    leaf.entries = property(QStringLiteral("selectionList")).toStringList();
    leaf.isReadOnly = property(Definitions::getKeyDataPropertyReadOnly()).toBool();
    leaf.element = element;
    return leaf;
}

void collect(const BaseClassSharedPointer &node, const QString &prefix, QVector<Leaf> &leaves)
{
    const auto &children = node->getChildMap();
    const QStringList keys = ChildrenInOrder::keys(children);
    for (const auto &key : keys) {
        const BaseClassSharedPointer child = children[key];
        if (!child) {
            continue;
        }
        if (const auto leaf = qSharedPointerDynamicCast<ProcessDataValue>(child)) {
            leaves.append(describe(prefix + key, leaf));
        } else {
            collect(child, prefix + key + QLatin1Char('/'), leaves);
        }
    }
}

} // namespace

void DescriptionTree::requireReadable(const QString &path)
{
    const QFileInfo entry(path);
    if (!entry.exists()) {
        refuse(Failure::Kind::Missing, path, QStringLiteral("no such file or folder"));
    }
    if (!entry.isReadable() || (entry.isDir() && !entry.isExecutable())) {
        refuse(Failure::Kind::Access, path, QStringLiteral("no permission to read it"));
    }
}

DescriptionTree DescriptionTree::read(const QString &path)
{
    requireReadable(path);
    const QFileInfo entry(path);
    const QString postfix = QLatin1Char('.')
                            + PropertyManagerConst::getProcessDataDescriptionFileExtension();
    if (!entry.isDir() && !entry.fileName().endsWith(postfix)) {
        refuse(Failure::Kind::File, path,
               QStringLiteral("no process description; its name must end in %1").arg(postfix));
    }
    BaseClassSharedPointer root;
    if (!entry.isDir()) {
        root = ConfigurationAndProcessDataParser().parseFromFile(path);
    } else if (!ConfigurationDataAndProcessDescriptionAccess::parseProcessDir(
                   // A path such as "." does not show the name of the folder.
                   root, QFileInfo(entry.canonicalFilePath()))) {
        root.reset();
    }
    if (!root) {
        refuse(Failure::Kind::File, path,
               LibraryReasons::behind(QStringLiteral("cannot be parsed"))
                   + QStringLiteral("; 'tessel validate' shows where"));
    }
    return of(root, path);
}

DescriptionTree DescriptionTree::of(const BaseClassSharedPointer &root, const QString &path)
{
    DescriptionTree tree;
    tree.root = root;
    const auto property = [&](const QString &name) { return root->getProperty(name); };
    tree.key = property(Definitions::getStrKeyProcessDataMemory()).toString();
    tree.isDoubleBuffered = property(Definitions::getKeyDataPropertyDoubleBuffer()).toBool();
    const int size = property(Definitions::getKeyDataPropertySizeOfSharedMemory()).toInt();
    if (tree.key.isEmpty() || size < 1) {
        refuse(Failure::Kind::File, path,
               QStringLiteral("describes no memory; lay it out with 'tessel build'"));
    }
    tree.regionSize = ProcessDataBufferHandler(tree.isDoubleBuffered)
                          .calculateSizeSharedMemory(static_cast<unsigned int>(size));
    return tree;
}

QVector<Leaf> DescriptionTree::leaves() const
{
    QVector<Leaf> leaves;
    collect(root, {}, leaves);
    return leaves;
}

// Merging one process description into another.

#include "ProcessDataManagement/ProcessDataBuilder.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "ProcessDataManagement/ByteCount_p.h"

#include <QDebug>

#include <utility>

using Definitions = ConfigurationAndProcessDataDefinitions;

// A part loses its own memory key when it joins a root: only the root names the region. Never
// destroyed, as merges may come after the static objects.
const QStringList &ProcessDataBuilder::sm_PropertiesToRemove = *new QStringList{
    Definitions::getStrKeyProcessDataMemory()};

namespace {

using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

bool areElementsGiven(const BaseClassSharedPointer &root, const BaseClassSharedPointer &part)
{
    if (root.isNull()) {
        qWarning() << "Root element is 0.";
        return false;
    }
    if (part.isNull()) {
        qWarning() << "Part element is 0.";
        return false;
    }
    return true;
}

BaseClassSharedPointer parseFile(const ConfigurationAndProcessDataParser &parser,
                                 const QString &path)
{
    BaseClassSharedPointer root = parser.parseFromFile(path);
    if (root.isNull()) {
        qWarning() << "Can not parse file: " << path;
    }
    return root;
}

} // namespace

ProcessDataBuilder::~ProcessDataBuilder() = default;

bool ProcessDataBuilder::buildProcessData(BaseClassSharedPointer &root,
                                          BaseClassSharedPointer &part, const QString &name,
                                          int &size, int &offset) const
{
    if (!areElementsGiven(root, part)) {
        return false;
    }
    // What hears of the changes may put other trees into the variables of the caller.
    BaseClassSharedPointer keptRoot = root;
    BaseClassSharedPointer keptPart = part;
    // The offsets move by the size that the root has before it grows, and the display position is
    // the number of children before the part is one of them.
    if (!adaptOffsetOfSharedMemoryInPart(keptRoot, keptPart, offset)) {
        qWarning() << "Can not adapt offset of shared memory in part.";
        return false;
    }
    if (!adaptSizeOfSharedMemoryInRoot(keptRoot, keptPart, size)) {
        qWarning() << "Can not adapt size of shared memory in root.";
        return false;
    }
    if (!addAndRemovePropertiesForTreeNodeInPart(keptRoot, keptPart)) {
        qWarning() << "Can not add and remove properties for treenode in part.";
        return false;
    }
    if (!addPartToRoot(keptRoot, keptPart, name)) {
        qWarning() << "Can not add part to root.";
        return false;
    }
    return true;
}

bool ProcessDataBuilder::buildProcessDataFromFiles(const QString &rootPath, const QString &partPath,
                                                   const QString &name, int &size,
                                                   int &offset) const
{
    const ConfigurationAndProcessDataParser parser;
    BaseClassSharedPointer root = parseFile(parser, rootPath);
    if (root.isNull()) {
        return false;
    }
    BaseClassSharedPointer part = parseFile(parser, partPath);
    if (part.isNull() || !buildProcessData(root, part, name, size, offset)) {
        return false;
    }
    if (!parser.frameToFile(root, rootPath)) {
        qWarning() << "Can not frame new process data description to file.";
        return false;
    }
    return true;
}

bool ProcessDataBuilder::adaptOffsetOfSharedMemoryInPart(const BaseClassSharedPointer &root,
                                                         BaseClassSharedPointer &part,
                                                         int &offset) const
{
    offset = 0;
    if (!areElementsGiven(root, part)) {
        return false;
    }
    const QString &sizeKey = Definitions::getKeyDataPropertySizeOfSharedMemory();
    const QVariant rootSize = root->getProperty(sizeKey);
    if (!rootSize.isValid()) {
        qWarning() << "No property:" << sizeKey;
        return false;
    }
    offset = rootSize.toInt();
    const BaseClassSharedPointer kept = part;
    ConfigurationAndProcessDataBase::ListElements leaves;
    kept->collectElements(leaves, true);
    if (leaves.isEmpty()) {
        return false;
    }
    const QString &offsetKey = Definitions::getKeyDataPropertyOffsetSharedMemory();
    for (const BaseClassSharedPointer &leaf : std::as_const(leaves)) {
        const QVariant oldOffset = leaf->getProperty(offsetKey);
        if (!oldOffset.isValid()) {
            qWarning() << "Offset is not valid.";
            return false;
        }
        const QVariant newOffset(ByteCount::addWrapping(oldOffset.toInt(), offset));
        if (!newOffset.isValid()) {
            qWarning() << "New offset is not valid.";
            return false;
        }
        leaf->setProperty(offsetKey, newOffset);
    }
    return true;
}

bool ProcessDataBuilder::adaptSizeOfSharedMemoryInRoot(BaseClassSharedPointer &root,
                                                       const BaseClassSharedPointer &part,
                                                       int &size) const
{
    size = 0;
    if (!areElementsGiven(root, part)) {
        return false;
    }
    const QString &sizeKey = Definitions::getKeyDataPropertySizeOfSharedMemory();
    const QVariant rootSize = root->getProperty(sizeKey);
    if (!rootSize.isValid()) {
        qWarning() << "No property in root:" << sizeKey;
        return false;
    }
    const QVariant partSize = part->getProperty(sizeKey);
    if (!partSize.isValid()) {
        qWarning() << "No property in part:" << sizeKey;
        return false;
    }
    size = partSize.toInt();
    const BaseClassSharedPointer kept = root;
    kept->setProperty(sizeKey, ByteCount::addWrapping(size, rootSize.toInt()));
    return true;
}

bool ProcessDataBuilder::addAndRemovePropertiesForTreeNodeInPart(const BaseClassSharedPointer &root,
                                                                 BaseClassSharedPointer &part) const
{
    if (!areElementsGiven(root, part)) {
        return false;
    }
    part->removeProperties(sm_PropertiesToRemove);
    const BaseClassSharedPointer kept = part;
    // The part has to bring the property along; one that does not goes without a position.
    kept->setProperty(Definitions::getKeyDataPropertyDisplayPosition(), root->getNumberOfChilds());
    return true;
}

bool ProcessDataBuilder::addPartToRoot(BaseClassSharedPointer &root,
                                       const BaseClassSharedPointer &part,
                                       const QString &name) const
{
    if (!areElementsGiven(root, part)) {
        return false;
    }
    const auto node = root.dynamicCast<ConfigurationAndProcessDataTreeNode>();
    if (node.isNull()) {
        qWarning() << "Root can not be casted to a tree node.";
        return false;
    }
    node->addElement(name, part);
    return true;
}

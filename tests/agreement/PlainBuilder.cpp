#include "agreement/PlainBuilder.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "agreement/PlainDirectories.h"

#include <QDebug>
#include <QRegExp>
#include <QSet>
#include <QUuid>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;
using Parser = ConfigurationAndProcessDataParser;
using Root = PlainBuilder::BaseClassSharedPointer;

/// One description of a directory.
struct Record
{
    Root root;
    QString path;
    bool isModified = false;
};

bool setProperty(const Root &element, const QString &name, const QVariant &value, bool &isModified)
{
    const int status = element->setProperty(name, value);
    if (status == Base::SetValueChanged) {
        isModified = true;
        return true;
    }
    if (status == Base::SetValueUnchanged) {
        return true;
    }
    qWarning() << "Key can't set. Property name:" << name << "Value:" << value
               << "State:" << status;
    return false;
}

bool setOffsets(Record &record, int &offset)
{
    Base::ListElements leaves;
    record.root->collectElements(leaves, true);
    for (const Root &leaf : std::as_const(leaves)) {
        if (leaf.isNull()) {
            qWarning() << "Element from collectElements nullpointer access";
            return false;
        }
        if (!setProperty(leaf, Definitions::getKeyDataPropertyOffsetSharedMemory(), offset,
                         record.isModified)) {
            qWarning() << "OffsetSharedMemory can't set";
            return false;
        }
        const QVariant value = leaf->getProperty(Definitions::getKeyDataPropertySizeValue());
        const QVariant metadata = leaf->getProperty(Definitions::getKeyDataPropertySizeMetadata());
        if (!value.canConvert(QMetaType::Int) || !metadata.canConvert(QMetaType::Int)) {
            qWarning() << "SizeValue or sizeMethaData is not valid:" << value << metadata;
            return false;
        }
        offset += value.toInt() + metadata.toInt();
    }
    return true;
}

bool layOut(const QList<QFileInfo> &files, int &total, QVector<Record> &records)
{
    QSet<QString> laidOut;
    bool status = false;
    for (const QFileInfo &file : files) {
        // Two names of one file are one description.
        if (laidOut.contains(file.canonicalFilePath())) {
            continue;
        }
        laidOut.insert(file.canonicalFilePath());
        Record record{Parser().parseFromFile(file.absoluteFilePath()), file.absoluteFilePath()};
        if (record.root.isNull()) {
            qWarning() << "Can't parse sharedMemory file:" << record.path;
            return status;
        }
        int end = total;
        status = setOffsets(record, end);
        if (!status) {
            qWarning() << "Can't set sharedMemoryOffset:" << record.path;
            return false;
        }
        while (end % 4 != 0) {
            ++end;
        }
        total = end;
        records.append(record);
    }
    return status;
}

QString keyFor(const QString &keyPrefix, const QString &path, const QVector<Record> &records)
{
    const QString former =
        records.first().root->getProperty(Definitions::getStrKeyProcessDataMemory()).toString();
    const QString name = path.split('/').filter(QRegExp("\\w")).last();
    const QString candidate = keyPrefix + "Folder" + name;
    return former.contains(candidate)
               ? former
               : candidate + QUuid::createUuid().toString(QUuid::WithoutBraces).right(5);
}

bool setSizeAndKey(Record &record, int total, const QString &key)
{
    if (!setProperty(record.root, Definitions::getStrKeyProcessDataMemory(), key,
                     record.isModified)) {
        qWarning() << "Can't set sharedMemoryKey:" << key << record.path;
        return false;
    }
    if (!setProperty(record.root, Definitions::getKeyDataPropertySizeOfSharedMemory(), total,
                     record.isModified)) {
        qWarning() << "Can't set sizeOfSharedMemroy:" << key << record.path;
        return false;
    }
    return true;
}

bool hasBoth(const Root &root, const Root &part)
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

bool shiftOffsets(const Root &root, const Root &part, int &offset)
{
    const QString sizeKey = Definitions::getKeyDataPropertySizeOfSharedMemory();
    const QString offsetKey = Definitions::getKeyDataPropertyOffsetSharedMemory();
    offset = 0;
    const QVariant size = root->getProperty(sizeKey);
    if (!size.isValid()) {
        qWarning() << "No property:" << sizeKey;
        return false;
    }
    offset = size.toInt();
    Base::ListElements leaves;
    part->collectElements(leaves, true);
    for (const Root &leaf : std::as_const(leaves)) {
        const QVariant former = leaf->getProperty(offsetKey);
        if (!former.isValid()) {
            qWarning() << "Offset is not valid.";
            return false;
        }
        leaf->setProperty(offsetKey, former.toInt() + offset);
    }
    return !leaves.isEmpty();
}

bool growRoot(const Root &root, const Root &part, int &size)
{
    const QString sizeKey = Definitions::getKeyDataPropertySizeOfSharedMemory();
    size = 0;
    const QVariant former = root->getProperty(sizeKey);
    if (!former.isValid()) {
        qWarning() << "No property in root:" << sizeKey;
        return false;
    }
    const QVariant added = part->getProperty(sizeKey);
    if (!added.isValid()) {
        qWarning() << "No property in part:" << sizeKey;
        return false;
    }
    size = added.toInt();
    root->setProperty(sizeKey, size + former.toInt());
    return true;
}

} // namespace

bool PlainBuilder::buildProcessDataFromDir(const QString &keyPrefix, const QString &path,
                                           QString &key) const
{
    int total = 0;
    QVector<Record> records;
    if (!layOut(PlainDirectories::processDescriptionsBelow(path), total, records)) {
        return false;
    }
    if (key.isEmpty()) {
        key = keyFor(keyPrefix, path, records);
    }
    bool status = true;
    for (Record &record : records) {
        if (!setSizeAndKey(record, total, key)) {
            return status;
        }
        if (!record.isModified) {
            continue;
        }
        status = Parser().frameToFile(record.root, record.path);
        if (!status) {
            qWarning() << "Can not frame new process data description to file:" << record.path;
        }
    }
    return status;
}

bool PlainBuilder::buildProcessData(BaseClassSharedPointer &root, BaseClassSharedPointer &part,
                                    const QString &name, int &size, int &offset) const
{
    if (!hasBoth(root, part)) {
        return false;
    }
    if (!shiftOffsets(root, part, offset)) {
        qWarning() << "Can not adapt offset of shared memory in part.";
        return false;
    }
    if (!growRoot(root, part, size)) {
        qWarning() << "Can not adapt size of shared memory in root.";
        return false;
    }
    part->removeProperties({Definitions::getStrKeyProcessDataMemory()});
    part->setProperty(Definitions::getKeyDataPropertyDisplayPosition(), root->getNumberOfChilds());
    const auto node = root.dynamicCast<ConfigurationAndProcessDataTreeNode>();
    if (node.isNull()) {
        qWarning() << "Root can not be casted to a tree node.";
        qWarning() << "Can not add part to root.";
        return false;
    }
    node->addElement(name, part);
    return true;
}

bool PlainBuilder::buildProcessDataFromFiles(const QString &rootPath, const QString &partPath,
                                             const QString &name, int &size, int &offset) const
{
    Root root = Parser().parseFromFile(rootPath);
    if (root.isNull()) {
        qWarning() << "Can not parse file: " << rootPath;
        return false;
    }
    Root part = Parser().parseFromFile(partPath);
    if (part.isNull()) {
        qWarning() << "Can not parse file: " << partPath;
        return false;
    }
    if (!buildProcessData(root, part, name, size, offset)) {
        return false;
    }
    if (!Parser().frameToFile(root, rootPath)) {
        qWarning() << "Can not frame new process data description to file.";
        return false;
    }
    return true;
}

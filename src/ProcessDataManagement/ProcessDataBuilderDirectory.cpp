// Laying out all process descriptions of a directory in one region.

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/FileSearch.h"
#include "Companion/PropertyManagerConst.h"
#include "ProcessDataManagement/ByteCount_p.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"

#include <QDebug>
#include <QRegExp>
#include <QUuid>

#include <utility>

using Definitions = ConfigurationAndProcessDataDefinitions;

namespace {

/// Random digits behind the name, so that two devices with equal names do not share a region.
constexpr int randomTailLength = 5;

/// The path of the first record, for messages that concern the whole directory.
QString firstPath(const QVector<ProcessDataBuilder::SharedMemoryData> &records)
{
    return records.isEmpty() ? QString() : records.first().filePath;
}

} // namespace

bool ProcessDataBuilder::buildProcessDataFromDir(const QString &keyPrefix, const QString &path,
                                                 QString &key) const
{
    QList<QFileInfo> files;
    searchFilesOnPathRecursive(
        path,
        {QStringLiteral("*.") + PropertyManagerConst::getProcessDataDescriptionFileExtension()},
        files);
    int offset = 0;
    QVector<SharedMemoryData> records;
    if (!updateOffsetFromDir(files, offset, records)) {
        return false;
    }
    return updateSizeAndKeyFromDir(keyPrefix, path, key, offset, records);
}

bool ProcessDataBuilder::updateOffsetFromDir(
    const QList<QFileInfo> &files, int &offset,
    QVector<ProcessDataBuilder::SharedMemoryData> &records) const
{
    bool status = false;
    for (const QFileInfo &file : files) {
        SharedMemoryData record;
        record.filePath = file.absoluteFilePath();
        record.root = record.parser.parseFromFile(record.filePath);
        if (record.root.isNull()) {
            // After a good file this is a success: the build goes on with the files so far.
            qWarning() << "Can't parse sharedMemory file:" << record.filePath;
            return status;
        }
        int endOffset = 0;
        status = setOffsetFromSharedMemory(record.root, offset, endOffset, record.modified);
        if (!status) {
            qWarning() << "Can't set sharedMemoryOffset:" << record.filePath;
            return false;
        }
        offset = ByteCount::roundUpToFour(endOffset);
        records.append(record);
    }
    return status;
}

bool ProcessDataBuilder::setOffsetFromSharedMemory(const BaseClassSharedPointer &root,
                                                   int startOffset, int &endOffset,
                                                   bool &changed) const
{
    ConfigurationAndProcessDataBase::ListElements leaves;
    root->collectElements(leaves, true);
    endOffset = startOffset;
    changed = false;
    for (const BaseClassSharedPointer &leaf : std::as_const(leaves)) {
        if (leaf.isNull()) {
            qWarning() << "Element from collectElements nullpointer access";
            return false;
        }
        bool offsetChanged = false;
        if (!setPropertyFromSharedMemory(leaf, Definitions::getKeyDataPropertyOffsetSharedMemory(),
                                         endOffset, offsetChanged)) {
            qWarning() << "OffsetSharedMemory can't set";
            return false;
        }
        changed = changed || offsetChanged;
        const QVariant sizeValue = leaf->getProperty(Definitions::getKeyDataPropertySizeValue());
        const QVariant sizeMetadata = leaf->getProperty(
            Definitions::getKeyDataPropertySizeMetadata());
        if (!sizeValue.canConvert(QMetaType::Int) || !sizeMetadata.canConvert(QMetaType::Int)) {
            qWarning() << "SizeValue or sizeMethaData is not valid:" << sizeValue << sizeMetadata;
            return false;
        }
        endOffset = ByteCount::addWrapping(
            endOffset, ByteCount::addWrapping(sizeValue.toInt(), sizeMetadata.toInt()));
    }
    return true;
}

bool ProcessDataBuilder::setPropertyFromSharedMemory(const BaseClassSharedPointer &element,
                                                     const QString &property, const QVariant &value,
                                                     bool &changed) const
{
    changed = false;
    const auto state = element->setProperty(property, value);
    switch (state) {
    case ConfigurationAndProcessDataBase::SetValueChanged: changed = true; return true;
    case ConfigurationAndProcessDataBase::SetValueUnchanged: return true;
    default: break;
    }
    qWarning() << "Key can't set. Property name:" << property << "Value:" << value
               << "State:" << static_cast<int>(state);
    return false;
}

bool ProcessDataBuilder::updateSizeAndKeyFromDir(
    const QString &keyPrefix, const QString &path, QString &key, const int &size,
    QVector<ProcessDataBuilder::SharedMemoryData> &records) const
{
    if (key.isEmpty()) {
        if (!getSharedMemoryKeyForDir(keyPrefix, path, records, key)) {
            qWarning() << "Can't create sharedMemory key" << key << firstPath(records);
            return false;
        }
        if (key.isEmpty()) {
            qWarning() << "No sharedMemoryKey:" << key << firstPath(records);
            return false;
        }
    }
    bool status = true;
    for (SharedMemoryData &record : records) {
        // A file that cannot take size and key ends the writing, but does not make it a failure:
        // its own warning tells.
        if (!setSizeAndKeyFromSharedMemory(size, key, record)) {
            break;
        }
        if (!record.modified) {
            continue;
        }
        status = record.parser.frameToFile(record.root, record.filePath);
        if (!status) {
            qWarning() << "Can not frame new process data description to file:" << record.filePath;
        }
    }
    return status;
}

bool ProcessDataBuilder::setSizeAndKeyFromSharedMemory(
    int size, const QString &key, ProcessDataBuilder::SharedMemoryData &record) const
{
    bool changed = false;
    if (!setPropertyFromSharedMemory(record.root, Definitions::getStrKeyProcessDataMemory(), key,
                                     changed)) {
        qWarning() << "Can't set sharedMemoryKey:" << key << record.filePath;
        return false;
    }
    record.modified = record.modified || changed;
    if (!setPropertyFromSharedMemory(
            record.root, Definitions::getKeyDataPropertySizeOfSharedMemory(), size, changed)) {
        qWarning() << "Can't set sizeOfSharedMemroy:" << key << record.filePath;
        return false;
    }
    record.modified = record.modified || changed;
    return true;
}

bool ProcessDataBuilder::getSharedMemoryKeyForDir(
    const QString &keyPrefix, const QString &path,
    const QVector<ProcessDataBuilder::SharedMemoryData> &records, QString &key) const
{
    if (records.isEmpty()) {
        return false;
    }
    const QStringList names = path.split(QLatin1Char('/')).filter(QRegExp(QStringLiteral("\\w")));
    if (names.isEmpty()) {
        qWarning() << "Path names no directory from which a memory key could be made:" << path;
        return false;
    }
    key = records.first().root->getProperty(Definitions::getStrKeyProcessDataMemory()).toString();
    const QString candidate = keyPrefix + QLatin1String("Folder") + names.last();
    // A directory keeps its key, random tail included, from one build to the next.
    if (key.indexOf(candidate) < 0) {
        key = candidate
              + QUuid::createUuid().toString(QUuid::WithoutBraces).right(randomTailLength);
    }
    return true;
}

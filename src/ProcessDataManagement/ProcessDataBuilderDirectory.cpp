// Laying out all process descriptions of a directory in one region.

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/FileSearch.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ElementRegistration_p.h"
#include "Configuration/OwnProperties_p.h"
#include "Configuration/ParsedDescriptions_p.h"
#include "Configuration/SortedLeaves_p.h"
#include "Configuration/UrlWalk_p.h"
#include "ProcessDataManagement/ByteCount_p.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"

#include <QDebug>
#include <QHash>
#include <QRegExp>
#include <QSet>
#include <QUuid>

#include <deque>
#include <limits>
#include <optional>
#include <utility>

using Definitions = ConfigurationAndProcessDataDefinitions;

namespace {

using Record = ProcessDataBuilder::SharedMemoryData;

/// Random digits behind the name, so that two devices with equal names do not share a region.
constexpr int randomTailLength = 5;

/// The path of the first record, for messages that concern the whole directory.
QString firstPath(const QVector<Record> &records)
{
    return records.isEmpty() ? QString() : records.first().filePath;
}

/// The number under @p key, if it is a whole one of a description that fits into an `int`.
std::optional<int> wholeNumber(const ElementProperties &properties, UsualKey key)
{
    const QVariant *const number = PropertyRecord::valueUnder(properties, key);
    if (number == nullptr || typeOf(*number) != QMetaType::LongLong || number->isNull()) {
        return std::nullopt;
    }
    const auto whole = heldBy<qint64>(*number);
    return whole >= std::numeric_limits<int>::min() && whole <= std::numeric_limits<int>::max()
               ? std::make_optional(static_cast<int>(whole))
               : std::nullopt;
}

/// Moves @p endOffset behind a leaf that lies there already. False if it has to be written, or asked by
/// the general ways: these do the same, and take several times as long.
bool passLaidOut(const ConfigurationAndProcessDataBase &leaf, int &endOffset)
{
    if (!ElementRegistration::isOfOwnClass(leaf)) {
        return false;
    }
    const ElementProperties &properties = ownProperties(leaf);
    const auto sizeValue = wholeNumber(properties, UsualKey::SizeValue);
    const auto sizeMetadata = wholeNumber(properties, UsualKey::SizeMetadata);
    if (!sizeValue || !sizeMetadata
        || wholeNumber(properties, UsualKey::OffsetSharedMemory) != endOffset) {
        return false;
    }
    endOffset = ByteCount::addWrapping(endOffset,
                                       ByteCount::addWrapping(*sizeValue, *sizeMetadata));
    return true;
}

/// Trees of files that a build has laid out and not changed.
///
/// Mostly it changes none of them, and to hold the leaves of a whole directory to the end of it costs
/// more than to lay them out. If a walk over the same files follows, the trees are kept for it. Else
/// the leaves go at once, and come back from the text of their file in the rare case that only size
/// and key of the region have changed.
class UnchangedTrees
{
public:
    UnchangedTrees()
        : m_areKept(ParsedDescriptions::current() != nullptr)
        , m_parsed(ParsedDescriptions::Texts::Kept)
    {
    }

    /// @p record has its offsets.
    void dismissLeaves(const Record &record)
    {
        const auto source = m_parsed.sourceOf(record.root);
        if (m_areKept || record.modified || !source || !isOfNodeClass(*record.root)) {
            return;
        }
        m_sources.insert(record.root.data(), *source);
        const auto node = record.root.staticCast<ConfigurationAndProcessDataTreeNode>();
        const QStringList keys = node->getChildMap().keys();
        for (const QString &key : keys) {
            node->deleteElement(key);
        }
    }

    /// True if the tree of @p record is a new one, as its file has it.
    bool bringBackLeaves(Record &record)
    {
        const auto source = m_sources.constFind(record.root.data());
        if (source == m_sources.constEnd()) {
            return false;
        }
        record.root = record.parser.parseFromByteArray(source.value().text, source.value().postfix);
        return true;
    }

    /// All that is written is written.
    void finish(const QVector<Record> &records) const
    {
        for (const Record &record : records) {
            if (m_areKept && !record.modified) {
                ParsedDescriptions::putBack(record.root);
            }
        }
    }

private:
    bool m_areKept;
    ParsedDescriptions m_parsed;
    /// Of the roots without leaves, which stay until the end.
    QHash<const ConfigurationAndProcessDataBase *, ParsedDescriptions::Source> m_sources;
};

/// @p finishFile gets the record of each file that is laid out. A file that is there under several
/// names is laid out under the first one: with two records it would get other offsets every time.
template <class FinishFile>
bool updateOffsets(const ProcessDataBuilder &builder, const QList<QFileInfo> &files, int &offset,
                   QVector<Record> &records, const FinishFile &finishFile)
{
    bool status = false;
    QSet<QString> canonicalPaths;
    for (const QFileInfo &file : files) {
        const QString canonicalPath = file.canonicalFilePath();
        if (canonicalPaths.contains(canonicalPath)) {
            continue;
        }
        if (!canonicalPath.isEmpty()) {
            canonicalPaths.insert(canonicalPath);
        }
        Record record;
        record.filePath = file.absoluteFilePath();
        record.root = record.parser.parseFromFile(record.filePath);
        if (record.root.isNull()) {
            // After a good file this is a success: the build goes on with the files so far.
            qWarning() << "Can't parse sharedMemory file:" << record.filePath;
            return status;
        }
        int endOffset = 0;
        status = builder.setOffsetFromSharedMemory(record.root, offset, endOffset, record.modified);
        if (!status) {
            qWarning() << "Can't set sharedMemoryOffset:" << record.filePath;
            return false;
        }
        offset = ByteCount::roundUpToFour(endOffset);
        finishFile(record);
        records.append(record);
    }
    return status;
}

/// An empty @p key is found or made. False if it cannot be.
bool settleKey(const ProcessDataBuilder &builder, const QString &keyPrefix, const QString &path,
               QString &key, const QVector<Record> &records)
{
    if (!key.isEmpty()) {
        return true;
    }
    if (!builder.getSharedMemoryKeyForDir(keyPrefix, path, records, key)) {
        qWarning() << "Can't create sharedMemory key" << key << firstPath(records);
        return false;
    }
    if (key.isEmpty()) {
        qWarning() << "No sharedMemoryKey:" << key << firstPath(records);
        return false;
    }
    return true;
}

/// @p prepareFile gets each record that is about to be written.
template <class PrepareFile>
bool writeFiles(const ProcessDataBuilder &builder, const QString &key, int size,
                QVector<Record> &records, const PrepareFile &prepareFile)
{
    bool status = true;
    for (Record &record : records) {
        // A file that cannot take size and key ends the writing, but does not make it a failure:
        // its own warning tells.
        if (!builder.setSizeAndKeyFromSharedMemory(size, key, record)) {
            break;
        }
        if (!record.modified) {
            continue;
        }
        prepareFile(record);
        status = record.parser.frameToFile(record.root, record.filePath);
        if (!status) {
            qWarning() << "Can not frame new process data description to file:" << record.filePath;
        }
    }
    return status;
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
    UnchangedTrees unchanged;
    const bool isLaidOut = updateOffsets(
        *this, files, offset, records,
        [&unchanged](const SharedMemoryData &record) { unchanged.dismissLeaves(record); });
    if (!isLaidOut || !settleKey(*this, keyPrefix, path, key, records)) {
        return false;
    }
    const bool isWritten = writeFiles(*this, key, offset, records, [&](SharedMemoryData &record) {
        if (unchanged.bringBackLeaves(record)) {
            setSizeAndKeyFromSharedMemory(offset, key, record);
        }
    });
    unchanged.finish(records);
    return isWritten;
}

bool ProcessDataBuilder::updateOffsetFromDir(
    const QList<QFileInfo> &files, int &offset,
    QVector<ProcessDataBuilder::SharedMemoryData> &records) const
{
    return updateOffsets(*this, files, offset, records, [](const SharedMemoryData &) {});
}

bool ProcessDataBuilder::setOffsetFromSharedMemory(const BaseClassSharedPointer &root,
                                                   int startOffset, int &endOffset,
                                                   bool &changed) const
{
    const std::deque<BaseClassSharedPointer> leaves = sortedLeavesOf(*root);
    endOffset = startOffset;
    changed = false;
    for (const BaseClassSharedPointer &leaf : leaves) {
        if (leaf.isNull()) {
            qWarning() << "Element from collectElements nullpointer access";
            return false;
        }
        if (passLaidOut(*leaf, endOffset)) {
            continue;
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
    // What hears of the change may put another element into the variable of the caller.
    const BaseClassSharedPointer kept = element;
    const auto state = kept->setProperty(property, value);
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
    return settleKey(*this, keyPrefix, path, key, records)
           && writeFiles(*this, key, size, records, [](const SharedMemoryData &) {});
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

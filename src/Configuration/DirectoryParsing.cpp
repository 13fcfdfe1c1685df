// The walk that turns an instance on disk into a tree.

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/DirectoryVisits_p.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/DescriptionTexts_p.h"
#include "Configuration/DirectoryWalk_p.h"
#include "Configuration/ParsedDescriptions_p.h"

#include <QDebug>
#include <QJsonArray>
#include <QJsonObject>

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Definitions = ConfigurationAndProcessDataDefinitions;

namespace {

using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

QString folderText(const QString &path, const QString &key)
{
    QVariant value;
    Access::readFolderDescription(path, key, value);
    return value.toString();
}

/// The node that stands for a directory, as if it had come from a file.
BaseClassSharedPointer createDirectoryNode(const QString &path, const QString &extension)
{
    const QString labelTextId = folderText(path, Definitions::getKeyDataPropertyLabelTextId());
    const QString cpveVersion = folderText(path, Definitions::getKeyDataPropertyCpveVersion());
    const QString configurationVersion = folderText(
        path, Definitions::getKeyDataPropertyConfigurationVersion());
    const QJsonObject node{
        {Definitions::getKeyDataPropertyLabelTextId(), labelTextId},
        {Definitions::getKeyDataPropertyType(), Definitions::getKeyDataTypeTreeNode()},
        {Definitions::getKeyDataPropertyCpveVersion(), cpveVersion},
        {Definitions::getKeyDataPropertyConfigurationVersion(), configurationVersion},
        {Definitions::getKeyDataPropertyValue(), QJsonArray()}};
    return ConfigurationAndProcessDataParser().createNode(node, extension);
}

bool parseFileEntry(const BaseClassSharedPointer &root, const QFileInfo &entry,
                    const QString &extension)
{
    if (!entry.fileName().endsWith(extension)) {
        return true;
    }
    if (root.isNull()) {
        qWarning() << "Invalid root node given during parsing file" << entry.filePath();
        return false;
    }
    const BaseClassSharedPointer parsed = ConfigurationAndProcessDataParser().parseFromFile(
        entry.filePath());
    const auto parent = root.dynamicCast<ConfigurationAndProcessDataTreeNode>();
    if (parent.isNull()) {
        qWarning() << "Unable to get treenode to add config file" << entry.filePath();
        return true;
    }
    parent->addElement(DirectoryWalk::stemOf(entry), parsed);
    return true;
}

bool parseEntry(BaseClassSharedPointer &root, const QFileInfo &entry, const QString &extension,
                DirectoryVisits &visits);

bool parseDirectoryEntry(BaseClassSharedPointer &root, const QFileInfo &entry,
                         const QString &extension, DirectoryVisits &visits)
{
    const QList<QFileInfo> entries = DirectoryWalk::entriesOf(entry);
    if (!Access::containsFileOrDir(entries, extension)) {
        return true;
    }
    BaseClassSharedPointer node = createDirectoryNode(entry.filePath(), extension);
    // The node joins its parent before its children are parsed: what a failure below leaves is the
    // part that was built so far.
    if (root.isNull()) {
        root = node;
    } else if (const auto parent = root.dynamicCast<ConfigurationAndProcessDataTreeNode>()) {
        parent->addElement(entry.fileName(), node);
    } else {
        qWarning() << "Unable to get treenode to add config directory" << entry.filePath();
    }
    for (const QFileInfo &child : entries) {
        if (!parseEntry(node, child, extension, visits)) {
            return false;
        }
    }
    return true;
}

bool parseEntry(BaseClassSharedPointer &root, const QFileInfo &entry, const QString &extension,
                DirectoryVisits &visits)
{
    if (!entry.isDir()) {
        return parseFileEntry(root, entry, extension);
    }
    if (!visits.enter(entry)) {
        visits.tellPassedOver(entry);
        return true;
    }
    const bool isParsed = parseDirectoryEntry(root, entry, extension, visits);
    visits.leave();
    return isParsed;
}

} // namespace

bool Access::parseDir(QSharedPointer<ConfigurationAndProcessDataBase> &root, const QFileInfo &entry,
                      const QString &extension)
{
    const DescriptionTexts texts;
    DirectoryVisits visits;
    return parseEntry(root, entry, extension, visits);
}

bool Access::parseConfigDir(QSharedPointer<ConfigurationAndProcessDataBase> &root,
                            const QFileInfo &entry)
{
    return parseDir(root, entry, PropertyManagerConst::getConfigFileExtension());
}

bool Access::parseProcessDir(QSharedPointer<ConfigurationAndProcessDataBase> &root,
                             const QFileInfo &entry)
{
    const ParsedDescriptions parsed;
    // The files are parsed by the first walk over them already.
    const DescriptionTexts texts;
    bool doubleBuffer = false;
    int size = -1;
    QString key;
    if (!getSharedMemoryInfoFromDir(entry, doubleBuffer, size, key)) {
        return false;
    }
    const bool isParsed = parseDir(root, entry,
                                   PropertyManagerConst::getProcessDataDescriptionFileExtension());
    if (!isParsed || root.isNull()) {
        qWarning() << "Can't parse dir:" << isParsed << root << entry.absoluteFilePath();
        return false;
    }
    root->addProperty(Definitions::getKeyDataPropertyDoubleBuffer(), doubleBuffer);
    root->addProperty(Definitions::getKeyDataPropertySizeOfSharedMemory(), size);
    root->addProperty(Definitions::getStrKeyProcessDataMemory(), key);
    return true;
}

BaseClassSharedPointer Access::getParsedConfigurationProcessDescription(const QDir &directory,
                                                                        const QString &instanceName,
                                                                        bool isProcessDescription)
{
    if (instanceName.isEmpty()) {
        qWarning() << "Instance name is empty!";
        return {};
    }
    if (!directory.exists()) {
        qWarning() << "Configuration folder does not exist:" << directory.path();
        return {};
    }
    const QFileInfo instance(directory.filePath(instanceName));
    if (instance.isDir()) {
        BaseClassSharedPointer root;
        // A tree that was built in part never leaves this operation.
        return parseConfigDir(root, instance) ? root : BaseClassSharedPointer();
    }
    QString path;
    if (isProcessDescription) {
        createProcessDescriptionFilePath(directory, instanceName, path);
    } else {
        createConfigurationFilePath(directory, instanceName, path);
    }
    return path.isEmpty() ? BaseClassSharedPointer()
                          : ConfigurationAndProcessDataParser().parseFromFile(path);
}

QString Access::getConfiguration(const QDir &directory, const QString &instanceName)
{
    const BaseClassSharedPointer root = getParsedConfigurationProcessDescription(
        directory, instanceName, false);
    if (root.isNull()) {
        qWarning() << "Unable to parse configuration" << instanceName;
        return {};
    }
    QByteArray text;
    if (!ConfigurationAndProcessDataParser().frameToByteArray(root, text, QJsonDocument::Compact)) {
        qWarning() << "Unable to frame JSON-String!";
        return {};
    }
    return DirectoryWalk::decodeToFirstNul(text);
}

QString Access::getConfiguration(const QFileInfo &instance)
{
    const QDir directory(instance.path());
    if (!directory.exists() || instance.fileName().isEmpty()) {
        return {};
    }
    return getConfiguration(directory, instance.fileName());
}

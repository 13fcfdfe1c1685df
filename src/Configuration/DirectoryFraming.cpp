// The walk that writes a tree back into the files from which it came.

#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/ConfigurationModificationHandler.h"
#include "Configuration/DirectoryWalk_p.h"

#include <QDebug>

using Access = ConfigurationDataAndProcessDescriptionAccess;

namespace {

using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

/// What stays the same through a walk.
struct Stamp
{
    const QString &moduleName;
    const QString &objectName;
};

bool frameFileEntry(const BaseClassSharedPointer &element, const Stamp &stamp,
                    const QFileInfo &entry, const QString &instanceName)
{
    if (!entry.fileName().endsWith(PropertyManagerConst::getConfigFileExtension())) {
        return true;
    }
    if (element.isNull()) {
        qWarning() << "Invalid root node given during parsing file" << entry.filePath();
        return false;
    }
    const BaseClassSharedPointer subtree = element->getLeaf(DirectoryWalk::stemOf(entry));
    if (subtree.isNull()) {
        qWarning() << "Unable to find leaf for file" << entry.absoluteFilePath();
        return false;
    }
    ConfigurationModificationHandler::getInstance().touch(
        subtree, stamp.moduleName, stamp.objectName, instanceName, Access::getOrigin());
    if (!ConfigurationAndProcessDataParser().frameToFile(subtree, entry.filePath())) {
        qWarning() << "Framing Error occured" << entry.filePath();
        return false;
    }
    return true;
}

bool frameEntry(const BaseClassSharedPointer &element, const Stamp &stamp, const QFileInfo &entry,
                const QString &instanceName, const DirectoryWalk::Ancestors &ancestors);

bool frameDirectoryEntry(const BaseClassSharedPointer &element, const Stamp &stamp,
                         const QFileInfo &entry, const QString &instanceName,
                         const DirectoryWalk::Ancestors &ancestors)
{
    const QList<QFileInfo> entries = Access::generateDirectoryInfoList(QDir(entry.filePath()));
    if (!Access::containsFileOrDir(entries, PropertyManagerConst::getConfigFileExtension())) {
        return true;
    }
    for (const QFileInfo &child : entries) {
        BaseClassSharedPointer childElement = element;
        QString childName = instanceName + QLatin1Char('/');
        if (!child.isDir()) {
            childName += DirectoryWalk::stemOf(child);
        } else if (element.isNull()) {
            qWarning() << "Invalid root node given during parsing file" << child.filePath();
            return false;
        } else {
            childElement = element->getLeaf(child.fileName());
            childName += child.fileName();
        }
        if (!frameEntry(childElement, stamp, child, childName, ancestors)) {
            return false;
        }
    }
    return true;
}

bool frameEntry(const BaseClassSharedPointer &element, const Stamp &stamp, const QFileInfo &entry,
                const QString &instanceName, const DirectoryWalk::Ancestors &ancestors)
{
    if (!entry.isDir()) {
        return frameFileEntry(element, stamp, entry, instanceName);
    }
    const auto path = DirectoryWalk::descend(ancestors, entry);
    return !path || frameDirectoryEntry(element, stamp, entry, instanceName, *path);
}

} // namespace

bool Access::setParsedConfigurationProcessDescription(
    const QDir &directory, const QString &moduleName, const QString &objectName,
    const QString &instanceName, QSharedPointer<ConfigurationAndProcessDataBase> root,
    bool isProcessDescription)
{
    if (instanceName.isEmpty()) {
        qWarning() << "Instance name is empty!";
        return false;
    }
    if (root.isNull()) {
        qWarning() << "Invalid root node given";
        return false;
    }
    const QFileInfo instance(directory.filePath(instanceName));
    if (instance.isDir()) {
        const bool isFramed = frameConfigDir(root, moduleName, objectName, instance, instanceName);
        if (!isFramed) {
            qWarning() << "Cannot frame folder" << instance.absoluteFilePath();
        }
        return isFramed;
    }
    QString path;
    if (isProcessDescription) {
        createProcessDescriptionFilePath(directory, instanceName, path);
    } else {
        createConfigurationFilePath(directory, instanceName, path);
    }
    if (path.isEmpty()) {
        qWarning() << "Configuration/Process Descriptionfile file does not exist:" << path;
        return false;
    }
    if (!isProcessDescription) {
        ConfigurationModificationHandler::getInstance().touch(root, moduleName, objectName,
                                                              instanceName, getOrigin());
    }
    if (!ConfigurationAndProcessDataParser().frameToFile(root, path)) {
        qWarning() << "Unable to frame JSON-String!";
        return false;
    }
    return true;
}

bool Access::frameConfigDir(const QSharedPointer<ConfigurationAndProcessDataBase> &element,
                            const QString &moduleName, const QString &objectName,
                            const QFileInfo &entry, const QString &instanceName)
{
    return frameEntry(element, {moduleName, objectName}, entry, instanceName, {});
}

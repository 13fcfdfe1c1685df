// The walk that writes a tree back into the files from which it came.

#include "Companion/DirectoryVisits_p.h"
#include "Companion/PropertyManagerConst.h"
#include "Companion/RegularFile_p.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/ConfigurationModificationHandler.h"
#include "Configuration/DirectoryWalk_p.h"
#include "Configuration/SharedFiles_p.h"

#include <QDebug>

using Access = ConfigurationDataAndProcessDescriptionAccess;

namespace {

using BaseClassSharedPointer = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

/// What belongs to one walk as a whole.
struct Walk
{
    const QString &moduleName;
    const QString &objectName;
    SharedFiles files;
    DirectoryVisits visits;
};

bool frameFileEntry(const BaseClassSharedPointer &element, Walk &walk, const QFileInfo &entry,
                    const QString &instanceName)
{
    if (!entry.fileName().endsWith(PropertyManagerConst::getConfigFileExtension())) {
        return true;
    }
    if (element.isNull()) {
        qWarning() << "Invalid root node given during parsing file" << entry.filePath();
        return false;
    }
    // Only one that the caller has named: the walk meets nothing else than files.
    if (RegularFile::isSomethingElse(entry.filePath())) {
        qWarning() << "Not a regular file and not written:" << entry.filePath();
        return false;
    }
    const BaseClassSharedPointer subtree = element->getLeaf(DirectoryWalk::stemOf(entry));
    if (subtree.isNull()) {
        qWarning() << "Unable to find leaf for file" << entry.absoluteFilePath();
        return false;
    }
    const BaseClassSharedPointer written = walk.files.writtenFor(entry);
    if (written == subtree) {
        return true;
    }
    ConfigurationModificationHandler::getInstance().touch(subtree, walk.moduleName, walk.objectName,
                                                          instanceName, Access::getOrigin());
    if (!written.isNull()) {
        SharedFiles::copyStamp(*written, *subtree);
        return true;
    }
    if (!ConfigurationAndProcessDataParser().frameToFile(subtree, entry.filePath())) {
        qWarning() << "Framing Error occured" << entry.filePath();
        return false;
    }
    walk.files.noteWritten(entry, subtree);
    return true;
}

bool frameEntry(const BaseClassSharedPointer &element, Walk &walk, const QFileInfo &entry,
                const QString &instanceName);

bool frameDirectoryEntry(const BaseClassSharedPointer &element, Walk &walk, const QFileInfo &entry,
                         const QString &instanceName)
{
    const QList<QFileInfo> entries = DirectoryWalk::entriesOf(entry);
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
        if (!frameEntry(childElement, walk, child, childName)) {
            return false;
        }
    }
    return true;
}

bool frameEntry(const BaseClassSharedPointer &element, Walk &walk, const QFileInfo &entry,
                const QString &instanceName)
{
    if (!entry.isDir()) {
        return frameFileEntry(element, walk, entry, instanceName);
    }
    if (!walk.visits.enter(entry)) {
        walk.visits.tellPassedOver(entry);
        return true;
    }
    const bool isFramed = frameDirectoryEntry(element, walk, entry, instanceName);
    walk.visits.leave();
    return isFramed;
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
    // What hears of a stamp may put another root into the variable of the caller.
    const BaseClassSharedPointer kept = element;
    Walk walk{moduleName, objectName, SharedFiles(kept, entry), {}};
    return walk.files.agree() && frameEntry(kept, walk, entry, instanceName);
}

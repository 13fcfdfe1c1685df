#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationModificationHandler.h"
#include "agreement/DirectoryLinks.h"
#include "agreement/PlainDirectories.h"

#include <QDebug>

namespace {

using Parser = ConfigurationAndProcessDataParser;
using Root = PlainDirectories::BaseClassSharedPointer;

const QString origin = QStringLiteral("Device");

/// What stays the same through one write-back.
struct WriteBack
{
    const QString &moduleName;
    const QString &objectName;
    DirectoryLinks links;
    /// Canonical path of a file to the text that it got.
    QHash<QString, QJsonObject> written;
};

bool frameFile(const Root &element, WriteBack &writeBack, const QFileInfo &file,
               const QString &instanceName)
{
    if (!file.fileName().endsWith(PropertyManagerConst::getConfigFileExtension())) {
        return true;
    }
    if (element.isNull()) {
        qWarning() << "Invalid root node given during parsing file" << file.filePath();
        return false;
    }
    if (file.exists() && !file.isFile()) {
        qWarning() << DirectoryLinks::passedOver() << file.filePath();
        return true;
    }
    const Root subtree = element->getLeaf(file.fileName().section('.', 0, 0));
    if (subtree.isNull()) {
        qWarning() << "Unable to find leaf for file" << file.absoluteFilePath();
        return false;
    }
    ConfigurationModificationHandler::getInstance().touch(
        subtree, writeBack.moduleName, writeBack.objectName, instanceName, origin);
    if (!Parser().frameToFile(subtree, file.filePath())) {
        qWarning() << "Framing Error occured" << file.filePath();
        return false;
    }
    return true;
}

bool frame(const Root &element, WriteBack &writeBack, const QFileInfo &entry,
           const QString &instanceName)
{
    if (!entry.isDir()) {
        return frameFile(element, writeBack, entry, instanceName);
    }
    const auto entries = PlainDirectories::generateDirectoryInfoList(QDir(entry.filePath()));
    if (!PlainDirectories::containsFileOrDir(entries,
                                             PropertyManagerConst::getConfigFileExtension())) {
        return true;
    }
    for (const QFileInfo &below : entries) {
        Root next = element;
        QString name = below.fileName().section('.', 0, 0);
        if (below.isDir()) {
            if (!writeBack.links.enter(below)) {
                continue;
            }
            if (element.isNull()) {
                qWarning() << "Invalid root node given during parsing file" << below.filePath();
                return false;
            }
            name = below.fileName();
            next = element->getLeaf(name);
        }
        if (!frame(next, writeBack, below, instanceName + '/' + name)) {
            return false;
        }
    }
    return true;
}

} // namespace

bool PlainDirectories::frameConfigDir(const BaseClassSharedPointer &element,
                                      const QString &moduleName, const QString &objectName,
                                      const QFileInfo &entry, const QString &instanceName)
{
    WriteBack writeBack{moduleName, objectName, DirectoryLinks(entry), {}};
    return frame(element, writeBack, entry, instanceName);
}

bool PlainDirectories::setParsedConfigurationProcessDescription(
    const QDir &directory, const QString &moduleName, const QString &objectName,
    const QString &instanceName, BaseClassSharedPointer root, bool isProcessDescription)
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
                                                              instanceName, origin);
    }
    const bool isFramed = Parser().frameToFile(root, path);
    if (!isFramed) {
        qWarning() << "Unable to frame JSON-String!";
    }
    return isFramed;
}

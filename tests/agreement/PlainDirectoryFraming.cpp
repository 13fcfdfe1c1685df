#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationModificationHandler.h"
#include "agreement/DirectoryLinks.h"
#include "agreement/PlainDirectories.h"

#include <QDebug>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Parser = ConfigurationAndProcessDataParser;
using Root = PlainDirectories::BaseClassSharedPointer;

const QString origin = QStringLiteral("Device");

/// What stays the same through one write-back.
struct WriteBack
{
    const QString &moduleName;
    const QString &objectName;
    DirectoryLinks links;
    /// Canonical path of a file to the subtree that it got.
    QHash<QString, Root> written;
};

/// Apart from the stamps of this write-back.
bool isSame(const Root &left, const Root &right)
{
    if (left.isNull() || right.isNull()) {
        return left.isNull() && right.isNull();
    }
    auto leftProperties = left->getProperties();
    auto rightProperties = right->getProperties();
    for (const QString &key : {Definitions::getKeyDataPropertyModifiedBy(),
                               Definitions::getKeyDataPropertyLastModified()}) {
        leftProperties.remove(key);
        rightProperties.remove(key);
    }
    const auto &leftChildren = left->getChildMap();
    const auto &rightChildren = right->getChildMap();
    bool isAlike = leftProperties == rightProperties && leftChildren.size() == rightChildren.size();
    for (auto child = leftChildren.cbegin(); child != leftChildren.cend(); ++child) {
        isAlike = isAlike && rightChildren.contains(child.key())
                  && isSame(child.value(), rightChildren.value(child.key()));
    }
    return isAlike;
}

bool frameFile(const Root &element, WriteBack &writeBack, const QFileInfo &file,
               const QString &instanceName)
{
    const bool isSomethingElse = file.exists() && !file.isFile();
    if (isSomethingElse
        || !file.fileName().endsWith(PropertyManagerConst::getConfigFileExtension())) {
        return true;
    }
    if (element.isNull()) {
        qWarning() << "Invalid root node given during parsing file" << file.filePath();
        return false;
    }
    const Root subtree = element->getLeaf(file.fileName().section('.', 0, 0));
    if (subtree.isNull()) {
        qWarning() << "Unable to find leaf for file" << file.absoluteFilePath();
        return false;
    }
    const Root other = writeBack.written.value(file.canonicalFilePath());
    if (other == subtree) {
        return true;
    }
    ConfigurationModificationHandler::getInstance().touch(
        subtree, writeBack.moduleName, writeBack.objectName, instanceName, origin);
    if (!other.isNull()) {
        return true;
    }
    writeBack.written.insert(file.canonicalFilePath(), subtree);
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
    const auto entries = PlainDirectories::entriesOf(entry);
    if (!PlainDirectories::containsFileOrDir(entries,
                                             PropertyManagerConst::getConfigFileExtension())) {
        return true;
    }
    for (const QFileInfo &below : entries) {
        Root next = element;
        QString name = below.fileName().section('.', 0, 0);
        if (below.isDir()) {
            if (element.isNull()) {
                qWarning() << "Invalid root node given during parsing file" << below.filePath();
                return false;
            }
            name = below.fileName();
            next = element->getLeaf(name);
            if (!writeBack.links.enter(below)) {
                qWarning() << DirectoryLinks::passedOver() << below.filePath();
                continue;
            }
        }
        if (!frame(next, writeBack, below, instanceName + '/' + name)) {
            return false;
        }
    }
    return true;
}

/// Whether all names of each file would give it the same text.
bool agree(const Root &element, const QFileInfo &entry, DirectoryLinks &links,
           QHash<QString, Root> &subtrees)
{
    if (element.isNull()) {
        return true;
    }
    if (entry.isDir()) {
        bool isAlike = true;
        const auto entries = PlainDirectories::entriesOf(entry);
        for (const QFileInfo &below : entries) {
            const Root next = element->getChildMap().value(below.fileName());
            isAlike = isAlike
                      && (below.isDir() ? !links.enter(below) || agree(next, below, links, subtrees)
                                        : agree(element, below, links, subtrees));
        }
        return isAlike;
    }
    const Root subtree = element->getChildMap().value(entry.fileName().section('.', 0, 0));
    if (!entry.isFile() || subtree.isNull()
        || !entry.fileName().endsWith(PropertyManagerConst::getConfigFileExtension())) {
        return true;
    }
    Root &other = subtrees[entry.canonicalFilePath()];
    if (!other.isNull() && !isSame(subtree, other)) {
        qWarning() << DirectoryLinks::passedOver() << entry.filePath();
        return false;
    }
    other = subtree;
    return true;
}

} // namespace

bool PlainDirectories::frameConfigDir(const BaseClassSharedPointer &element,
                                      const QString &moduleName, const QString &objectName,
                                      const QFileInfo &entry, const QString &instanceName)
{
    DirectoryLinks links(entry);
    QHash<QString, Root> subtrees;
    if (!agree(element, entry, links, subtrees)) {
        return false;
    }
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

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationModificationHandler.h"
#include "agreement/DirectoryLinks.h"
#include "agreement/PlainDirectories.h"

#include <QDebug>

#include <algorithm>

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
    /// By canonical path.
    QHash<QString, Root> written;
};

/// A file that is going to be written.
struct Target
{
    QFileInfo file;
    Root subtree;
};

/// Lets no message out, of any thread, while it lives.
class Silence
{
public:
    Silence()
        : m_former(
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {}))
    {
    }
    ~Silence() { qInstallMessageHandler(m_former); }
    Q_DISABLE_COPY(Silence)

private:
    QtMessageHandler m_former;
};

bool isConfiguration(const QFileInfo &file)
{
    return file.fileName().endsWith(PropertyManagerConst::getConfigFileExtension());
}

Root subtreeFor(const Root &element, const QString &name)
{
    return element.isNull() ? Root() : element->getLeaf(name);
}

QString stemOf(const QFileInfo &file)
{
    return file.fileName().section('.', 0, 0);
}

void collectTargets(const Root &element, const QFileInfo &directory, DirectoryLinks &links,
                    QList<Target> &targets)
{
    if (!links.enter(directory)) {
        return;
    }
    for (const QFileInfo &below : PlainDirectories::entriesOf(directory)) {
        if (below.isDir()) {
            collectTargets(subtreeFor(element, below.fileName()), below, links, targets);
        } else if (isConfiguration(below)) {
            targets.append({below, subtreeFor(element, stemOf(below))});
        }
    }
}

bool wouldGetOneText(const Target &first, const Target &other)
{
    const Silence silence;
    return Parser().createJsonObject(first.subtree) == Parser().createJsonObject(other.subtree);
}

/// Whether the walk ends at another name of the same file, before it comes to this one.
bool nullSubtreeBefore(const QList<Target> &targets, int index)
{
    const QString path = targets.at(index).file.canonicalFilePath();
    return std::any_of(targets.cbegin(), targets.cbegin() + index, [&](const Target &target) {
        return target.subtree.isNull() && target.file.canonicalFilePath() == path;
    });
}

/// Every file with every other one in front of it.
bool namesOfOneFileAgree(const Root &element, const QFileInfo &entry)
{
    QList<Target> targets;
    if (entry.isDir()) {
        const Silence silence;
        DirectoryLinks links(entry);
        collectTargets(element, entry, links, targets);
    }
    for (int i = 0; i < targets.size(); ++i) {
        const Target &first = targets.at(i);
        for (int j = i + 1; j < targets.size(); ++j) {
            const Target &other = targets.at(j);
            if (first.file.canonicalFilePath() != other.file.canonicalFilePath()
                || nullSubtreeBefore(targets, i) || first.subtree.isNull() || other.subtree.isNull()
                || wouldGetOneText(first, other)) {
                continue;
            }
            qWarning() << "One file under two names would get different texts:"
                       << first.file.filePath() << other.file.filePath();
            return false;
        }
    }
    return true;
}

void copyStamp(const Root &from, const Root &to)
{
    for (const QString &key : {Definitions::getKeyDataPropertyModifiedBy(),
                               Definitions::getKeyDataPropertyLastModified()}) {
        if (from->hasProperty(key)) {
            to->setProperty(key, from->getProperty(key));
        }
    }
}

bool frameFile(const Root &element, WriteBack &writeBack, const QFileInfo &file,
               const QString &instanceName)
{
    if (!isConfiguration(file)) {
        return true;
    }
    if (element.isNull()) {
        qWarning() << "Invalid root node given during parsing file" << file.filePath();
        return false;
    }
    if (file.exists() && !file.isFile()) {
        qWarning() << "Not a regular file and not written:" << file.filePath();
        return false;
    }
    const Root subtree = element->getLeaf(stemOf(file));
    if (subtree.isNull()) {
        qWarning() << "Unable to find leaf for file" << file.absoluteFilePath();
        return false;
    }
    Root &written = writeBack.written[file.canonicalFilePath()];
    if (written == subtree) {
        return true;
    }
    ConfigurationModificationHandler::getInstance().touch(
        subtree, writeBack.moduleName, writeBack.objectName, instanceName, origin);
    if (!written.isNull()) {
        copyStamp(written, subtree);
        return true;
    }
    if (!Parser().frameToFile(subtree, file.filePath())) {
        qWarning() << "Framing Error occured" << file.filePath();
        return false;
    }
    written = subtree;
    return true;
}

bool frame(const Root &element, WriteBack &writeBack, const QFileInfo &entry,
           const QString &instanceName)
{
    if (!entry.isDir()) {
        return frameFile(element, writeBack, entry, instanceName);
    }
    if (!writeBack.links.enter(entry)) {
        return true;
    }
    const auto entries = PlainDirectories::entriesOf(entry);
    if (!PlainDirectories::containsFileOrDir(entries,
                                             PropertyManagerConst::getConfigFileExtension())) {
        return true;
    }
    for (const QFileInfo &below : entries) {
        Root next = element;
        QString name = stemOf(below);
        if (below.isDir()) {
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
    return namesOfOneFileAgree(element, entry) && frame(element, writeBack, entry, instanceName);
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

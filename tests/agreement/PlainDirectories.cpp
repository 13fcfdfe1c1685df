#include "agreement/PlainDirectories.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "agreement/DirectoryLinks.h"

#include <QDebug>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

namespace {

using Definitions = ConfigurationAndProcessDataDefinitions;
using Parser = ConfigurationAndProcessDataParser;
using Root = PlainDirectories::BaseClassSharedPointer;

QString stemOf(const QFileInfo &file)
{
    return file.fileName().section('.', 0, 0);
}

bool createPath(const QDir &directory, const QString &fileName, QString &path)
{
    const QString found = directory.filePath(fileName);
    if (!QFile::exists(found)) {
        return false;
    }
    path = found;
    return true;
}

QString textOfFolder(const QString &path, const QString &key)
{
    QVariant value;
    PlainDirectories::readFolderDescription(path, key, value);
    return value.toString();
}

Root nodeOf(const QFileInfo &directory, const QString &extension)
{
    const QString label = textOfFolder(directory.filePath(),
                                       Definitions::getKeyDataPropertyLabelTextId());
    const QString cpve = textOfFolder(directory.filePath(),
                                      Definitions::getKeyDataPropertyCpveVersion());
    const QString version = textOfFolder(directory.filePath(),
                                         Definitions::getKeyDataPropertyConfigurationVersion());
    return Parser().createNode(
        {{Definitions::getKeyDataPropertyLabelTextId(), label},
         {Definitions::getKeyDataPropertyType(), Definitions::getKeyDataTypeTreeNode()},
         {Definitions::getKeyDataPropertyCpveVersion(), cpve},
         {Definitions::getKeyDataPropertyConfigurationVersion(), version},
         {Definitions::getKeyDataPropertyValue(), QJsonArray()}},
        extension);
}

bool parseFile(const Root &root, const QFileInfo &file, const QString &extension)
{
    if (!file.fileName().endsWith(extension)) {
        return true;
    }
    if (root.isNull()) {
        qWarning() << "Invalid root node given during parsing file" << file.filePath();
        return false;
    }
    const Root element = Parser().parseFromFile(file.filePath());
    const auto node = root.dynamicCast<ConfigurationAndProcessDataTreeNode>();
    if (node.isNull()) {
        qWarning() << "Unable to get treenode to add config file" << file.filePath();
        return true;
    }
    node->addElement(stemOf(file), element);
    return true;
}

bool parse(Root &root, const QFileInfo &entry, const QString &extension, DirectoryLinks &links)
{
    if (!entry.isDir()) {
        return parseFile(root, entry, extension);
    }
    if (!links.enter(entry)) {
        return true;
    }
    const auto entries = PlainDirectories::entriesOf(entry);
    if (!PlainDirectories::containsFileOrDir(entries, extension)) {
        return true;
    }
    Root node = nodeOf(entry, extension);
    if (root.isNull()) {
        root = node;
    } else if (const auto parent = root.dynamicCast<ConfigurationAndProcessDataTreeNode>()) {
        parent->addElement(entry.fileName(), node);
    } else {
        qWarning() << "Unable to get treenode to add config directory" << entry.filePath();
    }
    for (const QFileInfo &below : entries) {
        if (!parse(node, below, extension, links)) {
            return false;
        }
    }
    return true;
}

/// By code point, which the order of UTF-16 is not.
bool isBefore(const QFileInfo &left, const QFileInfo &right)
{
    const auto leftName = left.fileName().toUcs4();
    const auto rightName = right.fileName().toUcs4();
    return std::lexicographical_compare(leftName.cbegin(), leftName.cend(), rightName.cbegin(),
                                        rightName.cend());
}

void search(const QFileInfo &directory, DirectoryLinks &links, QList<QFileInfo> &files)
{
    auto entries = QDir(directory.filePath())
                       .entryInfoList(QDir::Dirs | QDir::Files | QDir::NoDotAndDotDot,
                                      QDir::Unsorted);
    std::sort(entries.begin(), entries.end(), isBefore);
    const QString ending = '.' + PropertyManagerConst::getProcessDataDescriptionFileExtension();
    for (const QFileInfo &entry : std::as_const(entries)) {
        if (entry.isDir()) {
            if (links.enter(entry)) {
                search(entry, links, files);
            }
        } else if (entry.isFile() && entry.fileName().endsWith(ending)) {
            files.append(entry);
        }
    }
}

/// The three facts that a description tells about the memory that it lies in.
struct MemoryFacts
{
    explicit MemoryFacts(const Root &root)
        : doubleBuffer(root->getProperty(Definitions::getKeyDataPropertyDoubleBuffer()))
        , size(root->getProperty(Definitions::getKeyDataPropertySizeOfSharedMemory()))
        , key(root->getProperty(Definitions::getStrKeyProcessDataMemory()))
    {
    }

    bool isReadable() const
    {
        return doubleBuffer.canConvert(QMetaType::Bool) && size.canConvert(QMetaType::Int)
               && key.canConvert(QMetaType::QString);
    }

    QVariant doubleBuffer;
    QVariant size;
    QVariant key;
};

template <class Value>
bool isSame(const char *message, const Value &reference, const Value &value, const QString &path)
{
    if (reference == value) {
        return true;
    }
    qWarning() << message << reference << "!=" << value << path;
    return false;
}

} // namespace

QList<QFileInfo> PlainDirectories::generateDirectoryInfoList(const QDir &directory)
{
    QDir listed(directory);
    listed.setFilter(QDir::Dirs | QDir::Files | QDir::NoDot | QDir::NoDotDot);
    listed.setSorting(QDir::Name);
    return listed.entryInfoList();
}

bool PlainDirectories::containsFileOrDir(const QList<QFileInfo> &entries, const QString &ending)
{
    for (const QFileInfo &entry : entries) {
        if (entry.isDir() || entry.fileName().endsWith(ending)) {
            return true;
        }
    }
    return false;
}

bool PlainDirectories::createConfigurationFilePath(const QDir &directory,
                                                   const QString &instanceName, QString &path)
{
    return createPath(directory,
                      instanceName + '.' + PropertyManagerConst::getConfigFileExtension(), path);
}

bool PlainDirectories::createProcessDescriptionFilePath(const QDir &directory,
                                                        const QString &instanceName, QString &path)
{
    return createPath(
        directory,
        instanceName + '.' + PropertyManagerConst::getProcessDataDescriptionFileExtension(), path);
}

void PlainDirectories::readFolderDescription(const QString &path, const QString &key,
                                             QVariant &value)
{
    if (!QFileInfo(path).isDir()) {
        return;
    }
    QFile file(path + '/' + PropertyManagerConst::getMenuFolderDescriptionFilename());
    if (!file.exists()) {
        qDebug() << "No description file found!";
        return;
    }
    const QFileInfo info(file);
    if (!info.isFile() && !info.isDir()) {
        qWarning() << "Not a regular file and not read:" << file.fileName();
        return;
    }
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        qWarning() << "Can't open file " << file.fileName() << " IO Error: " << file.errorString();
        return;
    }
    QJsonParseError error;
    const auto document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError) {
        qWarning() << "Can't parse Json! of File" << file.fileName();
        return;
    }
    value = document.object().value(key).toVariant();
}

bool PlainDirectories::parseDir(BaseClassSharedPointer &root, const QFileInfo &entry,
                                const QString &extension)
{
    DirectoryLinks links(entry);
    return parse(root, entry, extension, links);
}

bool PlainDirectories::parseConfigDir(BaseClassSharedPointer &root, const QFileInfo &entry)
{
    return parseDir(root, entry, PropertyManagerConst::getConfigFileExtension());
}

bool PlainDirectories::parseProcessDir(BaseClassSharedPointer &root, const QFileInfo &entry)
{
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

Root PlainDirectories::getParsedConfigurationProcessDescription(const QDir &directory,
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
        Root root;
        return parseConfigDir(root, instance) ? root : Root();
    }
    QString path;
    if (isProcessDescription) {
        createProcessDescriptionFilePath(directory, instanceName, path);
    } else {
        createConfigurationFilePath(directory, instanceName, path);
    }
    return path.isEmpty() ? Root() : Parser().parseFromFile(path);
}

QString PlainDirectories::getConfiguration(const QDir &directory, const QString &instanceName)
{
    const Root root = getParsedConfigurationProcessDescription(directory, instanceName, false);
    if (root.isNull()) {
        qWarning() << "Unable to parse configuration" << instanceName;
        return {};
    }
    QByteArray text;
    if (!Parser().frameToByteArray(root, text, QJsonDocument::Compact)) {
        qWarning() << "Unable to frame JSON-String!";
        return {};
    }
    return QString::fromUtf8(text.constData());
}

QString PlainDirectories::getConfiguration(const QFileInfo &instance)
{
    const QDir directory(instance.path());
    return directory.exists() && !instance.fileName().isEmpty()
               ? getConfiguration(directory, instance.fileName())
               : QString();
}

QString PlainDirectories::getDependency(const QDir &directory, const QString &instanceName)
{
    if (instanceName.isEmpty()) {
        qWarning() << "Dependency instance name is empty!";
        return {};
    }
    Root root;
    QString path;
    if (!directory.exists()) {
        qWarning() << "Dependency folder does not exist:" << directory.path();
    } else if (!createConfigurationFilePath(directory, instanceName, path)) {
        qWarning() << "Cannot parse dependency file." << path;
    } else {
        root = Parser().parseFromFile(path);
    }
    if (root.isNull()) {
        return {};
    }
    QByteArray text;
    Parser().frameToByteArray(root, text, QJsonDocument::Compact);
    if (text.isEmpty()) {
        qWarning() << "Unable to frame dependency JSON-String!";
        return {};
    }
    return QString::fromUtf8(text.constData());
}

bool PlainDirectories::getSharedMemoryInfoFromDir(const QFileInfo &directory, bool &doubleBuffer,
                                                  int &size, QString &key)
{
    const auto files = processDescriptionsBelow(directory.filePath());
    if (files.isEmpty()) {
        qWarning() << "No sharedMemory description:" << directory.filePath();
        return false;
    }
    bool isGood = true;
    bool hasReference = false;
    for (const QFileInfo &file : files) {
        const QString path = file.filePath();
        const Root root = Parser().parseFromFile(path);
        if (root.isNull()) {
            qWarning() << "Can't parse process data file:" << path;
            isGood = false;
            continue;
        }
        const MemoryFacts facts(root);
        if (!facts.isReadable()) {
            qWarning() << "Can't read sharedMemorySize or -Key:" << size << key << "path:" << path;
            isGood = false;
            continue;
        }
        if (!hasReference) {
            hasReference = true;
            doubleBuffer = facts.doubleBuffer.toBool();
            size = facts.size.toInt();
            key = facts.key.toString();
            continue;
        }
        isGood &= isSame("DoubleBuffer value is different:", doubleBuffer,
                         facts.doubleBuffer.toBool(), path);
        isGood &= isSame("SharedMemorySize is different:", size, facts.size.toInt(), path);
        isGood &= isSame("SharedMemoryKey is different:", key, facts.key.toString(), path);
    }
    return isGood;
}

QList<QFileInfo> PlainDirectories::entriesOf(const QFileInfo &directory)
{
    QList<QFileInfo> entries;
    const auto all = generateDirectoryInfoList(QDir(directory.filePath()));
    for (const QFileInfo &entry : all) {
        if (entry.isDir() || entry.isFile()) {
            entries.append(entry);
        }
    }
    return entries;
}

QList<QFileInfo> PlainDirectories::processDescriptionsBelow(const QString &path)
{
    QList<QFileInfo> files;
    const QFileInfo top(path);
    DirectoryLinks links(top);
    if (top.isDir() && links.enter(top)) {
        search(top, links, files);
    }
    return files;
}

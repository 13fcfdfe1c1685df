#pragma once

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/PropertyManagerConst.h"
#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/ConfigurationDataValue.h"
#include "Configuration/ConfigurationModificationHandler.h"
#include "agreement/RandomDirectory.h"
#include "support/LogCapture.h"
#include "support/WorkingDirectory.h"

#include <QRegularExpression>

#include <type_traits>

/// Everything about a tree that can be asked for, one line an element.
inline QString described(const ConfigurationAndProcessDataBase::BaseClassSharedPointer &element,
                         const QString &url = QStringLiteral("root"))
{
    if (element.isNull()) {
        return url + " null\n";
    }
    QMap<QString, QVariant> properties;
    const auto held = element->getProperties();
    for (auto property = held.cbegin(); property != held.cend(); ++property) {
        properties.insert(property.key(), property.value());
    }
    QString text;
    QDebug(&text) << url << element->metaObject()->className() << properties << '\n';
    QStringList keys = element->getChildMap().keys();
    keys.sort();
    for (const QString &key : std::as_const(keys)) {
        text += described(element->getChildMap().value(key), url + '/' + key);
    }
    return text;
}

/// Everything at and below @p path that can be told apart by a reader, rights included.
inline QStringList stateOfDisk(const QString &path)
{
    QStringList lines;
    const auto entries = QDir(path).entryInfoList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo &entry : entries) {
        const QString name = entry.filePath();
        if (entry.isSymLink()) {
            lines.append(name + " -> "
                         + QFile::decodeName(QFile::encodeName(entry.symLinkTarget())));
        } else if (entry.isDir()) {
            lines.append(name + '/');
            lines.append(stateOfDisk(name));
        } else if (entry.isFile()) {
            lines.append(name + ' ' + QString::number(int(entry.permissions()), 16) + ' '
                         + QString::fromUtf8(readFile(name)));
        } else {
            lines.append(name + " no file");
        }
    }
    return lines;
}

/// A row of operations on one directory, each with arguments of the random numbers, by one of two
/// implementations; what came of each is one text.
template <class Access, class Builder>
class DirectoryOperations
{
public:
    using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

    /// The directory is called "device" and lies in @p base.
    DirectoryOperations(quint32 seed, const QString &base, const RandomDirectory &directory,
                        const QString &keyPrefix)
        : m_random(seed)
        , m_base(base)
        , m_path(base + QStringLiteral("/device"))
        , m_directory(directory)
        , m_keyPrefix(keyPrefix)
    {
    }

    QStringList perform()
    {
        m_results.clear();
        look();
        parseConfigurations();
        readInstances();
        parseWithARoot();
        writeBack();
        writeBackAPart();
        askForTheMemory();
        parseProcessDirectory();
        build();
        parseProcessDirectory();
        merge();
        mergeFiles();
        build();
        return m_results;
    }

private:
    /// The first line names the operation and whether it succeeded.
    template <class First, class... Values>
    void note(const char *operation, const First &first, const Values &...values)
    {
        QString text = operation;
        if constexpr (std::is_same_v<First, bool>) {
            text += first ? " succeeded" : " failed";
        }
        text += '\n';
        for (const LogLine &line : m_log.take()) {
            text += toText({line}) + '\n';
        }
        ((QDebug(&text) << first) << ... << values) << '\n';
        m_results.append(alike(text));
    }

    /// After operations that write.
    void noteDisk() { m_results.append(alike("disk\n" + stateOfDisk(m_base).join('\n'))); }

    /// The random ends of keys, numbered as they come: a new key stays another one.
    QString withNumberedKeys(QString text)
    {
        const QString beginning = m_keyPrefix + QStringLiteral("Folder");
        for (int at = text.indexOf(beginning); at >= 0; at = text.indexOf(beginning, at + 1)) {
            int end = at;
            while (end < text.size() && text.at(end) != '"' && text.at(end) != '\\') {
                ++end;
            }
            const QString key = text.mid(at, end - at);
            if (!m_keys.contains(key)) {
                m_keys.append(key);
            }
            text.replace(end - 5, 5, QStringLiteral("(end %1)").arg(m_keys.indexOf(key)));
        }
        return text;
    }

    /// Without what two runs need not have in common: the place, addresses, times and the random
    /// end of a key.
    QString alike(QString text)
    {
        static const QRegularExpression address("\\(0x[0-9a-f]+\\)");
        static const QRegularExpression time(
            "\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}(Z|[+-]\\d\\d:\\d\\d)");
        return withNumberedKeys(text.replace("\\n", "\n") // of texts in quotes
                                    .replace(m_base, "(base)")
                                    .replace(m_baseBehindDot, "(base)")
                                    .replace(address, "(address)")
                                    .replace(time, "(time)")
                                    .replace("//", "/")
                                    .replace("/./", "/"));
    }

    QString anyFolder()
    {
        return m_random.once(2) ? m_path : m_path + '/' + m_random.pick(m_directory.folders());
    }
    QString anyFile()
    {
        return m_directory.files().isEmpty() ? m_path + QStringLiteral("/none.config.json")
                                             : m_path + '/' + m_random.pick(m_directory.files());
    }
    QString anyExtension()
    {
        return m_random.once(2) ? PropertyManagerConst::getConfigFileExtension()
                                : PropertyManagerConst::getProcessDataDescriptionFileExtension();
    }
    /// A folder or file, without extension; as a rule of something that is there.
    QString anyInstance()
    {
        if (m_random.once(3)) {
            return QStringLiteral("device");
        }
        QString name = "device/"
                       + (m_random.once(3) || m_directory.files().isEmpty()
                              ? m_random.pick(m_directory.folders())
                              : m_random.pick(m_directory.files()));
        name.remove(QRegularExpression("\\.(config|process)\\.json$"));
        return m_random.once(12) ? QString() : name;
    }
    /// Often not there.
    QDir anyBase()
    {
        return m_random.once(12) ? QDir(m_base + QStringLiteral("/none")) : QDir(m_base);
    }

    void look()
    {
        const QString path = anyFolder();
        const auto entries = Access::generateDirectoryInfoList(QDir(path));
        QStringList names;
        for (const QFileInfo &entry : entries) {
            names.append(entry.filePath());
        }
        note("listing", names, Access::containsFileOrDir(entries, anyExtension()));
        QVariant value = m_random.once(2) ? QVariant(3) : QVariant();
        const QString key =
            m_random.once(2)
                ? ConfigurationAndProcessDataDefinitions::getKeyDataPropertyLabelTextId()
                : ConfigurationAndProcessDataDefinitions::getKeyDataPropertyCpveVersion();
        Access::readFolderDescription(m_random.once(9) ? anyFile() : path, key, value);
        note("folder description", value);
        const QString instance = anyInstance();
        QString file = m_random.once(2) ? QStringLiteral("former") : QString();
        const bool isThere = m_random.once(2)
                                 ? Access::createConfigurationFilePath(anyBase(), instance, file)
                                 : Access::createProcessDescriptionFilePath(anyBase(), instance,
                                                                            file);
        note("file of an instance", isThere, file);
    }

    void parseConfigurations()
    {
        Root root;
        const bool isParsed = Access::parseConfigDir(root, QFileInfo(anyFolder()));
        note("configurations", isParsed, described(root));
    }

    void readInstances()
    {
        const QDir base = anyBase();
        const QString instance = anyInstance();
        const bool isProcessDescription = m_random.once(3);
        note("instance", described(Access::getParsedConfigurationProcessDescription(
                             base, instance, isProcessDescription)));
        note("configuration", Access::getConfiguration(anyBase(), anyInstance()));
        note("configuration at a path",
             Access::getConfiguration(QFileInfo(m_base + '/' + anyInstance())));
        note("dependency", Access::getDependency(anyBase(), anyInstance()));
    }

    void parseWithARoot()
    {
        Root root = ConfigurationAndProcessDataParser().createNode(
            m_random.once(4) ? QJsonObject{{"type", "int32"}, {"value", 1}}
                             : QJsonObject{{"type", "treenode"}, {"value", QJsonArray()}},
            anyExtension());
        const QFileInfo entry(m_random.once(2) ? anyFile() : anyFolder());
        if (m_random.once(4)) {
            root.reset();
        }
        const bool isParsed = Access::parseDir(root, entry, anyExtension());
        note("into a tree", isParsed, described(root));
    }

    /// Changes that an application may make, or have made by accident.
    void change(const Root &root)
    {
        const auto node = root.dynamicCast<ConfigurationAndProcessDataTreeNode>();
        if (root.isNull() || node.isNull()) {
            return;
        }
        for (int i = m_random.below(4); i > 0; --i) {
            const auto leaf = root->getLeafConfigurationData(m_random.leafUrl(root));
            if (!leaf.isNull()) {
                leaf->setProperty("value", m_random.value(1));
            }
        }
        QStringList keys = root->getChildMap().keys();
        keys.sort();
        if (!keys.isEmpty() && m_random.once(6)) {
            node->deleteElement(m_random.pick(keys));
        }
        if (m_random.once(10)) {
            node->addElement("a", {});
        }
    }

    void writeBack()
    {
        const QDir base = anyBase();
        const QString instance = anyInstance();
        const bool isProcessDescription = m_random.once(4);
        Root root = Access::getParsedConfigurationProcessDescription(QDir(m_base), instance,
                                                                     isProcessDescription);
        const bool isOfAnother = m_random.once(10);
        if (isOfAnother) {
            root = Access::getParsedConfigurationProcessDescription(QDir(m_base), anyInstance(),
                                                                    false);
        }
        change(root);
        note("changed tree", described(root));
        const bool isWritten = Access::setParsedConfigurationProcessDescription(
            base, "module", "object", instance, root, isProcessDescription);
        note("written back", isWritten, described(root), takeStamps());
        noteDisk();
    }

    void writeBackAPart()
    {
        Root root;
        const QString folder = anyFolder();
        Access::parseConfigDir(root, QFileInfo(folder));
        const QFileInfo entry(m_random.once(3)   ? anyFile()
                              : m_random.once(3) ? anyFolder()
                                                 : folder);
        if (m_random.once(8)) {
            root.reset();
        }
        const bool isWritten = Access::frameConfigDir(root, "module", "object", entry,
                                                      QStringLiteral("part"));
        note("part written back", isWritten, described(root), takeStamps());
        noteDisk();
    }

    static QStringList takeStamps()
    {
        auto &handler = ConfigurationModificationHandler::getInstance();
        QList<ModifiedInstanceItem> items;
        handler.getModifiedInstances(items);
        handler.clearModifiedInstances();
        QStringList texts;
        for (const ModifiedInstanceItem &item : std::as_const(items)) {
            texts.append(item.moduleName + ' ' + item.objectName + ' ' + item.instanceName + ' '
                         + item.lastModified);
        }
        return texts;
    }

    void askForTheMemory()
    {
        bool doubleBuffer = m_random.once(2);
        int size = 77;
        QString key = QStringLiteral("former");
        const bool isAgreed = Access::getSharedMemoryInfoFromDir(QFileInfo(anyFolder()),
                                                                 doubleBuffer, size, key);
        note("memory", isAgreed, doubleBuffer, size, key);
    }

    void parseProcessDirectory()
    {
        Root root;
        if (m_random.once(6)) {
            root = ConfigurationAndProcessDataParser().createNode(
                {{"type", "treenode"}, {"value", QJsonObject()}}, anyExtension());
        }
        const bool isParsed = Access::parseProcessDir(root,
                                                      QFileInfo(m_random.once(20)  ? anyFile()
                                                                : m_random.once(4) ? anyFolder()
                                                                                   : m_path));
        note("process directory", isParsed, described(root));
        if (isParsed) {
            // Files that are alike must have become trees of their own.
            const Root leaf = root->getLeaf(m_random.leafUrl(root));
            if (!leaf.isNull()) {
                leaf->addProperty("mark", 1);
            }
            note("marked", described(root));
        }
    }

    void build()
    {
        QString key = m_random.once(3) ? QStringLiteral("imposed") : QString();
        const QString path = m_random.once(8) ? anyFolder() : m_path;
        const QString end = m_random.once(6)   ? QStringLiteral("/")
                            : m_random.once(8) ? QStringLiteral("/.")
                                               : QString();
        const bool isBuilt = Builder().buildProcessDataFromDir(m_keyPrefix, path + end, key);
        note("built", isBuilt, key);
        noteDisk();
    }

    void merge()
    {
        const ConfigurationAndProcessDataParser parser;
        Root root = m_random.once(15) ? Root() : parser.parseFromFile(anyFile());
        Root part = m_random.once(15) ? Root() : parser.parseFromFile(anyFile());
        int size = 77;
        int offset = 78;
        const bool isMerged = Builder().buildProcessData(root, part, "part", size, offset);
        note("merged", isMerged, size, offset, described(root), described(part));
    }

    void mergeFiles()
    {
        int size = 77;
        int offset = 78;
        const QString rootPath = anyFile();
        const bool isMerged = Builder().buildProcessDataFromFiles(rootPath, anyFile(), "part", size,
                                                                  offset);
        note("files merged", isMerged, size, offset);
        noteDisk();
    }

    RandomConfiguration m_random;
    QString m_base;
    /// As a message has it that tells a path from its first dot on; of a place without a dot the whole.
    QString m_baseBehindDot{m_base.mid(m_base.indexOf('.') + 1)};
    QString m_path;
    const RandomDirectory &m_directory;
    QString m_keyPrefix;
    LogCapture m_log;
    QStringList m_keys;
    QStringList m_results;
};
